// win32posix — the subset of the Win32 API that korutilities uses, implemented over Linux.
//
// Each function keeps the Win32 contract as Microsoft documents it: the same return values, the same
// GetLastError() codes (thread-local) and the same special values. Text is wchar_t (UTF-32 on Linux);
// narrow text is UTF-8. Where Linux cannot give the Windows behaviour, the header of the area says so.
// Included only through velwin32.h; on Windows the real <windows.h> takes its place.
#pragma once

#include "w32p_base.h"
#include "w32p_string.h"
#include "w32p_environment.h"
#include "w32p_handles.h"
#include "w32p_interlocked.h"
#include "w32p_file.h"
#include "w32p_notify.h"
#include "w32p_folders.h"
#include "w32p_filetime.h"
#include "w32p_crypto.h"
#include "w32p_restartmanager.h"
#include "w32p_toolhelp.h"
#include "w32p_profile.h"
#include "w32p_localtime.h"
#include "w32p_window.h"
#include "w32p_registry.h"
#include "w32p_version.h"
#include "w32p_sync.h"
#include "w32p_thread.h"
#include "w32p_mapping.h"
#include "w32p_time.h"
#include "w32p_process.h"
#include "w32p_module.h"
#include "w32p_resource.h"
// Hashing, packing and compound files.
#include "w32p_fileposition.h"
#include "w32p_machineid.h"
#include "w32p_storage.h"
