// Keys and text values of HKEY_CLASSES_ROOT through CRegistry, for the
// association code. Failures are not reported: callers of these go on
// whatever the registry answers.
#pragma once

#include <string>

#include "CRegistry.h"

namespace shell {

// CRegistry's number of HKEY_CLASSES_ROOT.
inline constexpr DWORD kClassesRoot = 2;

// Points `key` at `path` below HKEY_CLASSES_ROOT, making the key when asked.
void UseClassesKey(CRegistry &key, const std::wstring &path, bool create);
// Makes the key and writes one text value (null name: the default value)
// through a registry object of its own.
void WriteClassesText(const std::wstring &keyPath, const wchar_t *name, const std::wstring &text);
// A text value of up to 1,023 characters; false when it cannot be read.
bool ReadText(CRegistry &key, const wchar_t *name, std::wstring &text);

}  // namespace shell
