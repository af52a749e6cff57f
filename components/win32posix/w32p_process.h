// Processes: starting programs with CreateProcessW, their handles, exit codes and ends.
//
// A process handle (and the handle of its main thread) becomes signalled when the process ends; a watcher
// thread per process object waits on its pidfd and then wakes the waiters, so waits stay futex-based. A child
// started here is reaped by that watcher, which keeps its exit status: do not waitpid() for it elsewhere.
// Differs from Windows: handles are not inherited (bInheritHandles is ignored; only the three standard
// handles of STARTUPINFOW reach the child, with STARTF_USESTDHANDLES); the window fields of STARTUPINFOW and
// CREATE_NO_WINDOW have nothing to act on and are accepted; CREATE_NEW_PROCESS_GROUP makes the child the
// leader of a new process group, which GenerateConsoleCtrlEvent then signals as a whole; CREATE_SUSPENDED is
// not supported (ERROR_NOT_SUPPORTED), the main thread's id is the process id, and a process ended by a
// signal it did not get from TerminateProcess has exit code 128 + the signal number. The exit code of a
// process that is no child of this one cannot be learnt on Linux: GetExitCodeProcess then fails with
// ERROR_NOT_SUPPORTED once it has ended. All functions are thread-safe.
#pragma once

#include "w32p_base.h"

#include <string>
#include <vector>

#define DEBUG_PROCESS 0x00000001
#define DEBUG_ONLY_THIS_PROCESS 0x00000002
#ifndef CREATE_SUSPENDED
#define CREATE_SUSPENDED 0x00000004
#endif
#define DETACHED_PROCESS 0x00000008
#define CREATE_NEW_CONSOLE 0x00000010
#define NORMAL_PRIORITY_CLASS 0x00000020
#define IDLE_PRIORITY_CLASS 0x00000040
#define HIGH_PRIORITY_CLASS 0x00000080
#define REALTIME_PRIORITY_CLASS 0x00000100
#define CREATE_NEW_PROCESS_GROUP 0x00000200
#define CREATE_UNICODE_ENVIRONMENT 0x00000400
#define CREATE_SEPARATE_WOW_VDM 0x00000800
#define BELOW_NORMAL_PRIORITY_CLASS 0x00004000
#define ABOVE_NORMAL_PRIORITY_CLASS 0x00008000
#define CREATE_BREAKAWAY_FROM_JOB 0x01000000
#define CREATE_DEFAULT_ERROR_MODE 0x04000000
#define CREATE_NO_WINDOW 0x08000000

#define CTRL_C_EVENT 0
#define CTRL_BREAK_EVENT 1

#define STARTF_USESHOWWINDOW 0x00000001
#define STARTF_USESIZE 0x00000002
#define STARTF_USEPOSITION 0x00000004
#define STARTF_USECOUNTCHARS 0x00000008
#define STARTF_USEFILLATTRIBUTE 0x00000010
#define STARTF_RUNFULLSCREEN 0x00000020
#define STARTF_FORCEONFEEDBACK 0x00000040
#define STARTF_FORCEOFFFEEDBACK 0x00000080
#define STARTF_USESTDHANDLES 0x00000100
#define STARTF_USEHOTKEY 0x00000200

#define SW_HIDE 0
#define SW_SHOWNORMAL 1
#define SW_NORMAL 1
#define SW_SHOWMINIMIZED 2
#define SW_SHOWMAXIMIZED 3
#define SW_MAXIMIZE 3
#define SW_SHOWNOACTIVATE 4
#define SW_SHOW 5
#define SW_MINIMIZE 6
#define SW_SHOWMINNOACTIVE 7
#define SW_SHOWNA 8
#define SW_RESTORE 9
#define SW_SHOWDEFAULT 10

#define PROCESS_TERMINATE 0x0001
#define PROCESS_CREATE_THREAD 0x0002
#define PROCESS_VM_OPERATION 0x0008
#define PROCESS_VM_READ 0x0010
#define PROCESS_VM_WRITE 0x0020
#define PROCESS_DUP_HANDLE 0x0040
#define PROCESS_CREATE_PROCESS 0x0080
#define PROCESS_SET_QUOTA 0x0100
#define PROCESS_SET_INFORMATION 0x0200
#define PROCESS_QUERY_INFORMATION 0x0400
#define PROCESS_SUSPEND_RESUME 0x0800
#define PROCESS_QUERY_LIMITED_INFORMATION 0x1000
#define PROCESS_ALL_ACCESS 0x001FFFFF

typedef struct _STARTUPINFOW
{
    DWORD cb;
    LPWSTR lpReserved;
    LPWSTR lpDesktop;
    LPWSTR lpTitle;
    DWORD dwX;
    DWORD dwY;
    DWORD dwXSize;
    DWORD dwYSize;
    DWORD dwXCountChars;
    DWORD dwYCountChars;
    DWORD dwFillAttribute;
    DWORD dwFlags;
    WORD wShowWindow;
    WORD cbReserved2;
    LPBYTE lpReserved2;
    HANDLE hStdInput;
    HANDLE hStdOutput;
    HANDLE hStdError;
} STARTUPINFOW, *LPSTARTUPINFOW;

typedef struct _PROCESS_INFORMATION
{
    HANDLE hProcess;
    HANDLE hThread;
    DWORD dwProcessId;
    DWORD dwThreadId;
} PROCESS_INFORMATION, *PPROCESS_INFORMATION, *LPPROCESS_INFORMATION;

// Starts a program. The program is applicationName when given (used as a path, no search), else the first
// word of commandLine (searched in PATH when it has no '/'). commandLine is split into the arguments by the
// rules of the Windows C runtime (see W32pSplitCommandLine). environment: null for this process's
// environment, else a block of "NAME=VALUE" strings, each ended by a zero, with an empty string at the end,
// of WCHAR with CREATE_UNICODE_ENVIRONMENT, else of UTF-8 chars. currentDirectory: null for ours. On success
// fills processInformation with two new waitable handles (process and main thread) and the ids. FALSE with
// ERROR_INVALID_PARAMETER (no program, no processInformation), ERROR_DIRECTORY (currentDirectory is no
// directory), ERROR_INVALID_HANDLE (a standard handle that is no file handle), ERROR_FILE_NOT_FOUND (no
// such program), ERROR_ACCESS_DENIED (not executable), ERROR_BAD_EXE_FORMAT, or ERROR_NOT_SUPPORTED
// (CREATE_SUSPENDED).
W32P_API BOOL CreateProcessW(LPCWSTR applicationName, LPWSTR commandLine,
                             LPSECURITY_ATTRIBUTES processAttributes, LPSECURITY_ATTRIBUTES threadAttributes,
                             BOOL inheritHandles, DWORD creationFlags, LPVOID environment,
                             LPCWSTR currentDirectory, LPSTARTUPINFOW startupInfo,
                             LPPROCESS_INFORMATION processInformation);
// A waitable handle to the running process with that id; null with ERROR_INVALID_PARAMETER when there is
// none (or id 0), ERROR_ACCESS_DENIED when the system refuses.
W32P_API HANDLE OpenProcess(DWORD desiredAccess, BOOL inheritHandle, DWORD processId);
// STILL_ACTIVE while the process runs, then its exit code. FALSE with ERROR_INVALID_HANDLE for anything but a
// process handle (GetCurrentProcess() is one), ERROR_NOT_SUPPORTED for an ended process that was no child.
W32P_API BOOL GetExitCodeProcess(HANDLE process, LPDWORD exitCode);
// Kills the process (SIGKILL); its exit code becomes exitCode. FALSE with ERROR_INVALID_HANDLE, or
// ERROR_ACCESS_DENIED when it has already ended or may not be signalled.
W32P_API BOOL TerminateProcess(HANDLE process, UINT exitCode);
W32P_API DWORD GetCurrentProcessId();
// The process id behind a process handle (or the pseudo handle); 0 with ERROR_INVALID_HANDLE otherwise.
W32P_API DWORD GetProcessId(HANDLE process);
// Returns 0 at once for a process handle: there is no message loop to wait for on Linux. WAIT_FAILED with
// ERROR_INVALID_HANDLE otherwise.
W32P_API DWORD WaitForInputIdle(HANDLE process, DWORD milliseconds);
// The console's polite request to end, as signals: CTRL_BREAK_EVENT sends SIGTERM, CTRL_C_EVENT SIGINT, to
// the process group processGroupId (a child started with CREATE_NEW_PROCESS_GROUP and everything it
// started), or to the single process of that id when it leads no group. Windows reaches only processes
// that share the caller's console; here any process the caller may signal. Group 0 (every process of the
// console on Windows) and unknown ids fail with ERROR_INVALID_PARAMETER, a refused signal with
// ERROR_ACCESS_DENIED.
W32P_API BOOL GenerateConsoleCtrlEvent(DWORD ctrlEvent, DWORD processGroupId);

// The arguments a Windows program would see for commandLine: words are separated by blanks and tabs; double
// quotes group (and are removed); inside quotes a doubled quote stands for one; 2n backslashes before a quote
// give n backslashes, 2n+1 give n and a literal quote; other backslashes are literal. The first word (the
// program) ends at the first blank outside quotes and takes no backslash rules.
W32P_API std::vector<std::wstring> W32pSplitCommandLine(LPCWSTR commandLine);

// For other areas of this layer (the restart manager): starts the program (a path) with those arguments
// (argv[0] first), the environment strings (empty: this process's) and the working folder (empty: ours); no
// handle is kept, the child is reaped when it ends. The process id, or 0 with the last error set.
W32P_API DWORD W32pStartDetached(const std::string& program, const std::vector<std::string>& arguments,
                                 const std::vector<std::string>& environment, const std::string& directory);
