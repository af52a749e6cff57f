// Reading resources out of a Windows executable or DLL file (the public PE/COFF format) without loading
// it: the resource directory is found through the optional header's data directory and the section
// table, then walked type -> name -> language. Every offset and size read from the file is checked against
// the file's bytes before use, so a truncated or damaged file only makes the lookup fail. Internal to
// win32posix: the library sees the Win32 version functions.
#pragma once

#include "w32p_base.h"

#include <string>

// The data of the resource of that type and numeric id (id 0: the first one of the type), first language.
// False for anything that is not a well-formed PE file with that resource.
bool W32pFindPeResource(const std::string& image, WORD type, WORD id, std::string& data);
