// IVeLCommand: one reversible step for CVeLCommandProcessor, implemented by the host program.
#pragma once

class IVeLCommand
{
public:
    virtual ~IVeLCommand() {}
    // Does the work; true on success.
    virtual bool Execute() = 0;
    // Undoes what Execute did, or cleans up what a failed Execute left; true on success.
    virtual bool ExecuteRetrogressive() = 0;
};
