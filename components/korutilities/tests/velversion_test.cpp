// Version values: parsing of awkward texts, ordering and both text forms.
#include "velversion.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace
{

struct ParseCase
{
    const wchar_t* text;
    bool valid;
    const wchar_t* full; // the parsed value, when valid
};

const ParseCase kParseCases[] = {
    {L"1", true, L"1.0.0.0"},
    {L"1.2", true, L"1.2.0.0"},
    {L"1.2.3", true, L"1.2.3.0"},
    {L"1.2.3.4", true, L"1.2.3.4"},
    {L"  007.0010.65535.0 \t", true, L"7.10.65535.0"},
    {L"000000000000000000001.2", true, L"1.2.0.0"},
    {L"65536", false, nullptr},
    {L"99999999999999999999", false, nullptr},
    {L"", false, nullptr},
    {L"   ", false, nullptr},
    {L"1.", false, nullptr},
    {L".1", false, nullptr},
    {L"1..2", false, nullptr},
    {L"1.2.3.4.5", false, nullptr},
    {L"1 .2", false, nullptr},
    {L"-1", false, nullptr},
    {L"+1", false, nullptr},
    {L"1.2a", false, nullptr},
    {L"0x10", false, nullptr},
    {L"1,2", false, nullptr},
    {L"\x0661.2", false, nullptr}, // an Arabic-Indic digit is no decimal digit here
};

} // namespace

TEST(VeLVersion, ParsesOnlyOneToFourDecimalPartsInRange)
{
    for (const ParseCase& c : kParseCases)
    {
        const CVeLResult<CVeLVersion> parsed = CVeLVersion::Parse(c.text);
        EXPECT_EQ(parsed.IsSuccess(), c.valid) << "'" << c.text << "'";
        if (c.valid && parsed.IsSuccess())
        {
            EXPECT_EQ(parsed.GetValue().ToString(), c.full) << "'" << c.text << "'";
        }
    }
}

TEST(VeLVersion, OrdersPartByPartNotAsText)
{
    const std::vector<std::wstring> ascending = {
        L"0",     L"0.0.0.1", L"0.1", L"1.2",  L"1.2.0.1",
        L"1.2.1", L"1.10",    L"2",   L"10.0", L"65535.65535.65535.65535"};
    for (std::size_t i = 0; i < ascending.size(); ++i)
        for (std::size_t j = 0; j < ascending.size(); ++j)
        {
            const CVeLVersion a = CVeLVersion::Parse(ascending[i]).GetValue();
            const CVeLVersion b = CVeLVersion::Parse(ascending[j]).GetValue();
            const int expected = i < j ? -1 : (i > j ? 1 : 0);
            EXPECT_EQ(a.Compare(b), expected) << ascending[i] << " vs " << ascending[j];
            EXPECT_EQ(a < b, expected < 0);
        }
    EXPECT_EQ(CVeLVersion::Parse(L"1.2").GetValue(), CVeLVersion::Parse(L"01.02.0.00").GetValue());
}

TEST(VeLVersion, ShortFormDropsOnlyTrailingZeroBuildAndRevision)
{
    EXPECT_EQ(CVeLVersion(1, 0).ToShortString(), L"1.0");
    EXPECT_EQ(CVeLVersion(1, 2, 3).ToShortString(), L"1.2.3");
    EXPECT_EQ(CVeLVersion(1, 2, 0, 4).ToShortString(), L"1.2.0.4");
    EXPECT_EQ(CVeLVersion::FromFixed(0x00010002, 0x00030004).ToString(), L"1.2.3.4");
    EXPECT_EQ(CVeLVersion::FromFixed(0xFFFF0000, 0x0000FFFF).ToString(), L"65535.0.0.65535");
}
