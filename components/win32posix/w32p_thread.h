// Threads: CreateThread, their exit codes and identities.
//
// A thread runs until its start routine returns; its handle (and every duplicate) becomes signalled then, and
// GetExitCodeThread gives the routine's result. Closing the handle does not end the thread. Threads are
// detached pthreads; TerminateThread and ExitThread do not exist here (ending a thread from outside cannot be
// done safely on Linux). Thread ids are kernel thread ids (gettid). All functions are thread-safe.
#pragma once

#include "w32p_base.h"

typedef DWORD (*LPTHREAD_START_ROUTINE)(LPVOID);
#ifndef WINAPI
#define WINAPI
#endif
#ifndef CALLBACK
#define CALLBACK
#endif

#define CREATE_SUSPENDED 0x00000004
#define STACK_SIZE_PARAM_IS_A_RESERVATION 0x00010000
#define THREAD_ALL_ACCESS 0x1FFFFF

// Starts startAddress(parameter) on a new thread (suspended until ResumeThread with CREATE_SUSPENDED) and
// returns a waitable handle to it; threadId receives its id. Null with ERROR_INVALID_PARAMETER (no routine)
// or ERROR_NOT_ENOUGH_MEMORY (the system refused a thread).
W32P_API HANDLE CreateThread(LPSECURITY_ATTRIBUTES attributes, SIZE_T stackSize,
                             LPTHREAD_START_ROUTINE startAddress, LPVOID parameter, DWORD creationFlags,
                             LPDWORD threadId);
// Lets a thread created suspended run. Returns the previous suspend count (1, then 0); (DWORD)-1 with
// ERROR_INVALID_HANDLE for anything but a thread handle.
W32P_API DWORD ResumeThread(HANDLE thread);
// The calling thread's id.
W32P_API DWORD GetCurrentThreadId();
// STILL_ACTIVE while the thread runs, then the value its routine returned. FALSE with ERROR_INVALID_HANDLE
// for anything but a thread handle, ERROR_INVALID_PARAMETER for a null exitCode.
W32P_API BOOL GetExitCodeThread(HANDLE thread, LPDWORD exitCode);
