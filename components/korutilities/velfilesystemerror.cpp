#include "velfilesystemerror.h"

CVeLFilesystemError::CVeLFilesystemError() : m_linkDetected(false), m_operationResult(0) {}

CVeLFilesystemError::CVeLFilesystemError(bool linkDetected)
    : m_linkDetected(linkDetected), m_operationResult(0)
{
}

CVeLFilesystemError::CVeLFilesystemError(const boost::filesystem::path& errorPath)
    : m_linkDetected(false), m_operationResult(0), m_errorPath(errorPath)
{
}

CVeLFilesystemError::CVeLFilesystemError(const boost::filesystem::path& errorPath, LONG operationResult)
    : m_linkDetected(false), m_operationResult(operationResult), m_errorPath(errorPath)
{
}

CVeLFilesystemError::CVeLFilesystemError(const CVeLFilesystemError& other) = default;

CVeLFilesystemError& CVeLFilesystemError::operator=(const CVeLFilesystemError& other) = default;

CVeLFilesystemError::~CVeLFilesystemError() {}

boost::filesystem::path CVeLFilesystemError::GetErrorPath() const
{
    return m_errorPath;
}

LONG CVeLFilesystemError::GetOperationResult() const
{
    return m_operationResult;
}

bool CVeLFilesystemError::isLinkDetected() const
{
    return m_linkDetected;
}
