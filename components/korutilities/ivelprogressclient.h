// IVeLProgressClient: the progress display that CVeLCommandProcessor reports to, implemented by the host
// program. Every operation has an empty default, so a client implements only what it shows.
#pragma once

#include <string>

class IVeLProgressClient
{
public:
    virtual ~IVeLProgressClient() {}
    // A text to show beside the progress (the processor itself never sets one).
    virtual void SetProgressText(const std::wstring& /*text*/) {}
    // The range of the progress: the processor announces 0 to the number of commands + 1.
    virtual void SetRange(int /*minimum*/, int /*maximum*/) {}
    // Puts the progress at an absolute position (the processor itself only steps).
    virtual void SetPosition(int /*position*/) {}
    // One unit forward: once before the first command and once after each command that succeeds.
    virtual void StepForward() {}
    // One unit backward: once per undone command and once more at the end of a rollback.
    virtual void StepBackward() {}
};
