// Path arithmetic (join, normalise, relative) and the well-known folders with the Linux XDG rules, and
// file times read, converted and set on real files.
#include "fakewinapiwrapper.h"
#include "filetestsupport.h"
#include "kortestsupport.h"
#include "velfiletimes.h"
#include "velpathhelper.h"

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace fs = boost::filesystem;

namespace
{

// Sets an environment variable for the length of one scope.
class ScopedEnv
{
public:
    ScopedEnv(const char* name, const char* value) : m_name(name)
    {
        if (const char* old = std::getenv(name))
        {
            m_had = true;
            m_old = old;
        }
        if (value)
            kortest::SetEnv(name, value);
        else
            kortest::UnsetEnv(name);
    }
    ~ScopedEnv()
    {
        if (m_had)
            kortest::SetEnv(m_name, m_old);
        else
            kortest::UnsetEnv(m_name);
    }

private:
    const char* m_name;
    bool m_had = false;
    std::string m_old;
};

using PathHelperTest = kortest::FileSystemTest;

} // namespace

TEST(PathHelper, NormalizeJoinAndRelative)
{
    CVeLPathHelper paths;
    const struct
    {
        const char* in;
        const char* out;
    } normal[] = {{"a/./b/../c", "a/c"},
                  {"/a/../../b", "/b"},
                  {"../a/..", ".."},
                  {"a/..", "."},
                  {"a//b/", "a/b"},
                  {"", ""},
                  {"/", "/"},
                  {"./../x", "../x"}};
    for (const auto& c : normal)
        EXPECT_EQ(fs::path(c.out), paths.Normalize(c.in)) << c.in;

    fs::path result;
    EXPECT_TRUE(paths.Join("/base/dir", "sub/../file.txt", result));
    EXPECT_EQ(fs::path("/base/dir/file.txt"), result);
    EXPECT_TRUE(paths.Join("/base", "", result));
    EXPECT_EQ(fs::path("/base"), result);
    for (const char* hostile : {"../escape", "a/../../escape", "/etc/passwd"})
        EXPECT_FALSE(paths.Join("/base", hostile, result)) << hostile;

    EXPECT_TRUE(paths.MakeRelative("/a/b/c/d", "/a/b/x", result));
    EXPECT_EQ(fs::path("../c/d"), result);
    EXPECT_TRUE(paths.MakeRelative("/a/./b", "/a/b/", result));
    EXPECT_EQ(fs::path("."), result);
    EXPECT_TRUE(paths.MakeRelative("x/y", "x", result));
    EXPECT_EQ(fs::path("y"), result);
    EXPECT_FALSE(paths.MakeRelative("/a", "a", result));
    EXPECT_FALSE(paths.MakeRelative("y", "../x", result));
}

TEST_F(PathHelperTest, WellKnownFoldersFollowXdgWithDefaults)
{
    KORTEST_LINUX_ONLY("the XDG folder rules and /proc/self/exe are Linux's");
    CVeLPathHelper paths;
    const fs::path home = Root() / "home";
    fs::create_directories(home / ".config");
    WriteFile(home / ".config" / "user-dirs.dirs", "# comment\nXDG_DOCUMENTS_DIR=\"$HOME/Dokumente\"\n");
    ScopedEnv homeEnv("HOME", home.string().c_str());
    ScopedEnv config("XDG_CONFIG_HOME", nullptr);
    ScopedEnv data("XDG_DATA_HOME", "relative/ignored");
    const std::string machineDirs = (Root() / "machine").string() + ":/usr/share";
    ScopedEnv dataDirs("XDG_DATA_DIRS", machineDirs.c_str());
    ScopedEnv temp("TMPDIR", (Root().string() + "/tmp/").c_str());
    fs::create_directories(Root() / "machine");

    fs::path folder;
    EXPECT_TRUE(paths.GetUserAppDataFolder(folder, false));
    EXPECT_EQ(home / ".config", folder);
    EXPECT_FALSE(paths.GetLocalAppDataFolder(folder, false)); // ~/.local/share does not exist yet
    EXPECT_TRUE(paths.GetLocalAppDataFolder(folder, true));
    EXPECT_EQ(home / ".local" / "share", folder);
    EXPECT_TRUE(fs::is_directory(folder));
    EXPECT_TRUE(paths.GetDocumentsFolder(folder, true));
    EXPECT_EQ(home / "Dokumente", folder);
    EXPECT_TRUE(paths.GetMachineAppDataFolder(folder));
    EXPECT_EQ(Root() / "machine", folder);
    EXPECT_TRUE(paths.GetTempFolder(folder));
    EXPECT_EQ(Root() / "tmp", folder);
    EXPECT_TRUE(paths.GetProgramFolder(folder));
    EXPECT_EQ(fs::canonical("/proc/self/exe").parent_path(), folder);
}

TEST_F(PathHelperTest, FolderQueryFailuresAreTracedAndFreed)
{
    auto api = std::make_shared<CFakeWinAPIWrapper>();
    api->OnSHGetKnownFolderPath = [](REFKNOWNFOLDERID, DWORD, HANDLE, PWSTR* path)
    {
        *path = nullptr;
        return E_FAIL;
    };
    api->OnGetModuleFileName = FailWith(DWORD(0), ERROR_MOD_NOT_FOUND);
    CVeLPathHelper paths(api);
    BTraceCapture capture;
    fs::path folder;
    EXPECT_FALSE(paths.GetDocumentsFolder(folder, false));
    EXPECT_EQ(1u, capture.CountContaining("Can't get the documents folder"));
    EXPECT_FALSE(paths.GetProgramFolder(folder));
    EXPECT_EQ(1u, capture.CountContaining("GetModuleFileName failed"));
    EXPECT_EQ(0u, api->CallCount("CoTaskMemFree"));

    CVeLPathHelper withoutImpl(nullptr);
    EXPECT_FALSE(withoutImpl.GetTempFolder(folder));
}

TEST_F(PathHelperTest, FileTimesReadConvertAndSet)
{
    ScopedEnv zone("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
    tzset();
    const fs::path file = Root() / "times.txt";
    WriteFile(file, "x");
    CVeLFileTimes times;
    // 2024-07-01 12:34:56.789 UTC as a file time.
    const ULONGLONG summer = (1719837296ull + 11644473600ull) * 10000000ull + 7890000ull;
    ASSERT_TRUE(times.SetLastWriteTime(file, summer));
    ULONGLONG read = 0;
    EXPECT_TRUE(times.GetFileTime(file, FileTimeLastWrite, read));
    EXPECT_EQ(summer, read);
    SYSTEMTIME utc{}, local{};
    EXPECT_TRUE(times.GetUtcTime(file, FileTimeLastWrite, utc));
    EXPECT_EQ(2024, utc.wYear);
    EXPECT_EQ(7, utc.wMonth);
    EXPECT_EQ(1, utc.wDay);
    EXPECT_EQ(12, utc.wHour);
    EXPECT_EQ(789, utc.wMilliseconds);
    EXPECT_TRUE(times.GetLocalTime(file, FileTimeLastWrite, local));
    EXPECT_EQ(14, local.wHour); // summer time: UTC + 2
    EXPECT_TRUE(times.GetFileTime(file, FileTimeCreation, read));
    EXPECT_TRUE(times.GetFileTime(file, FileTimeLastAccess, read));

    BTraceCapture capture;
    EXPECT_FALSE(times.GetFileTime(Root() / "missing", FileTimeLastWrite, read));
    EXPECT_EQ(1u, capture.CountContaining("Can't read the times of"));
    EXPECT_FALSE(times.SetLastWriteTime(Root() / "missing", summer));
    EXPECT_FALSE(times.SetLastWriteTime(file, 0xFFFFFFFFFFFFFFFFull));
    EXPECT_TRUE(times.GetFileTime(file, FileTimeLastWrite, read));
    EXPECT_EQ(summer, read); // a refused change leaves the time as it was
}
