// Version resources through the facade: the committed sample DLL (made by the mingw-w64 resource
// compiler), a file without a version resource, and the facade failing.
#include "fakewinapiwrapper.h"
#include "filetestsupport.h"
#include "velfileversion.h"

#include <memory>

namespace
{

const boost::filesystem::path kSample = boost::filesystem::path(KOR_TEST_DATA) / "pe" / "sample.dll";

class VeLFileVersionTest : public kortest::FileSystemTest
{
};

} // namespace

TEST_F(VeLFileVersionTest, ReadsVersionsAndTextsOfADll)
{
    CVeLFileVersion reader;
    CVeLVersion version;
    ASSERT_TRUE(reader.GetFileVersion(kSample, version));
    EXPECT_EQ(version.ToString(), L"2.5.1023.7");
    ASSERT_TRUE(reader.GetProductVersion(kSample, version));
    EXPECT_EQ(version.ToShortString(), L"2.5");
    std::wstring text;
    ASSERT_TRUE(reader.GetVersionString(kSample, L"CompanyName", text));
    EXPECT_EQ(text, L"Sample Maker Ltd.");
    ASSERT_TRUE(reader.GetVersionString(kSample, L"productname", text));
    EXPECT_EQ(text, L"Sample Product \u00e4");
    EXPECT_FALSE(reader.GetVersionString(kSample, L"LegalCopyright", text));
}

TEST_F(VeLFileVersionTest, FilesWithoutAResourceAndFacadeFailuresAreTraced)
{
    WriteFile(Root() / "plain.dll", "MZ but nothing else");
    CVeLFileVersion reader;
    CVeLVersion version(1, 2, 3, 4);
    BTraceCapture capture;
    EXPECT_FALSE(reader.GetFileVersion(Root() / "plain.dll", version));
    EXPECT_FALSE(reader.GetFileVersion(Root() / "missing.dll", version));
    EXPECT_EQ(capture.CountContaining("No version resource"), 2u);
    EXPECT_EQ(version, CVeLVersion(1, 2, 3, 4));

    auto api = std::make_shared<CFakeWinAPIWrapper>();
    api->OnVerQueryValue = [](LPCVOID, LPCWSTR, LPVOID*, PUINT) -> BOOL { return FALSE; };
    EXPECT_FALSE(CVeLFileVersion(api).GetFileVersion(kSample, version));
    EXPECT_EQ(capture.CountContaining("No fixed version"), 1u);
}
