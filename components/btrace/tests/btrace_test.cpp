// Tests of the trace back-end: typed formatting, level names, module registry, capture, file output
// and line integrity under concurrent emitters.
#include <btrace.h>

#include "kortestsupport.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace
{

std::string Format(const char* format, std::vector<std::uint64_t> args)
{
    return BTraceFormat(format, args.data(), args.size());
}

std::uint64_t S(long long v)
{
    return static_cast<std::uint64_t>(v);
}

BTraceModule g_testModule("btracetest", BTRACE_ERR);

} // namespace

TEST(BTraceFormat, ConversionsReadTheirOwnTypeFromTheSlot)
{
    EXPECT_EQ(Format("%d", {S(-5)}), "-5");
    // A 32-bit conversion reads the low half of the slot.
    EXPECT_EQ(Format("%d", {0x1FFFFFFFFull}), "-1");
    EXPECT_EQ(Format("%u", {S(-1)}), "4294967295");
    EXPECT_EQ(Format("%lld", {S(-1)}), "-1");
    EXPECT_EQ(Format("%I64d", {S(-7)}), "-7");
    EXPECT_EQ(Format("0x%08X", {0xABCDull}), "0x0000ABCD");
    EXPECT_EQ(Format("%x", {0xDEADBEEF12345678ull}), "12345678");
    EXPECT_EQ(Format("%llx", {0xDEADBEEF12345678ull}), "deadbeef12345678");
    EXPECT_EQ(Format("%hd", {0x18000ull}), "-32768");
    EXPECT_EQ(Format("%c%c", {'o', 'k'}), "ok");
    EXPECT_EQ(Format("%5d|%-5d|%05d", {S(42), S(42), S(42)}), "   42|42   |00042");
    EXPECT_EQ(Format("100%%", {}), "100%");
}

TEST(BTraceFormat, StringsPointersAndDoubles)
{
    const char* text = "p\xC3\xA4th";
    EXPECT_EQ(Format("[%s]", {reinterpret_cast<std::uintptr_t>(text)}), "[p\xC3\xA4th]");
    EXPECT_EQ(Format("%s", {0}), "(null)");
    EXPECT_EQ(
        Format("%.2s|%4s", {reinterpret_cast<std::uintptr_t>("abc"), reinterpret_cast<std::uintptr_t>("x")}),
        "ab|   x");
    const wchar_t* wide = L"\u00e4\U0001F600";
    EXPECT_EQ(Format("%ls", {reinterpret_cast<std::uintptr_t>(wide)}), "\xC3\xA4\xF0\x9F\x98\x80");
    // Trace text stays valid UTF-8: a lone surrogate prints as U+FFFD.
    const wchar_t lone[] = {wchar_t(0xDC00), L'x', 0};
    EXPECT_EQ(Format("%ls", {reinterpret_cast<std::uintptr_t>(lone)}), "\xEF\xBF\xBDx");
    double d = 2.5;
    std::uint64_t bits;
    std::memcpy(&bits, &d, sizeof bits);
    EXPECT_EQ(Format("%.1f", {bits}), "2.5");
}

TEST(BTraceFormat, MalformedFormatsNeverReadBeyondTheArguments)
{
    EXPECT_EQ(Format("%d %d", {S(1)}), "1 <missing argument>");
    EXPECT_EQ(Format("%s", {}), "<missing argument>");
    EXPECT_EQ(Format("tail %", {}), "tail %");
    EXPECT_EQ(Format("%n%d", {S(0), S(3)}), "3");
    EXPECT_EQ(BTraceFormat(nullptr, nullptr, 0), "");
}

TEST(BTraceLevels, NamesAndParsing)
{
    const char* names[] = {"OFF", "SYS_ERR", "SYS_WRN", "SYS_MSG", "ERR", "WRN", "INF", "1", "2", "3"};
    for (int i = 0; i < 10; ++i)
    {
        EXPECT_STREQ(BTraceLevelName(static_cast<unsigned>(i)), names[i]);
        if (i < 7)
        {
            EXPECT_EQ(BTraceParseLevel(names[i]), i);
        }
    }
    // The names "1" to "3" of the debug levels read as numbers: a number always means that level.
    EXPECT_EQ(BTraceParseLevel("inf"), 6);
    EXPECT_EQ(BTraceParseLevel("7"), 7);
    EXPECT_EQ(BTraceParseLevel("10"), -1);
    EXPECT_EQ(BTraceParseLevel(""), -1);
    EXPECT_EQ(BTraceParseLevel("verbose"), -1);
    EXPECT_EQ(BTraceMakeFlags(4, 0), 0x20040000u);
    EXPECT_EQ(BTraceMakeFlags(7, 2), 0x20070010u);
}

TEST(BTraceModules, RegistrationOrderAndLookup)
{
    BTraceShutdown();
    BTraceModule* a = BTraceRegisterModule("alpha", false);
    BTraceModule* b = BTraceRegisterModule("beta", true);
    ASSERT_NE(a, nullptr);
    EXPECT_TRUE(b->isMain);
    EXPECT_EQ(BTraceRegisterModule("alpha", false), a);
    EXPECT_EQ(BTraceFindModule("beta"), b);
    EXPECT_EQ(BTraceFindModule("nope"), nullptr);
    std::vector<std::string> expected{"alpha", "beta", "alpha"};
    EXPECT_EQ(BTraceRegisteredModules(), expected);
    BTraceShutdown();
    EXPECT_TRUE(BTraceRegisteredModules().empty());
}

TEST(BTraceInit, SecondInitialisationIsIgnoredUntilShutdown)
{
    BTraceShutdown();
    EXPECT_TRUE(BTraceInitialize("a", "d", "seg", 4096, true, 2, 0));
    EXPECT_FALSE(BTraceInitialize("x", "y", "z", 1, false, 0, 0));
    BTraceInitInfo info = BTraceGetInitInfo();
    EXPECT_TRUE(info.initialized);
    EXPECT_EQ(info.segment, "seg");
    EXPECT_EQ(info.sizeBytes, 4096u);
    EXPECT_EQ(info.breakMode, 2u);
    BTraceShutdown();
    EXPECT_FALSE(BTraceGetInitInfo().initialized);
}

TEST(BTraceCaptureTest, RecordsFormattedMessagesWithLevelAndPlace)
{
    BTraceAttachModule(&g_testModule);
    BTraceSetLevel(&g_testModule, BTRACE_DBG3);
    static const BTraceDescriptor d = {&g_testModule, "dir/source.cpp", "value %d of %s", 12u << 16,
                                       BTraceMakeFlags(BTRACE_WRN, 2)};
    BTraceCapture capture;
    BTracePrint(&d, 0, S(-3), static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>("x")));
    ASSERT_EQ(capture.Records().size(), 1u);
    BTraceRecord r = capture.Records()[0];
    EXPECT_EQ(r.level, unsigned(BTRACE_WRN));
    EXPECT_EQ(r.module, "btracetest");
    EXPECT_EQ(r.line, 12u);
    EXPECT_EQ(r.text, "value -3 of x");
    EXPECT_TRUE(capture.Contains(BTRACE_WRN, "value -3 of x"));
    EXPECT_FALSE(capture.Contains(BTRACE_ERR, "value -3 of x"));
    EXPECT_EQ(capture.CountContaining("of x"), 1u);
    capture.Clear();
    EXPECT_TRUE(capture.Records().empty());
}

// Many threads emit at once into a file: every line arrives whole.
TEST(BTraceOutput, ConcurrentLinesNeverInterleave)
{
    const std::string path = kortest::NewTempFile("btrace_lines");
    ASSERT_FALSE(path.empty());
    kortest::SetEnv("BTRACE_OUTPUT", path);
    BTraceReloadConfiguration();
    BTraceAttachModule(&g_testModule);
    BTraceSetLevel(&g_testModule, BTRACE_INF);
    static const BTraceDescriptor d = {&g_testModule, "t.cpp",
                                       "thread %d message %d with a long tail of text", 1u << 16,
                                       BTraceMakeFlags(BTRACE_INF, 2)};
    const int threads = 8, messages = 200;
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t)
        workers.emplace_back(
            [t]
            {
                for (int i = 0; i < messages; ++i)
                    BTracePrint(&d, 0, S(t), S(i));
            });
    for (auto& w : workers)
        w.join();
    kortest::UnsetEnv("BTRACE_OUTPUT");
    BTraceReloadConfiguration();

    std::ifstream in(path);
    std::string line;
    int count = 0;
    while (std::getline(in, line))
    {
        ++count;
        EXPECT_NE(line.find(" [INF] btracetest t.cpp:1 thread "), std::string::npos) << line;
        EXPECT_EQ(line.substr(line.size() - 24), "with a long tail of text") << line;
    }
    EXPECT_EQ(count, threads * messages);
    std::remove(path.c_str());
}
