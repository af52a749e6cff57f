// Restart Manager sessions over /proc: which processes hold a registered file open.
//
// RmGetList scans /proc/<pid>/fd of every process and names those with a descriptor on a registered file
// (same device and inode, so any spelling of the path matches), plus the registered applications that
// still run. RmShutdown asks each of them to end with SIGTERM (the console's close request; there are no
// windows to close), waits up to 5 s on their pidfds, and with RmForceShutdown then sends SIGKILL; before
// that it reads each one's command line, environment and working folder from /proc, and RmRestart starts
// the stopped ones again from those. Linux differences: files held only through a memory mapping are not
// seen; without privileges the descriptors of other users' processes can't be read, so those holders stay
// unnamed; services do not exist and registered service names are accepted and ignored; every record has
// the type RmConsole; an application is restartable when its command line and working folder can be read
// (Windows asks the application to have registered for restart). Sessions live in this process only; the
// key is a random hex string. The functions are thread-safe.
#pragma once

#include "w32p_base.h"

#define CCH_RM_SESSION_KEY 32
#define CCH_RM_MAX_APP_NAME 255
#define CCH_RM_MAX_SVC_NAME 63
#define RM_INVALID_TS_SESSION (static_cast<DWORD>(-1))
#define RM_INVALID_PROCESS (static_cast<DWORD>(-1))
#ifndef ERROR_BAD_ARGUMENTS
#define ERROR_BAD_ARGUMENTS 160L
#endif
#ifndef ERROR_FAIL_SHUTDOWN
#define ERROR_FAIL_SHUTDOWN 351L
#endif
#ifndef ERROR_FAIL_RESTART
#define ERROR_FAIL_RESTART 352L
#endif
#ifndef ERROR_REQUEST_OUT_OF_SEQUENCE
#define ERROR_REQUEST_OUT_OF_SEQUENCE 776L
#endif
#ifndef ERROR_MAX_SESSIONS_REACHED
#define ERROR_MAX_SESSIONS_REACHED 353L
#endif

typedef struct _RM_UNIQUE_PROCESS
{
    DWORD dwProcessId;
    FILETIME ProcessStartTime;
} RM_UNIQUE_PROCESS, *PRM_UNIQUE_PROCESS;

typedef enum _RM_APP_TYPE
{
    RmUnknownApp = 0,
    RmMainWindow = 1,
    RmOtherWindow = 2,
    RmService = 3,
    RmExplorer = 4,
    RmConsole = 5,
    RmCritical = 1000
} RM_APP_TYPE;

typedef enum _RM_APP_STATUS
{
    RmStatusUnknown = 0x0,
    RmStatusRunning = 0x1,
    RmStatusStopped = 0x2,
    RmStatusStoppedOther = 0x4,
    RmStatusRestarted = 0x8,
    RmStatusErrorOnStop = 0x10,
    RmStatusErrorOnRestart = 0x20,
    RmStatusShutdownMasked = 0x40,
    RmStatusRestartMasked = 0x80
} RM_APP_STATUS;

typedef enum _RM_SHUTDOWN_TYPE
{
    RmForceShutdown = 0x1,
    RmShutdownOnlyRegistered = 0x10
} RM_SHUTDOWN_TYPE;

typedef void (*RM_WRITE_STATUS_CALLBACK)(UINT percentComplete);

typedef enum _RM_REBOOT_REASON
{
    RmRebootReasonNone = 0x0
} RM_REBOOT_REASON;

typedef struct _RM_PROCESS_INFO
{
    RM_UNIQUE_PROCESS Process;
    WCHAR strAppName[CCH_RM_MAX_APP_NAME + 1]; // the executable's file name
    WCHAR strServiceShortName[CCH_RM_MAX_SVC_NAME + 1];
    RM_APP_TYPE ApplicationType;
    ULONG AppStatus;
    DWORD TSSessionId;
    BOOL bRestartable;
} RM_PROCESS_INFO, *PRM_PROCESS_INFO;

// A new session and its key (CCH_RM_SESSION_KEY characters and a terminator). At most 64 sessions at once
// (ERROR_MAX_SESSIONS_REACHED). Every function returns its Win32 error code; ERROR_SUCCESS is 0.
W32P_API DWORD RmStartSession(DWORD* sessionHandle, DWORD sessionFlags, WCHAR sessionKey[]);
// Adds files (by path) and applications (by process id and start time) to the session.
// ERROR_INVALID_HANDLE for an unknown session, ERROR_BAD_ARGUMENTS for a null array with a count.
W32P_API DWORD RmRegisterResources(DWORD sessionHandle, UINT fileCount, LPCWSTR fileNames[],
                                   UINT applicationCount, RM_UNIQUE_PROCESS applications[], UINT serviceCount,
                                   LPCWSTR serviceNames[]);
// The records are the affected processes that run, then those that RmShutdown stopped (AppStatus
// RmStatusStopped, RmStatusErrorOnStop, RmStatusRestarted or RmStatusErrorOnRestart).
// *procInfoNeeded receives the number of processes; when *procInfo (the array's capacity) is smaller the
// call answers ERROR_MORE_DATA (234) and fills nothing, else it fills the records and sets *procInfo.
W32P_API DWORD RmGetList(DWORD sessionHandle, UINT* procInfoNeeded, UINT* procInfo,
                         RM_PROCESS_INFO affectedApps[], LPDWORD rebootReasons);
W32P_API DWORD RmEndSession(DWORD sessionHandle);
// Ends the affected applications (the caller itself excepted): SIGTERM, a wait of up to 5 s, then with
// RmForceShutdown SIGKILL. ERROR_FAIL_SHUTDOWN when one still runs; the status callback (may be null)
// receives 100 at the end. RmShutdownOnlyRegistered has no meaning here (nothing registers) and is ignored.
W32P_API DWORD RmShutdown(DWORD sessionHandle, ULONG actionFlags, RM_WRITE_STATUS_CALLBACK status);
// Starts every application that RmShutdown stopped in this session again, with its command line,
// environment and working folder. ERROR_FAIL_RESTART when one could not be started,
// ERROR_REQUEST_OUT_OF_SEQUENCE when nothing was stopped.
W32P_API DWORD RmRestart(DWORD sessionHandle, DWORD restartFlags, RM_WRITE_STATUS_CALLBACK status);
