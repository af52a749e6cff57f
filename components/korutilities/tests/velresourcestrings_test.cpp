// Resource strings through the facade: texts of the committed sample DLL's string table, and the traced
// failures of a missing file, a missing string, a module without resources and a failing facade.
#include "fakewinapiwrapper.h"
#include "filetestsupport.h"
#include "velresourcestrings.h"

#include <memory>

namespace
{

const boost::filesystem::path kSample = boost::filesystem::path(KOR_TEST_DATA) / "pe" / "sample.dll";

class VeLResourceStringsTest : public kortest::FileSystemTest
{
};

} // namespace

TEST_F(VeLResourceStringsTest, ReadsTextsOfADllStringTableWhole)
{
    CVeLResourceStrings strings(kSample);
    ASSERT_TRUE(strings.IsOpen());
    const struct
    {
        unsigned int id;
        const wchar_t* text;
    } cases[] = {{1, L"First string"}, {17, L"Seventeen \u00fc"}, {4097, L"Last block"}};
    for (const auto& c : cases)
    {
        std::wstring text;
        ASSERT_TRUE(strings.GetString(c.id, text)) << c.id;
        EXPECT_EQ(text, c.text);
    }
}

TEST_F(VeLResourceStringsTest, FailuresAreTracedAndLeaveTheTextAlone)
{
    WriteFile(Root() / "plain.dll", "MZ but nothing else");
    BTraceCapture capture;
    std::wstring text = L"kept";
    EXPECT_FALSE(CVeLResourceStrings(Root() / "missing.dll").GetString(1, text));
    EXPECT_FALSE(CVeLResourceStrings(Root() / "plain.dll").IsOpen());
    EXPECT_EQ(capture.CountContaining("for its resources"), 2u);
    EXPECT_EQ(capture.CountContaining("is not open"), 1u);

    auto api = std::make_shared<CFakeWinAPIWrapper>();
    CVeLResourceStrings sample(api, kSample);
    EXPECT_FALSE(sample.GetString(3, text));   // no such string
    EXPECT_FALSE(sample.GetString(100, text)); // an empty one
    CVeLResourceStrings program(api, static_cast<HMODULE>(nullptr));
    EXPECT_FALSE(program.GetString(1, text));                    // Linux: the program has no string table
    EXPECT_EQ(capture.CountContaining("Can't load string"), 4u); // with the one of the file that did not open
    EXPECT_EQ(text, L"kept");

    api->OnFreeLibrary = [](HMODULE module) -> BOOL { return !::FreeLibrary(module); }; // freed, yet failing
    {
        CVeLResourceStrings freed(api, kSample);
    }
    api->OnFreeLibrary = nullptr;
    EXPECT_EQ(capture.CountContaining("Can't free"), 1u);
    EXPECT_FALSE(CVeLResourceStrings(nullptr, kSample).IsOpen());
}
