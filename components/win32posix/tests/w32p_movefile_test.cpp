// MoveFileExW and FlushFileBuffers: the answers Windows gives for each case, and what is left on the disk.
#include "w32p_test_util.h"

#include <gtest/gtest.h>

#include <fstream>

namespace
{

void WriteText(const std::string& path, const std::string& text)
{
    std::ofstream(path) << text;
}

std::string ReadText(const std::string& path)
{
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool Exists(const std::string& path)
{
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

std::size_t EntryCount(const std::string& folder)
{
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        (void)entry, ++count;
    return count;
}

} // namespace

TEST(MoveFile, RenamesAndReplacesOnlyWhenAsked)
{
    ScratchDir dir;
    WriteText(dir.NarrowOf("a"), "new");
    WriteText(dir.NarrowOf("b"), "old");

    EXPECT_W32_FAILS(MoveFileExW(dir.Wide(L"a").c_str(), dir.Wide(L"b").c_str(), 0), FALSE,
                     ERROR_ALREADY_EXISTS);
    EXPECT_EQ("new", ReadText(dir.NarrowOf("a")));
    EXPECT_EQ("old", ReadText(dir.NarrowOf("b")));

    EXPECT_TRUE(MoveFileExW(dir.Wide(L"a").c_str(), dir.Wide(L"b").c_str(),
                            MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH));
    EXPECT_FALSE(Exists(dir.NarrowOf("a")));
    EXPECT_EQ("new", ReadText(dir.NarrowOf("b")));

    EXPECT_TRUE(MoveFileExW(dir.Wide(L"b").c_str(), dir.Wide(L"c").c_str(), 0));
    EXPECT_EQ("new", ReadText(dir.NarrowOf("c")));
    ASSERT_EQ(0, mkdir(dir.NarrowOf("sub").c_str(), 0755));
    EXPECT_TRUE(MoveFileExW(dir.Wide(L"sub").c_str(), dir.Wide(L"sub2").c_str(), MOVEFILE_WRITE_THROUGH));
    EXPECT_TRUE(MoveFileExW(dir.Wide(L"c").c_str(), dir.Wide(L"sub2\\c").c_str(), MOVEFILE_WRITE_THROUGH));
    EXPECT_EQ("new", ReadText(dir.NarrowOf("sub2/c")));
}

TEST(MoveFile, RefusalsLeaveBothNamesAsTheyWere)
{
    ScratchDir dir;
    WriteText(dir.NarrowOf("src"), "content");
    WriteText(dir.NarrowOf("readonly"), "kept");
    chmod(dir.NarrowOf("readonly").c_str(), 0444);
    ASSERT_EQ(0, mkdir(dir.NarrowOf("folder").c_str(), 0755));
    const std::wstring src = dir.Wide(L"src");

    // Windows replaces neither a directory nor a read-only file, whoever the caller is.
    EXPECT_W32_FAILS(MoveFileExW(src.c_str(), dir.Wide(L"folder").c_str(), MOVEFILE_REPLACE_EXISTING), FALSE,
                     ERROR_ACCESS_DENIED);
    EXPECT_W32_FAILS(MoveFileExW(src.c_str(), dir.Wide(L"readonly").c_str(), MOVEFILE_REPLACE_EXISTING),
                     FALSE, ERROR_ACCESS_DENIED);
    EXPECT_EQ("kept", ReadText(dir.NarrowOf("readonly")));
    EXPECT_W32_FAILS(MoveFileExW(dir.Wide(L"missing").c_str(), dir.Wide(L"x").c_str(), 0), FALSE,
                     ERROR_FILE_NOT_FOUND);
    EXPECT_W32_FAILS(MoveFileExW(src.c_str(), dir.Wide(L"no\\such\\x").c_str(), 0), FALSE,
                     ERROR_PATH_NOT_FOUND);
    EXPECT_W32_FAILS(MoveFileExW(src.c_str(), nullptr, 0), FALSE, ERROR_INVALID_PARAMETER);
    EXPECT_W32_FAILS(MoveFileExW(src.c_str(), dir.Wide(L"x").c_str(), 0x100), FALSE, ERROR_INVALID_PARAMETER);
    EXPECT_W32_FAILS(MoveFileExW(src.c_str(), dir.Wide(L"x").c_str(), MOVEFILE_DELAY_UNTIL_REBOOT), FALSE,
                     ERROR_NOT_SUPPORTED);
    EXPECT_EQ("content", ReadText(dir.NarrowOf("src")));
    EXPECT_EQ(3u, EntryCount(dir.Narrow())); // src, readonly, folder: nothing new
}

TEST(MoveFile, LinkAtTargetIsReplacedNotFollowed)
{
    ScratchDir dir;
    WriteText(dir.NarrowOf("victim"), "untouched");
    ASSERT_EQ(0, symlink(dir.NarrowOf("victim").c_str(), dir.NarrowOf("link").c_str()));
    WriteText(dir.NarrowOf("src"), "replacement");
    EXPECT_TRUE(MoveFileExW(dir.Wide(L"src").c_str(), dir.Wide(L"link").c_str(), MOVEFILE_REPLACE_EXISTING));
    struct stat st;
    ASSERT_EQ(0, lstat(dir.NarrowOf("link").c_str(), &st));
    EXPECT_TRUE(S_ISREG(st.st_mode));
    EXPECT_EQ("replacement", ReadText(dir.NarrowOf("link")));
    EXPECT_EQ("untouched", ReadText(dir.NarrowOf("victim")));
}

TEST(MoveFile, AcrossFileSystemsOnlyWithCopyAllowed)
{
    struct stat tmp, shm;
    if (stat("/tmp", &tmp) != 0 || stat("/dev/shm", &shm) != 0 || tmp.st_dev == shm.st_dev)
        GTEST_SKIP() << "/tmp and /dev/shm are one file system here";
    ScratchDir dir;
    const std::string target = "/dev/shm/w32ptest-move-" + std::to_string(getpid());
    const std::wstring wideTarget(target.begin(), target.end());
    WriteText(dir.NarrowOf("src"), "travels");
    chmod(dir.NarrowOf("src").c_str(), 0600);
    const std::size_t shmEntries = EntryCount("/dev/shm");

    EXPECT_W32_FAILS(MoveFileExW(dir.Wide(L"src").c_str(), wideTarget.c_str(), 0), FALSE,
                     ERROR_NOT_SAME_DEVICE);
    EXPECT_TRUE(Exists(dir.NarrowOf("src")));
    EXPECT_TRUE(MoveFileExW(dir.Wide(L"src").c_str(), wideTarget.c_str(),
                            MOVEFILE_COPY_ALLOWED | MOVEFILE_WRITE_THROUGH));
    EXPECT_FALSE(Exists(dir.NarrowOf("src")));
    EXPECT_EQ("travels", ReadText(target));
    struct stat st;
    ASSERT_EQ(0, stat(target.c_str(), &st));
    EXPECT_EQ(0600u, st.st_mode & 07777);
    EXPECT_EQ(shmEntries + 1, EntryCount("/dev/shm")); // no temporary copy left beside it

    // A directory does not travel between file systems, as on Windows.
    ASSERT_EQ(0, mkdir(dir.NarrowOf("folder").c_str(), 0755));
    EXPECT_W32_FAILS(
        MoveFileExW(dir.Wide(L"folder").c_str(), (wideTarget + L"-dir").c_str(), MOVEFILE_COPY_ALLOWED),
        FALSE, ERROR_NOT_SAME_DEVICE);
    unlink(target.c_str());
}

TEST(FlushFileBuffers, NeedsAWritableHandle)
{
    ScratchDir dir;
    HANDLE writer = CreateFileW(dir.Wide(L"f").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, writer);
    DWORD written = 0;
    ASSERT_TRUE(WriteFile(writer, "data", 4, &written, nullptr));
    EXPECT_TRUE(FlushFileBuffers(writer));
    CloseHandle(writer);

    HANDLE reader = CreateFileW(dir.Wide(L"f").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, reader);
    EXPECT_W32_FAILS(FlushFileBuffers(reader), FALSE, ERROR_ACCESS_DENIED);
    CloseHandle(reader);
    EXPECT_W32_FAILS(FlushFileBuffers(reader), FALSE, ERROR_INVALID_HANDLE);
    EXPECT_W32_FAILS(FlushFileBuffers(nullptr), FALSE, ERROR_INVALID_HANDLE);
}
