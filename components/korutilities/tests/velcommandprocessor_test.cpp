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

// One row per progress and rollback order: k successes before a failure give k + 1 forward steps and
// k + 2 backward steps, the failed command undone first; a null client gets no progress at all.
TEST(CVeLCommandProcessor, ProgressAndRollbackOrders)
{
    const struct
    {
        const char* pattern;
        bool client;
        bool result;
        Log log;
    } cases[] = {
        {"", true, false, {"range0-1", "+"}},
        {"sss", true, true, {"range0-4", "+", "exec0", "+", "exec1", "+", "exec2", "+"}},
        {"f", true, false, {"range0-2", "+", "exec0", "undo0", "-", "-"}},
        {"sfs", true, false, {"range0-4", "+", "exec0", "+", "exec1", "undo1", "-", "undo0", "-", "-"}},
        {"suf",
         true,
         false,
         {"range0-4", "+", "exec0", "+", "exec1", "+", "exec2", "undo2", "-", "undo1", "-", "undo0", "-",
          "-"}},
        {"ssf", false, false, {"exec0", "exec1", "exec2", "undo2", "undo1", "undo0"}},
    };
    for (const auto& c : cases)
    {
        Log log;
        RecordingClient client(log);
        CVeLCommandProcessor processor = Build(log, c.pattern);
        EXPECT_EQ(processor.Execute(c.client ? &client : nullptr), c.result) << c.pattern;
        EXPECT_EQ(log, c.log) << c.pattern;
    }
}

// The rollback is announced in a fixed order; a failing undo is traced and does not stop it.
TEST(CVeLCommandProcessor, RollbackTracesInOrder)
{
    BTraceSetLevel(&g_korutilitiesTraceModule, BTRACE_DBG3);
    BTraceCapture capture;
    Log log;
    EXPECT_FALSE(Build(log, "suf").Execute(nullptr));
    BTraceSetLevel(&g_korutilitiesTraceModule, BTRACE_WRN);
    const std::vector<std::pair<unsigned, std::string>> expected = {
        {VEL_ERR, "Execution failed"},
        {VEL_DBG1, "Execute rollback..."},
        {VEL_DBG1, "Try to execute retrogressive (2 of 3)"},
        {VEL_ERR, "ExecuteRetrogressive failed for idx= 1!"}};
    std::vector<std::pair<unsigned, std::string>> records;
    for (const BTraceRecord& record : capture.Records())
        records.emplace_back(record.level, record.text);
    EXPECT_EQ(records, expected);
}

// The commands stay after a run, and a copy shares them.
TEST(CVeLCommandProcessor, CommandsStayAndCopiesShareThem)
{
    Log log;
    CVeLCommandProcessor original = Build(log, "s");
    EXPECT_TRUE(original.Execute(nullptr));
    CVeLCommandProcessor copy(original);
    copy.AddCommand(boost::shared_ptr<IVeLCommand>(new RecordingCommand(log, 7, true)));
    EXPECT_TRUE(original.Execute(nullptr));
    EXPECT_TRUE(copy.Execute(nullptr));
    EXPECT_EQ(log, (Log{"exec0", "exec0", "exec0", "exec7"}));
}
