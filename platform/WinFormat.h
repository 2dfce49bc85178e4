// The one format helper. Every format string of the library and its resource
// texts is written for the Windows wide printf family, where "%s" is a wide
// string, "%S" a narrow one, "%c" a wide character and "%I64u" a 64-bit
// number. POSIX reads those differently, so formats are interpreted here and
// never handed to vswprintf as they stand.
//
// Supported: flags "-+ #0", width and precision (digits or "*"), the length
// prefixes h, l, ll, w, I, I32, I64, and the conversions d i u o x X c C s S
// e E f g G a A p %. Windows "long" is 32 bits, so "%ld" takes a LONG. Narrow
// string arguments are UTF-8. A null string argument prints "(null)". "%n"
// is refused and prints nothing.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <string>

// Formats into a std::wstring; never fails, never truncates.
std::wstring FormatW(const wchar_t *format, ...);
std::wstring VFormatW(const wchar_t *format, va_list args);

// The runtime's bounded forms. Each returns the characters written without
// the terminator, or -1 when the text did not fit.
//  swprintf_s: on overflow the target becomes empty (the runtime's invalid
//    parameter path, minus the crash).
//  _snwprintf_s / _vsnwprintf_s with count _TRUNCATE: the text is cut to fit.
//    With another count, at most count characters are written.
//  wsprintfW: the Windows limit of 1024 characters, cut to fit.
int swprintf_s(wchar_t *buffer, std::size_t size, const wchar_t *format, ...);
int vswprintf_s(wchar_t *buffer, std::size_t size, const wchar_t *format, va_list args);
int _snwprintf_s(wchar_t *buffer, std::size_t size, std::size_t count, const wchar_t *format, ...);
int _vsnwprintf_s(wchar_t *buffer, std::size_t size, std::size_t count, const wchar_t *format,
                  va_list args);
int wsprintfW(wchar_t *buffer, const wchar_t *format, ...);
int wvsprintfW(wchar_t *buffer, const wchar_t *format, va_list args);
