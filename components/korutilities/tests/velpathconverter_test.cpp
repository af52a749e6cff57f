// CVeLPathConverter: the lossless mapping between native path bytes and wide text, checked against the
// names the facade's directory search hands out for the same files.
#include "filetestsupport.h"
#include "velpathconverter.h"
#include "velwin32.h"

#include <algorithm>
#include <random>

namespace fs = boost::filesystem;

namespace
{

using PathConverterTest = kortest::FileSystemTest;

TEST(PathConverter, MapsNamesLosslesslyAndWithoutSeparators)
{
    EXPECT_EQ(CVeLPathConverter::ToWide(fs::path("/tmp/a\\b")), L"/tmp/a\uF05Cb");
    EXPECT_EQ(CVeLPathConverter::ToWide(fs::path("x\xFF")), std::wstring(L"x") + wchar_t(0xDCFF));
    EXPECT_EQ(CVeLPathConverter::ToWide(fs::path("\xEF\xBF\xBD")), L"\uFFFD");
    EXPECT_EQ(CVeLPathConverter::FromWide(L"dir\\sub/f\uF03A"), fs::path("dir/sub/f:"));
    EXPECT_EQ(CVeLPathConverter::ToUtf8(fs::path("x\xFF")), "x\xFF");
    std::mt19937 random(7);
    for (int i = 0; i < 20000; ++i)
    {
        std::string name(1 + random() % 10, 'a');
        for (char& c : name)
            c = static_cast<char>(random() % 2 ? 0x80 + random() % 0x80 : 1 + random() % 0x7F);
        std::replace(name.begin(), name.end(), '/', 'x');
        const std::wstring wide = CVeLPathConverter::NativeBytesToWide(name);
        ASSERT_EQ(CVeLPathConverter::WideToNativeBytes(wide), name);
        ASSERT_EQ(wide.find_first_of(L"\\/:*?\"<>|"), std::wstring::npos);
    }
}

// The converter and the facade agree: a name the search hands out is the converter's wide form of the
// file's bytes, and the converter's wide form of a path opens that very file.
TEST_F(PathConverterTest, AgreesWithTheFacadeOnEveryName)
{
    std::mt19937 random(99);
    std::vector<std::string> names;
    for (int i = 0; i < 300; ++i)
    {
        std::string name(1 + random() % 8, 'a');
        for (char& c : name)
            c = static_cast<char>(1 + random() % 255);
        std::replace(name.begin(), name.end(), '/', '\\');
        if (name == "." || name == ".." || std::find(names.begin(), names.end(), name) != names.end())
            continue;
        names.push_back(name);
        WriteFile(Root() / name, name);
    }
    std::vector<std::wstring> listed;
    WIN32_FIND_DATAW data;
    HANDLE find = FindFirstFileW((CVeLPathConverter::ToWide(Root()) + L"/*").c_str(), &data);
    ASSERT_NE(find, INVALID_HANDLE_VALUE);
    do
        if (std::wstring(data.cFileName) != L"." && std::wstring(data.cFileName) != L"..")
            listed.push_back(data.cFileName);
    while (FindNextFileW(find, &data));
    FindClose(find);
    ASSERT_EQ(listed.size(), names.size());
    for (const std::string& name : names)
    {
        const std::wstring wide = CVeLPathConverter::ToWide(fs::path(name));
        EXPECT_NE(std::find(listed.begin(), listed.end(), wide), listed.end());
        HANDLE file = CreateFileW(CVeLPathConverter::ToWide(Root() / name).c_str(), GENERIC_READ, 0, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        ASSERT_NE(file, INVALID_HANDLE_VALUE);
        char buffer[16] = {};
        DWORD read = 0;
        ::ReadFile(file, buffer, sizeof buffer, &read, nullptr);
        CloseHandle(file);
        EXPECT_EQ(std::string(buffer, read), name);
    }
}

} // namespace
