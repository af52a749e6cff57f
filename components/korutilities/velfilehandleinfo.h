// VeLFileHandleInfo: one process that holds a file open, as the Restart Manager describes it. Plain value.
#pragma once

#include "velwin32.h"

#include <string>

struct VeLFileHandleInfo
{
    DWORD processId = 0;
    // With the id, tells the process apart from a later one that reuses the id.
    FILETIME processStartTime = {0, 0};
    // The executable's name (on Windows the window title where the process has one).
    std::wstring applicationName;
    // The service's short name; empty for processes that are no service.
    std::wstring serviceShortName;
    RM_APP_TYPE applicationType = RmUnknownApp;
    bool restartable = false;
};
