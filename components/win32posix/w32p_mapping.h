// File mappings (sections) backed by the paging file, and views of them.
//
// A section created with INVALID_HANDLE_VALUE holds zero-filled memory of the requested size rounded up to
// the page size (4096 bytes): that rounded value is its section size. Named sections share the namespace of
// events, semaphores and mutexes (see w32p_sync.h: same lifetime, owner-only, "Local\" and "Global\" name the
// same object) and live in POSIX shared memory; unnamed ones in a memfd. A view keeps its section alive after
// the handle is closed, as on Windows. A section over a file handle maps the file itself (its size, or the
// requested size, to which a writable section extends the file).
//
// What a view may do is what both the section's protection and the handle's access allow, as on Windows:
// PAGE_READONLY and PAGE_WRITECOPY sections give read and copy-on-write views, PAGE_READWRITE also write
// views, the PAGE_EXECUTE_* kinds also execute views; a handle from CreateFileMappingW has every right, one
// from OpenFileMappingW those of its access (FILE_MAP_READ / GENERIC_READ read, FILE_MAP_WRITE /
// GENERIC_WRITE read and write, FILE_MAP_EXECUTE / GENERIC_EXECUTE execute; access 0 maps nothing). A named
// section keeps its creator's protection for every later open.
//
// Differs from Windows: a section over a file cannot be named (ERROR_NOT_SUPPORTED); an execute view is
// mapped readable (and writable if asked) but not executable, because shared memory is mounted without
// execute permission on most systems; PAGE_EXECUTE_* over a file does not check that the file handle was
// opened for execution (a descriptor does not record it); SEC_RESERVE sections are committed at once;
// SEC_NOCACHE, SEC_WRITECOMBINE and SEC_LARGE_PAGES are accepted and have no effect; SEC_IMAGE is not
// offered (ERROR_BAD_EXE_FORMAT). A paging-file-backed section keeps one mapping per range and access and
// hands out that same address for every view of it (counted per view), and its pages stay mapped after the
// last view is unmapped, until the section ends: mapping afresh per view costs a page fault per page, which
// callers that map for each small operation would pay every time. A program must not rely on an unmapped
// view faulting, nor on views landing at new addresses (Windows promises neither). All functions are
// thread-safe.
#pragma once

#include "w32p_base.h"

#define PAGE_NOACCESS 0x01
#define PAGE_READONLY 0x02
#define PAGE_READWRITE 0x04
#define PAGE_WRITECOPY 0x08
#define PAGE_EXECUTE_READ 0x20
#define PAGE_EXECUTE_READWRITE 0x40
#define PAGE_EXECUTE_WRITECOPY 0x80
#define SEC_IMAGE 0x01000000
#define SEC_RESERVE 0x04000000
#define SEC_COMMIT 0x08000000
#define SEC_NOCACHE 0x10000000
#define SEC_WRITECOMBINE 0x40000000
#define SEC_LARGE_PAGES 0x80000000
#ifndef ERROR_MAPPED_ALIGNMENT
#define ERROR_MAPPED_ALIGNMENT 1132L
#endif

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
// section with ERROR_ALREADY_EXISTS; it keeps its first size and protection. Null with
// ERROR_INVALID_PARAMETER (size 0 without a file, a protection other than the six PAGE_ kinds, PAGE_GUARD or
// PAGE_NOCACHE, unknown SEC_ flags), ERROR_ACCESS_DENIED (a file handle that does not allow the protection:
// writing for PAGE_READWRITE, reading for all), ERROR_INVALID_HANDLE (name of another kind or not a file
// handle), ERROR_FILE_INVALID (an empty file and size 0), ERROR_NOT_ENOUGH_MEMORY (a read-only section
// larger than its file), ERROR_NOT_SUPPORTED (a name with a file handle), or the error of the failing system
// call.
W32P_API HANDLE CreateFileMappingW(HANDLE file, LPSECURITY_ATTRIBUTES attributes, DWORD protect,
                                   DWORD maximumSizeHigh, DWORD maximumSizeLow, LPCWSTR name);
// The existing named section, with the rights of desiredAccess (checked when a view is mapped); null with
// ERROR_FILE_NOT_FOUND (unknown name), ERROR_INVALID_HANDLE (another kind) or ERROR_INVALID_PARAMETER (null
// name).
W32P_API HANDLE OpenFileMappingW(DWORD desiredAccess, BOOL inheritHandle, LPCWSTR name);
// Maps bytesToMap bytes (0: up to the end of the section) from the offset, a multiple of 65536 (Windows'
// allocation granularity): FILE_MAP_WRITE or ALL_ACCESS map read-write, FILE_MAP_READ (or 0) read-only,
// FILE_MAP_COPY copy-on-write (writing wins when both are given). Null with ERROR_INVALID_HANDLE (not a
// section), ERROR_MAPPED_ALIGNMENT (offset not on the granularity), ERROR_INVALID_PARAMETER (offset at or
// beyond the end), ERROR_ACCESS_DENIED (a right the section or the handle lacks, or a view that passes the
// end), or the error of mmap.
W32P_API LPVOID MapViewOfFile(HANDLE mapping, DWORD desiredAccess, DWORD fileOffsetHigh, DWORD fileOffsetLow,
                              SIZE_T bytesToMap);
// Unmaps the view that starts at baseAddress; FALSE with ERROR_INVALID_ADDRESS when no view starts there.
W32P_API BOOL UnmapViewOfFile(LPCVOID baseAddress);

// The section size of a file-mapping handle (for NtQuerySection); false with ERROR_INVALID_HANDLE otherwise.
W32P_API bool W32pQuerySectionSize(HANDLE mapping, ULONGLONG& size);
