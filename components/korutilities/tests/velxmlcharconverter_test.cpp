#include "velxmlcharconverter.h"

#include <gtest/gtest.h>

TEST(VeLXMLCharConverter, ConvertsBasicPlaneAndPairsBothWays)
{
    const std::wstring wide = L"A\u00e9\u4e2d\U0001F600z";
    const XMLChString units = CVeLXMLCharConverter::ToXMLCh(wide);
    const XMLChString expected = {u'A', 0x00E9, 0x4E2D, 0xD83D, 0xDE00, u'z'};
    EXPECT_EQ(expected, units);
    EXPECT_EQ(wide, CVeLXMLCharConverter::ToWString(units.c_str()));
    EXPECT_EQ(wide, CVeLXMLCharConverter::ToWString(units.data(), units.size()));
}

TEST(VeLXMLCharConverter, LoneSurrogatesAreKept)
{
    // A lone low surrogate, a high one followed by a non-surrogate, and a lone high surrogate at the end.
    const XMLCh lone[] = {u'a', 0xDC00, u'b', 0xD800, u'c', 0xD801};
    const std::wstring wide = CVeLXMLCharConverter::ToWString(lone, 6);
    EXPECT_EQ(std::wstring({L'a', wchar_t(0xDC00), L'b', wchar_t(0xD800), L'c', wchar_t(0xD801)}), wide);
    EXPECT_EQ(XMLChString(lone, 6), CVeLXMLCharConverter::ToXMLCh(wide));
}

TEST(VeLXMLCharConverter, EmptyNullAndEmbeddedZeros)
{
    EXPECT_TRUE(CVeLXMLCharConverter::ToWString(nullptr).empty());
    EXPECT_TRUE(CVeLXMLCharConverter::ToWString(nullptr, 5).empty());
    EXPECT_TRUE(CVeLXMLCharConverter::ToXMLCh(std::wstring()).empty());
    const std::wstring withZero(L"a\0b", 3);
    const XMLChString units = CVeLXMLCharConverter::ToXMLCh(withZero);
    ASSERT_EQ(3u, units.size());
    EXPECT_EQ(withZero, CVeLXMLCharConverter::ToWString(units.data(), units.size()));
}
