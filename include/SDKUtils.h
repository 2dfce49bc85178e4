// The engine's results as text and as an error box, and the probe whether
// an archive is encrypted.
#pragma once

#include "VarnickEngine.h"

// The text of an engine result: a resource text for 0 and the engine's own
// codes (with a hint about recovery for damaged data), the system's text
// "(code) - text" for a Windows code. A static string, overwritten by the
// next call.
const wchar_t *TranslateEngineError(EngineResult code);

// An error box naming the archive and the text of `code`; nothing at all
// when `silent`.
void EngineErrorDialog(const wchar_t *archiveName, EngineResult code, bool silent);

// Whether the archive at `path` needs a password: its root item's
// "encrypted" property, or an open that asks for a password. A missing file
// gives 0 and leaves `encrypted` as it was. Engine failures are logged and
// returned.
EngineResult CheckForEncrypted(OpaqueEngineObject *engine, const wchar_t *path, bool *encrypted);
