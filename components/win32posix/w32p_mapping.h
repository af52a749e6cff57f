// File mappings (sections) backed by the paging file, and views of them.
//
// A section created with INVALID_HANDLE_VALUE holds zero-filled memory of the requested size rounded up to
// the page size (4096 bytes): that rounded value is its section size. Named sections share the namespace of
// events, semaphores and mutexes (see w32p_sync.h: same lifetime, owner-only, "Local\" and "Global\" name the
// same object) and live in POSIX shared memory; unnamed ones in a memfd. A view keeps its section alive after
// the handle is closed, as on Windows. A section over a file handle maps the file itself (its size, or the
// requested size, to which a writable section extends the file). Differs from Windows: a section over a
// file cannot be named (ERROR_NOT_SUPPORTED), and offsets need only be page-aligned. A paging-file-backed
// section keeps one mapping per range and access and hands out that same address for every view of it
// (counted per view), and its pages stay mapped after the last view is unmapped, until the section ends:
// mapping afresh per view costs a page fault per page, which callers that map for each small operation
// would pay every time. A program must not rely on an unmapped view faulting, nor on views landing at new
// addresses (Windows promises neither). All functions are thread-safe.
#pragma once

#include "w32p_base.h"

#define PAGE_NOACCESS 0x01
#define PAGE_READONLY 0x02
#define PAGE_READWRITE 0x04
#define PAGE_WRITECOPY 0x08
#define PAGE_EXECUTE_READ 0x20
#define PAGE_EXECUTE_READWRITE 0x40
#define SEC_COMMIT 0x08000000
#define SEC_RESERVE 0x04000000

#define SECTION_QUERY 0x0001
#define SECTION_MAP_WRITE 0x0002
#define SECTION_MAP_READ 0x0004
#define SECTION_MAP_EXECUTE 0x0008
#define SECTION_EXTEND_SIZE 0x0010
#define SECTION_ALL_ACCESS 0x000F001F
#define FILE_MAP_COPY 0x00000001
#define FILE_MAP_WRITE 0x00000002
#define FILE_MAP_READ 0x00000004
#define FILE_MAP_EXECUTE 0x00000020
#define FILE_MAP_ALL_ACCESS SECTION_ALL_ACCESS

// A section of (maximumSizeHigh << 32 | maximumSizeLow) bytes, or (named, existing) a handle to the existing
// section with ERROR_ALREADY_EXISTS; it keeps its first size. Null with ERROR_INVALID_PARAMETER (size 0, or
// an unknown protection), ERROR_INVALID_HANDLE (name of another kind or not a file handle),
// ERROR_FILE_INVALID (an empty file and size 0), ERROR_NOT_SUPPORTED (a name with a file handle), or the
// error of the failing system call (ERROR_NOT_ENOUGH_MEMORY, ERROR_DISK_FULL, ...).
W32P_API HANDLE CreateFileMappingW(HANDLE file, LPSECURITY_ATTRIBUTES attributes, DWORD protect,
                                   DWORD maximumSizeHigh, DWORD maximumSizeLow, LPCWSTR name);
// The existing named section; null with ERROR_FILE_NOT_FOUND (unknown name), ERROR_INVALID_HANDLE (another
// kind) or ERROR_INVALID_PARAMETER (null name).
W32P_API HANDLE OpenFileMappingW(DWORD desiredAccess, BOOL inheritHandle, LPCWSTR name);
// Maps bytesToMap bytes (0: up to the end of the section) from the offset; FILE_MAP_WRITE or ALL_ACCESS map
// read-write, FILE_MAP_READ read-only, FILE_MAP_COPY copy-on-write. Null with ERROR_INVALID_HANDLE (not a
// section), ERROR_INVALID_PARAMETER (offset not page-aligned), ERROR_ACCESS_DENIED (write to a read-only
// section, or beyond its end), or the error of mmap.
W32P_API LPVOID MapViewOfFile(HANDLE mapping, DWORD desiredAccess, DWORD fileOffsetHigh, DWORD fileOffsetLow,
                              SIZE_T bytesToMap);
// Unmaps the view that starts at baseAddress; FALSE with ERROR_INVALID_ADDRESS when no view starts there.
W32P_API BOOL UnmapViewOfFile(LPCVOID baseAddress);

// The section size of a file-mapping handle (for NtQuerySection); false with ERROR_INVALID_HANDLE otherwise.
W32P_API bool W32pQuerySectionSize(HANDLE mapping, ULONGLONG& size);
