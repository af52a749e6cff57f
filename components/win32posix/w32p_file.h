// Files, directories, attributes and directory search.
//
// A file handle owns one Linux file descriptor. Where Linux differs from Windows, and what this layer does:
// - Sharing: an open asking for data access (read or execute, write or append, delete; delete-on-close
//   counts as delete) is admitted by Windows' rule: every open of the file must share what the new one asks
//   for, and the new one must share what every open holds; otherwise ERROR_SHARING_VIOLATION. DeleteFileW
//   and MoveFileExW (of the source) count as delete access. Opens with other rights only (attributes, 0)
//   are neither checked nor counted, as on Windows. The rule holds between the opens of one user through
//   this layer, in one process and across processes, through the open set of w32p_share.h, which a killed
//   holder leaves at once. Linux differs: between users only share mode 0 still counts, as an exclusive
//   lock of the open file description (flock) that every other data-access open meets with a shared one;
//   programs that do not use this layer are not held back (the locks are advisory), and a rename's target
//   is not checked.
// - Read-only: FILE_ATTRIBUTE_READONLY is "no write permission bit set". Root may write any file on Linux,
//   so the opening, deleting and truncating calls check the bits themselves: a read-only file refuses
//   writers with ERROR_ACCESS_DENIED whoever the caller is, as on Windows.
// - Attributes: FILE_ATTRIBUTE_DIRECTORY from the file type, FILE_ATTRIBUTE_REPARSE_POINT for a symbolic
//   link (the link itself is described, with DIRECTORY added when it points at a directory), and
//   FILE_ATTRIBUTE_NORMAL when nothing else applies. Hidden, system and archive bits do not exist here.
// - Names compare case-insensitively in wildcard searches, as on Windows, while the file system itself stays
//   case-sensitive.
// - Names: every path taken and every name handed out goes through the lossless mapping of w32p_path.h, so
//   a Linux name holding "\\" or bytes that are not UTF-8 is listed without a separator and reached exactly.
// - Paths below an open search: while a thread holds a search handle of a directory, its calls on paths
//   below that directory (as the same text plus "/" or "\\" and plain elements) are resolved from the
//   search's open directory, so they may be longer than PATH_MAX. In the last element, searching,
//   deleting, removing and attribute calls never follow a link: a directory swapped for a link after it
//   was listed is never entered or emptied. Each open search holds one file descriptor.
// - Opening never waits: a FIFO without a peer or a device that is not ready fails at once
//   (ERROR_NOT_READY) instead of blocking; transfers on the handle block as usual.
// - FILE_FLAG_DELETE_ON_CLOSE removes the file when the process's last handle of it closes, if the path
//   still names the file it opened; a read-only file can't be opened with it (ERROR_ACCESS_DENIED).
// Handles are thread-safe in the Win32 sense: concurrent ReadFile/WriteFile on one handle share its file
// position as they would on Windows.
#pragma once

#include "w32p_base.h"

#include <functional>
#include <memory>

#ifndef DELETE
#define DELETE 0x00010000L
#endif
#define FILE_READ_DATA 0x0001
#define FILE_LIST_DIRECTORY 0x0001
#define FILE_WRITE_DATA 0x0002
#define FILE_APPEND_DATA 0x0004
#define FILE_READ_EA 0x0008
#define FILE_WRITE_EA 0x0010
#define FILE_READ_ATTRIBUTES 0x0080
#define FILE_WRITE_ATTRIBUTES 0x0100
#define FILE_GENERIC_READ 0x00120089L
#define FILE_GENERIC_WRITE 0x00120116L
#define FILE_ALL_ACCESS 0x001F01FFL

#define FILE_SHARE_READ 0x00000001
#define FILE_SHARE_WRITE 0x00000002
#define FILE_SHARE_DELETE 0x00000004

#define CREATE_NEW 1
#define CREATE_ALWAYS 2
#define OPEN_EXISTING 3
#define OPEN_ALWAYS 4
#define TRUNCATE_EXISTING 5

#define FILE_ATTRIBUTE_READONLY 0x00000001
#define FILE_ATTRIBUTE_HIDDEN 0x00000002
#define FILE_ATTRIBUTE_SYSTEM 0x00000004
#define FILE_ATTRIBUTE_DIRECTORY 0x00000010
#define FILE_ATTRIBUTE_ARCHIVE 0x00000020
#define FILE_ATTRIBUTE_DEVICE 0x00000040
#define FILE_ATTRIBUTE_NORMAL 0x00000080
#define FILE_ATTRIBUTE_TEMPORARY 0x00000100
#define FILE_ATTRIBUTE_REPARSE_POINT 0x00000400
#define INVALID_FILE_ATTRIBUTES 0xFFFFFFFFu
#define IO_REPARSE_TAG_SYMLINK 0xA000000Cu

#define FILE_FLAG_WRITE_THROUGH 0x80000000u
#define FILE_FLAG_OVERLAPPED 0x40000000u
#define FILE_FLAG_NO_BUFFERING 0x20000000u
#define FILE_FLAG_RANDOM_ACCESS 0x10000000u
#define FILE_FLAG_SEQUENTIAL_SCAN 0x08000000u
#define FILE_FLAG_DELETE_ON_CLOSE 0x04000000u
#define FILE_FLAG_BACKUP_SEMANTICS 0x02000000u

#define STD_INPUT_HANDLE (static_cast<DWORD>(-10))
#define STD_OUTPUT_HANDLE (static_cast<DWORD>(-11))
#define STD_ERROR_HANDLE (static_cast<DWORD>(-12))

#define FILE_NOTIFY_CHANGE_FILE_NAME 0x00000001
#define FILE_NOTIFY_CHANGE_DIR_NAME 0x00000002
#define FILE_NOTIFY_CHANGE_ATTRIBUTES 0x00000004
#define FILE_NOTIFY_CHANGE_SIZE 0x00000008
#define FILE_NOTIFY_CHANGE_LAST_WRITE 0x00000010
#define FILE_NOTIFY_CHANGE_LAST_ACCESS 0x00000020
#define FILE_NOTIFY_CHANGE_CREATION 0x00000040
#define FILE_NOTIFY_CHANGE_SECURITY 0x00000100

typedef struct _WIN32_FIND_DATAW
{
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
    DWORD dwReserved0; // reparse tag (IO_REPARSE_TAG_SYMLINK) when FILE_ATTRIBUTE_REPARSE_POINT is set
    DWORD dwReserved1;
    WCHAR cFileName[MAX_PATH];
    WCHAR cAlternateFileName[14];
} WIN32_FIND_DATAW, *PWIN32_FIND_DATAW, *LPWIN32_FIND_DATAW;

typedef struct _WIN32_FILE_ATTRIBUTE_DATA
{
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
} WIN32_FILE_ATTRIBUTE_DATA, *LPWIN32_FILE_ATTRIBUTE_DATA;

typedef enum _GET_FILEEX_INFO_LEVELS
{
    GetFileExInfoStandard,
    GetFileExMaxInfoLevel
} GET_FILEEX_INFO_LEVELS;

typedef void (*LPOVERLAPPED_COMPLETION_ROUTINE)(DWORD errorCode, DWORD bytesTransferred,
                                                LPOVERLAPPED overlapped);

// Opens or creates a file (or, with FILE_FLAG_BACKUP_SEMANTICS, a directory). Every access mask Windows
// accepts is accepted (GENERIC_*, 0, MAXIMUM_ALLOWED, standard and specific rights), and so are every
// FILE_FLAG_* and FILE_ATTRIBUTE_* bit and the SECURITY_* quality-of-service bits. FILE_APPEND_DATA without
// FILE_WRITE_DATA (or a generic write right) makes every write go to the end of the file. Failure:
// INVALID_HANDLE_VALUE with ERROR_FILE_NOT_FOUND / ERROR_PATH_NOT_FOUND, ERROR_FILE_EXISTS (CREATE_NEW),
// ERROR_ACCESS_DENIED (no permission, a read-only file opened for writing, a directory without
// FILE_FLAG_BACKUP_SEMANTICS), ERROR_SHARING_VIOLATION (see "Sharing" above), ERROR_INVALID_PARAMETER (bad
// disposition, share bits other than FILE_SHARE_READ, FILE_SHARE_WRITE and FILE_SHARE_DELETE,
// TRUNCATE_EXISTING without write access). CREATE_ALWAYS and OPEN_ALWAYS on an existing file succeed with
// ERROR_ALREADY_EXISTS; otherwise a success leaves the last error 0. New files get permission 0666 less the
// umask; FILE_ATTRIBUTE_READONLY in the attributes makes them 0444 less the umask.
// Differs from Windows: the security attributes and the template are ignored (Linux permissions come from
// the umask); an open with access 0 still needs read permission on Linux, where Windows needs none;
// MAXIMUM_ALLOWED grants read access only (Linux can't open "as much as allowed" in one step without
// trying); ACCESS_SYSTEM_SECURITY needs no privilege; FILE_FLAG_OPEN_REPARSE_POINT still follows a link;
// the hidden, system, archive and temporary attributes and the FILE_FLAG_* hints other than
// FILE_FLAG_BACKUP_SEMANTICS and FILE_FLAG_DELETE_ON_CLOSE are accepted and have no effect.
// FILE_FLAG_DELETE_ON_CLOSE removes the file when this process's last data-access handle of it closes;
// handles of other processes and attribute-only handles do not keep it (on Windows every handle does).
W32P_API HANDLE CreateFileW(LPCWSTR fileName, DWORD desiredAccess, DWORD shareMode,
                            LPSECURITY_ATTRIBUTES securityAttributes, DWORD creationDisposition,
                            DWORD flagsAndAttributes, HANDLE templateFile);
// Reads up to toRead bytes (fewer only at the end of the file or from a pipe or terminal). An OVERLAPPED
// gives the file offset to read at, as for a synchronous handle on Windows: the file position then moves
// past what was read, Internal receives the status and InternalHigh the count, and a read of a file that
// starts at or beyond its end fails with ERROR_HANDLE_EOF (and moves the position to that offset). Without
// an OVERLAPPED a read at the end succeeds with 0 bytes. A handle opened without read access:
// ERROR_ACCESS_DENIED; a null buffer with a non-zero count: ERROR_NOACCESS. The count pointer may be null.
// Differs from Windows: FILE_FLAG_OVERLAPPED handles are served synchronously too (the call returns when
// the transfer is done, never answers ERROR_IO_PENDING, and moves the file position as a synchronous
// handle does).
W32P_API BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read, LPOVERLAPPED overlapped);
// Writes all toWrite bytes or fails (ERROR_DISK_FULL, ERROR_ACCESS_DENIED without write access,
// ERROR_INVALID_USER_BUFFER for a null buffer with a non-zero count, ...). An OVERLAPPED offset works as for
// ReadFile; the offset 0xFFFFFFFF:FFFFFFFF writes at the end of the file. Differs from Windows as ReadFile.
W32P_API BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD toWrite, LPDWORD written, LPOVERLAPPED overlapped);
// STD_INPUT_HANDLE, STD_OUTPUT_HANDLE or STD_ERROR_HANDLE: a handle for descriptor 0, 1 or 2, the same
// value on every call while it stays open. Another value: INVALID_HANDLE_VALUE with ERROR_INVALID_HANDLE.
W32P_API HANDLE GetStdHandle(DWORD which);

// ERROR_ALREADY_EXISTS for any existing object at the path, ERROR_PATH_NOT_FOUND when a parent is missing.
W32P_API BOOL CreateDirectoryW(LPCWSTR pathName, LPSECURITY_ATTRIBUTES securityAttributes);
// INVALID_FILE_ATTRIBUTES with ERROR_FILE_NOT_FOUND / ERROR_PATH_NOT_FOUND for a missing object, and
// ERROR_INVALID_NAME for a name holding a wildcard or "<", ">", "\"", "|" (so do CreateFileW,
// CreateDirectoryW, SetFileAttributesW, DeleteFileW). Differs from Windows: trailing dots and spaces of a
// name are kept, since on Linux they are part of the name (the lossless mapping of w32p_path.h).
W32P_API DWORD GetFileAttributesW(LPCWSTR fileName);
W32P_API BOOL GetFileAttributesExW(LPCWSTR fileName, GET_FILEEX_INFO_LEVELS infoLevel, LPVOID information);
// Only FILE_ATTRIBUTE_READONLY has an effect: set, it removes every write permission bit; clear
// (FILE_ATTRIBUTE_NORMAL, or any value without it), it gives the owner write permission back, and on a
// directory also search permission, so its owner can change its entries. The other attributes are accepted
// and ignored. A symbolic link is not followed: its own attributes are set, which on Linux changes nothing.
W32P_API BOOL SetFileAttributesW(LPCWSTR fileName, DWORD attributes);
// Removes a file or a symbolic link. A read-only file or a directory: ERROR_ACCESS_DENIED.
W32P_API BOOL DeleteFileW(LPCWSTR fileName);
// Removes an empty directory, or a symbolic link to a directory as a link (its target is untouched).
// Not empty: ERROR_DIR_NOT_EMPTY; not a directory: ERROR_DIRECTORY; a read-only directory:
// ERROR_ACCESS_DENIED.
W32P_API BOOL RemoveDirectoryW(LPCWSTR pathName);
// FILE_ATTRIBUTE_DIRECTORY (non-zero) when the path names a directory (links followed), FALSE otherwise.
W32P_API BOOL PathIsDirectoryW(LPCWSTR path);
// TRUE only for a directory without entries other than "." and "..".
W32P_API BOOL PathIsDirectoryEmptyW(LPCWSTR path);

// Wildcard search in the directory part of pattern, with the wildcards of Windows: "*" any run of
// characters, "?" one character or nothing before a dot or at the end ("abc?" finds "abc"), "*." and
// "name.*" take names without an extension, "<", ">" and "\"" are the file system's own wildcards, and
// trailing dots and spaces of the pattern are dropped. "." and ".." come first, then the other names in
// case-insensitive order. No match: ERROR_FILE_NOT_FOUND; a missing directory: ERROR_PATH_NOT_FOUND; a
// pattern ending in a separator: ERROR_FILE_NOT_FOUND; a wildcard or "|" in the directory part:
// ERROR_INVALID_NAME. Differs from Windows: short (8.3) names do not exist here, so a pattern never matches
// through one and cAlternateFileName stays empty.
W32P_API HANDLE FindFirstFileW(LPCWSTR fileName, LPWIN32_FIND_DATAW findData);
// FALSE with ERROR_NO_MORE_FILES after the last entry.
W32P_API BOOL FindNextFileW(HANDLE findFile, LPWIN32_FIND_DATAW findData);
W32P_API BOOL FindClose(HANDLE findFile);

// For other areas of this layer (file-backed mappings): the descriptor behind a file handle, or -1 with
// ERROR_INVALID_HANDLE. The descriptor stays owned by the handle.
W32P_API int W32pFileDescriptorOfHandle(HANDLE file);

// Renaming a file over another and flushing a file to the disk, the two steps of a crash-safe replacement.
#define MOVEFILE_REPLACE_EXISTING 0x00000001
#define MOVEFILE_COPY_ALLOWED 0x00000002
#define MOVEFILE_DELAY_UNTIL_REBOOT 0x00000004
#define MOVEFILE_WRITE_THROUGH 0x00000008
#define MOVEFILE_CREATE_HARDLINK 0x00000010
#define MOVEFILE_FAIL_IF_NOT_TRACKABLE 0x00000020

// Moves or renames a file or a directory in one step (rename(2)): readers see the old object or the new
// one at newFileName, never a mix. An existing newFileName fails with ERROR_ALREADY_EXISTS unless
// MOVEFILE_REPLACE_EXISTING is given; even then an existing directory or read-only file there is not
// replaced (ERROR_ACCESS_DENIED), as on Windows. A symbolic link is moved as a link, and a link at
// newFileName is replaced, not followed. Across file systems: ERROR_NOT_SAME_DEVICE, unless
// MOVEFILE_COPY_ALLOWED is given and the source is a regular file, which is then copied (to a temporary
// name in the destination's folder, flushed, renamed into place) and removed; the source stays when it
// cannot be removed, as on Windows. MOVEFILE_WRITE_THROUGH returns only after the folders involved are
// flushed to the disk (fsync); if only that flush fails, the call fails although the name has changed.
// MOVEFILE_DELAY_UNTIL_REBOOT has no meaning here: ERROR_NOT_SUPPORTED. Unknown flags or a null name:
// ERROR_INVALID_PARAMETER. Linux differs: a file held open, even exclusively, can still be moved.
W32P_API BOOL MoveFileExW(LPCWSTR existingFileName, LPCWSTR newFileName, DWORD flags);
// Writes what the system holds of the file to the disk (fsync). A handle without write access:
// ERROR_ACCESS_DENIED, as on Windows; pipes and terminals have nothing to flush and succeed.
W32P_API BOOL FlushFileBuffers(HANDLE file);
// For other areas of this layer: the state kept with a file handle, made by make(descriptor) on first use
// and released with the handle's last reference. Null with the last error set for a handle that is not a
// file or directory, or when make returns null (it sets the last error then).
W32P_API std::shared_ptr<void> W32pFileAttachment(HANDLE file,
                                                  const std::function<std::shared_ptr<void>(int)>& make);
