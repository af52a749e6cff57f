// CVeLProcess: one process that this program started or opened: its id and its process handle (and, for a
// started one, the handle of its main thread), closed when the object is destroyed. Destroying the object
// does not end the process. Waits go through the injected waiting service. One object may be used from
// several threads at once (it changes no state after construction). Every failure is traced at ERR and
// answered with false or a failed result; nothing throws.
#pragma once

#include "ivelprocesshelper.h"
#include "ivelwaithelper.h"
#include "ivelwinapiwrapper.h"
#include "korutilities_export.h"
#include "velhandle.h"
#include "velnoncopyable.h"

#include <memory>

class KORUTILITIES_API CVeLProcess : public CVeLNonCopyable
{
public:
    // Takes ownership of both handles (thread may be null). leadsGroup: started as a process group of its
    // own (VeLProcessStartInfo::newProcessGroup).
    CVeLProcess(std::shared_ptr<IVeLWinAPIWrapper> api, std::shared_ptr<IVeLWaitHelper> waitHelper,
                DWORD processId, HANDLE process, HANDLE thread, bool leadsGroup);
    ~CVeLProcess() override;

    DWORD GetId() const { return m_id; }
    HANDLE GetHandle() const { return m_process.GetHandle(); }
    bool LeadsGroup() const { return m_leadsGroup; }
    // Waits up to timeout ms: Ended or Running (the deadline passed; the process keeps running).
    CVeLResult<ProcessStatusEnum> Wait(DWORD timeout) const;
    CVeLResult<ProcessStatusEnum> GetStatus() const;
    // The exit code of a process that ended. On Linux only a process this program started has one.
    CVeLResult<unsigned long> GetExitCode() const;
    // Asks the process to end, waits up to timeout ms, then terminates it with exitCode (see
    // CVeLProcessHelper::End).
    bool End(DWORD timeout, UINT exitCode) const;

private:
    std::shared_ptr<IVeLWinAPIWrapper> m_api;
    std::shared_ptr<IVeLWaitHelper> m_waitHelper;
    DWORD m_id;
    CVeLHANDLE m_process;
    CVeLHANDLE m_thread;
    bool m_leadsGroup;
};
