// IVeLDirWatcher: watches a folder (optionally its whole subtree) and calls back with each change. The
// change kinds, the callback type and the reasons a watch ends are shared with the file watcher.
#pragma once

#include "velwin32.h"

#include <boost/filesystem/path.hpp>

#include <functional>

// What happened; values are bits, so that a caller can choose the kinds it wants as a mask.
enum DirChangeEnum
{
    DirChangeAdded = 0x01,
    DirChangeRemoved = 0x02,
    DirChangeModified = 0x04,
    DirChangeRenamedFrom = 0x08, // the old name of a renamed object
    DirChangeRenamedTo = 0x10,   // the new name of a renamed object
    // Not chosen by the mask, always reported; the path is the watched folder (or file):
    DirChangeLost = 0x20,  // changes came faster than they were taken: some were lost, rescan
    DirChangeEnded = 0x40, // the watch ended by itself; GetEndReason says why
};
const unsigned int DirChangeAll = 0x1F;

// Why a watch is not running.
enum DirWatchEndEnum
{
    DirWatchNotEnded = 0,      // never started, or still running
    DirWatchStopped = 1,       // Stop was called
    DirWatchFolderRemoved = 2, // the watched folder was deleted (or the watched file's folder)
    DirWatchFailed = 3,        // the system refused to go on watching; GetEndError has the code
};

// Called on the watcher's own thread, one change at a time, in the order the system reported them. It
// may call Stop (which then only requests the end) but must not destroy the watcher.
typedef std::function<void(DirChangeEnum change, const boost::filesystem::path& path)> DirChangeCallback;

class IVeLDirWatcher
{
public:
    virtual ~IVeLDirWatcher() {}
    // Starts watching folder (and every folder below it with subtree) for the change kinds in the mask
    // (DirChange... bits). Returns once changes are being recorded: a change made after Start returns is
    // reported. False when already running, for an empty callback or mask, or when the folder can't be
    // watched.
    virtual bool Start(const boost::filesystem::path& folder, bool subtree, unsigned int changes,
                       DirChangeCallback callback) = 0;
    // Ends the watch and waits up to timeout ms for its thread; true when it has ended (also when it was
    // not running). Called from the callback, it only requests the end and returns true.
    virtual bool Stop(DWORD timeout) = 0;
    virtual bool IsRunning() const = 0;
    virtual DirWatchEndEnum GetEndReason() const = 0;
    // The Win32 error that ended a failed watch, 0 otherwise.
    virtual DWORD GetEndError() const = 0;
};
