// Debugger presence and the breakpoint call.
#pragma once

#include "platform/WinTypes.h"

// TRUE when a tracer is attached to this process (a debugger, or strace).
BOOL IsDebuggerPresent();
// Stops in the attached debugger (SIGTRAP), which may let the process go
// on. Without a debugger the breakpoint has no one to catch it and the
// process ends, as an unhandled breakpoint does.
void DebugBreak();
