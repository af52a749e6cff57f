// CVeLCommandProcessor: runs an ordered list of reversible commands as one transaction. Executes them in
// order and, when one fails, undoes it and every command before it in reverse order. The commands are
// shared with the caller (and with copies of the processor); one thread drives a processor at a time.
#pragma once

#include "korutilities_export.h"
#include "ivelcommand.h"
#include "ivelprogressclient.h"

#include <boost/shared_ptr.hpp>

#include <vector>

class KORUTILITIES_API CVeLCommandProcessor
{
public:
    CVeLCommandProcessor();
    CVeLCommandProcessor(const CVeLCommandProcessor& other);
    CVeLCommandProcessor& operator=(const CVeLCommandProcessor& other);
    virtual ~CVeLCommandProcessor();

    // Appends a command (not checked for null).
    void AddCommand(boost::shared_ptr<IVeLCommand> command);

    // Executes every command in order, reporting progress to client (may be null). True when all
    // succeeded. False when there is no command, or when one failed: that command and all before it
    // have then been asked to undo, in reverse order, and the current index is -1. The client sees
    // SetRange(0, N + 1), one step forward at once and after each success, one step backward per undone
    // command and one more at the end of a rollback.
    bool Execute(IVeLProgressClient* client);

private:
    // The rollback from the current index down to 0; always true.
    bool ExecuteRetrogressive(IVeLProgressClient* client);
    void RollBack(IVeLProgressClient* client);
    int GetNumCommands() const;

    std::vector<boost::shared_ptr<IVeLCommand>> m_commands;
    int m_currentIndex;
};
