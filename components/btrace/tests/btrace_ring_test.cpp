// Tests of the shared trace ring, the trace commands between processes, site limits and dumps. The
// other process is this test program run again with BTRACE_TEST_ROLE set: a static initialiser below
// plays that role and exits before any test starts.
#include <btrace.h>

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

BTraceModule g_ringModule("ringtest", BTRACE_DBG3);

std::uint64_t P(const void* p)
{
    return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(p));
}

std::uint64_t Expected(long long thread, long long seq)
{
    return static_cast<std::uint64_t>(thread * 1000003 + seq) * 0x9E3779B97F4A7C15ull;
}

const BTraceDescriptor g_numbered = {&g_ringModule, "src/ring.cpp", "T%d #%d v=%llx s=%s", 10u << 16,
                                     BTraceMakeFlags(BTRACE_INF, 4)};

// Emits message `seq` of thread `thread`: its value and string can be checked by a reader.
void EmitNumbered(int thread, int seq)
{
    const std::string text = "s" + std::to_string(seq);
    BTracePrint(&g_numbered, 0, static_cast<std::uint64_t>(thread), static_cast<std::uint64_t>(seq),
                Expected(thread, seq), P(text.c_str()));
}

// Checks the numbered messages of a dump: each is whole, each thread's are in order. Returns the
// sequence numbers per thread; `problem` names the first fault.
std::map<int, std::vector<int>> CheckNumbered(const std::string& dump, std::string& problem)
{
    std::map<int, std::vector<int>> seen;
    std::istringstream in(dump);
    std::string line;
    while (std::getline(in, line))
    {
        const std::size_t at = line.find(" T");
        if (line.find("ring.cpp:10") == std::string::npos || at == std::string::npos)
            continue;
        int thread = -1, seq = -1;
        unsigned long long value = 0;
        char text[64] = {0};
        if (std::sscanf(line.c_str() + at, " T%d #%d v=%llx s=%63s", &thread, &seq, &value, text) != 4 ||
            value != Expected(thread, seq) || std::string(text) != "s" + std::to_string(seq))
        {
            problem = "torn message: " + line;
            return seen;
        }
        auto& list = seen[thread];
        if (!list.empty() && list.back() >= seq)
        {
            problem = "out of order: " + line;
            return seen;
        }
        list.push_back(seq);
    }
    return seen;
}

// A message whose text both dump formatters (the normal one and the one of the crash handler) must agree on.
const char kFormats[] = "fmt %d|%u|%x|%05d|%-4s|%c|%lld|%5d|%.2s|%hd|%%";
const char kFormatsText[] = "fmt -5|4294967295|ff|-0042|ab  |z|-9|   -5|xy|-32768|%";

// Runs this test program again in a role; returns its pid.
pid_t Spawn(const std::string& role, const std::vector<std::string>& args, int stdoutFd = -1)
{
    pid_t pid = fork();
    if (pid == 0)
    {
        if (stdoutFd >= 0)
            dup2(stdoutFd, 1);
        setenv("BTRACE_TEST_ROLE", role.c_str(), 1);
        std::vector<char*> argv;
        static char self[] = "/proc/self/exe";
        argv.push_back(self);
        for (const std::string& a : args)
            argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execv("/proc/self/exe", argv.data());
        _exit(127);
    }
    return pid;
}

int WaitExit(pid_t pid)
{
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

std::string UniqueSegment(const char* what)
{
    return std::string("btrace-test-") + what + "." + std::to_string(getpid());
}

std::string Slurp(const std::string& path)
{
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

// --- Roles played by a second process ----------------------------------------------------------------

int RoleReader(int argc, char** argv)
{
    // reader SEGMENT ROUNDS: reads the live ring repeatedly and checks every message it gets.
    if (argc < 3)
        return 2;
    int withMessages = 0;
    for (int round = 0; round < std::atoi(argv[2]); ++round)
    {
        std::string text, error, problem;
        if (!BTraceReadSegment(argv[1], text, error))
        {
            std::fprintf(stderr, "read failed: %s\n", error.c_str());
            return 3;
        }
        if (!CheckNumbered(text, problem).empty())
            ++withMessages;
        if (!problem.empty())
        {
            std::fprintf(stderr, "%s\n", problem.c_str());
            return 4;
        }
    }
    return withMessages > 0 ? 0 : 5;
}

int RoleClient(int argc, char** argv)
{
    // client SEGMENT MODULE LEVEL: lists the modules, then sets the module's level.
    if (argc < 4)
        return 2;
    std::vector<BTraceModuleLevel> modules;
    std::string error;
    if (!BTraceRemoteListModules(argv[1], modules, error))
    {
        std::fprintf(stderr, "list: %s\n", error.c_str());
        return 3;
    }
    bool found = false;
    for (const BTraceModuleLevel& m : modules)
        found = found || (m.name == argv[2] && m.level == BTRACE_ERR);
    if (!found)
        return 4;
    if (BTraceRemoteSetLevel(argv[1], "no-such-module", 3, error))
        return 5;
    if (!BTraceRemoteSetLevel(argv[1], argv[2], static_cast<unsigned>(std::atoi(argv[3])), error))
    {
        std::fprintf(stderr, "set: %s\n", error.c_str());
        return 6;
    }
    // The host writes its own dump on request.
    const std::string dump = "/tmp/btrace_remote_dump_" + std::to_string(getpid());
    if (!BTraceRemoteDump(argv[1], dump, error))
    {
        std::fprintf(stderr, "dump: %s\n", error.c_str());
        return 7;
    }
    std::string problem;
    auto seen = CheckNumbered(Slurp(dump), problem);
    std::remove(dump.c_str());
    return seen[5].size() == 1 && problem.empty() ? 0 : 8;
}

int RoleHost(int argc, char** argv)
{
    // host SEGMENT [CRASHDUMP]: writes messages, says "ready", then waits to be killed or crashes.
    if (argc < 2)
        return 2;
    BTraceAttachModule(&g_ringModule);
    BTraceSetLevel(&g_ringModule, BTRACE_DBG3);
    if (!BTraceInitialize("host", "test", argv[1], 256 * 1024, true, 0, 0) ||
        BTraceGetInitInfo().segmentFile.empty())
        return 3;
    if (argc >= 3 && !BTraceEnableCrashDump(argv[2]))
        return 4;
    for (int i = 0; i < 500; ++i)
        EmitNumbered(7, i);
    static const BTraceDescriptor formats = {&g_ringModule, "src/fmt.cpp", kFormats, 20u << 16,
                                             BTraceMakeFlags(BTRACE_INF, 10)};
    BTracePrint(&formats, 0, std::uint64_t(-5), std::uint64_t(-1), std::uint64_t(255), std::uint64_t(-42),
                P("ab"), std::uint64_t('z'), std::uint64_t(-9), std::uint64_t(-5), P("xyz"),
                std::uint64_t(0x18000));
    std::printf("ready\n");
    std::fflush(stdout);
    if (argc >= 3)
        std::raise(SIGSEGV);
    for (;;)
        pause();
}

struct RoleDispatch
{
    RoleDispatch()
    {
        const char* role = std::getenv("BTRACE_TEST_ROLE");
        if (role == nullptr)
            return;
        unsetenv("BTRACE_TEST_ROLE");
        std::ifstream cmdline("/proc/self/cmdline");
        std::vector<std::string> args;
        std::string arg;
        while (std::getline(cmdline, arg, '\0'))
            args.push_back(arg);
        std::vector<char*> argv;
        for (std::string& a : args)
            argv.push_back(&a[0]);
        const int argc = static_cast<int>(argv.size());
        const std::string r = role;
        std::exit(r == "reader"   ? RoleReader(argc, argv.data())
                  : r == "client" ? RoleClient(argc, argv.data())
                  : r == "host"   ? RoleHost(argc, argv.data())
                                  : 99);
    }
} g_roleDispatch;

// Starts this process as a ring host for the test and ends it afterwards.
struct RingHost
{
    std::string segment;
    explicit RingHost(const std::string& name, std::uint64_t bytes) : segment(name)
    {
        BTraceShutdown();
        BTraceAttachModule(&g_ringModule);
        BTraceSetLevel(&g_ringModule, BTRACE_DBG3);
        BTraceInitialize("ringtest", "test", segment.c_str(), bytes, true, 0, 0);
    }
    ~RingHost()
    {
        BTraceShutdown();
        std::string error;
        BTraceRemoveSegment(segment, error);
    }
};

} // namespace

// Many threads write into a small ring while another process reads it: every message read is whole and
// each thread's messages come in order; after the lap, each thread keeps an unbroken run of its newest.
TEST(BTraceRing, ConcurrentWritersAndAReaderInAnotherProcess)
{
    RingHost host(UniqueSegment("concurrent"), 32 * 1024); // 512 slots
    ASSERT_FALSE(BTraceGetInitInfo().segmentFile.empty()) << BTraceGetInitInfo().ringError;

    const int threads = 4, messages = 20000;
    std::atomic<bool> go{false};
    std::vector<std::thread> writers;
    for (int t = 0; t < threads; ++t)
        writers.emplace_back(
            [t, &go]
            {
                while (!go.load())
                    std::this_thread::yield();
                for (int i = 0; i < messages; ++i)
                    EmitNumbered(t, i);
            });
    EmitNumbered(99, 0); // so the reader's first round already sees a message
    const pid_t reader = Spawn("reader", {host.segment, "200"});
    go = true;
    for (auto& w : writers)
        w.join();
    EXPECT_EQ(WaitExit(reader), 0);

    std::string text, error, problem;
    ASSERT_TRUE(BTraceReadSegment(host.segment, text, error)) << error;
    auto seen = CheckNumbered(text, problem);
    EXPECT_TRUE(problem.empty()) << problem;
    // Each message takes two slots (four arguments and a string), so the ring holds 256 of them; a thread
    // that finished early may be gone entirely, but a thread still present keeps its newest messages
    // without a gap, and only blocks reserved but not filled are lost beyond that.
    std::size_t total = 0;
    for (const auto& entry : seen)
    {
        const auto& list = entry.second;
        if (entry.first == 99)
            continue;
        EXPECT_EQ(list.back(), messages - 1) << "thread " << entry.first;
        EXPECT_EQ(list.back() - list.front() + 1, static_cast<int>(list.size()))
            << "gap in thread " << entry.first;
        total += list.size();
    }
    EXPECT_GT(total, 256u - threads * 8u);
    EXPECT_LE(total, 256u);
}

// Strings are copied when emitted (the caller's buffer may change at once), wide strings become UTF-8,
// and the in-process dump formats them.
TEST(BTraceRing, CopiesStringsAndDumpsInProcess)
{
    RingHost host(UniqueSegment("strings"), 64 * 1024);
    static const BTraceDescriptor d = {&g_ringModule, "a/b/strings.cpp", "[%s|%ls|%s|%5.1s|%d]", 3u << 16,
                                       BTraceMakeFlags(BTRACE_WRN, 5)};
    char buffer[] = "p\xC3\xA4th";
    const std::string longText(5000, 'x');
    BTracePrint(&d, 0, P(buffer), P(L"\u00fc\U0001F600"), std::uint64_t(0), P("abc"), std::uint64_t(-7));
    std::memcpy(buffer, "XXXXX", 5);
    static const BTraceDescriptor big = {&g_ringModule, "a/b/strings.cpp", "%s!", 4u << 16,
                                         BTraceMakeFlags(BTRACE_WRN, 1)};
    BTracePrint(&big, 0, P(longText.c_str()));

    const std::string path = "/tmp/btrace_dump_" + std::to_string(getpid());
    std::string error;
    ASSERT_TRUE(BTraceDump(path, error)) << error;
    const std::string dump = Slurp(path);
    std::remove(path.c_str());
    EXPECT_NE(dump.find("[WRN] ringtest strings.cpp:3 #"), std::string::npos) << dump;
    EXPECT_NE(dump.find("[p\xC3\xA4th|\xC3\xBC\xF0\x9F\x98\x80|(null)|    a|-7]"), std::string::npos) << dump;
    // A long string is cut at the copy limit, never dropped or overrun.
    EXPECT_NE(dump.find(" " + std::string(1024, 'x') + "!\n"), std::string::npos);
}

// A level changed from another process takes effect at once in the running process.
TEST(BTraceCommands, LevelChangedFromOutsideTakesEffect)
{
    RingHost host(UniqueSegment("level"), 64 * 1024);
    BTraceSetLevel(&g_ringModule, BTRACE_ERR);
    static const BTraceDescriptor d = {&g_ringModule, "x.cpp", "detail", 1u << 16,
                                       BTraceMakeFlags(BTRACE_DBG2, 0)};
    ASSERT_LT(g_ringModule.level.load(), BTraceLevelOf(d));

    EmitNumbered(5, 1);
    const pid_t client = Spawn("client", {host.segment, "ringtest", "8"});
    EXPECT_EQ(WaitExit(client), 0);
    EXPECT_EQ(g_ringModule.level.load(), BTRACE_DBG2);

    // Nobody answers for a segment without a host.
    std::vector<BTraceModuleLevel> modules;
    std::string error;
    EXPECT_FALSE(BTraceRemoteListModules(UniqueSegment("nobody"), modules, error));
    EXPECT_NE(error.find("no running process"), std::string::npos) << error;
}

// A host killed with SIGKILL leaves a ring that is still read; its segment is free again afterwards. A
// host that crashes with the dump armed writes it and still dies of its signal.
TEST(BTraceCommands, KilledAndCrashedHostsLeaveReadableRings)
{
    const std::string segment = UniqueSegment("killed");
    int out[2];
    ASSERT_EQ(pipe(out), 0);
    const pid_t host = Spawn("host", {segment}, out[1]);
    close(out[1]);
    char ready[6] = {0};
    ASSERT_EQ(read(out[0], ready, 5), 5);
    close(out[0]);

    // While it runs, a second host with the same segment gets no ring, and the file cannot be removed.
    BTraceShutdown();
    BTraceInitialize("second", "x", segment.c_str(), 65536, true, 0, 0);
    EXPECT_NE(BTraceGetInitInfo().ringError.find("in use"), std::string::npos);
    BTraceShutdown();
    std::string error;
    EXPECT_FALSE(BTraceRemoveSegment(segment, error));
    std::string found;
    EXPECT_TRUE(BTraceFindSegment(static_cast<std::uint32_t>(host), found, error)) << error;
    EXPECT_EQ(found, segment);

    kill(host, SIGKILL);
    EXPECT_EQ(WaitExit(host), 1000 + SIGKILL);
    EXPECT_FALSE(BTraceSegmentAlive(segment));
    const std::string path = "/tmp/btrace_killed_" + std::to_string(getpid());
    ASSERT_TRUE(BTraceDumpSegment(segment, path, error)) << error;
    std::string problem;
    const std::string killedDump = Slurp(path);
    auto seen = CheckNumbered(killedDump, problem);
    std::remove(path.c_str());
    EXPECT_TRUE(problem.empty()) << problem;
    ASSERT_EQ(seen[7].size(), 500u);
    EXPECT_NE(killedDump.find(kFormatsText), std::string::npos);
    EXPECT_TRUE(BTraceRemoveSegment(segment, error)) << error;

    const std::string crashSegment = UniqueSegment("crashed");
    const std::string crashDump = "/tmp/btrace_crash_" + std::to_string(getpid());
    const pid_t crasher = Spawn("host", {crashSegment, crashDump}, open("/dev/null", O_WRONLY));
    // It dies of its signal, or (under a sanitizer, whose handler comes before ours) exits with an error.
    EXPECT_NE(WaitExit(crasher), 0);
    const std::string dump = Slurp(crashDump);
    std::remove(crashDump.c_str());
    seen = CheckNumbered(dump, problem);
    EXPECT_TRUE(problem.empty()) << problem;
    EXPECT_EQ(seen[7].size(), 500u);
    EXPECT_NE(dump.find("ended abnormally"), std::string::npos);
    EXPECT_NE(dump.find(kFormatsText), std::string::npos)
        << dump.substr(dump.size() > 400 ? dump.size() - 400 : 0);
    std::string text;
    ASSERT_TRUE(BTraceReadSegment(crashSegment, text, error)) << error;
    EXPECT_NE(text.find("ended abnormally (" + std::to_string(SIGSEGV) + ")"), std::string::npos);
    BTraceRemoveSegment(crashSegment, error);
}

// A limited site emits its quota and reports how many it suppressed.
TEST(BTraceLimits, QuotaAndWindowReportSuppressedCounts)
{
    BTraceAttachModule(&g_ringModule);
    BTraceSetLevel(&g_ringModule, BTRACE_DBG3);
    static const BTraceDescriptor firstN = {&g_ringModule, "l.cpp", "first %d", 1u << 16,
                                            BTraceMakeFlags(BTRACE_ERR, 1)};
    static const BTraceDescriptor windowed = {&g_ringModule, "l.cpp", "windowed %d", 2u << 16,
                                              BTraceMakeFlags(BTRACE_ERR, 1)};
    BTraceSetLimit(&firstN, 3, 0);
    BTraceSetLimit(&windowed, 2, 100);
    BTraceCapture capture;
    for (int i = 0; i < 10; ++i)
    {
        BTracePrint(&firstN, 0, std::uint64_t(i));
        BTracePrint(&windowed, 0, std::uint64_t(i));
    }
    EXPECT_EQ(capture.CountContaining("first "), 3u);
    EXPECT_EQ(capture.CountContaining("windowed "), 2u);
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    BTracePrint(&windowed, 0, std::uint64_t(10)); // new window: reports 8, then emits
    EXPECT_TRUE(capture.Contains(BTRACE_ERR, "8 repeats suppressed: windowed %d"));
    EXPECT_EQ(capture.CountContaining("windowed 10"), 1u);
    // The quota without a window reports at shutdown (and at a dump).
    BTraceShutdown();
    EXPECT_TRUE(capture.Contains(BTRACE_ERR, "7 repeats suppressed: first %d"));
    BTraceSetLimit(&firstN, 0, 0);
    BTracePrint(&firstN, 0, std::uint64_t(42));
    EXPECT_TRUE(capture.Contains(BTRACE_ERR, "first 42"));
}

// Anything that is not a well-formed segment is refused with a reason, and damaged rings never crash
// the reader: random flips over a real ring give either a refusal or text.
TEST(BTraceRing, MalformedAndForeignSegmentsAreRefused)
{
    std::string path;
    {
        RingHost host(UniqueSegment("fuzz"), 16 * 1024);
        for (int i = 0; i < 300; ++i)
            EmitNumbered(1, i);
        std::string error;
        ASSERT_TRUE(BTraceSegmentFilePath(host.segment, path, error));
        const std::string copy = path + ".orig";
        std::ifstream in(path, std::ios::binary);
        std::ofstream(copy, std::ios::binary) << in.rdbuf();
        path = copy;
    }
    std::ifstream in(path, std::ios::binary);
    const std::string original((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    ASSERT_GT(original.size(), 16384u);
    const std::string work = path + ".work";
    auto readWith = [&](const std::string& bytes, std::string& error)
    {
        std::ofstream(work, std::ios::binary | std::ios::trunc) << bytes;
        std::string text;
        return BTraceReadSegmentFile(work, text, error);
    };
    std::string error;
    EXPECT_TRUE(readWith(original, error)) << error;
    EXPECT_FALSE(readWith("", error));
    EXPECT_FALSE(readWith(std::string(20000, '\0'), error));
    EXPECT_NE(error.find("not a trace segment"), std::string::npos);
    EXPECT_FALSE(readWith(original.substr(0, original.size() - 64), error));
    std::string wrongVersion = original;
    wrongVersion[8] = 9;
    EXPECT_FALSE(readWith(wrongVersion, error));

    std::mt19937 random(42);
    for (int round = 0; round < 300; ++round)
    {
        std::string damaged = original;
        const int flips = 1 + static_cast<int>(random() % 16);
        for (int f = 0; f < flips; ++f)
        {
            // Mostly into the header, descriptors and the first slots, where offsets and counts live.
            const std::size_t limit = round % 2 == 0 ? 16384 + 4096 * 32 : damaged.size();
            damaged[random() % limit] = static_cast<char>(random());
        }
        readWith(damaged, error); // either answer is fine; a crash or sanitizer report is not
    }
    // A symbolic link is not followed.
    const std::string link = path + ".link";
    ASSERT_EQ(symlink(path.c_str(), link.c_str()), 0);
    std::string text;
    EXPECT_FALSE(BTraceReadSegmentFile(link, text, error));
    std::remove(link.c_str());
    std::remove(work.c_str());
    std::remove(path.c_str());

    // Segment names cannot leave the folder.
    std::string a, b;
    ASSERT_TRUE(BTraceSegmentFilePath("../../etc/passwd", a, error));
    ASSERT_TRUE(BTraceSegmentFilePath("x/y", b, error));
    EXPECT_NE(a.substr(a.rfind('/') + 1)[0], '.');
    EXPECT_EQ(b.substr(0, b.rfind('/')), a.substr(0, a.rfind('/')));
    EXPECT_FALSE(BTraceSegmentFilePath("", a, error));
}

// Records of several slots wrap around the end of a tiny ring: every one read back is whole, and the
// newest survive without a gap.
TEST(BTraceRing, MultiSlotRecordsAcrossTheWrap)
{
    RingHost host(UniqueSegment("wrap"), 4096); // the smallest ring: 64 slots
    static const BTraceDescriptor d = {&g_ringModule, "w.cpp", "W #%d %s", 5u << 16,
                                       BTraceMakeFlags(BTRACE_INF, 2)};
    auto textOf = [](int seq)
    { return std::string(static_cast<std::size_t>(seq * 37 % 300), 'a' + seq % 26) + "|"; };
    for (int seq = 0; seq < 1000; ++seq)
    {
        const std::string text = textOf(seq);
        BTracePrint(&d, 0, std::uint64_t(seq), P(text.c_str()));
    }
    std::string dump, error;
    ASSERT_TRUE(BTraceReadSegment(host.segment, dump, error)) << error;
    std::istringstream in(dump);
    std::string line;
    std::vector<int> seqs;
    while (std::getline(in, line))
    {
        const std::size_t at = line.find(" W #");
        if (at == std::string::npos)
            continue;
        const int seq = std::atoi(line.c_str() + at + 4);
        EXPECT_EQ(line.substr(line.find(' ', at + 4) + 1), textOf(seq)) << line;
        seqs.push_back(seq);
    }
    ASSERT_GE(seqs.size(), 5u);
    EXPECT_EQ(seqs.back(), 999);
    EXPECT_EQ(seqs.back() - seqs.front() + 1, static_cast<int>(seqs.size()));
}

// A quota is exact under contention: threads racing on one limited site emit exactly the quota, and the
// report counts every suppressed emission.
TEST(BTraceLimits, QuotaIsExactUnderContention)
{
    BTraceAttachModule(&g_ringModule);
    static const BTraceDescriptor d = {&g_ringModule, "q.cpp", "raced %d", 1u << 16,
                                       BTraceMakeFlags(BTRACE_ERR, 1)};
    BTraceSetLimit(&d, 100, 0);
    BTraceCapture capture;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back(
            []
            {
                for (int i = 0; i < 1000; ++i)
                    BTracePrint(&d, 0, std::uint64_t(i));
            });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(capture.CountContaining("raced "), 100u);
    BTraceShutdown();
    EXPECT_TRUE(capture.Contains(BTRACE_ERR, "3900 repeats suppressed: raced %d"));
    BTraceSetLimit(&d, 0, 0);
}
