// Every progress and rollback order of the command processor.
#include "korutilitesbtracedef.h"
#include "velcommandprocessor.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{

using Log = std::vector<std::string>;

class RecordingCommand : public IVeLCommand
{
public:
    RecordingCommand(Log& log, int id, bool executes, bool undoes = true)
        : m_log(log), m_id(id), m_executes(executes), m_undoes(undoes)
    {
    }
    bool Execute() override
    {
        m_log.push_back("exec" + std::to_string(m_id));
        return m_executes;
    }
    bool ExecuteRetrogressive() override
    {
        m_log.push_back("undo" + std::to_string(m_id));
        return m_undoes;
    }

private:
    Log& m_log;
    int m_id;
    bool m_executes;
    bool m_undoes;
};

class RecordingClient : public IVeLProgressClient
{
public:
    explicit RecordingClient(Log& log) : m_log(log) {}
    void SetRange(int minimum, int maximum) override
    {
        m_log.push_back("range" + std::to_string(minimum) + "-" + std::to_string(maximum));
    }
    void StepForward() override { m_log.push_back("+"); }
    void StepBackward() override { m_log.push_back("-"); }

private:
    Log& m_log;
};

// Builds a processor whose commands succeed as the pattern says ('s' succeeds, 'f' fails, 'u' succeeds
// but its undo fails).
CVeLCommandProcessor Build(Log& log, const std::string& pattern)
{
    CVeLCommandProcessor processor;
    for (std::size_t i = 0; i < pattern.size(); ++i)
        processor.AddCommand(boost::shared_ptr<IVeLCommand>(
            new RecordingCommand(log, static_cast<int>(i), pattern[i] != 'f', pattern[i] != 'u')));
    return processor;
}

} // namespace

TEST(CVeLCommandProcessor, EmptyProcessorReportsFailureAfterOneStep)
{
    Log log;
    RecordingClient client(log);
    CVeLCommandProcessor processor;
    EXPECT_FALSE(processor.Execute(&client));
    EXPECT_EQ(log, (Log{"range0-1", "+"}));
}

TEST(CVeLCommandProcessor, AllSucceedInOrderWithoutUndo)
{
    Log log;
    RecordingClient client(log);
    CVeLCommandProcessor processor = Build(log, "sss");
    EXPECT_TRUE(processor.Execute(&client));
    EXPECT_EQ(log, (Log{"range0-4", "+", "exec0", "+", "exec1", "+", "exec2", "+"}));
    // The commands stay and run again.
    log.clear();
    EXPECT_TRUE(processor.Execute(nullptr));
    EXPECT_EQ(log, (Log{"exec0", "exec1", "exec2"}));
}

TEST(CVeLCommandProcessor, SingleFailingCommandIsUndoneWithTwoStepsBack)
{
    Log log;
    RecordingClient client(log);
    CVeLCommandProcessor processor = Build(log, "f");
    EXPECT_FALSE(processor.Execute(&client));
    EXPECT_EQ(log, (Log{"range0-2", "+", "exec0", "undo0", "-", "-"}));
}

TEST(CVeLCommandProcessor, FailureInTheMiddleUndoesBackToTheFirstAndTraces)
{
    BTraceSetLevel(&g_korutilitiesTraceModule, BTRACE_DBG3);
    BTraceCapture capture;
    Log log;
    RecordingClient client(log);
    CVeLCommandProcessor processor = Build(log, "sfs");
    EXPECT_FALSE(processor.Execute(&client));
    // k = 1 successes: k + 1 forward steps, k + 2 backward steps; the failed command is undone first.
    EXPECT_EQ(log, (Log{"range0-4", "+", "exec0", "+", "exec1", "undo1", "-", "undo0", "-", "-"}));
    auto records = capture.Records();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0].level, unsigned(VEL_ERR));
    EXPECT_EQ(records[0].text, "Execution failed");
    EXPECT_EQ(records[1].level, unsigned(VEL_DBG1));
    EXPECT_EQ(records[1].text, "Execute rollback...");
    EXPECT_EQ(records[2].level, unsigned(VEL_DBG1));
    EXPECT_EQ(records[2].text, "Try to execute retrogressive (1 of 3)");
}

TEST(CVeLCommandProcessor, FailingUndoDoesNotStopTheRollback)
{
    BTraceSetLevel(&g_korutilitiesTraceModule, BTRACE_DBG3);
    BTraceCapture capture;
    Log log;
    RecordingClient client(log);
    CVeLCommandProcessor processor = Build(log, "suf");
    EXPECT_FALSE(processor.Execute(&client));
    EXPECT_EQ(log, (Log{"range0-4", "+", "exec0", "+", "exec1", "+", "exec2", "undo2", "-", "undo1", "-",
                        "undo0", "-", "-"}));
    EXPECT_TRUE(capture.Contains(VEL_ERR, "ExecuteRetrogressive failed for idx= 1!"));
    EXPECT_EQ(capture.CountContaining("ExecuteRetrogressive failed"), 1u);
}

TEST(CVeLCommandProcessor, NullClientGetsNoProgressButCommandsRunTheSame)
{
    Log log;
    CVeLCommandProcessor processor = Build(log, "ssf");
    EXPECT_FALSE(processor.Execute(nullptr));
    EXPECT_EQ(log, (Log{"exec0", "exec1", "exec2", "undo2", "undo1", "undo0"}));
}

TEST(CVeLCommandProcessor, CopiesShareTheCommands)
{
    Log log;
    CVeLCommandProcessor original = Build(log, "s");
    CVeLCommandProcessor copy(original);
    copy.AddCommand(boost::shared_ptr<IVeLCommand>(new RecordingCommand(log, 7, true)));
    EXPECT_TRUE(original.Execute(nullptr));
    EXPECT_TRUE(copy.Execute(nullptr));
    EXPECT_EQ(log, (Log{"exec0", "exec0", "exec7"}));
}
