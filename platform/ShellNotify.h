// The shell's change notice: tells the desktop that associations or a file's
// image changed, so it can refresh what it shows.
#pragma once

#include "platform/WinTypes.h"

// Events (the ones the library sends).
inline constexpr LONG SHCNE_UPDATEIMAGE = 0x00008000;
inline constexpr LONG SHCNE_ASSOCCHANGED = 0x08000000;
// How the two items are given.
inline constexpr UINT SHCNF_IDLIST = 0x0000;
inline constexpr UINT SHCNF_DWORD = 0x0003;

// Hands the notice to the listener, if one is installed; nothing else
// happens on POSIX (platform/README.md, "Shell change notices").
void SHChangeNotify(LONG eventId, UINT flags, const void *item1, const void *item2);

namespace platform {

// Receives every notice; a graphical host (or a test) installs one. Null
// removes it. The previous listener is returned.
using ShellChangeListener = void (*)(LONG eventId, UINT flags, const void *item1,
                                     const void *item2);
ShellChangeListener SetShellChangeListener(ShellChangeListener listener);

}  // namespace platform
