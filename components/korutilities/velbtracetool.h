// CVeLBTraceTool: the host process's entry to start and stop the trace back-end. All operations are
// static; a host calls InitializeBTrace once before using the library in earnest and ShutdownBTrace once
// at the end. Break mode is on when the environment variable "BTRACE_BREAK_ACTIVE" is exactly "1".
#pragma once

#include "korutilities_export.h"

#include <string>

class KORUTILITIES_API CVeLBTraceTool
{
public:
    CVeLBTraceTool();
    CVeLBTraceTool(const CVeLBTraceTool&);
    CVeLBTraceTool& operator=(const CVeLBTraceTool&);
    virtual ~CVeLBTraceTool();

    // Starts the back-end with the trace segment name and a buffer of sizeKiB KiB, then registers the
    // modules "KORSW" and "main". False, silently, when any of the three strings is empty; true
    // otherwise (a second start is ignored by the back-end).
    static bool InitializeBTrace(std::string first, std::string segment, unsigned int sizeKiB,
                                 std::string fourth);
    // The same with wide strings, converted to UTF-8.
    static bool InitializeBTrace(std::wstring first, std::wstring segment, unsigned int sizeKiB,
                                 std::wstring fourth);
    static void ShutdownBTrace();

private:
    static bool IsBreakModeEnabled();
};
