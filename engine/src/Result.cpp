#include "Result.h"

#include <cerrno>

#include "platform/WinError.h"

namespace engine {

Result FromErrno(int error) {
    // The engine reports an existing file as "file exists" (80), where the
    // platform's general mapping says "already exists" (183).
    if (error == EEXIST) return static_cast<Result>(ERROR_FILE_EXISTS);
    if (error == 0) return kEngineInternalError;
    return static_cast<Result>(platform::WinErrorFromErrno(error));
}

Result LastErrno() { return FromErrno(errno); }

}  // namespace engine
