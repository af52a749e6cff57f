// CVeLFileHandleHelper: tells which processes hold a file open, for example before a file is replaced.
// Owns a CVeLFileHandleHelperImpl (copies share it; it has no state beyond the facade), so it may be
// copied and used from several threads.
#pragma once

#include "ivelwinapiwrapper.h"
#include "korutilities_export.h"
#include "velfilehandleinfo.h"

#include <boost/filesystem/path.hpp>

#include <list>
#include <memory>

class CVeLFileHandleHelperImpl;

class KORUTILITIES_API CVeLFileHandleHelper
{
public:
    // With the default facade.
    CVeLFileHandleHelper();
    explicit CVeLFileHandleHelper(std::shared_ptr<IVeLWinAPIWrapper> api);
    CVeLFileHandleHelper(const CVeLFileHandleHelper& other);
    CVeLFileHandleHelper& operator=(const CVeLFileHandleHelper& other);
    virtual ~CVeLFileHandleHelper();

    // Appends one entry per process that holds file open; true also when there is none. An empty path, a
    // missing facade and a session that can't answer fail (traced at ERR). The session is always ended; a
    // failure to end it is traced but leaves the answer as it is.
    bool GetFileLockingProcesses(const boost::filesystem::path& file,
                                 std::list<VeLFileHandleInfo>& processes);

private:
    std::shared_ptr<CVeLFileHandleHelperImpl> m_impl;
};
