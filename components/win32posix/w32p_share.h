// The open set of each file: which opens of it hold read, write or delete access and which of those they
// refuse to share, so that an open is admitted or refused by Windows' sharing rule.
//
// Each process keeps, per file, the counts of what its own opens hold and refuse, and checks a new open of
// the file against them in memory. What the process as a whole holds and refuses is published in a small
// lock file ".share-<device>-<inode>" in the calling user's folder of named objects ("/dev/shm/w32p.<euid>"),
// through one descriptor of that lock file per file per process, as open file description locks on single
// bytes; the kernel releases them when the process dies, so a killed holder never leaves a file refused.
// The bytes change only when the process's aggregate changes (a class held or refused for the first time,
// or no longer), so a second open of a file the process already has costs no system call here. Descriptors
// of files no longer open are kept in a small idle cache (bounded; the oldest is closed first) so that
// open, close, open of one file reuses them. The last holder to leave removes the lock file; one left by a
// killed last holder is removed by the sweep of the named objects' store, which finds nobody holding
// byte 0. A child made by fork starts with an empty set: the registrations it inherited stay the parent's.
// Thread-safe; meant for the file functions of this layer only. Failures set the last error.
//
// Linux differs: the open set covers the opens of one user made through this layer. Other users' opens are
// only seen by the exclusive lock a share mode 0 open still takes on the file itself (see w32p_file.h), and
// programs that do not use this layer are not held back at all.
#pragma once

#include "w32p_base.h"

#include <string>
#include <sys/types.h>

// The sharing classes of an access mask, as FILE_SHARE_READ, FILE_SHARE_WRITE and FILE_SHARE_DELETE bits:
// reading or executing data, writing or appending data, deleting. Other rights (attributes, security,
// synchronisation) take no part in sharing.
DWORD W32pSharingClassesOf(DWORD desiredAccess);

// One registration in a file's open set; empty (generation 0) when nothing is registered.
struct W32pShareRegistration
{
    dev_t device = 0;
    ino_t inode = 0;
    DWORD access = 0;             // sharing classes held
    DWORD shareMode = 0;          // sharing classes shared
    unsigned long generation = 0; // of the process's open set it was made in; 0: none
};

// Registers an open of the file (device, inode) holding the sharing classes access and sharing shareMode
// into registration. False: with ERROR_SHARING_VIOLATION when an existing open refuses what this one asks
// for or holds what this one refuses; with another error when the open set can't be reached (the caller
// then goes on without it). The registration stays empty on failure.
bool W32pShareAcquire(dev_t device, ino_t inode, DWORD access, DWORD shareMode,
                      W32pShareRegistration& registration);

// Ends a registration made by W32pShareAcquire and empties it. At the process's last registration of the
// file, a pending delete-on-close is carried out, and the file's lock descriptor goes to the idle cache, or
// is closed at once when fileGone says the file no longer exists.
void W32pShareRelease(W32pShareRegistration& registration, bool fileGone = false);

// Asks for the file of registration to be removed at path when the process's last registration of it ends
// (FILE_FLAG_DELETE_ON_CLOSE), if path still names that file then.
void W32pShareDeleteAtLastClose(const W32pShareRegistration& registration, const std::string& path);

// Closes the idle cache's descriptors, removing the lock files nobody else holds. Called under descriptor
// pressure and by tests that look for leftover lock files.
W32P_API void W32pShareDropIdle();

// The store's folder of the calling user, opened and checked by the named objects' store (w32p_named.cpp):
// -1 with the last error set when it is missing (and create is false) or not the caller's own private
// folder.
int W32pOpenNamedObjectDir(bool create);
