// Named events, semaphores and mutexes: one namespace, lifetime, and use between processes.
#include "w32p_test_util.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <thread>

TEST(W32pNamed, CreateJoinsAnExistingObjectOfTheSameKind)
{
    const std::wstring name = TestName(L"join");
    HANDLE first = CreateEventW(nullptr, TRUE, FALSE, name.c_str());
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SUCCESS));
    HANDLE second = CreateEventW(nullptr, FALSE, TRUE, name.c_str()); // arguments of a join are ignored
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ALREADY_EXISTS));
    EXPECT_EQ(WaitForSingleObject(first, 0), WAIT_TIMEOUT);
    EXPECT_TRUE(SetEvent(second));
    EXPECT_EQ(WaitForSingleObject(first, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(first, 0), WAIT_OBJECT_0); // still manual-reset

    HANDLE local = OpenEventW(SYNCHRONIZE | EVENT_MODIFY_STATE, FALSE, (L"Local\\" + name).c_str());
    EXPECT_NE(local, nullptr);
    HANDLE global = CreateEventW(nullptr, FALSE, FALSE, (L"Global\\" + name).c_str());
    EXPECT_NE(global, nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ALREADY_EXISTS));
    std::wstring upper = name;
    upper[0] = L'W'; // names are case-sensitive
    EXPECT_W32_FAILS(OpenEventW(SYNCHRONIZE, FALSE, upper.c_str()), nullptr, ERROR_FILE_NOT_FOUND);

    struct stat st;
    ASSERT_EQ(lstat(NamedObjectDir().c_str(), &st), 0);
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    EXPECT_EQ(st.st_mode & 0777, 0700u);
    EXPECT_EQ(st.st_uid, geteuid());
    const std::string file = NamedObjectDir() + "/" + std::string(name.begin(), name.end());
    ASSERT_EQ(lstat(file.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);

    for (HANDLE h : {first, second, local, global})
        EXPECT_TRUE(CloseHandle(h));
    EXPECT_W32_FAILS(OpenEventW(SYNCHRONIZE, FALSE, name.c_str()), nullptr, ERROR_FILE_NOT_FOUND);
    EXPECT_TRUE(LeftoverShmFiles().empty());
}

TEST(W32pNamed, OneNamespaceForAllKinds)
{
    const std::wstring name = TestName(L"kinds");
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, name.c_str());
    ASSERT_NE(event, nullptr);
    const wchar_t* n = name.c_str();
    EXPECT_W32_FAILS(CreateSemaphoreW(nullptr, 0, 1, n), nullptr, ERROR_INVALID_HANDLE);
    EXPECT_W32_FAILS(OpenSemaphoreW(SYNCHRONIZE, FALSE, n), nullptr, ERROR_INVALID_HANDLE);
    EXPECT_W32_FAILS(CreateMutexW(nullptr, FALSE, n), nullptr, ERROR_INVALID_HANDLE);
    EXPECT_W32_FAILS(OpenMutexW(SYNCHRONIZE, FALSE, n), nullptr, ERROR_INVALID_HANDLE);
    EXPECT_W32_FAILS(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, n), nullptr,
                     ERROR_INVALID_HANDLE);
    EXPECT_W32_FAILS(OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, n), nullptr, ERROR_INVALID_HANDLE);
    EXPECT_TRUE(CloseHandle(event));

    const std::wstring unknown = TestName(L"unknown");
    const wchar_t* u = unknown.c_str();
    EXPECT_W32_FAILS(OpenEventW(SYNCHRONIZE, FALSE, u), nullptr, ERROR_FILE_NOT_FOUND);
    EXPECT_W32_FAILS(OpenSemaphoreW(SYNCHRONIZE, FALSE, u), nullptr, ERROR_FILE_NOT_FOUND);
    EXPECT_W32_FAILS(OpenMutexW(SYNCHRONIZE, FALSE, u), nullptr, ERROR_FILE_NOT_FOUND);
    EXPECT_W32_FAILS(OpenFileMappingW(FILE_MAP_READ, FALSE, u), nullptr, ERROR_FILE_NOT_FOUND);
    EXPECT_TRUE(LeftoverShmFiles().empty());
}

TEST(W32pNamedProcesses, EventSignalledByAChild)
{
    const std::wstring name = TestName(L"childevent");
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, name.c_str());
    ASSERT_NE(event, nullptr);
    const pid_t child = ForkChild(
        [&]
        {
            HANDLE e = OpenEventW(SYNCHRONIZE | EVENT_MODIFY_STATE, FALSE, name.c_str());
            if (e == nullptr)
                return 1;
            Sleep(20);
            return SetEvent(e) ? 0 : 2;
        });
    EXPECT_EQ(WaitForSingleObject(event, 5000), WAIT_OBJECT_0);
    EXPECT_EQ(JoinChild(child), 0);
    EXPECT_TRUE(CloseHandle(event));
    EXPECT_TRUE(LeftoverShmFiles().empty());
}

TEST(W32pNamedProcesses, SemaphoreCountIsShared)
{
    const std::wstring name = TestName(L"sem");
    HANDLE sem = CreateSemaphoreW(nullptr, 0, 10, name.c_str());
    ASSERT_NE(sem, nullptr);
    const pid_t child = ForkChild(
        [&]
        {
            HANDLE s = CreateSemaphoreW(nullptr, 0, 10, name.c_str());
            if (s == nullptr || GetLastError() != ERROR_ALREADY_EXISTS)
                return 1;
            LONG previous = -1;
            return ReleaseSemaphore(s, 3, &previous) && previous == 0 ? 0 : 2;
        });
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(WaitForSingleObject(sem, 5000), WAIT_OBJECT_0);
    EXPECT_EQ(JoinChild(child), 0);
    EXPECT_EQ(WaitForSingleObject(sem, 0), WAIT_TIMEOUT);
    EXPECT_TRUE(CloseHandle(sem));
}

TEST(W32pNamedProcesses, MutexExcludesAndIsAbandonedWhenItsHolderIsKilled)
{
    const std::wstring name = TestName(L"mutex");
    const std::wstring held = TestName(L"held");
    HANDLE mutex = CreateMutexW(nullptr, FALSE, name.c_str());
    HANDLE heldEvent = CreateEventW(nullptr, TRUE, FALSE, held.c_str());
    ASSERT_NE(mutex, nullptr);
    const pid_t child = ForkChild(
        [&]
        {
            HANDLE m = OpenMutexW(SYNCHRONIZE, FALSE, name.c_str());
            HANDLE e = OpenEventW(EVENT_MODIFY_STATE, FALSE, held.c_str());
            if (m == nullptr || e == nullptr || WaitForSingleObject(m, 5000) != WAIT_OBJECT_0)
                return 1;
            SetEvent(e);
            Sleep(INFINITE);
            return 0;
        });
    ASSERT_EQ(WaitForSingleObject(heldEvent, 5000), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_TIMEOUT);
    std::thread killer(
        [&]
        {
            Sleep(30); // the parent is asleep on the mutex by now
            kill(child, SIGKILL);
        });
    EXPECT_EQ(WaitForSingleObject(mutex, 5000), WAIT_ABANDONED_0);
    killer.join();
    EXPECT_EQ(JoinChild(child), -1);
    std::thread other([&] { EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_TIMEOUT); }); // we really own it
    other.join();
    EXPECT_TRUE(ReleaseMutex(mutex));
    EXPECT_TRUE(CloseHandle(mutex));
    EXPECT_TRUE(CloseHandle(heldEvent));
    EXPECT_TRUE(LeftoverShmFiles().empty());
}

TEST(W32pNamedProcesses, NamesOfKilledHoldersCannotBeOpenedAndLeaveNothing)
{
    const std::wstring name = TestName(L"orphan");
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    pid_t children[2];
    for (pid_t& child : children)
        child = ForkChild(
            [&]
            {
                HANDLE e = CreateEventW(nullptr, TRUE, FALSE, name.c_str());
                HANDLE m = CreateMutexW(nullptr, TRUE, (name + L"-m").c_str());
                char ok = (e != nullptr && m != nullptr) ? 1 : 0;
                if (write(ready[1], &ok, 1) != 1)
                    return 1;
                Sleep(INFINITE);
                return 0;
            });
    for (int i = 0; i < 2; ++i)
    {
        char ok = 0;
        ASSERT_EQ(read(ready[0], &ok, 1), 1);
        EXPECT_EQ(ok, 1);
    }
    close(ready[0]);
    close(ready[1]);
    EXPECT_FALSE(LeftoverShmFiles().empty());
    for (pid_t child : children)
    {
        kill(child, SIGKILL);
        JoinChild(child);
    }
    // Any later open sweeps the files of killed holders away (at most once a second per process).
    Sleep(1100);
    CloseHandle(CreateEventW(nullptr, FALSE, FALSE, TestName(L"unrelated").c_str()));
    EXPECT_TRUE(LeftoverShmFiles().empty());
    EXPECT_W32_FAILS(OpenEventW(SYNCHRONIZE, FALSE, name.c_str()), nullptr, ERROR_FILE_NOT_FOUND);
    HANDLE fresh = CreateMutexW(nullptr, FALSE, (name + L"-m").c_str());
    ASSERT_NE(fresh, nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SUCCESS)); // a new object, not the dead one
    EXPECT_EQ(WaitForSingleObject(fresh, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseMutex(fresh));
    EXPECT_TRUE(CloseHandle(fresh));
    EXPECT_TRUE(LeftoverShmFiles().empty());
}

TEST(W32pNamed, MutexTakenThroughOneHandleIsReleasedThroughAnother)
{
    const std::wstring name = TestName(L"twohandles");
    HANDLE first = CreateMutexW(nullptr, FALSE, name.c_str());
    HANDLE second = OpenMutexW(SYNCHRONIZE, FALSE, name.c_str());
    ASSERT_NE(second, nullptr);
    std::thread user(
        [&]
        {
            EXPECT_EQ(WaitForSingleObject(first, 0), WAIT_OBJECT_0);
            EXPECT_TRUE(ReleaseMutex(second));
        });
    user.join();
    EXPECT_EQ(WaitForSingleObject(second, 0), WAIT_OBJECT_0); // free, not abandoned by the ended thread
    EXPECT_TRUE(ReleaseMutex(first));
    CloseHandle(first);
    CloseHandle(second);
}

TEST(W32pNamedProcesses, NameOfAnotherKindHeldByAnotherProcess)
{
    const std::wstring name = TestName(L"otherkind");
    int ready[2], done[2];
    ASSERT_EQ(pipe(ready), 0);
    ASSERT_EQ(pipe(done), 0);
    const pid_t child = ForkChild(
        [&]
        {
            HANDLE s = CreateSemaphoreW(nullptr, 1, 1, name.c_str());
            char c = s != nullptr ? 1 : 0;
            if (write(ready[1], &c, 1) != 1 || read(done[0], &c, 1) != 1)
                return 1;
            return CloseHandle(s) ? 0 : 2;
        });
    char c = 0;
    ASSERT_EQ(read(ready[0], &c, 1), 1);
    ASSERT_EQ(c, 1);
    EXPECT_W32_FAILS(CreateEventW(nullptr, FALSE, FALSE, name.c_str()), nullptr, ERROR_INVALID_HANDLE);
    EXPECT_W32_FAILS(OpenMutexW(SYNCHRONIZE, FALSE, name.c_str()), nullptr, ERROR_INVALID_HANDLE);
    HANDLE same = OpenSemaphoreW(SYNCHRONIZE, FALSE, name.c_str());
    EXPECT_NE(same, nullptr);
    EXPECT_EQ(WaitForSingleObject(same, 0), WAIT_OBJECT_0); // the child's count
    ASSERT_EQ(write(done[1], "x", 1), 1);
    EXPECT_EQ(JoinChild(child), 0);
    EXPECT_TRUE(CloseHandle(same));
    EXPECT_TRUE(LeftoverShmFiles().empty());
    for (int fd : {ready[0], ready[1], done[0], done[1]})
        close(fd);
}

// Open descriptors of this process.
static int OpenDescriptors()
{
    int count = 0;
    if (DIR* dir = opendir("/proc/self/fd"))
    {
        while (readdir(dir) != nullptr)
            ++count;
        closedir(dir);
    }
    return count;
}

TEST(W32pNamedLimits, TensOfThousandsOfObjectsCostNoDescriptorEach)
{
    constexpr int kCount = 30000; // far above the usual limit of 1,024 descriptors
    const int before = OpenDescriptors();
    std::vector<HANDLE> handles;
    handles.reserve(kCount);
    for (int i = 0; i < kCount; ++i)
    {
        HANDLE h = i % 2 ? CreateEventW(nullptr, TRUE, FALSE, TestName(std::to_wstring(i).c_str()).c_str())
                         : CreateMutexW(nullptr, FALSE, TestName(std::to_wstring(i).c_str()).c_str());
        ASSERT_NE(h, nullptr) << "object " << i << ", error " << GetLastError();
        handles.push_back(h);
    }
    EXPECT_LE(OpenDescriptors(), before + 4);
    EXPECT_EQ(LeftoverShmFiles().size(), static_cast<std::size_t>(kCount));
    // Still one object per name: a second open joins it.
    HANDLE again = OpenEventW(SYNCHRONIZE, FALSE, TestName(L"29999").c_str());
    ASSERT_NE(again, nullptr);
    EXPECT_TRUE(SetEvent(handles.back()));
    EXPECT_EQ(WaitForSingleObject(again, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(CloseHandle(again));
    for (HANDLE h : handles)
        ASSERT_TRUE(CloseHandle(h));
    EXPECT_TRUE(LeftoverShmFiles().empty());
}

TEST(W32pNamedProcesses, AnOrderlyExitReleasesWhatTheProcessStillHolds)
{
    // The child leaves without closing anything; what nobody else holds is gone at once, what the parent
    // still holds stays.
    const std::wstring alone = TestName(L"exitalone"), shared = TestName(L"exitshared");
    HANDLE kept = CreateEventW(nullptr, TRUE, FALSE, shared.c_str());
    ASSERT_NE(kept, nullptr);
    const pid_t child = ForkChild(
        [&]
        {
            HANDLE e = CreateEventW(nullptr, TRUE, FALSE, alone.c_str());
            HANDLE m = CreateMutexW(nullptr, TRUE, (alone + L"-m").c_str());
            HANDLE s = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096,
                                          (alone + L"-s").c_str());
            HANDLE j = OpenEventW(EVENT_MODIFY_STATE, FALSE, shared.c_str());
            if (e == nullptr || m == nullptr || s == nullptr || j == nullptr || !SetEvent(j))
                _exit(1);
            exit(0);
            return 0;
        });
    EXPECT_EQ(JoinChild(child), 0);
    const std::vector<std::string> left = LeftoverShmFiles(); // no open in between: no sweep
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(left[0], std::string(shared.begin(), shared.end()));
    EXPECT_EQ(WaitForSingleObject(kept, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(CloseHandle(kept));
    EXPECT_TRUE(LeftoverShmFiles().empty());
}
