// SetFilePointerEx and GetFileSizeEx over the descriptor of a file handle. See w32p_fileposition.h.
#include "w32p_fileposition.h"
#include "w32p_file.h"

#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

BOOL SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, PLARGE_INTEGER newPosition, DWORD moveMethod)
{
    const int fd = W32pFileDescriptorOfHandle(file);
    if (fd < 0)
        return FALSE;
    int whence;
    switch (moveMethod)
    {
    case FILE_BEGIN:
        whence = SEEK_SET;
        break;
    case FILE_CURRENT:
        whence = SEEK_CUR;
        break;
    case FILE_END:
        whence = SEEK_END;
        break;
    default:
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const off_t result = lseek(fd, static_cast<off_t>(distance.QuadPart), whence);
    if (result < 0)
    {
        // Linux says EINVAL for a resulting negative offset; Windows names it.
        SetLastError(errno == EINVAL ? ERROR_NEGATIVE_SEEK : W32pErrorFromErrno(errno));
        return FALSE;
    }
    if (newPosition != nullptr)
        newPosition->QuadPart = static_cast<LONGLONG>(result);
    return TRUE;
}

BOOL GetFileSizeEx(HANDLE file, PLARGE_INTEGER size)
{
    const int fd = W32pFileDescriptorOfHandle(file);
    if (fd < 0)
        return FALSE;
    if (size == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    struct stat st;
    if (fstat(fd, &st) != 0)
    {
        W32pSetLastErrorFromErrno();
        return FALSE;
    }
    size->QuadPart = static_cast<LONGLONG>(st.st_size);
    return TRUE;
}
