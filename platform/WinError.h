// The calling thread's last error, as GetLastError keeps it on Windows, and
// the mapping from POSIX errno values to Windows status codes.
#pragma once

#include <string>

#include "platform/WinTypes.h"

DWORD GetLastError();
void SetLastError(DWORD code);

namespace platform {

// The Windows code for an errno value (ENOENT gives 2, EACCES 5, ...).
DWORD WinErrorFromErrno(int error);
// Sets the last error from errno and returns it, for failing POSIX calls.
DWORD SetLastErrorFromErrno();
// The system's text for a Windows code, without a trailing line break; an
// unknown code gives "Unknown error".
std::wstring SystemMessageText(DWORD code);

}  // namespace platform
