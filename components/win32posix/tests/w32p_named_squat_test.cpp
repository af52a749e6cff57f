// Named objects against names planted by someone else: another user, a link, a folder, a damaged file. Each
// create or open must fail cleanly and quickly (a watchdog ends a child that loops), and nothing the victim
// writes may reach a file that another user can read.
#include "w32p_test_util.h"
#include "w32p_waitable.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/stat.h>

namespace
{

constexpr std::uint32_t kReadyMagic = 0x57335032u; // a header that claims to be set up
constexpr std::uint32_t kEventKind = 0;
constexpr std::uint32_t kMappingKind = 5;
constexpr unsigned kWatchdogSeconds = 5;

// Runs body in a child under uid/gid (the current ids when uid is -1), ended by SIGALRM after the
// watchdog's seconds; body's result, or -1 when the child did not exit normally (a loop or a crash).
int RunAs(int uid, const std::function<int()>& body)
{
    return JoinChild(ForkChild(
        [&]
        {
            alarm(kWatchdogSeconds);
            if (uid >= 0 && (setgroups(0, nullptr) != 0 || setresgid(uid, uid, uid) != 0 ||
                             setresuid(uid, uid, uid) != 0))
                return 250;
            return body();
        }));
}

std::string ReadAll(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

// A header page that claims a ready object of kind, followed by the given section bytes.
std::string FakeObject(std::uint32_t kind, std::uint64_t sectionSize, std::uint32_t magic = kReadyMagic,
                       std::size_t fileSize = 4096)
{
    std::string bytes(fileSize, '\0');
    std::memcpy(&bytes[0], &magic, 4);
    std::memcpy(&bytes[4], &kind, 4);
    std::memcpy(&bytes[8], &sectionSize, 8);
    return bytes;
}

bool WriteFile(const std::string& path, const std::string& bytes, mode_t mode)
{
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, mode);
    if (fd < 0)
        return false;
    const bool ok = write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    return close(fd) == 0 && ok && chmod(path.c_str(), mode) == 0;
}

// Every way the victim may reach name; 0 when each fails with ERROR_ACCESS_DENIED, else the failing step.
int EveryOpenIsDenied(const std::wstring& name)
{
    const wchar_t* n = name.c_str();
    int step = 10;
    for (HANDLE h : {CreateEventW(nullptr, FALSE, FALSE, n), OpenEventW(SYNCHRONIZE, FALSE, n),
                     CreateMutexW(nullptr, FALSE, n), CreateSemaphoreW(nullptr, 0, 1, n),
                     CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, n),
                     OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, n)})
    {
        if (h != nullptr || GetLastError() != ERROR_ACCESS_DENIED)
            return step;
        ++step;
    }
    return 0;
}

// Makes the victim's section and writes secret into it; 0 on success.
int WriteSecret(const std::wstring& name, const std::string& secret)
{
    HANDLE mapping = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, name.c_str());
    if (mapping == nullptr)
        return 1;
    void* view = MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, 0);
    if (view == nullptr)
        return 2;
    std::memcpy(view, secret.data(), secret.size());
    UnmapViewOfFile(view);
    CloseHandle(mapping);
    return 0;
}

// Ids that no account uses, distinct per test process (taken in the test process, not in its children).
const int kTestPid = getpid();
int VictimUid()
{
    return 200000 + kTestPid % 100000;
}
int SquatterUid()
{
    return 300000 + kTestPid % 100000;
}

// Ends a child that a failed assertion left waiting.
struct KillOnExit
{
    pid_t pid;
    ~KillOnExit()
    {
        if (pid > 0 && waitpid(pid, nullptr, WNOHANG) == 0)
        {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
    }
};

class W32pNamedSquatting : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (geteuid() != 0)
            GTEST_SKIP()
                << "switching a child to another user needs root; run the suite as root to see squatting";
        m_victimDir = "/dev/shm/w32p-2." + std::to_string(VictimUid());
        std::filesystem::remove_all(m_victimDir);
        char pattern[] = "/tmp/w32psquatXXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        m_squatterDir = pattern;
        ASSERT_EQ(chown(m_squatterDir.c_str(), SquatterUid(), SquatterUid()), 0);
        ASSERT_EQ(chmod(m_squatterDir.c_str(), 0777), 0);
    }
    void TearDown() override
    {
        std::error_code ignored;
        if (!m_victimDir.empty())
            std::filesystem::remove_all(m_victimDir, ignored);
        if (!m_squatterDir.empty())
            std::filesystem::remove_all(m_squatterDir, ignored);
    }

    std::string m_victimDir;   // the folder that the victim's objects would live in
    std::string m_squatterDir; // a folder of the squatter, open to all, for link targets
};

// One planted entry and what must hold of it afterwards.
struct Plant
{
    const char* what;
    std::function<bool(const std::string& path)> make;   // run as the squatter
    std::function<bool(const std::string& path)> intact; // run as root afterwards
};

std::vector<Plant> Plants(const std::string& squatterDir)
{
    const std::string header = FakeObject(kEventKind, 0);
    const std::string target = squatterDir + "/target";
    return {
        {"empty writable file", [](const std::string& p) { return WriteFile(p, "", 0666); },
         [](const std::string& p) { return ReadAll(p).empty(); }},
        {"non-empty file with a ready header",
         [header](const std::string& p) { return WriteFile(p, header, 0666); },
         [header](const std::string& p) { return ReadAll(p) == header; }},
        {"non-empty file of text", [](const std::string& p) { return WriteFile(p, "not an object", 0666); },
         [](const std::string& p) { return ReadAll(p) == "not an object"; }},
        {"read-only file", [](const std::string& p) { return WriteFile(p, "", 0444); },
         [](const std::string& p) { return ReadAll(p).empty(); }},
        {"link to a writable file",
         [target](const std::string& p)
         { return WriteFile(target, "", 0666) && symlink(target.c_str(), p.c_str()) == 0; },
         [target](const std::string&) { return ReadAll(target).empty(); }},
        {"folder open to all",
         [](const std::string& p) { return mkdir(p.c_str(), 0777) == 0 && chmod(p.c_str(), 0777) == 0; },
         [](const std::string& p)
         {
             return std::filesystem::is_empty(p) &&
                    (std::filesystem::status(p).permissions() == std::filesystem::perms::all);
         }},
    };
}

} // namespace

TEST_F(W32pNamedSquatting, TheUsersFolderMadeBeforehandByAnotherUserIsRefused)
{
    const std::wstring name = TestName(L"squatdir");
    for (const Plant& plant : Plants(m_squatterDir))
    {
        SCOPED_TRACE(plant.what);
        std::filesystem::remove_all(m_squatterDir + "/target");
        ASSERT_EQ(RunAs(SquatterUid(), [&] { return plant.make(m_victimDir) ? 0 : 1; }), 0);
        EXPECT_EQ(RunAs(VictimUid(), [&] { return EveryOpenIsDenied(name); }), 0);
        EXPECT_TRUE(plant.intact(m_victimDir));
        std::filesystem::remove_all(m_victimDir);
    }
}

TEST_F(W32pNamedSquatting, NamesPlantedInTheUsersFolderAreRefused)
{
    // Another user cannot create anything in the victim's folder (mode 0700); root can, and plants for it.
    const std::wstring name = TestName(L"squatname");
    const std::string file = m_victimDir + "/" + std::string(name.begin(), name.end());
    ASSERT_EQ(RunAs(VictimUid(), [&] { return WriteSecret(name, "first") == 0 ? 0 : 1; }), 0);
    for (const Plant& plant : Plants(m_squatterDir))
    {
        SCOPED_TRACE(plant.what);
        std::filesystem::remove_all(m_squatterDir + "/target");
        ASSERT_TRUE(plant.make(file));
        ASSERT_EQ(lchown(file.c_str(), SquatterUid(), SquatterUid()), 0);
        EXPECT_EQ(RunAs(VictimUid(), [&] { return EveryOpenIsDenied(name); }), 0);
        EXPECT_TRUE(plant.intact(file));
        std::filesystem::remove_all(file);
    }
    // A file of the victim that others may read was not made by this code either.
    ASSERT_TRUE(WriteFile(file, FakeObject(kMappingKind, 4096, kReadyMagic, 8192), 0644));
    ASSERT_EQ(chown(file.c_str(), VictimUid(), VictimUid()), 0);
    EXPECT_EQ(RunAs(VictimUid(), [&] { return EveryOpenIsDenied(name); }), 0);
}

TEST_F(W32pNamedSquatting, WhatTheVictimWritesStaysOutOfReachOfOthers)
{
    const std::wstring name = TestName(L"secret");
    const std::string file = m_victimDir + "/" + std::string(name.begin(), name.end());
    int ready[2];
    int done[2];
    ASSERT_EQ(pipe(ready), 0);
    ASSERT_EQ(pipe(done), 0);
    // The victim keeps its section alive while the squatter tries to reach it.
    const pid_t victim = ForkChild(
        [&]
        {
            alarm(2 * kWatchdogSeconds);
            if (setgroups(0, nullptr) != 0 || setresgid(VictimUid(), VictimUid(), VictimUid()) != 0 ||
                setresuid(VictimUid(), VictimUid(), VictimUid()) != 0)
                return 250;
            HANDLE mapping =
                CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, name.c_str());
            void* view = mapping ? MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, 0) : nullptr;
            char ok = view != nullptr ? 1 : 0;
            if (view != nullptr)
                std::memcpy(view, "secret", 6);
            if (write(ready[1], &ok, 1) != 1)
                return 1;
            char end = 0;
            return read(done[0], &end, 1) == 1 ? 0 : 2;
        });
    KillOnExit guard{victim};
    char ok = 0;
    ASSERT_EQ(read(ready[0], &ok, 1), 1);
    ASSERT_EQ(ok, 1);
    struct stat st;
    ASSERT_EQ(lstat(file.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    EXPECT_EQ(static_cast<int>(st.st_uid), VictimUid());
    EXPECT_EQ(RunAs(SquatterUid(),
                    [&]
                    {
                        if (open(file.c_str(), O_RDONLY) >= 0 || opendir(m_victimDir.c_str()) != nullptr)
                            return 1;
                        // Through the API too: the squatter's own namespace does not hold the name.
                        SetLastError(0);
                        if (OpenFileMappingW(FILE_MAP_READ, FALSE, name.c_str()) != nullptr ||
                            GetLastError() != ERROR_FILE_NOT_FOUND)
                            return 2;
                        return 0;
                    }),
              0);
    ASSERT_EQ(write(done[1], "x", 1), 1);
    EXPECT_EQ(JoinChild(victim), 0);
    guard.pid = 0;
    for (int fd : {ready[0], ready[1], done[0], done[1]})
        close(fd);
    std::filesystem::remove_all("/dev/shm/w32p-2." + std::to_string(SquatterUid()));
}

TEST(W32pNamedDamaged, HeadersThatDoNotFitTheFileAreRefused)
{
    // Files of the user's own, planted where an object would be, while a holder keeps them (so that they
    // are not taken for abandoned ones and removed).
    const std::wstring seed = TestName(L"seed");
    HANDLE keep = CreateEventW(nullptr, FALSE, FALSE, seed.c_str()); // makes sure the folder exists
    ASSERT_NE(keep, nullptr);
    struct Case
    {
        const char* what;
        std::string bytes;
    };
    const Case cases[] = {
        {"section larger than the file", FakeObject(kMappingKind, 1ull << 40, kReadyMagic, 8192)},
        {"section size that wraps", FakeObject(kMappingKind, ~0ull - 4095, kReadyMagic, 8192)},
        {"section of no pages", FakeObject(kMappingKind, 0, kReadyMagic, 8192)},
        {"unknown kind", FakeObject(77, 0)},
        {"event with a section", FakeObject(kEventKind, 4096, kReadyMagic, 8192)},
        {"wrong magic", FakeObject(kEventKind, 0, 0x12345678u)},
        {"shorter than a header", std::string(100, 'x')},
    };
    int index = 0;
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.what);
        const std::wstring name = TestName(L"damaged") + std::to_wstring(index++);
        const std::string file = NamedObjectDir() + "/" + std::string(name.begin(), name.end());
        ASSERT_TRUE(WriteFile(file, c.bytes, 0600));
        // Held as a process holds an object: a shared lock on the byte at its inode in the holders file.
        struct stat st;
        ASSERT_EQ(stat(file.c_str(), &st), 0);
        const int holder = open((NamedObjectDir() + "/.holders").c_str(), O_RDWR);
        ASSERT_GE(holder, 0);
        struct flock fl = {};
        fl.l_type = F_RDLCK;
        fl.l_start = static_cast<off_t>(st.st_ino);
        fl.l_len = 1;
        ASSERT_EQ(fcntl(holder, F_OFD_SETLK, &fl), 0);
        EXPECT_EQ(RunAs(-1, [&] { return EveryOpenIsDenied(name); }), 0);
        EXPECT_EQ(ReadAll(file), c.bytes);
        close(holder);
        unlink(file.c_str());
    }
    EXPECT_TRUE(CloseHandle(keep));
}

TEST(W32pNamedDamaged, AbandonedDamagedFilesAreReplaced)
{
    // Nobody holds them: left behind by a killed creator, they make way for a fresh object.
    const std::wstring seed = TestName(L"seed2");
    HANDLE keep = CreateEventW(nullptr, FALSE, FALSE, seed.c_str());
    ASSERT_NE(keep, nullptr);
    const std::wstring name = TestName(L"abandoned");
    const std::string file = NamedObjectDir() + "/" + std::string(name.begin(), name.end());
    for (const std::string& bytes : {FakeObject(kEventKind, 0, 0), std::string(10, 'x')})
    {
        ASSERT_TRUE(WriteFile(file, bytes, 0600));
        EXPECT_W32_FAILS(OpenEventW(SYNCHRONIZE, FALSE, name.c_str()), nullptr, ERROR_FILE_NOT_FOUND);
        ASSERT_TRUE(WriteFile(file, bytes, 0600));
        HANDLE fresh = CreateEventW(nullptr, FALSE, TRUE, name.c_str());
        ASSERT_NE(fresh, nullptr);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SUCCESS));
        EXPECT_EQ(WaitForSingleObject(fresh, 0), WAIT_OBJECT_0);
        EXPECT_TRUE(CloseHandle(fresh));
    }
    EXPECT_TRUE(CloseHandle(keep));
    EXPECT_TRUE(LeftoverShmFiles().empty());
}

TEST(W32pNamed, DotNamesAreOrdinaryNames)
{
    // "\x01w32p-wake" was once the name of the layer's own wake word: it is an ordinary name too.
    W32pUseWaitFallback(true);
    HANDLE pair[2] = {CreateEventW(nullptr, TRUE, FALSE, nullptr),
                      CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    EXPECT_EQ(WaitForMultipleObjects(2, pair, FALSE, 1), WAIT_TIMEOUT); // slept on the wake word
    W32pUseWaitFallback(false);
    for (const wchar_t* name : {L".", L"..", L"Local\\..", L"\x01w32p-wake", L".wake"})
    {
        // Shared by every test process of this user: only check that they work like any name.
        HANDLE first = CreateEventW(nullptr, TRUE, FALSE, name);
        ASSERT_NE(first, nullptr) << GetLastError();
        HANDLE second = OpenEventW(SYNCHRONIZE | EVENT_MODIFY_STATE, FALSE, name);
        EXPECT_NE(second, nullptr);
        EXPECT_TRUE(CloseHandle(first));
        EXPECT_TRUE(CloseHandle(second));
    }
    CloseHandle(pair[0]);
    CloseHandle(pair[1]);
}
