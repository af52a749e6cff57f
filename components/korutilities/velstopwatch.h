// CVeLStopWatch: measures elapsed wall time in whole milliseconds on a monotonic clock. A plain value;
// one thread uses it at a time.
#pragma once

#include "korutilities_export.h"

#include <chrono>

class KORUTILITIES_API CVeLStopWatch
{
public:
    // Starts at once when start is true; otherwise Start() must be called before reading.
    explicit CVeLStopWatch(bool start);
    virtual ~CVeLStopWatch();

    void Start();
    // Whole milliseconds since Start(); 0 when the watch was never started.
    unsigned int GetElapsedTime() const;

private:
    std::chrono::steady_clock::time_point m_start;
    bool m_started;
};
