// CVeLDirHelper and CVeLDirBasics on real directory trees in a temporary folder: tree deletion (read-only
// files, links, empty directories), the waiting removal, copy and delete by mask, listings; and with
// replacement facades, directory basics and wait helpers.
#include "fakewinapiwrapper.h"
#include "filetestsupport.h"
#include "veldirbasics.h"
#include "veldirhelper.h"
#include "velfilebasics.h"
#include "velfilehelper.h"
#include "velpathconverter.h"
#include "velwaithelper.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <thread>

namespace fs = boost::filesystem;

namespace
{

using DirHelperTest = kortest::FileSystemTest;

// Counts the pauses of the waiting removal and sleeps a millisecond for each instead of 50.
class CountingWaitHelper : public CVeLWaitHelper
{
public:
    CountingWaitHelper() : CVeLWaitHelper(false) {}
    mutable std::atomic<int> waits{0};
    void WaitTime(DWORD) const override
    {
        ++waits;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
};

// Directory basics that find nothing and fail everything, except what the test switches on.
class FailingDirBasics : public IVeLDirBasics
{
public:
    bool exists = false;
    bool Exists(const fs::path&) const override { return exists; }
    bool CreateDirectory(const fs::path&) const override { return false; }
    CVeLResult<CVeLFilesystemError> RemoveDirectory(const fs::path& path) const override
    {
        return CVeLResult<CVeLFilesystemError>(false, CVeLFilesystemError(path, ERROR_ACCESS_DENIED));
    }
    CVeLResult<CVeLFilesystemError> RemoveDirectoryContents(const fs::path& path) const override
    {
        return RemoveDirectory(path);
    }
    bool FollowsLinks() const override { return false; }
    bool IsDirectory(const fs::path&) const override { return exists; }
    bool WaitsForEmptyDirectory() const override { return true; }
    bool IsRegularFile(const fs::path&) const override { return false; }
    bool IsOther(const fs::path&) const override { return false; }
    bool IsSymlink(const fs::path&) const override { return false; }
    fs::directory_iterator CreateDirectoryIterator(const fs::path&) const override { return {}; }
};

std::vector<std::string> Names(const std::vector<fs::path>& paths, const fs::path& base)
{
    std::vector<std::string> names;
    for (const fs::path& path : paths)
        names.push_back(path.string().substr(base.string().size() + 1));
    std::sort(names.begin(), names.end());
    return names;
}

// Read-only files, an empty directory and links (to a directory outside, to a file, dangling) all go; the
// links are not followed, so the target's contents and read-only flag survive.
TEST_F(DirHelperTest, RemoveDeletesATreeWithoutFollowingLinks)
{
    const fs::path outside = Root() / "outside", tree = Root() / "tree";
    WriteFile(outside / "keep.txt", "keep");
    MakeReadOnly(outside / "keep.txt");
    WriteFile(tree / "a.txt", "a");
    WriteFile(tree / "sub" / "deeper" / "c.txt", "c");
    fs::create_directories(tree / "sub" / "empty");
    MakeReadOnly(tree / "a.txt");
    MakeReadOnly(tree / "sub" / "deeper" / "c.txt");
    fs::create_directory_symlink(outside, tree / "dirlink");
    fs::create_symlink(outside / "keep.txt", tree / "filelink");
    fs::create_symlink(Root() / "nowhere", tree / "dangling");

    EXPECT_TRUE(CVeLDirHelper(tree, false).Remove().IsSuccess());
    EXPECT_FALSE(fs::exists(tree));
    EXPECT_EQ(m_capture.CountContaining("have to wait"), 0u);
    EXPECT_EQ(ReadFile(outside / "keep.txt"), "keep");
    EXPECT_FALSE(CVeLFileHelper(outside / "keep.txt", false).IsWriteable());

    // A link as the directory itself is refused, so the target is not emptied through it.
    fs::create_directory_symlink(outside, Root() / "toplink");
    const CVeLResult<CVeLFilesystemError> refused = CVeLDirHelper(Root() / "toplink", false).Remove();
    EXPECT_FALSE(refused.IsSuccess());
    EXPECT_TRUE(refused.GetValue().isLinkDetected());
    EXPECT_FALSE(CVeLDirHelper(Root() / "toplink", false).RemoveSiblings().IsSuccess());
    EXPECT_TRUE(fs::exists(outside / "keep.txt"));
}

TEST_F(DirHelperTest, RemovingContentsKeepsTheDirectory)
{
    const fs::path empty = Root() / "empty";
    fs::create_directory(empty);
    CVeLDirHelper helper(empty, false);
    EXPECT_TRUE(helper.RemoveSiblings().IsSuccess());
    EXPECT_TRUE(fs::is_directory(empty));

    WriteFile(empty / "x" / "y.txt", "y");
    EXPECT_TRUE(helper.HasSiblings());
    EXPECT_TRUE(helper.RemoveSiblingsAndCheck());
    EXPECT_TRUE(fs::is_directory(empty));
    EXPECT_FALSE(helper.HasSiblings());

    CVeLDirHelper missing(Root() / "missing", false);
    EXPECT_FALSE(missing.RemoveSiblings().IsSuccess());
    const CVeLResult<CVeLFilesystemError> result = missing.Remove();
    EXPECT_FALSE(result.IsSuccess());
    EXPECT_EQ(result.GetValue().GetErrorPath(), Root() / "missing");

    WriteFile(Root() / "plain", "x");
    EXPECT_FALSE(CVeLDirBasics().RemoveDirectory(Root() / "plain").IsSuccess());
}

// The waiting removal polls through the wait helper: it succeeds once another thread empties the
// directory, and gives up after a thousand tries when it stays full.
TEST_F(DirHelperTest, WaitingRemoval)
{
    const fs::path dir = Root() / "busy";
    WriteFile(dir / "held.txt", "x");
    auto wait = std::make_shared<CountingWaitHelper>();
    CVeLDirBasics basics(std::make_shared<CVeLWinAPIWrapper>(), wait);
    DWORD error = 0;
    EXPECT_FALSE(basics.RemoveEmptiedDirectory(dir.wstring(), error));
    EXPECT_EQ(error, static_cast<DWORD>(ERROR_DIR_NOT_EMPTY));
    EXPECT_EQ(wait->waits, 1000);
    EXPECT_TRUE(fs::exists(dir / "held.txt"));

    wait->waits = 0;
    std::thread releaser(
        [&]
        {
            while (wait->waits < 3)
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            fs::remove(dir / "held.txt");
        });
    const bool removed = basics.RemoveEmptiedDirectory(dir.wstring(), error);
    releaser.join();
    EXPECT_TRUE(removed);
    EXPECT_EQ(error, 0u);
    EXPECT_FALSE(fs::exists(dir));
    EXPECT_GE(wait->waits, 3);

    CVeLDirBasics noWait(std::make_shared<CVeLWinAPIWrapper>(), nullptr);
    EXPECT_FALSE(noWait.RemoveEmptiedDirectory(dir.wstring(), error));
}

TEST_F(DirHelperTest, FailedDeletionNamesTheElementAndSkipsTheWait)
{
    const fs::path tree = Root() / "tree";
    WriteFile(tree / "sub" / "locked.txt", "x");
    WriteFile(tree / "other.txt", "y");
    auto api = std::make_shared<CFakeWinAPIWrapper>();
    api->OnDeleteFile = [](LPCWSTR name)
    {
        if (std::wstring(name).find(L"locked") != std::wstring::npos)
        {
            SetLastError(ERROR_ACCESS_DENIED);
            return FALSE;
        }
        return DeleteFileW(name);
    };
    auto wait = std::make_shared<CountingWaitHelper>();
    auto basics = std::make_shared<CVeLDirBasics>(api, wait);
    const CVeLResult<CVeLFilesystemError> result =
        CVeLDirHelper(api, basics, std::make_shared<CVeLFileBasics>(), tree, false).Remove();
    EXPECT_FALSE(result.IsSuccess());
    EXPECT_EQ(result.GetValue().GetErrorPath(), tree / "sub" / "locked.txt");
    EXPECT_EQ(result.GetValue().GetOperationResult(), ERROR_ACCESS_DENIED);
    EXPECT_EQ(wait->waits, 0);
    EXPECT_FALSE(fs::exists(tree / "other.txt")); // the rest is removed all the same
    EXPECT_TRUE(fs::exists(tree / "sub" / "locked.txt"));

    api->OnDeleteFile = nullptr;
    api->OnFindFirstFile = FailWith(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED);
    EXPECT_FALSE(basics->RemoveDirectoryContents(tree).IsSuccess());
}

TEST_F(DirHelperTest, ListingsByRegularExpression)
{
    const fs::path dir = Root() / "list";
    WriteFile(dir / "a.log", "");
    WriteFile(dir / "b.txt", "");
    WriteFile(dir / "logs" / "c.log", "");
    WriteFile(dir / "logs" / "old" / "d.log", "");
    fs::create_directories(dir / "other");
    fs::create_directory_symlink(dir / "logs", dir / "loglink"); // never descended into

    CVeLDirHelper helper(dir, false);
    std::vector<fs::path> found{"stale"};
    ASSERT_TRUE(helper.GetTOCByRegExp(found, L".*\\.log", false));
    EXPECT_EQ(Names(found, dir), (std::vector<std::string>{"a.log"}));
    ASSERT_TRUE(helper.GetTOCByRegExp(found, L".*\\.log", true));
    EXPECT_EQ(Names(found, dir), (std::vector<std::string>{"a.log", "logs/c.log", "logs/old/d.log"}));
    // The whole name must match, not a part of it.
    ASSERT_TRUE(helper.GetTOCByRegExp(found, L"log", true));
    EXPECT_TRUE(found.empty());
    ASSERT_TRUE(helper.GetTOC(found));
    EXPECT_EQ(found.size(), 4u);

    ASSERT_TRUE(helper.GetDirListByRegExp(found, L"o.*", false));
    EXPECT_EQ(Names(found, dir), (std::vector<std::string>{"other"}));
    ASSERT_TRUE(helper.GetDirListByRegExp(found, L"o.*", true));
    EXPECT_EQ(Names(found, dir), (std::vector<std::string>{"logs/old", "other"}));

    // "." stops at a line terminator, also where whole-tree listings decide names without the matcher.
    WriteFile(dir / CVeLPathConverter::FromWide(L"line\u2028break"), "");
    ASSERT_TRUE(helper.GetTOCByRegExp(found, L".*", false));
    EXPECT_EQ(Names(found, dir), (std::vector<std::string>{"a.log", "b.txt"}));
    ASSERT_TRUE(helper.GetTOCByRegExp(found, L"[\\s\\S]*", false));
    EXPECT_EQ(found.size(), 3u);

    EXPECT_FALSE(helper.GetTOCByRegExp(found, L"([a-z", true));
    EXPECT_EQ(m_capture.CountContaining("([a-z is not a valid regular expression: "), 1u);
    EXPECT_FALSE(CVeLDirHelper(Root() / "none", false).GetTOC(found));
}

TEST_F(DirHelperTest, DeleteAndCopyByMask)
{
    const fs::path dir = Root() / "src", target = Root() / "dst";
    WriteFile(dir / "keep.txt", "k");
    WriteFile(dir / "drop.tmp", "d");
    WriteFile(dir / "sub" / "deep.txt", "deep");
    WriteFile(dir / "sub" / "deep.tmp", "t");
    MakeReadOnly(dir / "drop.tmp");

    CVeLDirHelper helper(dir, false);
    ASSERT_TRUE(helper.Copy(target, L".*\\.txt"));
    EXPECT_EQ(ReadFile(target / "keep.txt"), "k");
    EXPECT_EQ(ReadFile(target / "sub" / "deep.txt"), "deep");
    EXPECT_FALSE(fs::exists(target / "drop.tmp"));
    EXPECT_FALSE(fs::exists(target / "sub" / "deep.tmp"));
    EXPECT_FALSE(helper.Copy(target, L"*.txt"));

    ASSERT_TRUE(helper.RemoveFileSiblings(L".*\\.tmp", false));
    EXPECT_FALSE(fs::exists(dir / "drop.tmp"));
    EXPECT_TRUE(fs::exists(dir / "sub" / "deep.tmp"));
    ASSERT_TRUE(helper.RemoveFileSiblings(L".*\\.tmp", true));
    EXPECT_FALSE(fs::exists(dir / "sub" / "deep.tmp"));
    EXPECT_TRUE(fs::exists(dir / "keep.txt"));

    ASSERT_TRUE(helper.Copy(Root() / "all"));
    EXPECT_EQ(ReadFile(Root() / "all" / "sub" / "deep.txt"), "deep");
    EXPECT_FALSE(CVeLDirHelper(Root() / "none", false).Copy(target));
}

TEST_F(DirHelperTest, CreateMakesEveryMissingLevel)
{
    const fs::path deep = Root() / "a" / "b" / "c";
    CVeLDirHelper helper(deep, false);
    ASSERT_TRUE(helper.Create(false));
    EXPECT_TRUE(fs::is_directory(deep));
    EXPECT_TRUE(helper.Create(false));

    WriteFile(Root() / "file", "x");
    EXPECT_FALSE(CVeLDirHelper(Root() / "file", false).Create(false));
    EXPECT_FALSE(CVeLDirHelper(Root() / "file" / "below", false).Create(false));

    // Two leading separators make a network path whose first two elements must be reachable.
    const fs::path network("/" + (Root() / "net" / "x").string());
    ASSERT_TRUE(CVeLDirHelper(network, false).Create(true));
    EXPECT_TRUE(fs::is_directory(Root() / "net" / "x"));
    EXPECT_FALSE(CVeLDirHelper(fs::path("//no-such-server-kor/share/dir"), false).Create(true));
}

TEST_F(DirHelperTest, FailingDirBasicsAreTracedAndFail)
{
    auto basics = std::make_shared<FailingDirBasics>();
    const fs::path dir = Root() / "d";
    CVeLDirHelper helper(std::make_shared<CVeLWinAPIWrapper>(), basics, std::make_shared<CVeLFileBasics>(),
                         dir, false);
    EXPECT_FALSE(helper.Create(false));
    EXPECT_FALSE(helper.Remove().IsSuccess());
    std::vector<fs::path> found;
    EXPECT_FALSE(helper.GetTOC(found));
    EXPECT_FALSE(helper.Copy(Root() / "e"));

    basics->exists = true;
    const CVeLResult<CVeLFilesystemError> removed = helper.Remove();
    EXPECT_FALSE(removed.IsSuccess());
    EXPECT_EQ(removed.GetValue().GetOperationResult(), ERROR_ACCESS_DENIED);
    EXPECT_FALSE(helper.RemoveSiblings().IsSuccess());
    EXPECT_FALSE(helper.RemoveSiblingsAndCheck());

    CVeLDirHelper bare(nullptr, nullptr, nullptr, dir, false);
    EXPECT_FALSE(bare.Exists());
    EXPECT_FALSE(bare.Remove().IsSuccess());
}

} // namespace
