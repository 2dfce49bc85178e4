// What a result code of the engine means, in words, for the program's
// error messages.
#pragma once

#include <string>

#include "VarnickEngine.h"

namespace varnickengine {

// "17510 (the file is of no kind the engine knows)"; a Windows code handed
// through reads with the system's text for it.
std::wstring DescribeResult(EngineResult result);

}  // namespace varnickengine
