// The profile calls of win.ini, over an INI file "win.ini" in the user's
// configuration folder (CSIDL_APPDATA). It is written as UTF-16 text with a
// byte order mark; a file without a mark reads as UTF-8, the system code
// page, as Windows reads an unmarked profile in its code page.
//
// Windows rules: section and key names are compared without regard to case;
// blanks around names and values are dropped, and one pair of matching
// quotes around a value; lines beginning with ";" are comments. A missing
// file, section or key gives the default (trailing blanks cut from it).
#pragma once

#include "platform/WinTypes.h"

// Copies the value into `buffer`, cut to size - 1 characters, and returns
// the characters copied. A null section lists the section names and a null
// key the key names of the section, each terminated, with a second
// terminator at the end (cut to size - 2 characters when it does not fit).
// Special rule: section "Intl", key "sThousand" that win.ini lacks gives the
// thousands separator of the user's locale (LC_ALL, LC_NUMERIC or LANG of
// the environment), or the default when that locale has none.
DWORD GetProfileStringW(LPCWSTR section, LPCWSTR key, LPCWSTR defaultValue, LPWSTR buffer,
                        DWORD size);
// The value's leading decimal number (0 if it has none), or the default.
UINT GetProfileIntW(LPCWSTR section, LPCWSTR key, INT defaultValue);
// Sets the value; a null value removes the key, a null key the section.
// FALSE, with the last error set, when the file cannot be written.
BOOL WriteProfileStringW(LPCWSTR section, LPCWSTR key, LPCWSTR value);
