// CVeLStringConverter and CVeLVarEnvironment.
#include "velstringconverter.h"
#include "velvarenvironment.h"

#include "kortestsupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

namespace
{

// Wide text and its UTF-8 both ways: through the string and the zero-terminated writer, and through the
// reader with and without a length (the zero-terminated forms end at an embedded zero).
void ExpectBothWays(const std::wstring& text, const std::string& utf8)
{
    EXPECT_EQ(CVeLStringConverter::ConvertStdWStringToStdString(text), utf8);
    boost::shared_ptr<char> buffer;
    ASSERT_TRUE(CVeLStringConverter::ConvertStdWString2UTF8Chars(text, buffer));
    EXPECT_EQ(std::string(buffer.get()), utf8.substr(0, utf8.find('\0')));
    std::wstring back;
    EXPECT_TRUE(CVeLStringConverter::ConvertUTF8Chars2StdWString(utf8.data(), utf8.size(), back));
    EXPECT_EQ(back, text);
    EXPECT_TRUE(CVeLStringConverter::ConvertUTF8Chars2StdWString(buffer.get(), back));
    EXPECT_EQ(back, text.substr(0, text.find(L'\0')));
}

} // namespace

TEST(CVeLStringConverter, RoundTripsNonAsciiTextNothingAndEmbeddedZeros)
{
    ExpectBothWays(L"Gr\u00fc\u00dfe \u20ac \U0001F600", "Gr\xC3\xBC\xC3\x9F"
                                                         "e \xE2\x82\xAC \xF0\x9F\x98\x80");
    ExpectBothWays(L"", "");
    ExpectBothWays(std::wstring(L"a\0b", 3), std::string("a\0b", 3));
    std::wstring text = L"keep";
    EXPECT_FALSE(CVeLStringConverter::ConvertUTF8Chars2StdWString(nullptr, text));
    EXPECT_TRUE(text.empty());
}

TEST(CVeLStringConverter, InvalidInputBecomesReplacementCharacters)
{
    std::wstring text;
    EXPECT_TRUE(CVeLStringConverter::ConvertUTF8Chars2StdWString("a\xFF"
                                                                 "b\xE2\x82",
                                                                 text));
    EXPECT_EQ(text, L"a\uFFFDb\uFFFD");
    // A lone surrogate in wide text becomes U+FFFD; a surrogate pair is joined.
    EXPECT_EQ(CVeLStringConverter::ConvertStdWStringToStdString(std::wstring{wchar_t(0xD800), L'x'}),
              "\xEF\xBF\xBDx");
    EXPECT_EQ(
        CVeLStringConverter::ConvertStdWStringToStdString(std::wstring{wchar_t(0xD83D), wchar_t(0xDE00)}),
        "\xF0\x9F\x98\x80");
}

// UTF-16LE bytes and 16-bit code units survive a wide string unchanged on every platform, lone surrogates
// included: the same bytes come back, and the same wide string, whatever the size of wchar_t.
TEST(CVeLStringConverter, Utf16CodeUnitsRoundTripLoneSurrogatesIncluded)
{
    const unsigned char units[] = {0x41, 0x00, 0x00, 0xD8, 0x42, 0x00, 0x00, 0xDC, 0x3D, 0xD8, 0x00, 0xDE};
    const std::wstring text = CVeLStringConverter::ConvertUTF16LEToStdWString(units, sizeof units);
    const std::wstring expected = std::wstring{L'A', wchar_t(0xD800), L'B', wchar_t(0xDC00)} + L"\U0001F600";
    EXPECT_EQ(text, expected);
    EXPECT_EQ(CVeLStringConverter::ConvertStdWStringToUTF16LE(text),
              std::vector<unsigned char>(units, units + sizeof units));
    EXPECT_EQ(CVeLStringConverter::ConvertUTF16LEToStdWString(units, 5),
              (std::wstring{L'A', wchar_t(0xD800)})); // odd last byte ignored
    const std::u16string reversed = {char16_t(0xDC00), char16_t(0xD800)};
    EXPECT_EQ(CVeLStringConverter::ConvertStdWStringToUTF16(
                  CVeLStringConverter::ConvertUTF16ToStdWString(reversed.data(), reversed.size())),
              reversed);
    // Only a wide value that no code unit can hold is replaced.
    if (sizeof(wchar_t) == 4)
    {
        EXPECT_EQ(CVeLStringConverter::ConvertStdWStringToUTF16(std::wstring{static_cast<wchar_t>(0x110000)}),
                  std::u16string(u"\uFFFD"));
    }
}

TEST(CVeLVarEnvironment, ExistenceAndValues)
{
    CVeLVarEnvironment environment;
    kortest::SetEnv("KOR_TEST_VALUE", "v\xC3\xA4lue");
    kortest::SetEnv("KOR_TEST_EMPTY", "");
    kortest::UnsetEnv("KOR_TEST_MISSING");
    std::wstring value = L"stale";
    EXPECT_TRUE(environment.CheckVariableExists(L"KOR_TEST_VALUE"));
    EXPECT_TRUE(environment.GetEnvVariable(L"KOR_TEST_VALUE", value));
    EXPECT_EQ(value, L"v\u00e4lue");
    EXPECT_TRUE(environment.CheckVariableExists(L"KOR_TEST_EMPTY"));
    EXPECT_TRUE(environment.GetEnvVariable(L"KOR_TEST_EMPTY", value));
    EXPECT_TRUE(value.empty());
    EXPECT_FALSE(environment.CheckVariableExists(L"KOR_TEST_MISSING"));
    value = L"stale";
    EXPECT_FALSE(environment.GetEnvVariable(L"KOR_TEST_MISSING", value));
    EXPECT_TRUE(value.empty());
    EXPECT_FALSE(environment.CheckVariableExists(L""));
    std::wstring longValue(5000, L'x');
    kortest::SetEnv("KOR_TEST_LONG", std::string(5000, 'x'));
    EXPECT_TRUE(environment.GetEnvVariable(L"KOR_TEST_LONG", value));
    EXPECT_EQ(value, longValue);
}

// Long ASCII runs take a block-wise path; text that leaves ASCII just before, at or after a block
// boundary, or only in its tail, must convert exactly as the character-wise codec does.
TEST(CVeLStringConverter, AsciiRunsAroundBlockBoundaries)
{
    for (std::size_t length : {63u, 64u, 65u, 128u, 200u, 61440u})
        for (std::size_t at : {std::size_t(0), std::size_t(62), std::size_t(63), std::size_t(64),
                               std::size_t(127), std::size_t(128), length - 1, length})
        {
            std::wstring text(length, L'a');
            std::string expected(length, 'a');
            if (at < length)
            {
                text[at] = L'\u00E9'; // two bytes in UTF-8
                expected.replace(at, 1, "\xC3\xA9");
            }
            SCOPED_TRACE(std::to_string(length) + " at " + std::to_string(at));
            ExpectBothWays(text, expected);
        }
    // An invalid byte after a long ASCII run still becomes U+FFFD.
    std::string bytes(100, 'b');
    bytes[70] = '\xFF';
    std::wstring text;
    EXPECT_TRUE(CVeLStringConverter::ConvertUTF8Chars2StdWString(bytes.data(), bytes.size(), text));
    EXPECT_EQ(text.size(), 100u);
    EXPECT_EQ(text[70], L'\uFFFD');
}
