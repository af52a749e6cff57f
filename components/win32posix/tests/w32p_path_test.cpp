// The lossless name mapping between Linux bytes and wide names, and the file functions that use it:
// hostile names listed and reached exactly, paths below an open search resolved without following links.
#include "w32p_path.h"
#include "w32p_test_util.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <fstream>
#include <random>
#include <set>
#include <sys/resource.h>

namespace
{

std::wstring Wide(const std::string& bytes)
{
    return W32pNativeToWide(bytes);
}

std::string Native(const std::wstring& wide)
{
    return W32pWideToNative(wide.data(), wide.size());
}

void WriteBytes(const std::string& path, const std::string& content)
{
    std::ofstream(path, std::ios::binary) << content;
}

std::string ReadBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Every name a search of directory hands out.
std::vector<std::wstring> ListNames(const std::wstring& directory)
{
    std::vector<std::wstring> names;
    WIN32_FIND_DATAW data;
    HANDLE find = FindFirstFileW((directory + L"\\*").c_str(), &data);
    if (find == INVALID_HANDLE_VALUE)
        return names;
    do
        if (std::wstring(data.cFileName) != L"." && std::wstring(data.cFileName) != L"..")
            names.push_back(data.cFileName);
    while (FindNextFileW(find, &data));
    FindClose(find);
    return names;
}

} // namespace

TEST(NameMapping, CarriesForbiddenCharactersAndInvalidBytes)
{
    EXPECT_EQ(Wide("plain.txt"), L"plain.txt");
    EXPECT_EQ(Wide("\xC3\xA4"), L"\u00E4");
    EXPECT_EQ(Wide("..\\victim.txt"), L"..\uF05Cvictim.txt");
    EXPECT_EQ(Wide("a:b*c?d\"e<f>g|h"), L"a\uF03Ab\uF02Ac\uF03Fd\uF022e\uF03Cf\uF03Eg\uF07Ch");
    EXPECT_EQ(Wide("tab\there"), L"tab\uF009here");
    EXPECT_EQ(Wide("\xFF\xFE"), std::wstring({wchar_t(0xDCFF), wchar_t(0xDCFE)}));
    // A truncated sequence, an overlong form and an encoded surrogate are bytes, not characters.
    EXPECT_EQ(Wide("\xC3"), std::wstring(1, wchar_t(0xDCC3)));
    EXPECT_EQ(Wide("\xC0\xAF"), std::wstring({wchar_t(0xDCC0), wchar_t(0xDCAF)}));
    EXPECT_EQ(Wide("\xED\xB2\x80"), std::wstring({wchar_t(0xDCED), wchar_t(0xDCB2), wchar_t(0xDC80)}));
    // Real characters in the carrying ranges are carried byte by byte, so they can't pose as a carried one.
    EXPECT_EQ(Wide("\xEF\x81\x9C"), std::wstring({wchar_t(0xDCEF), wchar_t(0xDC81), wchar_t(0xDC9C)}));
    // Separators in a path stay separators; both Windows separators lead back to "/".
    EXPECT_EQ(Wide("/tmp/a\\b"), L"/tmp/a\uF05Cb");
    EXPECT_EQ(Native(L"dir\\sub/file"), "dir/sub/file");
    EXPECT_EQ(Native(L"a\uF05Cb"), "a\\b");
    // Wide text no Linux name produces still gets a name of its own, never U+FFFD's.
    EXPECT_EQ(Native(std::wstring(1, wchar_t(0xD800))), "\xED\xA0\x80");
    EXPECT_EQ(Native(L"\uF02F"), "\xEF\x80\xAF"); // not a separator
    EXPECT_EQ(Native(std::wstring({wchar_t(0xD83D), wchar_t(0xDE00)})), "\xF0\x9F\x98\x80");
}

TEST(NameMapping, IsABijectionOnRandomNames)
{
    std::mt19937 random(12345);
    std::set<std::wstring> wideForms;
    std::set<std::string> names;
    for (int i = 0; i < 20000; ++i)
    {
        std::string name(1 + random() % 12, '\0');
        for (char& c : name)
        {
            // Mostly bytes around the interesting ranges, so that valid sequences occur often too.
            const unsigned pick = random() % 6;
            c = static_cast<char>(pick == 0 ? 0xEF : pick == 1 ? 0x80 + random() % 0x40 : 1 + random() % 255);
            if (c == '/')
                c = '\\';
        }
        const std::wstring wide = Wide(name);
        ASSERT_EQ(Native(wide), name);
        EXPECT_EQ(wide.find_first_of(L"\\/:*?\"<>|"), std::wstring::npos);
        for (wchar_t c : wide)
            ASSERT_GE(static_cast<std::uint32_t>(c), 0x20u);
        if (names.insert(name).second)
        {
            EXPECT_TRUE(wideForms.insert(wide).second) << "two names share one wide form";
        }
    }
}

// A folder of hostile names is listed with names that contain no separator, and each listed name reaches
// exactly its own file.
TEST(NameMapping, ListedNamesReachTheirOwnFiles)
{
    ScratchDir dir;
    mkdir(dir.NarrowOf("tree").c_str(), 0777);
    WriteBytes(dir.NarrowOf("victim.txt"), "victim");
    const std::vector<std::string> hostile = {"..\\victim.txt", "a:b",          "\xFF\xFE",  "\xEF\xBF\xBD",
                                              "\xEF\x80\x80",   "\xED\xB2\x80", "sp ace\x01"};
    for (const std::string& name : hostile)
        WriteBytes(dir.NarrowOf("tree/" + name), name);

    const std::wstring tree = dir.Wide(L"tree");
    const std::vector<std::wstring> listed = ListNames(tree);
    ASSERT_EQ(listed.size(), hostile.size());
    for (const std::wstring& name : listed)
    {
        EXPECT_EQ(name.find_first_of(L"\\/"), std::wstring::npos);
        HANDLE file = CreateFileW((tree + L"\\" + name).c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                  FILE_ATTRIBUTE_NORMAL, nullptr);
        ASSERT_NE(file, INVALID_HANDLE_VALUE);
        char buffer[64] = {};
        DWORD read = 0;
        ASSERT_TRUE(ReadFile(file, buffer, sizeof buffer, &read, nullptr));
        CloseHandle(file);
        EXPECT_EQ(Native(name), std::string(buffer, read)) << "the name reached another file";
    }
    for (const std::wstring& name : listed)
        EXPECT_TRUE(DeleteFileW((tree + L"\\" + name).c_str()));
    EXPECT_EQ(ReadBytes(dir.NarrowOf("victim.txt")), "victim");
    EXPECT_TRUE(PathIsDirectoryEmptyW(tree.c_str()));
    // A wildcard still matches names whose bytes are wildcard characters.
    WriteBytes(dir.NarrowOf("tree/star*name"), "");
    EXPECT_EQ(ListNames(tree), std::vector<std::wstring>{L"star\uF02Aname"});
}

// Below an open search, a sub-folder swapped for a link is not followed: it is neither searched nor given
// new attributes, and removing it removes the link.
TEST(SearchRelative, SwappedLinkBelowAnOpenSearchIsNotFollowed)
{
    ScratchDir dir;
    mkdir(dir.NarrowOf("tree").c_str(), 0777);
    mkdir(dir.NarrowOf("tree/sub").c_str(), 0777);
    mkdir(dir.NarrowOf("target").c_str(), 0777);
    WriteBytes(dir.NarrowOf("target/keep.txt"), "keep");
    chmod(dir.NarrowOf("target/keep.txt").c_str(), 0444);

    WIN32_FIND_DATAW data;
    HANDLE find = FindFirstFileW(dir.Wide(L"tree\\*").c_str(), &data);
    ASSERT_NE(find, INVALID_HANDLE_VALUE);
    ASSERT_EQ(rmdir(dir.NarrowOf("tree/sub").c_str()), 0);
    ASSERT_EQ(symlink(dir.NarrowOf("target").c_str(), dir.NarrowOf("tree/sub").c_str()), 0);

    const std::wstring sub = dir.Wide(L"tree\\sub");
    EXPECT_EQ(GetFileAttributesW(sub.c_str()) & FILE_ATTRIBUTE_REPARSE_POINT,
              static_cast<DWORD>(FILE_ATTRIBUTE_REPARSE_POINT));
    EXPECT_W32_FAILS(FindFirstFileW((sub + L"\\*").c_str(), &data), INVALID_HANDLE_VALUE,
                     ERROR_PATH_NOT_FOUND);
    EXPECT_TRUE(SetFileAttributesW(sub.c_str(), FILE_ATTRIBUTE_NORMAL)); // the link's own: no change
    EXPECT_TRUE(RemoveDirectoryW(sub.c_str()));                          // the link itself goes
    FindClose(find);

    EXPECT_EQ(ReadBytes(dir.NarrowOf("target/keep.txt")), "keep");
    struct stat st;
    ASSERT_EQ(stat(dir.NarrowOf("target/keep.txt").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0444u);
}

// A tree far deeper than PATH_MAX is walked and deleted while each level's search is open.
TEST(SearchRelative, TreesDeeperThanThePathLimitAreReached)
{
    ScratchDir dir;
    const std::string element(40, 'd');
    std::wstring path = dir.Wide(L"deep");
    ASSERT_TRUE(CreateDirectoryW(path.c_str(), nullptr));
    std::vector<HANDLE> searches;
    WIN32_FIND_DATAW data;
    for (int level = 0; level < 200; ++level) // about 8,000 bytes of path
    {
        searches.push_back(FindFirstFileW((path + L"\\*").c_str(), &data));
        ASSERT_NE(searches.back(), INVALID_HANDLE_VALUE) << level;
        path += L"\\" + std::wstring(element.begin(), element.end());
        ASSERT_TRUE(CreateDirectoryW(path.c_str(), nullptr)) << level << " " << GetLastError();
    }
    const std::wstring file = path + L"\\f.txt";
    HANDLE h =
        CreateFileW(file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(h, INVALID_HANDLE_VALUE) << GetLastError();
    CloseHandle(h);
    EXPECT_TRUE(PathIsDirectoryW(path.c_str()));
    EXPECT_TRUE(DeleteFileW(file.c_str()));
    EXPECT_TRUE(PathIsDirectoryEmptyW(path.c_str()));
    for (int level = 199; level >= 0; --level)
    {
        ASSERT_TRUE(RemoveDirectoryW(path.c_str())) << level << " " << GetLastError();
        path.resize(path.rfind(L'\\'));
        FindClose(searches[static_cast<std::size_t>(level)]);
    }
    EXPECT_TRUE(PathIsDirectoryEmptyW(dir.Wide(L"deep").c_str()));
}

TEST(File, DeleteOnCloseRemovesOnlyTheOpenedFile)
{
    ScratchDir dir;
    const std::wstring path = dir.Wide(L"temp.bin");
    HANDLE h =
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    EXPECT_NE(GetFileAttributesW(path.c_str()), INVALID_FILE_ATTRIBUTES);
    CloseHandle(h);
    EXPECT_W32_FAILS(GetFileAttributesW(path.c_str()), INVALID_FILE_ATTRIBUTES, ERROR_FILE_NOT_FOUND);

    // A file put in the place of the opened one survives the close.
    h = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    ASSERT_EQ(unlink(dir.NarrowOf("temp.bin").c_str()), 0);
    WriteBytes(dir.NarrowOf("temp.bin"), "other");
    CloseHandle(h);
    EXPECT_EQ(ReadBytes(dir.NarrowOf("temp.bin")), "other");

    // A read-only file can't be opened for deletion.
    chmod(dir.NarrowOf("temp.bin").c_str(), 0444);
    EXPECT_W32_FAILS(CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                 FILE_FLAG_DELETE_ON_CLOSE, nullptr),
                     INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED);
}

// Opening a FIFO without a peer returns at once (a watchdog child catches a hang).
TEST(File, OpeningAFifoNeverBlocks)
{
    ScratchDir dir;
    ASSERT_EQ(mkfifo(dir.NarrowOf("fifo").c_str(), 0666), 0);
    const std::wstring path = dir.Wide(L"fifo");
    const pid_t child = ForkChild(
        [&]
        {
            HANDLE reader = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                        FILE_ATTRIBUTE_NORMAL, nullptr);
            if (reader == INVALID_HANDLE_VALUE)
                return 1;
            CloseHandle(reader);
            SetLastError(0);
            HANDLE writer = CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                        FILE_ATTRIBUTE_NORMAL, nullptr);
            return writer == INVALID_HANDLE_VALUE && GetLastError() == ERROR_NOT_READY ? 0 : 2;
        });
    int status = 0;
    pid_t done = 0;
    for (int i = 0; i < 500 && done == 0; ++i)
    {
        done = waitpid(child, &status, WNOHANG);
        if (done == 0)
            usleep(10000);
    }
    if (done == 0)
    {
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
        FAIL() << "CreateFileW blocked on a FIFO";
    }
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

TEST(LastError, FullDiskAndDeviceErrorsHaveTheirWindowsCodes)
{
    EXPECT_EQ(W32pErrorFromErrno(ENOSPC), static_cast<DWORD>(ERROR_DISK_FULL));
    EXPECT_EQ(W32pErrorFromErrno(EIO), static_cast<DWORD>(ERROR_IO_DEVICE));
    // A write beyond the process's file-size limit fails as a full disk does.
    ScratchDir dir;
    const std::wstring path = dir.Wide(L"big.bin");
    const pid_t child = ForkChild(
        [&]
        {
            signal(SIGXFSZ, SIG_IGN);
            struct rlimit limit = {4096, 4096};
            setrlimit(RLIMIT_FSIZE, &limit);
            HANDLE h = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                   FILE_ATTRIBUTE_NORMAL, nullptr);
            std::vector<char> block(8192, 'x');
            DWORD written = 0;
            const BOOL ok = WriteFile(h, block.data(), static_cast<DWORD>(block.size()), &written, nullptr);
            return !ok && GetLastError() == ERROR_DISK_FULL && written == 4096 ? 0 : 1;
        });
    EXPECT_EQ(JoinChild(child), 0);
}
