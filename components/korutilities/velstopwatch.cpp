#include "velstopwatch.h"

CVeLStopWatch::CVeLStopWatch(bool start) : m_started(false)
{
    if (start)
        Start();
}

CVeLStopWatch::~CVeLStopWatch() {}

void CVeLStopWatch::Start()
{
    m_start = std::chrono::steady_clock::now();
    m_started = true;
}

unsigned int CVeLStopWatch::GetElapsedTime() const
{
    if (!m_started)
        return 0;
    const auto elapsed = std::chrono::steady_clock::now() - m_start;
    return static_cast<unsigned int>(std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count());
}
