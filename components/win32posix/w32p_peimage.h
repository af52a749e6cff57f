// Reading resources out of a Windows executable or DLL file (the public PE/COFF format) without loading
// it: the resource directory is found through the optional header's data directory and the section
// table, then walked type -> name -> language. Every offset and size read from the file is checked against
// the file's bytes before use, so a truncated or damaged file only makes the lookup fail. Internal to
// win32posix: the library sees the Win32 version functions.
#pragma once

#include "w32p_base.h"

#include <string>

// How far a lookup came: no resource section (not a PE file, or one without resources), no resource of
// that type, no resource of that id (or a damaged entry), or found.
enum class W32pPeLookup
{
    NoResources,
    NoType,
    NoName,
    Found,
};

// The data of the resource of that type and numeric id (id 0: the first one of the type), first language.
W32pPeLookup W32pLookupPeResource(const std::string& image, WORD type, WORD id, std::string& data);
// Whether image starts as a PE file does (DOS header pointing at the "PE" signature).
bool W32pIsPeImage(const std::string& image);
// The lookup, true only when found.
bool W32pFindPeResource(const std::string& image, WORD type, WORD id, std::string& data);

// The bytes of an executable file for the lookups above; false with the last error set (the file's own
// error, or ERROR_BAD_EXE_FORMAT for an empty file or one larger than any DLL).
bool W32pReadImageFile(LPCWSTR fileName, std::string& image);
