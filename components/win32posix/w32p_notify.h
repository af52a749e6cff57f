// Directory-change notification: ReadDirectoryChangesW, GetOverlappedResult and CancelIoEx over inotify.
//
// How it works: the first ReadDirectoryChangesW on a directory handle starts a watch kept with that handle:
// one inotify descriptor with a watch on the folder (and, with watchSubtree, on every folder below it,
// watches added for sub-folders as they appear) and one service thread that reads inotify, turns each event
// into a Windows change record and queues it. A pending request is completed as soon as records are queued:
// they are packed into the caller's buffer as FILE_NOTIFY_INFORMATION records, then the OVERLAPPED receives
// the status and byte count and its event is set (a synchronous caller is woken instead). Changes that arrive
// between two requests are kept, up to the buffer size of the first request, as on Windows; beyond that the
// queue is dropped and the next request reports the overflow. The watch and its thread end with the handle.
//
// Where Linux differs from Windows, and what this layer does:
// - Names in FILE_NOTIFY_INFORMATION are WCHAR, which is wchar_t (UTF-32) here; FileNameLength counts bytes
//   as on Windows, so a name has FileNameLength / sizeof(WCHAR) characters on both platforms. Elements of
//   names below the watched folder are joined with "\", as on Windows.
// - One request may be pending per handle; a second fails with ERROR_INVALID_PARAMETER. Completion
//   routines are not supported (ERROR_NOT_SUPPORTED): use the event in the OVERLAPPED.
// - The filter and the subtree flag of the first request hold for the handle's life, as on Windows.
// - Overflow (too many changes for the buffer, or inotify's own queue full) completes the request
//   successfully with 0 bytes and sets the last error to ERROR_NOTIFY_ENUM_DIR, in the synchronous call and
//   in GetOverlappedResult alike: "changes were lost, rescan the folder".
// - A folder created inside a watched tree and filled before its watch is in place: the entries found when
//   the watch is placed are reported as added (inotify can't report them), and never twice.
// - The watched folder itself deleted: the request pending then, after any records still queued, and every
//   later request fail with ERROR_ACCESS_DENIED (what Windows reports for a folder whose deletion is
//   pending). The deletion is seen through a watch on the folder's parent (the folder's own watch reports
//   it only when the last descriptor closes), so a watched folder moved to another parent and deleted
//   there is noticed only when the handle is closed.
// - CloseHandle with a request pending completes it with 0 bytes and the last error ERROR_NOTIFY_CLEANUP.
// - Files renamed across folders of one tree appear as a removal and an addition when inotify does not
//   deliver the two halves of the rename together.
#pragma once

#include "w32p_file.h"

#ifndef ERROR_NOTIFY_CLEANUP
#define ERROR_NOTIFY_CLEANUP 745L
#endif
#ifndef ERROR_OPERATION_ABORTED
#define ERROR_OPERATION_ABORTED 995L
#endif
#ifndef ERROR_IO_INCOMPLETE
#define ERROR_IO_INCOMPLETE 996L
#endif
#ifndef ERROR_IO_PENDING
#define ERROR_IO_PENDING 997L
#endif
#ifndef ERROR_NOTIFY_ENUM_DIR
#define ERROR_NOTIFY_ENUM_DIR 1022L
#endif
#ifndef ERROR_NOT_FOUND
#define ERROR_NOT_FOUND 1168L
#endif

#ifndef STATUS_SUCCESS
#define STATUS_SUCCESS static_cast<NTSTATUS>(0x00000000L)
#endif
#ifndef STATUS_PENDING
#define STATUS_PENDING static_cast<NTSTATUS>(0x00000103L)
#endif
#define STATUS_NOTIFY_CLEANUP static_cast<NTSTATUS>(0x0000010BL)
#define STATUS_NOTIFY_ENUM_DIR static_cast<NTSTATUS>(0x0000010CL)
#define STATUS_DELETE_PENDING static_cast<NTSTATUS>(0xC0000056L)
#define STATUS_CANCELLED static_cast<NTSTATUS>(0xC0000120L)

#define FILE_ACTION_ADDED 0x00000001
#define FILE_ACTION_REMOVED 0x00000002
#define FILE_ACTION_MODIFIED 0x00000003
#define FILE_ACTION_RENAMED_OLD_NAME 0x00000004
#define FILE_ACTION_RENAMED_NEW_NAME 0x00000005

// Read atomically: the completing thread stores Internal with release order.
#define HasOverlappedIoCompleted(overlapped)                                                                 \
    (static_cast<DWORD>(__atomic_load_n(&(overlapped)->Internal, __ATOMIC_ACQUIRE)) != STATUS_PENDING)

typedef struct _FILE_NOTIFY_INFORMATION
{
    DWORD NextEntryOffset; // bytes to the next record, a multiple of 4; 0 for the last record
    DWORD Action;          // FILE_ACTION_...
    DWORD FileNameLength;  // bytes, without a terminator (the name is not terminated)
    WCHAR FileName[1];
} FILE_NOTIFY_INFORMATION, *PFILE_NOTIFY_INFORMATION;

// Reports changes in the directory behind a handle opened with FILE_FLAG_BACKUP_SEMANTICS. Synchronous
// (overlapped null): waits for changes, TRUE with the byte count. Overlapped: TRUE at once; completion
// through the OVERLAPPED and its event. Failure: ERROR_INVALID_HANDLE, ERROR_INVALID_PARAMETER (a handle
// that is not a directory, a filter of 0 or with unknown bits, a missing byte count for a synchronous call,
// a request already pending), ERROR_NOACCESS (a buffer not aligned to 4 bytes), ERROR_ACCESS_DENIED (the
// folder was deleted), ERROR_TOO_MANY_OPEN_FILES (inotify's limits reached).
W32P_API BOOL ReadDirectoryChangesW(HANDLE directory, LPVOID buffer, DWORD bufferLength, BOOL watchSubtree,
                                    DWORD notifyFilter, LPDWORD bytesReturned, LPOVERLAPPED overlapped,
                                    LPOVERLAPPED_COMPLETION_ROUTINE completionRoutine);
// The outcome of an overlapped request. Still pending: with wait FALSE, FALSE with ERROR_IO_INCOMPLETE;
// with wait TRUE it waits for the OVERLAPPED's event (or, without one, for the request itself).
// A cancelled request: FALSE with ERROR_OPERATION_ABORTED.
W32P_API BOOL GetOverlappedResult(HANDLE file, LPOVERLAPPED overlapped, LPDWORD transferred, BOOL wait);
// Cancels the pending request of the handle that uses overlapped (any request, a synchronous one too, when
// overlapped is null): it completes with ERROR_OPERATION_ABORTED. FALSE with ERROR_NOT_FOUND when there
// is none, ERROR_INVALID_HANDLE for a handle that is not open.
W32P_API BOOL CancelIoEx(HANDLE file, LPOVERLAPPED overlapped);
