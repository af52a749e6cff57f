// The thread's last-error value and the errno mapping table.
// The contract, and where Linux differs from Windows, are in w32p_base.h.
#include "w32p_base.h"

#include <cerrno>

namespace
{
thread_local DWORD t_lastError = ERROR_SUCCESS;
}

DWORD GetLastError()
{
    return t_lastError;
}

void SetLastError(DWORD error)
{
    t_lastError = error;
}

DWORD W32pErrorFromErrno(int error)
{
    switch (error)
    {
    case 0:
        return ERROR_SUCCESS;
    case ENOENT:
        return ERROR_FILE_NOT_FOUND;
    case ENOTDIR:
        return ERROR_PATH_NOT_FOUND;
    case EMFILE:
    case ENFILE:
        return ERROR_TOO_MANY_OPEN_FILES;
    case EACCES:
    case EPERM:
    case EISDIR:
        return ERROR_ACCESS_DENIED;
    case EROFS:
        return ERROR_WRITE_PROTECT;
    case EBADF:
        return ERROR_INVALID_HANDLE;
    case ENOMEM:
        return ERROR_NOT_ENOUGH_MEMORY;
    case EEXIST:
        return ERROR_ALREADY_EXISTS;
    case EINVAL:
        return ERROR_INVALID_PARAMETER;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
        return ERROR_DISK_FULL;
    case ENOSYS:
        return ERROR_CALL_NOT_IMPLEMENTED;
    case ENAMETOOLONG:
        return ERROR_FILENAME_EXCED_RANGE;
    case ENOTEMPTY:
        return ERROR_DIR_NOT_EMPTY;
    case EBUSY:
        return ERROR_BUSY;
    case EAGAIN:
        return ERROR_LOCK_VIOLATION;
    case EXDEV:
        return ERROR_NOT_SAME_DEVICE;
    case EPIPE:
        return ERROR_BROKEN_PIPE;
    case ETIMEDOUT:
        return ERROR_TIMEOUT;
    case ELOOP:
        return ERROR_CANT_RESOLVE_FILENAME;
    case EFAULT:
        return ERROR_NOACCESS;
    case ENOTSUP:
        return ERROR_NOT_SUPPORTED;
    case ECHILD:
        return ERROR_WAIT_NO_CHILDREN;
    case ESRCH:
        return ERROR_INVALID_PARAMETER;
    case EIO:
        return ERROR_IO_DEVICE;
    case ENXIO:
    case ENODEV:
        return ERROR_NOT_READY;
    case EILSEQ:
        return ERROR_NO_UNICODE_TRANSLATION;
    default:
        return ERROR_INVALID_FUNCTION;
    }
}

void W32pSetLastErrorFromErrno()
{
    SetLastError(W32pErrorFromErrno(errno));
}
