// Files, directories, attributes and searches, against the Windows answers.
#include "w32p_test_util.h"

#include <gtest/gtest.h>

#include <fstream>
#include <set>

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

HANDLE Open(const std::wstring& path, DWORD access, DWORD share, DWORD disposition)
{
    return CreateFileW(path.c_str(), access, share, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
}

std::vector<std::wstring> FindAll(const std::wstring& pattern, DWORD& error)
{
    std::vector<std::wstring> names;
    WIN32_FIND_DATAW data;
    HANDLE find = FindFirstFileW(pattern.c_str(), &data);
    if (find == INVALID_HANDLE_VALUE)
    {
        error = GetLastError();
        return names;
    }
    do
        names.push_back(data.cFileName);
    while (FindNextFileW(find, &data));
    error = GetLastError();
    FindClose(find);
    return names;
}

} // namespace

TEST(File, DispositionsCreateTruncateAndReportWhatExisted)
{
    ScratchDir dir;
    const std::wstring path = dir.Wide(L"a.txt");

    HANDLE h = Open(path, GENERIC_WRITE, 0, CREATE_NEW);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), 0u);
    DWORD written = 0;
    ASSERT_TRUE(WriteFile(h, "hello", 5, &written, nullptr));
    EXPECT_EQ(written, 5u);
    CloseHandle(h);

    EXPECT_W32_FAILS(Open(path, GENERIC_WRITE, 0, CREATE_NEW), INVALID_HANDLE_VALUE, ERROR_FILE_EXISTS);

    h = Open(path, GENERIC_READ, 0, OPEN_ALWAYS);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ALREADY_EXISTS));
    char buffer[16] = {};
    DWORD read = 0;
    ASSERT_TRUE(ReadFile(h, buffer, sizeof buffer, &read, nullptr));
    EXPECT_EQ(std::string(buffer, read), "hello");
    ASSERT_TRUE(ReadFile(h, buffer, sizeof buffer, &read, nullptr));
    EXPECT_EQ(read, 0u); // end of file is a successful read of nothing
    EXPECT_W32_FAILS(WriteFile(h, "x", 1, &written, nullptr), FALSE, ERROR_ACCESS_DENIED);
    CloseHandle(h);

    h = Open(path, GENERIC_WRITE, 0, CREATE_ALWAYS);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ALREADY_EXISTS));
    CloseHandle(h);
    EXPECT_EQ(ReadText(dir.NarrowOf("a.txt")), "");

    EXPECT_W32_FAILS(Open(dir.Wide(L"missing"), GENERIC_WRITE, 0, TRUNCATE_EXISTING), INVALID_HANDLE_VALUE,
                     ERROR_FILE_NOT_FOUND);
    EXPECT_W32_FAILS(Open(dir.Wide(L"missing"), GENERIC_READ, 0, OPEN_EXISTING), INVALID_HANDLE_VALUE,
                     ERROR_FILE_NOT_FOUND);
    EXPECT_W32_FAILS(Open(dir.Wide(L"nodir\\x"), GENERIC_READ, 0, OPEN_EXISTING), INVALID_HANDLE_VALUE,
                     ERROR_PATH_NOT_FOUND);
    EXPECT_W32_FAILS(Open(path, GENERIC_READ, 0, TRUNCATE_EXISTING), INVALID_HANDLE_VALUE,
                     ERROR_INVALID_PARAMETER);
    EXPECT_W32_FAILS(Open(path, GENERIC_READ, 0, 9), INVALID_HANDLE_VALUE, ERROR_INVALID_PARAMETER);

    WriteText(dir.NarrowOf("b.txt"), "content");
    h = Open(dir.Wide(L"b.txt"), GENERIC_WRITE, 0, TRUNCATE_EXISTING);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    CloseHandle(h);
    EXPECT_EQ(ReadText(dir.NarrowOf("b.txt")), "");
}

TEST(File, OverlappedOffsetsAndStandardHandles)
{
    ScratchDir dir;
    HANDLE h = Open(dir.Wide(L"o.bin"), GENERIC_READ | GENERIC_WRITE, 0, CREATE_ALWAYS);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    DWORD n = 0;
    ASSERT_TRUE(WriteFile(h, "0123456789", 10, &n, nullptr));
    OVERLAPPED at = {};
    at.Offset = 4;
    char buffer[4] = {};
    ASSERT_TRUE(ReadFile(h, buffer, 3, &n, &at));
    EXPECT_EQ(std::string(buffer, n), "456");
    CloseHandle(h);

    HANDLE out = GetStdHandle(STD_OUTPUT_HANDLE);
    EXPECT_NE(out, INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetStdHandle(STD_OUTPUT_HANDLE), out);
    EXPECT_W32_FAILS(GetStdHandle(7), INVALID_HANDLE_VALUE, ERROR_INVALID_HANDLE);
}

TEST(File, ShareModeZeroIsExclusiveAmongOpens)
{
    ScratchDir dir;
    const std::wstring path = dir.Wide(L"s.txt");
    HANDLE first = Open(path, GENERIC_WRITE, 0, CREATE_ALWAYS);
    ASSERT_NE(first, INVALID_HANDLE_VALUE);
    EXPECT_W32_FAILS(Open(path, GENERIC_READ, 0, OPEN_EXISTING), INVALID_HANDLE_VALUE,
                     ERROR_SHARING_VIOLATION);
    EXPECT_W32_FAILS(Open(path, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING), INVALID_HANDLE_VALUE,
                     ERROR_SHARING_VIOLATION);
    // A refused CREATE_ALWAYS must not truncate what the holder wrote.
    DWORD n = 0;
    WriteFile(first, "kept", 4, &n, nullptr);
    EXPECT_EQ(Open(path, GENERIC_WRITE, 0, CREATE_ALWAYS), INVALID_HANDLE_VALUE);
    EXPECT_EQ(ReadText(dir.NarrowOf("s.txt")), "kept");

    // Another process is refused as well.
    const std::string narrow = dir.NarrowOf("s.txt");
    EXPECT_EQ(RunAsOrdinaryUser(
                  [&]
                  {
                      std::wstring wide(narrow.begin(), narrow.end());
                      HANDLE h = Open(wide, GENERIC_READ, 0, OPEN_EXISTING);
                      return h == INVALID_HANDLE_VALUE && GetLastError() == ERROR_SHARING_VIOLATION ? 0 : 1;
                  }),
              0);
    CloseHandle(first);

    HANDLE a = Open(path, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING);
    HANDLE b = Open(path, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING);
    EXPECT_NE(a, INVALID_HANDLE_VALUE);
    EXPECT_NE(b, INVALID_HANDLE_VALUE);
    CloseHandle(a);
    CloseHandle(b);
    HANDLE again = Open(path, GENERIC_READ, 0, OPEN_EXISTING);
    EXPECT_NE(again, INVALID_HANDLE_VALUE);
    CloseHandle(again);
}

// The answers about read-only files must not depend on who asks; root included.
int CheckReadOnlyProtection(const std::string& narrowDir)
{
    const std::wstring base(narrowDir.begin(), narrowDir.end());
    const std::wstring file = base + L"\\ro.txt";
    HANDLE h = Open(file, GENERIC_WRITE, 0, CREATE_ALWAYS);
    if (h == INVALID_HANDLE_VALUE)
        return 1;
    CloseHandle(h);
    if (!SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY))
        return 2;
    if (GetFileAttributesW(file.c_str()) != FILE_ATTRIBUTE_READONLY)
        return 3;
    if (Open(file, GENERIC_WRITE, 0, OPEN_EXISTING) != INVALID_HANDLE_VALUE ||
        GetLastError() != ERROR_ACCESS_DENIED)
        return 4;
    if (Open(file, GENERIC_WRITE, 0, CREATE_ALWAYS) != INVALID_HANDLE_VALUE ||
        GetLastError() != ERROR_ACCESS_DENIED)
        return 5;
    if (DeleteFileW(file.c_str()) || GetLastError() != ERROR_ACCESS_DENIED)
        return 6;
    h = Open(file, GENERIC_READ, 0, OPEN_EXISTING);
    if (h == INVALID_HANDLE_VALUE)
        return 7;
    CloseHandle(h);
    if (!SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL) ||
        GetFileAttributesW(file.c_str()) != FILE_ATTRIBUTE_NORMAL)
        return 8;
    if (!DeleteFileW(file.c_str()))
        return 9;
    return 0;
}

TEST(File, ReadOnlyFileIsProtectedForEveryUser)
{
    ScratchDir dir;
    EXPECT_EQ(CheckReadOnlyProtection(dir.Narrow()), 0);
    EXPECT_EQ(RunAsOrdinaryUser([&] { return CheckReadOnlyProtection(dir.Narrow()); }), 0);
}

TEST(File, OrdinaryUserIsDeniedAnotherUsersPrivateFile)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root to create a file owned by someone else";
    ScratchDir dir;
    WriteText(dir.NarrowOf("private"), "x");
    chmod(dir.NarrowOf("private").c_str(), 0600);
    const std::wstring path = dir.Wide(L"private");
    EXPECT_EQ(RunAsOrdinaryUser(
                  [&]
                  {
                      return Open(path, GENERIC_READ, 0, OPEN_EXISTING) == INVALID_HANDLE_VALUE &&
                                     GetLastError() == ERROR_ACCESS_DENIED
                                 ? 0
                                 : 1;
                  }),
              0);
}

TEST(Directory, CreateRemoveAndTheirRefusals)
{
    ScratchDir dir;
    const std::wstring sub = dir.Wide(L"sub");
    ASSERT_TRUE(CreateDirectoryW(sub.c_str(), nullptr));
    EXPECT_W32_FAILS(CreateDirectoryW(sub.c_str(), nullptr), FALSE, ERROR_ALREADY_EXISTS);
    EXPECT_W32_FAILS(CreateDirectoryW(dir.Wide(L"x\\y").c_str(), nullptr), FALSE, ERROR_PATH_NOT_FOUND);
    EXPECT_TRUE(PathIsDirectoryW(sub.c_str()));
    EXPECT_TRUE(PathIsDirectoryEmptyW(sub.c_str()));

    WriteText(dir.NarrowOf("sub/f"), "1");
    EXPECT_FALSE(PathIsDirectoryEmptyW(sub.c_str()));
    EXPECT_FALSE(PathIsDirectoryW(dir.Wide(L"sub\\f").c_str()));
    EXPECT_FALSE(PathIsDirectoryEmptyW(dir.Wide(L"sub\\f").c_str()));
    EXPECT_W32_FAILS(RemoveDirectoryW(sub.c_str()), FALSE, ERROR_DIR_NOT_EMPTY);
    EXPECT_W32_FAILS(RemoveDirectoryW(dir.Wide(L"sub/f").c_str()), FALSE, ERROR_DIRECTORY);
    EXPECT_W32_FAILS(DeleteFileW(sub.c_str()), FALSE, ERROR_ACCESS_DENIED);
    EXPECT_W32_FAILS(Open(sub, GENERIC_READ, 0, OPEN_EXISTING), INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED);
    EXPECT_W32_FAILS(DeleteFileW(dir.Wide(L"none").c_str()), FALSE, ERROR_FILE_NOT_FOUND);

    EXPECT_TRUE(DeleteFileW(dir.Wide(L"sub\\f").c_str()));
    EXPECT_TRUE(RemoveDirectoryW(sub.c_str()));
    EXPECT_W32_FAILS(GetFileAttributesW(sub.c_str()), INVALID_FILE_ATTRIBUTES, ERROR_FILE_NOT_FOUND);
}

TEST(Directory, LinkToDirectoryIsDescribedAndRemovedAsLink)
{
    ScratchDir dir;
    ASSERT_TRUE(CreateDirectoryW(dir.Wide(L"target").c_str(), nullptr));
    WriteText(dir.NarrowOf("target/keep"), "1");
    ASSERT_EQ(symlink(dir.NarrowOf("target").c_str(), dir.NarrowOf("link").c_str()), 0);
    const DWORD attributes = GetFileAttributesW(dir.Wide(L"link").c_str());
    EXPECT_EQ(attributes, static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT));

    WIN32_FIND_DATAW data;
    HANDLE find = FindFirstFileW(dir.Wide(L"link").c_str(), &data);
    ASSERT_NE(find, INVALID_HANDLE_VALUE);
    EXPECT_EQ(data.dwReserved0, IO_REPARSE_TAG_SYMLINK);
    FindClose(find);

    EXPECT_TRUE(RemoveDirectoryW(dir.Wide(L"link").c_str()));
    EXPECT_EQ(ReadText(dir.NarrowOf("target/keep")), "1");
}

TEST(Find, WildcardsOrderAndWindowsErrors)
{
    ScratchDir dir;
    ASSERT_TRUE(CreateDirectoryW(dir.Wide(L"empty").c_str(), nullptr));
    DWORD error = 0;
    EXPECT_EQ(FindAll(dir.Wide(L"empty\\*"), error), (std::vector<std::wstring>{L".", L".."}));
    EXPECT_EQ(error, static_cast<DWORD>(ERROR_NO_MORE_FILES));

    WriteText(dir.NarrowOf("B.log"), "12345");
    WriteText(dir.NarrowOf("a.txt"), "1");
    WriteText(dir.NarrowOf("a1.txt"), "1");
    WriteText(dir.NarrowOf("noext"), "1");
    EXPECT_EQ(FindAll(dir.Wide(L"*.TXT"), error), (std::vector<std::wstring>{L"a.txt", L"a1.txt"}));
    EXPECT_EQ(FindAll(dir.Wide(L"*.*"), error),
              (std::vector<std::wstring>{L".", L"..", L"a.txt", L"a1.txt", L"B.log", L"empty", L"noext"}));

    WIN32_FIND_DATAW data;
    HANDLE find = FindFirstFileW(dir.Wide(L"b.log").c_str(), &data);
    ASSERT_NE(find, INVALID_HANDLE_VALUE);
    EXPECT_EQ(data.nFileSizeLow, 5u);
    EXPECT_EQ(data.dwFileAttributes, static_cast<DWORD>(FILE_ATTRIBUTE_NORMAL));
    EXPECT_NE(data.ftLastWriteTime.dwHighDateTime, 0u);
    EXPECT_W32_FAILS(FindNextFileW(find, &data), FALSE, ERROR_NO_MORE_FILES);
    EXPECT_TRUE(FindClose(find));
    EXPECT_W32_FAILS(FindClose(find), FALSE, ERROR_INVALID_HANDLE);

    EXPECT_W32_FAILS(FindFirstFileW(dir.Wide(L"missing\\*").c_str(), &data), INVALID_HANDLE_VALUE,
                     ERROR_PATH_NOT_FOUND);
    EXPECT_W32_FAILS(FindFirstFileW(dir.Wide(L"*.none").c_str(), &data), INVALID_HANDLE_VALUE,
                     ERROR_FILE_NOT_FOUND);
    EXPECT_W32_FAILS(FindFirstFileW(dir.Wide(L"empty\\").c_str(), &data), INVALID_HANDLE_VALUE,
                     ERROR_FILE_NOT_FOUND);
}

// The directory-search wildcards of Windows: "?" may match nothing before a dot or at the end, "*." and
// ".*" take names without an extension, and trailing dots and spaces of the pattern are dropped.
TEST(Find, DosWildcardSemantics)
{
    ScratchDir dir;
    for (const char* name : {"a.txt", "ab.txt", "abc", "b.tx", "noext", "x.y.z"})
        WriteText(dir.NarrowOf(name), "1");
    using Names = std::vector<std::wstring>;
    const Names all{L".", L"..", L"a.txt", L"ab.txt", L"abc", L"b.tx", L"noext", L"x.y.z"};
    const struct
    {
        const wchar_t* pattern;
        Names found; // empty: ERROR_FILE_NOT_FOUND
    } rows[] = {
        {L"*.*", all},
        {L"*.", all},
        {L"a?.txt", {L"a.txt", L"ab.txt"}},
        {L"abc?", {L"abc"}},
        {L"ab??", {L"abc"}},
        {L"*.tx?", {L"a.txt", L"ab.txt", L"b.tx"}},
        {L"*.txt.", {L"a.txt", L"ab.txt"}},
        {L"a.txt ", {L"a.txt"}},
        {L"noext.", {L"noext"}},
        {L"noext.*", {L"noext"}},
        {L"x.*", {L"x.y.z"}},
        {L"*.z", {L"x.y.z"}},
        {L"*.t", {}},
        {L"a<.txt", {L"a.txt", L"ab.txt"}},
        {L"ABC", {L"abc"}},
    };
    for (const auto& row : rows)
    {
        DWORD error = 0;
        EXPECT_EQ(FindAll(dir.Wide(row.pattern), error), row.found)
            << std::string(row.pattern, row.pattern + wcslen(row.pattern));
        EXPECT_EQ(error, static_cast<DWORD>(row.found.empty() ? ERROR_FILE_NOT_FOUND : ERROR_NO_MORE_FILES));
    }
}

// Wildcards and characters that are never part of a name are refused by the calls that take one name.
TEST(File, WildcardsAndInvalidCharactersAreInvalidNames)
{
    ScratchDir dir;
    WriteText(dir.NarrowOf("a.txt"), "1");
    WIN32_FILE_ATTRIBUTE_DATA data;
    WIN32_FIND_DATAW found;
    for (const wchar_t* name : {L"*.txt", L"a?.txt", L"a<", L"a>b", L"a\"b", L"a|b"})
    {
        const std::wstring path = dir.Wide(name);
        EXPECT_W32_FAILS(GetFileAttributesW(path.c_str()), INVALID_FILE_ATTRIBUTES, ERROR_INVALID_NAME);
        EXPECT_W32_FAILS(GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data), FALSE,
                         ERROR_INVALID_NAME);
        EXPECT_W32_FAILS(Open(path, GENERIC_READ, 0, OPEN_ALWAYS), INVALID_HANDLE_VALUE, ERROR_INVALID_NAME);
        EXPECT_W32_FAILS(DeleteFileW(path.c_str()), FALSE, ERROR_INVALID_NAME);
        EXPECT_W32_FAILS(FindFirstFileW((path + L"\\*").c_str(), &found), INVALID_HANDLE_VALUE,
                         ERROR_INVALID_NAME);
    }
}

TEST(File, AttributesEx)
{
    ScratchDir dir;
    WriteText(dir.NarrowOf("f"), "abc");
    WIN32_FILE_ATTRIBUTE_DATA data = {};
    ASSERT_TRUE(GetFileAttributesExW(dir.Wide(L"f").c_str(), GetFileExInfoStandard, &data));
    EXPECT_EQ(data.nFileSizeLow, 3u);
    EXPECT_EQ(data.dwFileAttributes, static_cast<DWORD>(FILE_ATTRIBUTE_NORMAL));
    ASSERT_TRUE(GetFileAttributesExW(dir.Wide().c_str(), GetFileExInfoStandard, &data));
    EXPECT_EQ(data.dwFileAttributes, static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY));
}
