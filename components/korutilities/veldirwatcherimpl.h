// CVeLDirWatcherImpl: the work of CVeLDirWatcher. Owns the directory handle, two manual-reset events (a
// change is ready, stop) and one thread of its own that waits on both through the injected IVeLWaitHelper,
// takes the change records with the facade's ReadDirectoryChangesW / GetOverlappedResult and calls back.
// The thread starts in Start, after the first request is in place, and ends at Stop, at the destruction
// of the object (which waits for it), or by itself when the folder is deleted or the system fails. Start,
// Stop and the queries may be called from any thread; the callback runs on the watcher's thread. Every
// failure is traced and answered with false; nothing throws.
#pragma once

#include "iveldirwatcher.h"
#include "ivelwaithelper.h"
#include "ivelwinapiwrapper.h"
#include "velhandle.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

class CVeLDirWatcherImpl
{
public:
    CVeLDirWatcherImpl(std::shared_ptr<IVeLWinAPIWrapper> api, std::shared_ptr<IVeLWaitHelper> waitHelper);
    ~CVeLDirWatcherImpl();
    CVeLDirWatcherImpl(const CVeLDirWatcherImpl&) = delete;
    CVeLDirWatcherImpl& operator=(const CVeLDirWatcherImpl&) = delete;

    bool Start(const boost::filesystem::path& folder, bool subtree, unsigned int changes,
               DirChangeCallback callback);
    bool Stop(DWORD timeout);
    bool IsRunning() const;
    DirWatchEndEnum GetEndReason() const;
    DWORD GetEndError() const;

private:
    bool OpenLocked(const boost::filesystem::path& folder);
    bool Request();
    void Run();
    // Hands one completed buffer to the callback; false when a stop was requested meanwhile.
    bool Dispatch(DWORD bytes);
    void Report(DirChangeEnum kind, const boost::filesystem::path& path);
    void CancelPending();
    void EndOnError(DWORD error);
    void EndWith(DirWatchEndEnum reason, DWORD error);
    void JoinFinishedLocked();

    std::shared_ptr<IVeLWinAPIWrapper> m_api;
    std::shared_ptr<IVeLWaitHelper> m_waitHelper;

    mutable std::mutex m_lock; // guards m_thread and the start and stop of a watch
    std::thread m_thread;
    // The fields below are set by Start before the thread starts and used by the thread alone until it ends.
    boost::filesystem::path m_folder;
    bool m_subtree = false;
    unsigned int m_changes = 0;
    DirChangeCallback m_callback;
    CVeLHANDLE m_directory;
    CVeLHANDLE m_changeEvent;
    CVeLHANDLE m_stopEvent;
    CVeLHANDLE m_endedEvent; // set by the thread as its last step, so that Stop can wait with a time-out
    OVERLAPPED m_overlapped;
    std::vector<DWORD> m_buffer; // DWORD elements: the records must be aligned to 4 bytes

    std::atomic<std::thread::id> m_threadId{}; // the watcher's thread while it runs
    std::atomic<bool> m_running{false};
    std::atomic<bool> m_stopRequested{false};
    std::atomic<int> m_endReason{DirWatchNotEnded};
    std::atomic<DWORD> m_endError{0};
};
