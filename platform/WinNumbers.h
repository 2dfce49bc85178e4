// The Windows runtime's number conversions between integers and wide text.
//
// Reading (_wtoi, _wtoi64): blanks first (space, tab, and "\n\v\f\r"), then
// an optional "+" or "-", then decimal digits up to the first character that
// is not one ("12ab" is 12, "ab" is 0). A number out of range saturates at
// the type's limit (INT_MAX / INT_MIN, _I64_MAX / _I64_MIN) and sets errno to
// ERANGE, as the runtime does. A null text gives 0 with errno EINVAL. Only
// the ASCII digits count.
//
// Writing (_ui64tow): radix 2 to 36, lower-case letters above 9. The
// caller's buffer must hold the text and its terminator (65 characters). An
// invalid radix leaves an empty text and sets errno to EINVAL. Returns the
// buffer.
#pragma once

#include "platform/WinTypes.h"

int _wtoi(const wchar_t *text);
__int64 _wtoi64(const wchar_t *text);

wchar_t *_ui64tow(ULONGLONG value, wchar_t *buffer, int radix);
