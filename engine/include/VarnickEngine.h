// The compression engine's public surface. The calls arrive with the engine
// work; this header already names the library so hosts can find it.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// The engine's version as text, for example "1.0".
const char *VarnickEngineVersionText(void);

#ifdef __cplusplus
}
#endif
