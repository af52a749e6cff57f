// The open set of each file: which opens of it hold read, write or delete access and which of those they
// refuse to share, so that an open is admitted or refused by Windows' sharing rule.
//
// Every open of a file that asks for data access (read, write or delete) registers in a small lock file
// ".share-<device>-<inode>" in the calling user's folder of named objects ("/dev/shm/w32p.<euid>"), through
// a descriptor of that lock file of its own. What it holds and what it refuses are open file description
// locks on single bytes of the lock file, so the kernel releases them when the open closes or its process
// dies: a killed holder never leaves a file refused. The last holder to leave removes the lock file; one left
// by a killed last holder is removed by the sweep of the named objects' store, which finds nobody holding
// byte 0. Thread-safe; meant for the file functions of this layer only. Failures set the last error.
//
// Linux differs: the open set covers the opens of one user made through this layer. Other users' opens are
// only seen by the exclusive lock a share mode 0 open still takes on the file itself (see w32p_file.h), and
// programs that do not use this layer are not held back at all.
#pragma once

#include "w32p_base.h"

#include <sys/types.h>

// The sharing classes of an access mask, as FILE_SHARE_READ, FILE_SHARE_WRITE and FILE_SHARE_DELETE bits:
// reading or executing data, writing or appending data, deleting. Other rights (attributes, security,
// synchronisation) take no part in sharing.
DWORD W32pSharingClassesOf(DWORD desiredAccess);

// Registers an open of the file (device, inode) holding the sharing classes access and sharing shareMode.
// Returns the descriptor that holds the registration (give it to W32pShareRelease), or -1: with
// ERROR_SHARING_VIOLATION when an existing open refuses what this one asks for or holds what this one
// refuses; with another error when the open set can't be reached (the caller then goes on without it, as
// before the open set existed).
int W32pShareAcquire(dev_t device, ino_t inode, DWORD access, DWORD shareMode);

// Ends a registration made by W32pShareAcquire; removes the lock file when nobody else is registered.
void W32pShareRelease(int descriptor, dev_t device, ino_t inode);

// The store's folder of the calling user, opened and checked by the named objects' store (w32p_named.cpp):
// -1 with the last error set when it is missing (and create is false) or not the caller's own private
// folder.
int W32pOpenNamedObjectDir(bool create);
