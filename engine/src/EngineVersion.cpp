#include "VarnickEngine.h"

extern "C" const char *VarnickEngineVersionText(void) { return "1.0.0.1"; }
