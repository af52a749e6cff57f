// CVeLFilesystemError: the outcome of a filesystem operation on one path (whether it stopped at a link,
// the system error code or 0, and the path at which it failed). Plain value; no shared state.
#pragma once

#include "korutilities_export.h"
#include "velwin32.h"

#include <boost/filesystem/path.hpp>

class KORUTILITIES_API CVeLFilesystemError
{
public:
    CVeLFilesystemError();
    explicit CVeLFilesystemError(bool linkDetected);
    explicit CVeLFilesystemError(const boost::filesystem::path& errorPath);
    CVeLFilesystemError(const boost::filesystem::path& errorPath, LONG operationResult);
    CVeLFilesystemError(const CVeLFilesystemError& other);
    CVeLFilesystemError& operator=(const CVeLFilesystemError& other);
    virtual ~CVeLFilesystemError();

    boost::filesystem::path GetErrorPath() const;
    LONG GetOperationResult() const;
    bool isLinkDetected() const;

private:
    bool m_linkDetected;
    LONG m_operationResult;
    boost::filesystem::path m_errorPath;
};
