// Hexadecimal text of bytes, as settings files, enciphered passwords and
// digests hold it: two digits a byte, first byte first.
#pragma once

#include <cstddef>
#include <string>

#include "platform/WinTypes.h"

namespace hextext {

// "%02X" (upper case) or "%02x" (lower case) for every byte.
std::wstring Encode(const BYTE *bytes, std::size_t size, bool upperCase);

// Upper-case digits and a terminator into a caller's buffer of `outSize`
// characters. False, leaving the buffer alone, unless `outSize` is greater
// than 2 * size.
bool EncodeInto(const BYTE *bytes, std::size_t size, wchar_t *out, std::size_t outSize);

// A byte from two digits. A digit is read by one comparison: above "9" it
// counts as its code minus 55, any other as its code minus 48. Only 0-9 and
// A-F come out right; lower-case letters and other characters are not
// refused, they give wrong bytes. The result is kept to eight bits.
BYTE DecodePair(wchar_t high, wchar_t low);

}  // namespace hextext
