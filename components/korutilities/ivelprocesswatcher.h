// IVeLProcessWatcher: calls back once for each watched process when it ends, with its exit code.
#pragma once

#include "velwin32.h"

#include <cstddef>
#include <functional>
#include <memory>

class CVeLProcess;

// processId: the process that ended; exitCodeKnown: whether the system gave its exit code (on Linux only
// for a process this program started); exitCode: that code (128 + the signal number on Linux for a process
// a signal ended).
using ProcessEndCallback = std::function<void(DWORD processId, bool exitCodeKnown, DWORD exitCode)>;

class IVeLProcessWatcher
{
public:
    virtual ~IVeLProcessWatcher() {}
    // Starts the watcher's thread; processes may be added before and after.
    virtual bool Start(ProcessEndCallback callback) = 0;
    // Watches a process this program holds; one that has already ended is reported at once.
    virtual bool Watch(std::shared_ptr<CVeLProcess> process) = 0;
    // Opens and watches the running process of that id.
    virtual bool Watch(DWORD processId) = 0;
    // Ends the thread, waiting up to timeout ms for it. Processes still watched are dropped unreported.
    virtual bool Stop(DWORD timeout) = 0;
    virtual bool IsRunning() const = 0;
    // The processes watched that have not ended yet.
    virtual std::size_t GetWatchedCount() const = 0;
};
