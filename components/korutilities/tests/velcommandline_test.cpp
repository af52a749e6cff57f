// CVeLCommandLine and CVeLTypeConverter: the parsing a program does of its arguments and their values.
#include "velcommandline.h"
#include "veltypeconverter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace
{

CVeLCommandLine Declared()
{
    CVeLCommandLine cmd;
    EXPECT_TRUE(cmd.AddOption(L"key-file", L'k', true));
    EXPECT_TRUE(cmd.AddOption(L"quiet", L'q', false));
    EXPECT_TRUE(cmd.AddOption(L"json", 0, false));
    return cmd;
}

} // namespace

TEST(CVeLCommandLine, ValuesFlagsAndPositionalsInEverySpelling)
{
    for (const std::vector<std::wstring>& args :
         {std::vector<std::wstring>{L"in", L"--key-file", L"k.bin", L"--quiet", L"out"},
          std::vector<std::wstring>{L"--key-file=k.bin", L"in", L"-q", L"out"},
          std::vector<std::wstring>{L"-k", L"k.bin", L"in", L"out", L"-q"},
          std::vector<std::wstring>{L"-qkk.bin", L"in", L"out"}})
    {
        CVeLCommandLine cmd = Declared();
        ASSERT_TRUE(cmd.Parse(args)) << cmd.GetError();
        EXPECT_EQ(cmd.GetValue(L"key-file"), L"k.bin");
        EXPECT_TRUE(cmd.Has(L"quiet"));
        EXPECT_FALSE(cmd.Has(L"json"));
        EXPECT_EQ(cmd.GetValue(L"json", L"none"), L"none");
        EXPECT_EQ(cmd.GetPositionals(), (std::vector<std::wstring>{L"in", L"out"}));
        EXPECT_TRUE(cmd.GetError().empty());
    }
}

TEST(CVeLCommandLine, DoubleDashEndsOptionsAndLoneDashIsPositional)
{
    CVeLCommandLine cmd = Declared();
    ASSERT_TRUE(cmd.Parse({L"-", L"--", L"--quiet", L"-k", L"--"}));
    EXPECT_FALSE(cmd.Has(L"quiet"));
    EXPECT_EQ(cmd.GetPositionals(), (std::vector<std::wstring>{L"-", L"--quiet", L"-k", L"--"}));
    // A value that looks like an option is still the value.
    ASSERT_TRUE(cmd.Parse({L"--key-file", L"--quiet"}));
    EXPECT_EQ(cmd.GetValue(L"key-file"), L"--quiet");
    EXPECT_FALSE(cmd.Has(L"quiet"));
    // An empty value is a value.
    ASSERT_TRUE(cmd.Parse({L"--key-file="}));
    EXPECT_TRUE(cmd.Has(L"key-file"));
    EXPECT_EQ(cmd.GetValue(L"key-file", L"x"), L"");
}

TEST(CVeLCommandLine, UsageFaultsAreRefusedWithAReason)
{
    const std::vector<std::pair<std::vector<std::wstring>, std::wstring>> cases = {
        {{L"--key-file"}, L"option --key-file needs a value"},
        {{L"-k"}, L"option -k needs a value"},
        {{L"--verbose"}, L"unknown option --verbose"},
        {{L"-x"}, L"unknown option -x"},
        {{L"--quiet=yes"}, L"option --quiet takes no value"},
        {{L"-q", L"--quiet"}, L"option --quiet given twice"},
    };
    for (const auto& c : cases)
    {
        CVeLCommandLine cmd = Declared();
        EXPECT_FALSE(cmd.Parse(c.first));
        EXPECT_EQ(cmd.GetError(), c.second);
    }
    CVeLCommandLine cmd;
    EXPECT_TRUE(cmd.AddOption(L"a", L'a', false));
    EXPECT_FALSE(cmd.AddOption(L"a", 0, false));
    EXPECT_FALSE(cmd.AddOption(L"b", L'a', false));
    EXPECT_FALSE(cmd.AddOption(L"", 0, false));
    EXPECT_FALSE(cmd.AddOption(L"-c", 0, false));
    EXPECT_FALSE(cmd.AddOption(L"c=d", 0, false));
}

TEST(CVeLCommandLine, ArgumentsOfMainKeepNonAsciiNames)
{
    const char* argv[] = {"prog", "a",
                          "Gr\xC3\xBC\xC3\x9F"
                          "e",
                          nullptr};
    EXPECT_EQ(CVeLCommandLine::ArgumentsOf(3, argv, 1),
              (std::vector<std::wstring>{L"a", L"Gr\u00fc\u00dfe"}));
    EXPECT_TRUE(CVeLCommandLine::ArgumentsOf(0, nullptr, 1).empty());
}

TEST(CVeLTypeConverter, IntegersAtTheLimitsAndBeyond)
{
    using C = CVeLTypeConverter;
    EXPECT_EQ(C::ToInteger(L"9223372036854775807").GetValue(), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(C::ToInteger(L"-9223372036854775808").GetValue(), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(C::ToInteger(L" +0x7f ").GetValue(), 127);
    EXPECT_EQ(C::ToUnsigned(L"18446744073709551615").GetValue(), std::numeric_limits<std::uint64_t>::max());
    std::wstring reason;
    EXPECT_FALSE(C::ToInteger(L"9223372036854775808", INT64_MIN, INT64_MAX, &reason).IsSuccess());
    EXPECT_NE(reason.find(L"out of range"), std::wstring::npos);
    EXPECT_FALSE(C::ToInteger(L"99999999999999999999999").IsSuccess());
    EXPECT_FALSE(C::ToUnsigned(L"18446744073709551616").IsSuccess());
    EXPECT_FALSE(C::ToInteger(L"300", 0, 255, &reason).IsSuccess());
    EXPECT_EQ(reason, L"'300' is out of range 0..255");
    for (const wchar_t* bad : {L"", L" ", L"12x", L"1 2", L"0x", L"--1", L"1.0", L"\u0661"})
    {
        EXPECT_FALSE(C::ToInteger(bad, INT64_MIN, INT64_MAX, &reason).IsSuccess()) << bad;
        EXPECT_EQ(reason, L"'" + std::wstring(bad) + L"' is not an integer");
    }
    EXPECT_FALSE(C::ToUnsigned(L"-1").IsSuccess());
    const auto failed = C::ToInteger(L"x");
    EXPECT_EQ(failed.GetValue(), 0);
}

TEST(CVeLTypeConverter, RealsRoundTripAndRefuseWhatIsNotFinite)
{
    using C = CVeLTypeConverter;
    for (double value : {0.1, -2.5e-300, 1e300, 123456789.125, std::numeric_limits<double>::max(),
                         std::numeric_limits<double>::denorm_min()})
        EXPECT_EQ(C::ToReal(C::FromReal(value)).GetValue(), value) << C::FromReal(value).c_str();
    EXPECT_EQ(C::FromReal(0.1), L"0.1");
    std::wstring reason;
    EXPECT_FALSE(C::ToReal(L"1e999", -1e308, 1e308, &reason).IsSuccess());
    EXPECT_NE(reason.find(L"out of range"), std::wstring::npos);
    for (const wchar_t* bad : {L"inf", L"nan", L"0x1p3", L"1,5", L"", L"1e", L"--1"})
        EXPECT_FALSE(C::ToReal(bad).IsSuccess()) << bad;
    EXPECT_FALSE(C::ToReal(L"2.5", 0, 1).IsSuccess());
    EXPECT_EQ(C::ToReal(L" -1.5e2 ").GetValue(), -150.0);
}

TEST(CVeLTypeConverter, BooleansAndEnumerations)
{
    using C = CVeLTypeConverter;
    for (const wchar_t* yes : {L"true", L"TRUE", L"yes", L"On", L"1"})
        EXPECT_TRUE(C::ToBoolean(yes).GetValue()) << yes;
    for (const wchar_t* no : {L"false", L"No", L"off", L"0"})
    {
        EXPECT_TRUE(C::ToBoolean(no).IsSuccess());
        EXPECT_FALSE(C::ToBoolean(no).GetValue());
    }
    EXPECT_FALSE(C::ToBoolean(L"2").IsSuccess());
    EXPECT_EQ(C::FromBoolean(false), L"false");
    const std::vector<std::wstring> levels = {L"OFF", L"ERR", L"WRN"};
    EXPECT_EQ(C::ToEnumeration(L"WRN", levels).GetValue(), 2u);
    EXPECT_FALSE(C::ToEnumeration(L"wrn", levels).IsSuccess());
    EXPECT_EQ(C::ToEnumeration(L"wrn", levels, true).GetValue(), 2u);
    std::wstring reason;
    EXPECT_FALSE(C::ToEnumeration(L"INF", levels, false, &reason).IsSuccess());
    EXPECT_EQ(reason, L"'INF' is not one of OFF, ERR, WRN");
}
