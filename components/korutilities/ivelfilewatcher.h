// IVeLFileWatcher: watches one file for the change kinds of IVeLDirWatcher (iveldirwatcher.h).
#pragma once

#include "iveldirwatcher.h"

class IVeLFileWatcher
{
public:
    virtual ~IVeLFileWatcher() {}
    // Starts watching file for the kinds in the mask; the file need not exist, its folder must. The
    // callback receives the file's path. DirChangeAdded: the file appeared; DirChangeModified: written;
    // DirChangeRemoved: deleted; DirChangeRenamedFrom: renamed away; DirChangeRenamedTo: another file was
    // renamed onto its name (replaced, the "write a temporary file, rename it over" pattern).
    // DirChangeLost and DirChangeEnded as for a folder. False when already running, for an empty callback,
    // mask or file name, or when the folder can't be watched.
    virtual bool Start(const boost::filesystem::path& file, unsigned int changes,
                       DirChangeCallback callback) = 0;
    virtual bool Stop(DWORD timeout) = 0;
    virtual bool IsRunning() const = 0;
    virtual DirWatchEndEnum GetEndReason() const = 0;
};
