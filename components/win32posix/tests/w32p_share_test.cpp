// Sharing between opens of one file: the whole access x sharing matrix in one process and across two, the
// delete access of DeleteFileW and MoveFileExW, and holders that close or die.
#include "w32p_share.h"
#include "w32p_test_util.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <fstream>

namespace
{

// One open of the matrix: its sharing classes (FILE_SHARE_* bits of the access it asks for) and share mode.
struct Party
{
    DWORD classes;
    DWORD share;
};

DWORD AccessOf(DWORD classes)
{
    DWORD access = FILE_READ_ATTRIBUTES; // an open without data access is still an open
    if (classes & FILE_SHARE_READ)
        access |= GENERIC_READ;
    if (classes & FILE_SHARE_WRITE)
        access |= GENERIC_WRITE;
    if (classes & FILE_SHARE_DELETE)
        access |= DELETE;
    return access;
}

HANDLE OpenAs(const std::wstring& path, const Party& party)
{
    return CreateFileW(path.c_str(), AccessOf(party.classes), party.share, nullptr, OPEN_EXISTING,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
}

// Windows' rule: the second open is admitted when the first shares all it asks for, and it shares all the
// first holds; opens without data access are neither checked nor counted.
bool Admitted(const Party& first, const Party& second)
{
    return first.classes == 0 || second.classes == 0 ||
           ((second.classes & ~first.share) == 0 && (first.classes & ~second.share) == 0);
}

Party PartyOf(int index)
{
    return Party{static_cast<DWORD>(index & 7), static_cast<DWORD>(index >> 3)};
}

// Tries every second open against the first held by this process; bit i of the answer is set when
// PartyOf(i) was admitted as Windows would decide, and every refusal was ERROR_SHARING_VIOLATION.
std::uint64_t SecondOpensAgreeing(const std::wstring& path, const Party& first)
{
    std::uint64_t agreeing = 0;
    for (int i = 0; i < 64; ++i)
    {
        SetLastError(0);
        HANDLE second = OpenAs(path, PartyOf(i));
        const bool admitted = second != INVALID_HANDLE_VALUE;
        if (admitted)
            CloseHandle(second);
        if (admitted == Admitted(first, PartyOf(i)) &&
            (admitted || GetLastError() == ERROR_SHARING_VIOLATION))
            agreeing |= std::uint64_t{1} << i;
    }
    return agreeing;
}

std::wstring WideOf(const std::string& narrow)
{
    return std::wstring(narrow.begin(), narrow.end());
}

// Whether the record of the open set of the file at path is still in the store, once this process's idle
// records are dropped.
bool LockFileLeft(const std::string& path)
{
    W32pShareDropIdle();
    struct stat st;
    if (stat(path.c_str(), &st) != 0)
        return false;
    char name[80];
    std::snprintf(name, sizeof name, "/.share-%llx-%llx", static_cast<unsigned long long>(st.st_dev),
                  static_cast<unsigned long long>(st.st_ino));
    return access((NamedObjectDir() + name).c_str(), F_OK) == 0;
}

// Whether a child process's open of path as party is admitted.
bool AdmittedInChild(const std::wstring& path, const Party& party)
{
    const pid_t child = ForkChild(
        [&]
        {
            HANDLE h = OpenAs(path, party);
            return h != INVALID_HANDLE_VALUE ? 0 : GetLastError() == ERROR_SHARING_VIOLATION ? 1 : 2;
        });
    return JoinChild(child) == 0;
}

// Holds each of the 64 first opens of a scratch file in turn and hands it to check(path, first index).
template <typename Check>
void ForEveryFirstOpen(ScratchDir& dir, Check check)
{
    const std::wstring path = dir.Wide(L"m.txt");
    std::ofstream(dir.NarrowOf("m.txt")) << "x";
    for (int f = 0; f < 64; ++f)
    {
        HANDLE first = OpenAs(path, PartyOf(f));
        ASSERT_NE(first, INVALID_HANDLE_VALUE) << f;
        check(path, f);
        CloseHandle(first);
    }
}

} // namespace

TEST(Share, EveryPairOfOpensInOneProcess)
{
    ScratchDir dir;
    ForEveryFirstOpen(
        dir, [](const std::wstring& path, int f)
        { EXPECT_EQ(SecondOpensAgreeing(path, PartyOf(f)), ~std::uint64_t{0}) << "first open " << f; });
}

TEST(Share, EveryPairOfOpensAcrossTwoProcesses)
{
    ScratchDir dir;
    ForEveryFirstOpen(
        dir,
        [](const std::wstring& path, int f)
        {
            int pipes[2];
            ASSERT_EQ(pipe(pipes), 0);
            const pid_t child = ForkChild(
                [&]
                {
                    const std::uint64_t agreeing = SecondOpensAgreeing(path, PartyOf(f));
                    return write(pipes[1], &agreeing, sizeof agreeing) == sizeof agreeing ? 0 : 1;
                });
            std::uint64_t agreeing = 0;
            EXPECT_EQ(read(pipes[0], &agreeing, sizeof agreeing), static_cast<ssize_t>(sizeof agreeing));
            EXPECT_EQ(JoinChild(child), 0);
            close(pipes[0]);
            close(pipes[1]);
            EXPECT_EQ(agreeing, ~std::uint64_t{0}) << "first open " << f;
        });
    EXPECT_FALSE(LockFileLeft(dir.NarrowOf("m.txt")));
}

TEST(Share, DeleteAndRenameNeedDeleteShared)
{
    ScratchDir dir;
    const std::wstring a = dir.Wide(L"a.txt"), b = dir.Wide(L"b.txt");
    std::ofstream(dir.NarrowOf("a.txt")) << "x";
    struct Row
    {
        DWORD heldShare;
        bool admitted;
    } rows[] = {
        {FILE_SHARE_READ | FILE_SHARE_WRITE, false},
        {FILE_SHARE_DELETE, true},
    };
    for (const Row& row : rows)
    {
        HANDLE held = OpenAs(a, Party{FILE_SHARE_READ, row.heldShare});
        ASSERT_NE(held, INVALID_HANDLE_VALUE);
        SetLastError(0);
        EXPECT_EQ(MoveFileExW(a.c_str(), b.c_str(), 0) != FALSE, row.admitted) << row.heldShare;
        if (!row.admitted)
        {
            EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
            SetLastError(0);
            EXPECT_FALSE(DeleteFileW(a.c_str()));
            EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
        }
        else
            EXPECT_TRUE(DeleteFileW(b.c_str()));
        CloseHandle(held);
    }
    // Delete-on-close holds delete access: an open that does not share delete is refused.
    std::ofstream(dir.NarrowOf("a.txt")) << "x";
    HANDLE temporary = CreateFileW(a.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                   OPEN_EXISTING, FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    ASSERT_NE(temporary, INVALID_HANDLE_VALUE);
    EXPECT_W32_FAILS(OpenAs(a, Party{FILE_SHARE_READ, FILE_SHARE_READ}), INVALID_HANDLE_VALUE,
                     ERROR_SHARING_VIOLATION);
    CloseHandle(temporary);
    EXPECT_EQ(GetFileAttributesW(a.c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST(Share, KilledHolderReleasesTheFile)
{
    ScratchDir dir;
    const std::string narrow = dir.NarrowOf("k.txt");
    std::ofstream(narrow) << "x";
    int pipes[2];
    ASSERT_EQ(pipe(pipes), 0);
    const pid_t holder = ForkChild(
        [&]
        {
            HANDLE h = OpenAs(WideOf(narrow), Party{FILE_SHARE_WRITE, 0});
            const char ready = h != INVALID_HANDLE_VALUE ? 'y' : 'n';
            if (write(pipes[1], &ready, 1) != 1)
                return 1;
            pause();
            return 0;
        });
    char ready = 0;
    ASSERT_EQ(read(pipes[0], &ready, 1), 1);
    ASSERT_EQ(ready, 'y');
    EXPECT_W32_FAILS(OpenAs(WideOf(narrow), Party{FILE_SHARE_READ, 7}), INVALID_HANDLE_VALUE,
                     ERROR_SHARING_VIOLATION);
    // Attribute-only opens and lookups take no part in sharing, as on Windows.
    HANDLE attributes = OpenAs(WideOf(narrow), Party{0, 0});
    EXPECT_NE(attributes, INVALID_HANDLE_VALUE);
    CloseHandle(attributes);
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    close(pipes[0]);
    close(pipes[1]);
    HANDLE after = OpenAs(WideOf(narrow), Party{FILE_SHARE_READ, 0});
    EXPECT_NE(after, INVALID_HANDLE_VALUE);
    CloseHandle(after);
    EXPECT_FALSE(LockFileLeft(narrow));
}

// What another process sees is what this process's opens hold together: it changes as they close, and a
// child closing the handles it inherited changes nothing of its parent's.
TEST(Share, OtherProcessesSeeWhatTheOpensHoldTogether)
{
    ScratchDir dir;
    const std::wstring path = dir.Wide(L"g.txt");
    std::ofstream(dir.NarrowOf("g.txt")) << "x";
    const Party all = {FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, 7};
    const Party readerOnly = {FILE_SHARE_READ, FILE_SHARE_READ}; // refuses writers
    HANDLE reader = OpenAs(path, Party{FILE_SHARE_READ, 7});
    HANDLE writer = OpenAs(path, Party{FILE_SHARE_WRITE, 7});
    ASSERT_NE(reader, INVALID_HANDLE_VALUE);
    ASSERT_NE(writer, INVALID_HANDLE_VALUE);
    EXPECT_FALSE(AdmittedInChild(path, readerOnly));
    const pid_t closer = ForkChild([&] { return CloseHandle(writer) && CloseHandle(reader) ? 0 : 1; });
    EXPECT_EQ(JoinChild(closer), 0);
    EXPECT_FALSE(AdmittedInChild(path, readerOnly)) << "a child's close released its parent's open";
    CloseHandle(writer);
    EXPECT_TRUE(AdmittedInChild(path, readerOnly));
    EXPECT_FALSE(AdmittedInChild(path, Party{FILE_SHARE_READ, 0}));
    CloseHandle(reader);
    // Closed and reopened: the idle record is reused and holds nothing.
    EXPECT_TRUE(AdmittedInChild(path, Party{FILE_SHARE_READ, 0}));
    HANDLE again = OpenAs(path, all);
    ASSERT_NE(again, INVALID_HANDLE_VALUE);
    EXPECT_FALSE(AdmittedInChild(path, Party{FILE_SHARE_READ, 0}));
    CloseHandle(again);
    EXPECT_FALSE(LockFileLeft(dir.NarrowOf("g.txt")));
}

// Delete-on-close removes the file when the last handle of it closes, not the flagged one.
TEST(Share, DeleteOnCloseWaitsForTheLastHandle)
{
    ScratchDir dir;
    const std::wstring path = dir.Wide(L"d.txt");
    std::ofstream(dir.NarrowOf("d.txt")) << "x";
    HANDLE flagged = CreateFileW(path.c_str(), GENERIC_READ | DELETE, 7, nullptr, OPEN_EXISTING,
                                 FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    ASSERT_NE(flagged, INVALID_HANDLE_VALUE);
    HANDLE other = OpenAs(path, Party{FILE_SHARE_READ, 7});
    ASSERT_NE(other, INVALID_HANDLE_VALUE);
    CloseHandle(flagged);
    EXPECT_NE(GetFileAttributesW(path.c_str()), INVALID_FILE_ATTRIBUTES);
    CloseHandle(other);
    EXPECT_EQ(GetFileAttributesW(path.c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_FALSE(LockFileLeft(dir.NarrowOf("d.txt")));
}

TEST(Share, RefusedParameters)
{
    ScratchDir dir;
    const std::wstring path = dir.Wide(L"p.txt");
    EXPECT_W32_FAILS(CreateFileW(path.c_str(), GENERIC_READ, 8, nullptr, CREATE_ALWAYS, 0, nullptr),
                     INVALID_HANDLE_VALUE, ERROR_INVALID_PARAMETER);
}
