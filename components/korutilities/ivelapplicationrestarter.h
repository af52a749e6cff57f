// IVeLApplicationRestarter: the applications that hold given files or folders open; shutting them down
// before the files are replaced and starting them again afterwards with their command line and working
// folder.
#pragma once

#include "velwin32.h"

#include <boost/filesystem/path.hpp>

#include <string>
#include <vector>

enum ApplicationStateEnum
{
    ApplicationRunning = 0,      // holds a registered file
    ApplicationStopped = 1,      // shut down by Shutdown
    ApplicationNotStopped = 2,   // still ran after Shutdown
    ApplicationRestarted = 3,    // started again by Restart
    ApplicationNotRestarted = 4, // could not be started again
};

struct VeLApplicationInfo
{
    DWORD processId = 0;
    std::wstring name;        // the executable's file name, or the application's name on Windows
    bool restartable = false; // the system knows how to start it again
    ApplicationStateEnum state = ApplicationRunning;
};

class IVeLApplicationRestarter
{
public:
    virtual ~IVeLApplicationRestarter() {}
    // Adds files, and the files in folders (with their subfolders), to those whose holders are handled.
    virtual bool AddResources(const std::vector<boost::filesystem::path>& filesOrFolders) = 0;
    // The applications that hold one of them, and those Shutdown and Restart have handled.
    virtual bool GetApplications(std::vector<VeLApplicationInfo>& applications) const = 0;
    // Asks the holders to end, waits up to timeout ms, then ends those that remain by force. True when all
    // ended; failed lists those that did not.
    virtual bool Shutdown(DWORD timeout, std::vector<VeLApplicationInfo>& failed) = 0;
    // Starts the applications that Shutdown ended again. True when all started; failed lists the others.
    virtual bool Restart(std::vector<VeLApplicationInfo>& failed) = 0;
};
