// String resources: LoadStringW over the RT_STRING table of a Windows executable or DLL, and
// LoadLibraryExW to open such a file as a data file (it is read into memory, never run).
//
// Linux differences: a module from LoadLibraryW is a Linux shared object (the main program too, for a null
// module) and has no resources: LoadStringW answers 0 with ERROR_RESOURCE_DATA_NOT_FOUND, as Windows does
// for a module without a resource section. Texts are widened from the file's UTF-16 to this platform's
// 4-byte WCHAR (a surrogate pair becomes one character), so lengths count WCHARs. A handle that no load
// handed out answers ERROR_INVALID_HANDLE. A data-file module keeps the file's bytes and every text asked
// for until FreeLibrary, which is when the pointers LoadStringW hands out for a zero buffer size end.
// Thread-safe.
#pragma once

#include "w32p_base.h"
#include "w32p_version.h" // ERROR_RESOURCE_TYPE_NOT_FOUND, ERROR_RESOURCE_NAME_NOT_FOUND

#ifndef LOAD_LIBRARY_AS_DATAFILE
#define LOAD_LIBRARY_AS_DATAFILE 0x00000002
#endif
#ifndef LOAD_LIBRARY_AS_IMAGE_RESOURCE
#define LOAD_LIBRARY_AS_IMAGE_RESOURCE 0x00000020
#endif
#ifndef LOAD_LIBRARY_AS_DATAFILE_EXCLUSIVE
#define LOAD_LIBRARY_AS_DATAFILE_EXCLUSIVE 0x00000040
#endif
#ifndef ERROR_RESOURCE_DATA_NOT_FOUND
#define ERROR_RESOURCE_DATA_NOT_FOUND 1812L
#endif

// With one of the data-file flags: reads a PE file (null with the file's error, or ERROR_BAD_EXE_FORMAT for
// a file that is not a PE image). Without them: LoadLibraryW. file must be null (ERROR_INVALID_PARAMETER).
W32P_API HMODULE LoadLibraryExW(LPCWSTR fileName, HANDLE file, DWORD flags);
// The text of string id: copied into buffer (at most bufferMax - 1 characters, then a terminator) and its
// length answered; with bufferMax 0, buffer receives a read-only pointer to the text instead (terminated
// here, unlike Windows) and the text's full length is answered. 0 (and an empty text in a given buffer) when
// there is no such text (an empty one counts as none): ERROR_RESOURCE_TYPE_NOT_FOUND without a string table,
// ERROR_RESOURCE_NAME_NOT_FOUND without that string; ERROR_INVALID_PARAMETER for a null buffer or a negative
// size.
W32P_API int LoadStringW(HINSTANCE instance, UINT id, LPWSTR buffer, int bufferMax);

// For FreeLibrary: releases a data-file module; false when module is not one.
bool W32pFreeDataModule(HMODULE module);
