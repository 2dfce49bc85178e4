#include "VarnickEngine.h"

extern "C" const char *VarnickEngineVersionText(void) { return "0.1"; }
