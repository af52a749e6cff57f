// Directory-change notification on real folders: record layout, overlapped completion, subtree, overflow,
// cancellation, deletion of the watched folder and the end of the watch with its handle.
#include "w32p_test_util.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <fcntl.h>
#include <thread>
#include <utility>

namespace
{

using Change = std::pair<DWORD, std::wstring>;

HANDLE OpenFolder(const std::wstring& path)
{
    return CreateFileW(path.c_str(), FILE_LIST_DIRECTORY,
                       FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                       FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED, nullptr);
}

// Walks the records in buffer, checking each offset's alignment.
std::vector<Change> Parse(const void* buffer, DWORD bytes)
{
    std::vector<Change> changes;
    const BYTE* at = static_cast<const BYTE*>(buffer);
    const BYTE* end = at + bytes;
    while (at < end)
    {
        const auto* info = reinterpret_cast<const FILE_NOTIFY_INFORMATION*>(at);
        changes.emplace_back(info->Action,
                             std::wstring(info->FileName, info->FileNameLength / sizeof(WCHAR)));
        if (info->NextEntryOffset == 0)
            break;
        EXPECT_EQ(0u, info->NextEntryOffset % 4);
        at += info->NextEntryOffset;
    }
    return changes;
}

int CountEntries(const char* folder)
{
    int n = 0;
    if (DIR* dir = opendir(folder))
    {
        while (readdir(dir))
            ++n;
        closedir(dir);
    }
    return n;
}

// Collects overlapped completions until want changes arrived or a read comes back empty-handed.
struct Collector
{
    explicit Collector(HANDLE folder, bool subtree = false, DWORD length = 64 * 1024)
        : handle(folder), watchSubtree(subtree), buffer(length / 4 + 1)
    {
        overlapped.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        bufferLength = length;
    }
    ~Collector() { CloseHandle(overlapped.hEvent); }
    BOOL Issue()
    {
        return ReadDirectoryChangesW(handle, buffer.data(), bufferLength, watchSubtree,
                                     FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_DIR_NAME |
                                         FILE_NOTIFY_CHANGE_LAST_WRITE,
                                     nullptr, &overlapped, nullptr);
    }
    // Waits up to ms for the pending request; appends its changes. False when nothing came.
    bool Collect(std::vector<Change>& changes, DWORD ms = 5000)
    {
        if (WaitForSingleObject(overlapped.hEvent, ms) != WAIT_OBJECT_0)
            return false;
        DWORD bytes = 0;
        lastResult = GetOverlappedResult(handle, &overlapped, &bytes, FALSE);
        lastError = GetLastError();
        lastBytes = bytes;
        const std::vector<Change> got = Parse(buffer.data(), bytes);
        changes.insert(changes.end(), got.begin(), got.end());
        return true;
    }
    HANDLE handle;
    bool watchSubtree;
    std::vector<DWORD> buffer;
    DWORD bufferLength;
    OVERLAPPED overlapped{};
    BOOL lastResult = FALSE;
    DWORD lastError = 0;
    DWORD lastBytes = 0;
};

// Issues and collects until changes holds want entries (or nothing more arrives).
std::vector<Change> CollectAll(Collector& collector, std::size_t want)
{
    std::vector<Change> changes;
    while (changes.size() < want)
    {
        if (!collector.Issue() || !collector.Collect(changes))
            break;
    }
    return changes;
}

} // namespace

TEST(Notify, SynchronousCallPacksAlignedRecordsWithWideNames)
{
    ScratchDir dir;
    HANDLE folder = OpenFolder(dir.Wide());
    ASSERT_NE(INVALID_HANDLE_VALUE, folder);
    std::thread writer(
        [&]
        {
            usleep(50 * 1000);
            close(open(dir.NarrowOf("a").c_str(), O_CREAT | O_WRONLY, 0644));
            close(open(dir.NarrowOf("\xc3\xa4rger-\xe2\x82\xac.txt").c_str(), O_CREAT | O_WRONLY, 0644));
        });
    alignas(4) BYTE buffer[4096];
    DWORD bytes = 0;
    std::vector<Change> changes;
    while (changes.size() < 2)
    {
        ASSERT_TRUE(ReadDirectoryChangesW(folder, buffer, sizeof buffer, FALSE, FILE_NOTIFY_CHANGE_FILE_NAME,
                                          &bytes, nullptr, nullptr));
        const std::vector<Change> got = Parse(buffer, bytes);
        changes.insert(changes.end(), got.begin(), got.end());
    }
    writer.join();
    EXPECT_EQ((std::vector<Change>{{FILE_ACTION_ADDED, L"a"}, {FILE_ACTION_ADDED, L"\u00e4rger-\u20ac.txt"}}),
              changes);
    EXPECT_TRUE(CloseHandle(folder));
}

TEST(Notify, OverlappedReportsEachKindOnceIncludingRenamePairs)
{
    ScratchDir dir;
    HANDLE folder = OpenFolder(dir.Wide());
    Collector collector(folder);
    ASSERT_TRUE(collector.Issue());
    DWORD bytes = 0;
    EXPECT_FALSE(GetOverlappedResult(folder, &collector.overlapped, &bytes, FALSE));
    EXPECT_EQ(static_cast<DWORD>(ERROR_IO_INCOMPLETE), GetLastError());
    EXPECT_FALSE(HasOverlappedIoCompleted(&collector.overlapped));

    const int fd = open(dir.NarrowOf("f").c_str(), O_CREAT | O_WRONLY, 0644);
    ASSERT_EQ(1, write(fd, "x", 1));
    close(fd);
    rename(dir.NarrowOf("f").c_str(), dir.NarrowOf("g").c_str());
    unlink(dir.NarrowOf("g").c_str());
    mkdir(dir.NarrowOf("d").c_str(), 0755);
    std::vector<Change> changes;
    ASSERT_TRUE(collector.Collect(changes));
    std::vector<Change> rest = CollectAll(collector, 6 - changes.size());
    changes.insert(changes.end(), rest.begin(), rest.end());
    EXPECT_EQ((std::vector<Change>{{FILE_ACTION_ADDED, L"f"},
                                   {FILE_ACTION_MODIFIED, L"f"},
                                   {FILE_ACTION_RENAMED_OLD_NAME, L"f"},
                                   {FILE_ACTION_RENAMED_NEW_NAME, L"g"},
                                   {FILE_ACTION_REMOVED, L"g"},
                                   {FILE_ACTION_ADDED, L"d"}}),
              changes);
    CloseHandle(folder);
}

TEST(Notify, SubtreeFollowsFoldersCreatedAfterTheWatchBegan)
{
    ScratchDir dir;
    mkdir(dir.NarrowOf("old").c_str(), 0755);
    HANDLE folder = OpenFolder(dir.Wide());
    Collector collector(folder, true);
    ASSERT_TRUE(collector.Issue());
    // Created in one go: the watch on "n1/n2" may come after "n1/n2/x" exists; it is reported once anyway.
    std::filesystem::create_directories(dir.NarrowOf("n1/n2"));
    close(open(dir.NarrowOf("n1/n2/x").c_str(), O_CREAT | O_WRONLY, 0644));
    close(open(dir.NarrowOf("old/y").c_str(), O_CREAT | O_WRONLY, 0644));
    std::vector<Change> changes;
    ASSERT_TRUE(collector.Collect(changes));
    std::vector<Change> rest = CollectAll(collector, 4 - changes.size());
    changes.insert(changes.end(), rest.begin(), rest.end());
    EXPECT_EQ((std::vector<Change>{{FILE_ACTION_ADDED, L"n1"},
                                   {FILE_ACTION_ADDED, L"n1\\n2"},
                                   {FILE_ACTION_ADDED, L"n1\\n2\\x"},
                                   {FILE_ACTION_ADDED, L"old\\y"}}),
              changes);
    // A renamed sub-folder keeps being watched under its new name.
    rename(dir.NarrowOf("n1").c_str(), dir.NarrowOf("m1").c_str());
    close(open(dir.NarrowOf("m1/n2/z").c_str(), O_CREAT | O_WRONLY, 0644));
    EXPECT_EQ((std::vector<Change>{{FILE_ACTION_RENAMED_OLD_NAME, L"n1"},
                                   {FILE_ACTION_RENAMED_NEW_NAME, L"m1"},
                                   {FILE_ACTION_ADDED, L"m1\\n2\\z"}}),
              CollectAll(collector, 3));
    CloseHandle(folder);
}

TEST(Notify, OverflowIsReportedNeverSilent)
{
    ScratchDir dir;
    HANDLE folder = OpenFolder(dir.Wide());
    Collector collector(folder, false, 256); // room for a handful of records between requests
    ASSERT_TRUE(collector.Issue());
    std::vector<Change> changes;
    // The first creation completes the pending request; the rest pile up while no request is pending.
    close(open(dir.NarrowOf("first").c_str(), O_CREAT | O_WRONLY, 0644));
    ASSERT_TRUE(collector.Collect(changes));
    for (int i = 0; i < 200; ++i)
        close(open(dir.NarrowOf("file" + std::to_string(i)).c_str(), O_CREAT | O_WRONLY, 0644));
    usleep(100 * 1000);
    ASSERT_TRUE(collector.Issue());
    ASSERT_TRUE(collector.Collect(changes));
    EXPECT_TRUE(collector.lastResult);
    EXPECT_EQ(0u, collector.lastBytes);
    EXPECT_EQ(static_cast<DWORD>(ERROR_NOTIFY_ENUM_DIR), collector.lastError);
    CloseHandle(folder);
}

TEST(Notify, CancelDeletedFolderAndBadArguments)
{
    ScratchDir dir;
    mkdir(dir.NarrowOf("w").c_str(), 0755);
    HANDLE folder = OpenFolder(dir.Wide(L"w"));
    EXPECT_FALSE(CancelIoEx(folder, nullptr));
    EXPECT_EQ(static_cast<DWORD>(ERROR_NOT_FOUND), GetLastError());

    Collector collector(folder);
    ASSERT_TRUE(collector.Issue());
    EXPECT_FALSE(collector.Issue()); // one pending request per handle
    EXPECT_EQ(static_cast<DWORD>(ERROR_INVALID_PARAMETER), GetLastError());
    EXPECT_TRUE(CancelIoEx(folder, &collector.overlapped));
    DWORD bytes = 1;
    EXPECT_FALSE(GetOverlappedResult(folder, &collector.overlapped, &bytes, TRUE));
    EXPECT_EQ(static_cast<DWORD>(ERROR_OPERATION_ABORTED), GetLastError());

    ASSERT_TRUE(collector.Issue());
    ASSERT_EQ(0, rmdir(dir.NarrowOf("w").c_str()));
    EXPECT_FALSE(GetOverlappedResult(folder, &collector.overlapped, &bytes, TRUE));
    EXPECT_EQ(static_cast<DWORD>(ERROR_ACCESS_DENIED), GetLastError());
    EXPECT_FALSE(collector.Issue());
    EXPECT_EQ(static_cast<DWORD>(ERROR_ACCESS_DENIED), GetLastError());
    CloseHandle(folder);

    struct Case
    {
        DWORD filter;
        std::size_t offset;
        DWORD error;
    } cases[] = {{0, 0, ERROR_INVALID_PARAMETER},
                 {0x80000000u, 0, ERROR_INVALID_PARAMETER},
                 {FILE_NOTIFY_CHANGE_FILE_NAME, 2, ERROR_NOACCESS}};
    folder = OpenFolder(dir.Wide());
    alignas(4) BYTE buffer[64];
    for (const Case& c : cases)
    {
        DWORD got = 0;
        EXPECT_FALSE(
            ReadDirectoryChangesW(folder, buffer + c.offset, 32, FALSE, c.filter, &got, nullptr, nullptr));
        EXPECT_EQ(c.error, GetLastError());
    }
    CloseHandle(folder);
    close(open(dir.NarrowOf("plain").c_str(), O_CREAT | O_WRONLY, 0644));
    HANDLE file =
        CreateFileW(dir.Wide(L"plain").c_str(), GENERIC_READ, 7, nullptr, OPEN_EXISTING, 0, nullptr);
    DWORD got = 0;
    EXPECT_FALSE(ReadDirectoryChangesW(file, buffer, 32, FALSE, 1, &got, nullptr, nullptr));
    EXPECT_EQ(static_cast<DWORD>(ERROR_INVALID_PARAMETER), GetLastError());
    CloseHandle(file);
    EXPECT_FALSE(CancelIoEx(file, nullptr));
    EXPECT_EQ(static_cast<DWORD>(ERROR_INVALID_HANDLE), GetLastError());
}

TEST(Notify, ClosingTheHandleEndsTheWatchAndItsThread)
{
    ScratchDir dir;
    std::thread([] {}).join(); // a sanitizer starts a helper thread of its own with the first thread
    // The first open of a process also opens the folder of its sharing records, which stays open.
    CloseHandle(OpenFolder(dir.Wide()));
    const int threadsBefore = CountEntries("/proc/self/task");
    const int fdsBefore = CountEntries("/proc/self/fd");
    for (int i = 0; i < 50; ++i)
    {
        HANDLE folder = OpenFolder(dir.Wide());
        Collector collector(folder, true);
        ASSERT_TRUE(collector.Issue());
        CloseHandle(folder); // the pending request completes as cleaned up
        DWORD bytes = 1;
        EXPECT_TRUE(GetOverlappedResult(folder, &collector.overlapped, &bytes, TRUE));
        EXPECT_EQ(static_cast<DWORD>(ERROR_NOTIFY_CLEANUP), GetLastError());
        EXPECT_EQ(0u, bytes);
    }
    // A synchronous caller blocked in the call is released by CloseHandle on another thread.
    HANDLE folder = OpenFolder(dir.Wide());
    BOOL result = FALSE;
    DWORD error = 0;
    std::thread waiter(
        [&]
        {
            alignas(4) BYTE buffer[256];
            DWORD bytes = 0;
            result = ReadDirectoryChangesW(folder, buffer, sizeof buffer, FALSE, 1, &bytes, nullptr, nullptr);
            error = GetLastError();
        });
    usleep(50 * 1000);
    CloseHandle(folder);
    waiter.join();
    EXPECT_TRUE(result);
    EXPECT_EQ(static_cast<DWORD>(ERROR_NOTIFY_CLEANUP), error);
    EXPECT_EQ(threadsBefore, CountEntries("/proc/self/task"));
    EXPECT_EQ(fdsBefore, CountEntries("/proc/self/fd"));
}
