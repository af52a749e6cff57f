// Internal to win32posix: what every waitable object (event, semaphore, mutex, thread, process) offers to the
// one wait algorithm of w32p_wait.cpp, and the store of named objects in POSIX shared memory.
//
// Each waitable object keeps its state in one 32-bit futex word plus a count of registered sleepers, in
// memory that every waiter can reach: process memory for unnamed objects, a page of a shared-memory file
// for named ones. A signal changes the word first and then wakes every sleeper on it; a sleeper registers
// first and then reads the word, so one of the two always sees the other (both sides are sequentially
// consistent). Not part of the interface that the library sees.
#pragma once

#include "w32p_handles.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <sys/types.h>

// Outcome of an attempt to take a waitable object for the calling thread.
enum class W32pClaim
{
    NotReady,  // not signalled; nothing changed
    Claimed,   // signalled; taken as its kind prescribes (auto-reset cleared, count lowered, mutex owned)
    Abandoned, // a mutex whose previous owner ended while holding it; the caller now owns it
};

// Objects whose claims change their state (events, semaphores, mutexes) also have a claim lock: a word
// holding the thread id of the one thread that may claim or unsignal the object at the moment, 0 when free.
// A wait-all holds the claim locks of all its objects while it checks and takes them, so that no other
// waiter ever sees some of them taken and others not. Signalling needs no lock (it only makes an object more
// available). The lock is held for a few instructions; a thread that finds it taken spins, yielding, and
// takes it over when its holder's thread no longer exists (a process killed while holding it).
class W32pWaitable : public W32pObject
{
public:
    // word, sleepers and claimLock (null: no claim lock, claims never change the object) live as long as
    // the object; shared selects futex keys usable between processes.
    W32pWaitable(W32pKind kind, std::atomic<std::uint32_t>* word, std::atomic<std::uint32_t>* sleepers,
                 bool shared, std::atomic<std::uint32_t>* claimLock = nullptr)
        : W32pObject(kind), m_word(word), m_sleepers(sleepers), m_claimLock(claimLock), m_shared(shared)
    {
    }

    // Takes the object if it is signalled, under its claim lock.
    W32pClaim TryClaim();
    // Takes the object if it is signalled; the caller holds the claim lock.
    virtual W32pClaim ClaimLocked() = 0;
    // Whether a claim would succeed now, changing nothing: exact under the claim lock, a hint without it.
    virtual bool Signalled() = 0;
    // The value to sleep on; false when that value already shows the object signalled (then no sleep).
    virtual bool SleepValue(std::uint32_t& value) = 0;
    // Called after a wait that slept on this object did not take it: passes on a wake that might have been
    // meant for this object and was swallowed (only the mutex needs it: a dying owner wakes one sleeper).
    virtual void PassOnWake() {}
    // Whether the kernel itself may wake sleepers on the word (a mutex whose owner dies), bypassing
    // W32pFutexWakeAll.
    virtual bool KernelWakes() const { return false; }

    std::atomic<std::uint32_t>* Word() const { return m_word; }
    std::atomic<std::uint32_t>* Sleepers() const { return m_sleepers; }
    bool Shared() const { return m_shared; }

    // The claim lock: TryLockClaims never waits; LockClaims waits for a holder to finish (or vanish).
    bool TryLockClaims();
    void LockClaims();
    void UnlockClaims();

    // Wakes every sleeper on the word if there is one; call after changing the word.
    void WakeAll() const;

private:
    std::atomic<std::uint32_t>* const m_word; // the futex word; its meaning is per kind
    std::atomic<std::uint32_t>* const
        m_sleepers; // threads (of any process) about to sleep or asleep on m_word
    std::atomic<std::uint32_t>* const m_claimLock; // see above; null for objects claims do not change
    const bool m_shared;                           // futex keys shared between processes (no private flag)
};

// Wakes all threads sleeping on word (and, on kernels without futex_waitv, the waits on several objects).
void W32pFutexWakeAll(std::atomic<std::uint32_t>* word, bool shared);
// For tests: makes waits on several objects use the mechanism of kernels without futex_waitv (true) or the
// one the kernel offers (false). Every process that shares named objects with such a wait must use it too.
W32P_API void W32pUseWaitFallback(bool use);
// The waitable object behind handle, including the pseudo handles of the current process and thread (never
// signalled); null with ERROR_INVALID_HANDLE for anything else.
std::shared_ptr<W32pWaitable> W32pLookupWaitable(HANDLE handle);
// The calling thread's kernel thread id.
std::uint32_t W32pThreadId();

// A named object: a shared-memory file "/dev/shm/w32p-2.<euid>/<name>" holding a header page (kind, sizes and
// the object's state) followed, for file mappings, by the section's bytes. The folder (mode 0700) belongs to
// the user, so no other user can create, replace or read a name in it; the folder and each file are checked
// on every open (owner, type, mode, no link followed, a header that fits the file), and what fails a check
// is refused with ERROR_ACCESS_DENIED, never used.
//
// Lifetime: a process that holds the object keeps its header mapped and a shared open-file-description lock
// on one byte of the user's holders file (".holders" in the folder), the byte at the object file's inode
// number; all its holds go through one descriptor, so a process may hold as many objects as it has memory
// for. The kernel drops the locks when the process ends, however it ends, and the mapping keeps the inode
// (and so its number) from being reused while held. A process that drops its last reference upgrades to an
// exclusive lock without waiting; if that succeeds nobody else holds the object and it removes the file. An
// orderly exit (exit(), a return from main) releases every object the process still holds in the same way.
// An opener that gets the exclusive lock on an existing file finds it abandoned by killed holders and
// removes it first; opens also sweep away, at most once a second, every such abandoned file of the user, so
// that none stays behind for long. An opener checks after locking that the name still leads to the file it
// locked, so it never joins a file that is being removed. A child made by fork holds nothing through the
// segments it inherited: it opens the objects it uses itself.
struct W32pNamedHeader
{
    std::uint32_t magic;       // kReadyMagic once the creator has set up the object
    std::uint32_t kind;        // W32pKind of the object
    std::uint64_t sectionSize; // file mappings: the section size in bytes (a multiple of the page size)
    std::uint64_t reserved[6]; // keeps the state at offset 64
    unsigned char state[4032]; // the object's state record
};
static_assert(sizeof(W32pNamedHeader) == 4096, "the header is one page");

class W32pNamedSegment
{
public:
    static constexpr std::size_t kHeaderSize = 4096;
    static constexpr std::uint32_t kReadyMagic = 0x57335032u;

    // Opens the object named name ("Local\" and "Global\" prefixes are dropped) or, with create, makes it
    // with a section of dataSize bytes after the header and runs init on the fresh header. One segment per
    // name and process: a second open in the same process shares the first. created tells whether this call
    // made it. Null with the Win32 error set: ERROR_FILE_NOT_FOUND (unknown name, no create),
    // ERROR_INVALID_HANDLE (name of another kind), ERROR_ACCESS_DENIED (the name, or the user's folder, was
    // not made by this code for this user, or its header is damaged), or the error of the failing system
    // call.
    static std::shared_ptr<W32pNamedSegment> Open(LPCWSTR name, W32pKind kind, bool create,
                                                  std::uint64_t dataSize,
                                                  const std::function<void(W32pNamedHeader&)>& init,
                                                  bool& created);
    // Opens or makes an object of this layer's own under fileName, a name that starts with '.' and so is
    // never the file of a program's object name (their leading '.' is escaped). Null with the Win32 error
    // set.
    static std::shared_ptr<W32pNamedSegment> OpenInternal(const char* fileName, W32pKind kind,
                                                          std::uint64_t dataSize,
                                                          const std::function<void(W32pNamedHeader&)>& init);
    ~W32pNamedSegment();
    W32pNamedSegment(const W32pNamedSegment&) = delete;
    W32pNamedSegment& operator=(const W32pNamedSegment&) = delete;

    W32pNamedHeader& Header() const { return *m_header; }
    // A new descriptor of the object's file (the caller closes it), for mapping its section; -1 with
    // ERROR_ACCESS_DENIED when the name no longer leads to the file (removed or replaced by hand).
    int OpenFile() const;
    // The file name in the user's folder (for tests that look there).
    const std::string& FileName() const { return m_fileName; }

private:
    static std::shared_ptr<W32pNamedSegment> OpenFileNamed(const std::string& fileName, W32pKind kind,
                                                           bool create, std::uint64_t dataSize,
                                                           const std::function<void(W32pNamedHeader&)>& init,
                                                           bool& created);
    W32pNamedSegment(W32pNamedHeader* header, std::string fileName, dev_t device, ino_t inode)
        : m_header(header), m_fileName(std::move(fileName)), m_device(device), m_inode(inode)
    {
    }
    W32pNamedHeader* const m_header; // the header page, mapped shared
    const std::string m_fileName;
    const dev_t m_device; // the object file, whose inode number is this process's hold
    const ino_t m_inode;
};

// The folder of the calling user's named objects, "/dev/shm/w32p-2.<euid>" (for tests).
std::string W32pNamedObjectDir();

// An object that is signalled once, at its end, and stays so (threads and processes): waits never change it.
class W32pEndable : public W32pWaitable
{
public:
    W32pEndable(W32pKind kind, std::atomic<std::uint32_t>* word, std::atomic<std::uint32_t>* sleepers)
        : W32pWaitable(kind, word, sleepers, false)
    {
    }
    W32pClaim ClaimLocked() override { return Word()->load() ? W32pClaim::Claimed : W32pClaim::NotReady; }
    bool Signalled() override { return Word()->load() != 0; }
    bool SleepValue(std::uint32_t& value) override
    {
        value = Word()->load();
        return value == 0;
    }
    // STILL_ACTIVE while running, then the exit code; false with the Win32 error set when it cannot be known.
    virtual bool ExitCode(DWORD& code) const = 0;
};
