#include "platform/WinError.h"

#include <cerrno>

namespace {
thread_local DWORD lastError = 0;
}  // namespace

DWORD GetLastError() { return lastError; }

void SetLastError(DWORD code) { lastError = code; }

namespace platform {

DWORD WinErrorFromErrno(int error) {
    switch (error) {
        case 0:
            return ERROR_SUCCESS;
        case ENOENT:
            return ERROR_FILE_NOT_FOUND;
        case ENOTDIR:
            return ERROR_PATH_NOT_FOUND;
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
        case EMFILE:
        case ENFILE:
            return ERROR_TOO_MANY_OPEN_FILES;
        case EEXIST:
            return ERROR_ALREADY_EXISTS;
        case EINVAL:
            return ERROR_INVALID_PARAMETER;
        case ENOSPC:
            return ERROR_DISK_FULL;
        case ENAMETOOLONG:
            return ERROR_FILENAME_EXCED_RANGE;
        case ENOTEMPTY:
            return ERROR_DIR_NOT_EMPTY;
        case EBUSY:
        case ETXTBSY:
            return ERROR_SHARING_VIOLATION;
        case EPIPE:
            return ERROR_BROKEN_PIPE;
        case ETIMEDOUT:
            return ERROR_TIMEOUT;
        case ECANCELED:
            return ERROR_OPERATION_ABORTED;
        case ENOSYS:
        case ENOTSUP:
            return ERROR_NOT_SUPPORTED;
        case EXDEV:
            return 17;  // ERROR_NOT_SAME_DEVICE
        default:
            return ERROR_INVALID_FUNCTION;
    }
}

DWORD SetLastErrorFromErrno() {
    DWORD code = WinErrorFromErrno(errno);
    SetLastError(code);
    return code;
}

std::wstring SystemMessageText(DWORD code) {
    switch (code) {
        case ERROR_SUCCESS:
            return L"The operation completed successfully.";
        case ERROR_INVALID_FUNCTION:
            return L"Incorrect function.";
        case ERROR_FILE_NOT_FOUND:
            return L"The system cannot find the file specified.";
        case ERROR_PATH_NOT_FOUND:
            return L"The system cannot find the path specified.";
        case ERROR_TOO_MANY_OPEN_FILES:
            return L"The system cannot open the file.";
        case ERROR_ACCESS_DENIED:
            return L"Access is denied.";
        case ERROR_INVALID_HANDLE:
            return L"The handle is invalid.";
        case ERROR_NOT_ENOUGH_MEMORY:
            return L"Not enough memory resources are available to process this command.";
        case ERROR_WRITE_PROTECT:
            return L"The media is write protected.";
        case ERROR_SHARING_VIOLATION:
            return L"The process cannot access the file because it is being used by another "
                   L"process.";
        case ERROR_NOT_SUPPORTED:
            return L"The request is not supported.";
        case ERROR_FILE_EXISTS:
            return L"The file exists.";
        case ERROR_INVALID_PARAMETER:
            return L"The parameter is incorrect.";
        case ERROR_DISK_FULL:
            return L"There is not enough space on the disk.";
        case ERROR_INSUFFICIENT_BUFFER:
            return L"The data area passed to a system call is too small.";
        case ERROR_INVALID_NAME:
            return L"The filename, directory name, or volume label syntax is incorrect.";
        case ERROR_DIR_NOT_EMPTY:
            return L"The directory is not empty.";
        case ERROR_ALREADY_EXISTS:
            return L"Cannot create a file when that file already exists.";
        case ERROR_FILENAME_EXCED_RANGE:
            return L"The filename or extension is too long.";
        case ERROR_MORE_DATA:
            return L"More data is available.";
        case WAIT_TIMEOUT:
            return L"The wait operation timed out.";
        case ERROR_NO_MORE_ITEMS:
            return L"No more data is available.";
        case ERROR_OPERATION_ABORTED:
            return L"The I/O operation has been aborted.";
        case ERROR_CANCELLED:
            return L"The operation was canceled by the user.";
        default:
            return L"Unknown error";
    }
}

}  // namespace platform
