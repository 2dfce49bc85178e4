// Result codes inside the engine: the public table plus the mapping of
// system errors to the Windows codes the surface hands through.
#pragma once

#include <cstdint>

#include "VarnickEngine.h"

namespace engine {

using Result = EngineResult;

// The Windows code for an errno value: not found 2, path not found 3, access
// denied 5, sharing violation 32, file exists 80, disk full 112, ...
Result FromErrno(int error);
// FromErrno(errno), for a POSIX call that just failed.
Result LastErrno();

}  // namespace engine
