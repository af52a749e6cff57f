// CVeLBTraceTool and the library's trace macro.
#include "korutilitesbtracedef.h"
#include "velbtracetool.h"
#include "velwin32.h"

#include "kortestsupport.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

namespace
{

class BTraceToolTest : public ::testing::Test
{
protected:
    void SetUp() override { CVeLBTraceTool::ShutdownBTrace(); }
    void TearDown() override
    {
        kortest::UnsetEnv("BTRACE_BREAK_ACTIVE");
        CVeLBTraceTool::ShutdownBTrace();
    }
};

int g_evaluations = 0;
int Evaluate()
{
    ++g_evaluations;
    return 1;
}

} // namespace

TEST_F(BTraceToolTest, EmptyStringsAreRefusedSilently)
{
    BTraceCapture capture;
    EXPECT_FALSE(CVeLBTraceTool::InitializeBTrace(std::string(), "seg", 64, "x"));
    EXPECT_FALSE(CVeLBTraceTool::InitializeBTrace(std::string("a"), "", 64, "x"));
    EXPECT_FALSE(CVeLBTraceTool::InitializeBTrace(std::string("a"), "seg", 64, ""));
    EXPECT_FALSE(CVeLBTraceTool::InitializeBTrace(std::wstring(), L"seg", 64, L"x"));
    EXPECT_FALSE(BTraceGetInitInfo().initialized);
    EXPECT_TRUE(BTraceRegisteredModules().empty());
    EXPECT_TRUE(capture.Records().empty());
}

TEST_F(BTraceToolTest, StartsTheBackEndAndRegistersKorswThenMain)
{
    EXPECT_TRUE(CVeLBTraceTool::InitializeBTrace(std::string("first"), "segment", 64, "fourth"));
    const BTraceInitInfo info = BTraceGetInitInfo();
    EXPECT_TRUE(info.initialized && info.shared);
    EXPECT_EQ(info.breakMode + info.options, 0u);
    EXPECT_EQ(BTraceRegisteredModules(), (std::vector<std::string>{"KORSW", "main"}));
    EXPECT_FALSE(BTraceFindModule("KORSW")->isMain);
    EXPECT_TRUE(BTraceFindModule("main")->isMain);
    // A second start is ignored by the back-end but still reported as done.
    EXPECT_TRUE(CVeLBTraceTool::InitializeBTrace(std::string("other"), "other", 1, "other"));
    EXPECT_EQ(BTraceGetInitInfo().segment, "segment");
}

// Wide strings reach the back-end as UTF-8; the size in KiB as bytes, 4 GiB and more whole instead of
// wrapped to a few bytes or to 0.
TEST_F(BTraceToolTest, HandsOnUtf8StringsAndTheSizeInBytes)
{
    auto start = [](const std::wstring& first, const std::wstring& segment, unsigned int sizeKiB)
    {
        CVeLBTraceTool::ShutdownBTrace();
        EXPECT_TRUE(CVeLBTraceTool::InitializeBTrace(first, segment, sizeKiB, L"4" + first));
        const BTraceInitInfo info = BTraceGetInitInfo();
        return info.first + "|" + info.segment + "|" + info.fourth + "|" + std::to_string(info.sizeBytes);
    };
    EXPECT_EQ(start(L"first", L"segment", 64), "first|segment|4first|65536");
    EXPECT_EQ(start(L"\u00fcber\U0001F600", L"seg\u20ac", 2), "\xC3\xBC"
                                                              "ber\xF0\x9F\x98\x80|seg\xE2\x82\xAC|4\xC3\xBC"
                                                              "ber\xF0\x9F\x98\x80|2048");
    EXPECT_EQ(start(L"a", L"s", 4u * 1024u * 1024u), "a|s|4a|4294967296");
    EXPECT_EQ(start(L"a", L"s", 0xFFFFFFFFu), "a|s|4a|4398046510080");
}

TEST_F(BTraceToolTest, BreakModeOnlyForExactlyOne)
{
    struct Case
    {
        const char* value;
        unsigned expected;
    };
    for (Case c :
         {Case{"1", 2u}, Case{"0", 0u}, Case{"11", 0u}, Case{"true", 0u}, Case{"", 0u}, Case{nullptr, 0u}})
    {
        if (c.value)
            kortest::SetEnv("BTRACE_BREAK_ACTIVE", c.value);
        else
            kortest::UnsetEnv("BTRACE_BREAK_ACTIVE");
        ASSERT_TRUE(CVeLBTraceTool::InitializeBTrace(std::string("a"), "b", 1, "c"));
        EXPECT_EQ(BTraceGetInitInfo().breakMode, c.expected) << (c.value ? c.value : "(unset)");
        CVeLBTraceTool::ShutdownBTrace();
    }
}

// A warning is emitted from level WRN upwards; below the level, the arguments are not even evaluated.
TEST(VelTraceMacro, BelowTheLevelNothingIsEmittedOrEvaluated)
{
    for (unsigned char level = BTRACE_OFF; level <= BTRACE_DBG3; ++level)
    {
        BTraceSetLevel(&g_korutilitiesTraceModule, level);
        BTraceCapture capture;
        g_evaluations = 0;
        VEL_TRACE(VEL_WRN, "value %d", Evaluate());
        VEL_TRACE(VEL_DBG3, "values %d %d", Evaluate(), Evaluate());
        const bool warns = level >= BTRACE_WRN, debugs = level >= BTRACE_DBG3;
        EXPECT_EQ(capture.Contains(VEL_WRN, "value 1"), warns) << int(level);
        EXPECT_EQ(capture.Contains(VEL_DBG3, "values 1 1"), debugs) << int(level);
        EXPECT_EQ(g_evaluations, (warns ? 1 : 0) + (debugs ? 2 : 0)) << int(level);
    }
    BTraceSetLevel(&g_korutilitiesTraceModule, BTRACE_WRN);
}

TEST(VelTraceMacro, ArgumentsAreWidenedWithTheirSign)
{
    BTraceSetLevel(&g_korutilitiesTraceModule, BTRACE_DBG3);
    BTraceCapture capture;
    const short s = -2;
    const LONG l = -3;
    const DWORD d = 0xFFFFFFFFu;
    const __int64 big = -4000000000LL;
    const int line = __LINE__ + 1;
    VEL_TRACE(VEL_DBG2, "%d %d %u %lld %s %d", s, l, d, big, "text", true);
    auto records = capture.Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].text, "-2 -3 4294967295 -4000000000 text 1");
    EXPECT_EQ(records[0].level, unsigned(VEL_DBG2));
    EXPECT_EQ(records[0].module, "korutilities");
    EXPECT_EQ(records[0].line, static_cast<unsigned>(line));
}

// Runs only inside the child started by the test below.
TEST(TraceOutputChild, Emit)
{
    if (std::getenv("KOR_TRACE_CHILD") == nullptr)
        GTEST_SKIP() << "runs as a child process only";
    VEL_TRACE(VEL_DBG1, "debug message %d in %s", 42, "child");
    VEL_TRACE(VEL_ERR, "error message %d", 7);
}

// A host process configured with BTRACE_OUTPUT and BTRACE_LEVEL writes one line per message to the file.
TEST(TraceOutput, EnvironmentChoosesFileAndLevel)
{
    // Runs the child with the level given (none: the default) and answers the lines of its trace file.
    auto childLines = [](const char* level)
    {
        const std::string file = kortest::NewTempFile("kortrace");
        std::vector<std::string> env{"KOR_TRACE_CHILD=1", "BTRACE_OUTPUT=" + file};
        if (level)
            env.push_back(std::string("BTRACE_LEVEL=") + level);
        const pid_t pid = kortest::StartSelf({"--gtest_filter=TraceOutputChild.Emit"}, env);
        EXPECT_EQ(pid == -1 ? -1 : kortest::WaitProcess(pid), 0);
        std::ifstream in(file);
        std::vector<std::string> lines;
        for (std::string line; std::getline(in, line);)
            lines.push_back(line);
        std::remove(file.c_str());
        return lines;
    };
    auto lines = childLines("9");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_NE(lines[0].find(" [1] korutilities velbtracetool_test.cpp:"), std::string::npos) << lines[0];
    EXPECT_NE(lines[0].find(" debug message 42 in child"), std::string::npos) << lines[0];
    EXPECT_NE(lines[1].find(" [ERR] korutilities "), std::string::npos) << lines[1];
    // ISO-8601 local time first, with the offset from UTC: 2026-11-21T15:30:12.123+01:00
    const std::regex stamp(R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}[+-]\d\d:\d\d \[)");
    EXPECT_TRUE(std::regex_search(lines[0], stamp)) << lines[0];

    lines = childLines(nullptr);
    ASSERT_EQ(lines.size(), 1u) << "the default level suppresses debug messages";
    EXPECT_NE(lines[0].find("error message 7"), std::string::npos);
}
