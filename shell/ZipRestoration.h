// Rebuilds the system's own registration of ".zip" (the compressed folder)
// when the product gives the extension back and has nothing saved to put
// there: without it, the machine would be left with no handler for zip
// files at all.
#pragma once

#include "platform/WinTypes.h"

// `version` is the system version taken as 16 bits; from 0x600 on the
// registration has the later system's extra values, and the user's own
// choice of handler is removed so that it cannot hide the restored one.
void RestoreZipRegistration(WORD version);
