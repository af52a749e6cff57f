// The thread's last-error value and the errno mapping table.
// The contract, and where Linux differs from Windows, are in w32p_base.h.
#include "w32p_base.h"

#include <cerrno>

namespace
{

thread_local DWORD t_lastError = ERROR_SUCCESS;

// Each errno value with the Win32 error Windows reports for the same condition.
const struct
{
    int error;
    DWORD win32;
} kErrnoToWin32[] = {{0, ERROR_SUCCESS},
                     {ENOENT, ERROR_FILE_NOT_FOUND},
                     {ENOTDIR, ERROR_PATH_NOT_FOUND},
                     {EMFILE, ERROR_TOO_MANY_OPEN_FILES},
                     {ENFILE, ERROR_TOO_MANY_OPEN_FILES},
                     {EACCES, ERROR_ACCESS_DENIED},
                     {EPERM, ERROR_ACCESS_DENIED},
                     {EISDIR, ERROR_ACCESS_DENIED},
                     {EROFS, ERROR_WRITE_PROTECT},
                     {EBADF, ERROR_INVALID_HANDLE},
                     {ENOMEM, ERROR_NOT_ENOUGH_MEMORY},
                     {EEXIST, ERROR_ALREADY_EXISTS},
                     {EINVAL, ERROR_INVALID_PARAMETER},
                     {ENOSPC, ERROR_DISK_FULL},
                     {EDQUOT, ERROR_DISK_FULL},
                     {EFBIG, ERROR_DISK_FULL},
                     {ENOSYS, ERROR_CALL_NOT_IMPLEMENTED},
                     {ENAMETOOLONG, ERROR_FILENAME_EXCED_RANGE},
                     {ENOTEMPTY, ERROR_DIR_NOT_EMPTY},
                     {EBUSY, ERROR_BUSY},
                     {EAGAIN, ERROR_LOCK_VIOLATION},
                     {EXDEV, ERROR_NOT_SAME_DEVICE},
                     {EPIPE, ERROR_BROKEN_PIPE},
                     {ETIMEDOUT, ERROR_TIMEOUT},
                     {ELOOP, ERROR_CANT_RESOLVE_FILENAME},
                     {EFAULT, ERROR_NOACCESS},
                     {ENOTSUP, ERROR_NOT_SUPPORTED},
                     {ECHILD, ERROR_WAIT_NO_CHILDREN},
                     {ESRCH, ERROR_INVALID_PARAMETER},
                     {EIO, ERROR_IO_DEVICE},
                     {ENXIO, ERROR_NOT_READY},
                     {ENODEV, ERROR_NOT_READY},
                     {EILSEQ, ERROR_NO_UNICODE_TRANSLATION}};

} // namespace

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
    for (const auto& entry : kErrnoToWin32)
        if (entry.error == error)
            return entry.win32;
    return ERROR_INVALID_FUNCTION;
}

void W32pSetLastErrorFromErrno()
{
    SetLastError(W32pErrorFromErrno(errno));
}
