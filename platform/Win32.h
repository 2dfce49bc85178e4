// The whole platform seam: library code includes this and reads like the
// Windows code it describes. Everything POSIX-specific stays below it.
#pragma once

#include "platform/KernelObject.h"
#include "platform/ProfileStrings.h"
#include "platform/Registry.h"
#include "platform/ShellFileOperation.h"
#include "platform/SpecialFolders.h"
#include "platform/SystemInfo.h"
#include "platform/TextFile.h"
#include "platform/UiHost.h"
#include "platform/WideText.h"
#include "platform/WinError.h"
#include "platform/WinFile.h"
#include "platform/WinFormat.h"
#include "platform/WinNumbers.h"
#include "platform/WinModule.h"
#include "platform/WinPath.h"
#include "platform/WinProcess.h"
#include "platform/WinThread.h"
#include "platform/WinTime.h"
#include "platform/WinTypes.h"
#include "platform/WinUser.h"
