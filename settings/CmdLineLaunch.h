// The launch behind LaunchCmdLineBlocking, with the module path as a
// parameter so that a test can place a stand-in runner in a folder of its
// own.
#pragma once

namespace jobfile {

// Starts CmdLine.exe from the folder of `moduleFile` with `arguments` as
// they stand, that folder as the working folder, and waits for it to end.
// False when `moduleFile` names no folder or the program did not start.
bool RunCmdLineBeside(const wchar_t *moduleFile, const wchar_t *arguments);

}  // namespace jobfile
