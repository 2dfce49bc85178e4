// Texts of the dialogs, from the localized resource library, read into a
// buffer of the caller (the string loads of CAppUtils share one static
// buffer, and dialogs run on worker threads too).
#pragma once

#include <string>

#include "platform/WinTypes.h"

// String `id`, cut to `maxChars` - 1 characters; empty when there is none.
std::wstring DialogText(UINT id, int maxChars = 1024);
