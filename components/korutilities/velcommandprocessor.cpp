#include "velcommandprocessor.h"
#include "korutilitesbtracedef.h"

CVeLCommandProcessor::CVeLCommandProcessor() : m_currentIndex(0) {}

CVeLCommandProcessor::CVeLCommandProcessor(const CVeLCommandProcessor& other) = default;

CVeLCommandProcessor& CVeLCommandProcessor::operator=(const CVeLCommandProcessor& other) = default;

CVeLCommandProcessor::~CVeLCommandProcessor() {}

void CVeLCommandProcessor::AddCommand(boost::shared_ptr<IVeLCommand> command)
{
    m_commands.push_back(command);
}

int CVeLCommandProcessor::GetNumCommands() const
{
    return static_cast<int>(m_commands.size());
}

bool CVeLCommandProcessor::Execute(IVeLProgressClient* client)
{
    const int count = GetNumCommands();
    if (client != nullptr)
    {
        client->SetRange(0, count + 1);
        client->StepForward();
    }
    m_currentIndex = 0;
    // An empty processor reports failure; callers rely on it.
    if (count < 1)
        return false;

    for (;;)
    {
        if (!m_commands[static_cast<std::size_t>(m_currentIndex)]->Execute())
            break;
        if (client != nullptr)
            client->StepForward();
        if (++m_currentIndex >= count)
            return true;
    }

    VEL_TRACE(VEL_ERR, "Execution failed");
    VEL_TRACE(VEL_DBG1, "Execute rollback...");
    ExecuteRetrogressive(client);
    return false;
}

bool CVeLCommandProcessor::ExecuteRetrogressive(IVeLProgressClient* client)
{
    VEL_TRACE(VEL_DBG1, "Try to execute retrogressive (%d of %d)", m_currentIndex, GetNumCommands());
    RollBack(client);
    return true;
}

// Undoes the command at the current index and every one before it; a failing undo does not stop the
// rollback. The final extra step backward is part of the progress protocol.
void CVeLCommandProcessor::RollBack(IVeLProgressClient* client)
{
    for (; m_currentIndex >= 0; --m_currentIndex)
    {
        if (!m_commands[static_cast<std::size_t>(m_currentIndex)]->ExecuteRetrogressive())
            VEL_TRACE(VEL_ERR, "ExecuteRetrogressive failed for idx= %d!", m_currentIndex);
        if (client != nullptr)
            client->StepBackward();
    }
    if (client != nullptr)
        client->StepBackward();
}
