#include "velxmlcharconverter.h"

#include <gtest/gtest.h>

// Both directions over one table: the basic plane with a surrogate pair; lone surrogates (a low one, a high
// one before a non-surrogate, a high one at the end), which are kept; nothing; an embedded zero.
TEST(VeLXMLCharConverter, ConvertsBothWaysKeepingLoneSurrogatesAndZeros)
{
    const std::pair<std::wstring, XMLChString> cases[] = {
        {L"A\u00e9\u4e2d\U0001F600z", {u'A', 0x00E9, 0x4E2D, 0xD83D, 0xDE00, u'z'}},
        {{L'a', wchar_t(0xDC00), L'b', wchar_t(0xD800), L'c', wchar_t(0xD801)},
         {u'a', 0xDC00, u'b', 0xD800, u'c', 0xD801}},
        {std::wstring(), XMLChString()},
        {std::wstring(L"a\0b", 3), {u'a', 0, u'b'}},
    };
    for (const auto& c : cases)
    {
        EXPECT_EQ(CVeLXMLCharConverter::ToXMLCh(c.first), c.second);
        EXPECT_EQ(CVeLXMLCharConverter::ToWString(c.second.data(), c.second.size()), c.first);
    }
    EXPECT_EQ(CVeLXMLCharConverter::ToWString(cases[0].second.c_str()), cases[0].first);
    EXPECT_TRUE(CVeLXMLCharConverter::ToWString(nullptr).empty());
    EXPECT_TRUE(CVeLXMLCharConverter::ToWString(nullptr, 5).empty());
}
