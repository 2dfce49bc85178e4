// Wide text at the byte boundary, and case folding.
//
// Inside the library all text is wchar_t (UTF-32 here). Text that leaves
// towards the system is UTF-8, the "system code page" on POSIX; text that
// goes to disk or the wire as 16-bit characters is UTF-16LE. Invalid input
// never fails a conversion: an unpaired surrogate or a bad byte becomes
// U+FFFD, so a damaged name still shows and round-trips as far as it can.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/WinTypes.h"

// Plain C layer of the library: narrow (UTF-8) and wide conversion into a
// caller's buffer of `size` units. The result is always terminated when size
// is above 0 and is cut at a character boundary if it does not fit. Returns
// the units written without the terminator, or 0 for a null source.
extern "C" int WCToMB(const wchar_t *source, char *target, int size);
extern "C" int MBToWC(const char *source, wchar_t *target, int size);

namespace platform {

std::string ToUtf8(std::wstring_view text);
std::wstring FromUtf8(std::string_view text);

// UTF-16LE as bytes, as it lies in files, registry data and records.
std::vector<BYTE> ToUtf16Bytes(std::wstring_view text);
std::wstring FromUtf16Bytes(const BYTE *bytes, std::size_t count);

// UTF-16 code units, for fixed 16-bit record fields.
std::u16string ToUtf16(std::wstring_view text);
std::wstring FromUtf16(std::u16string_view text);

// Simple per-character folding, the same whatever the process locale.
wchar_t FoldLower(wchar_t c);
wchar_t FoldUpper(wchar_t c);
std::wstring ToLower(std::wstring_view text);
std::wstring ToUpper(std::wstring_view text);

// Case-insensitive comparison of folded characters; <0, 0, >0 like wcscmp.
int CompareNoCase(std::wstring_view a, std::wstring_view b);
bool EqualsNoCase(std::wstring_view a, std::wstring_view b);
bool EndsWithNoCase(std::wstring_view text, std::wstring_view suffix);

}  // namespace platform

// The Windows names the library calls. Null arguments compare as empty text.
int _wcsicmp(const wchar_t *a, const wchar_t *b);
int _wcsnicmp(const wchar_t *a, const wchar_t *b, std::size_t count);
int StrCmpIW(const wchar_t *a, const wchar_t *b);
int StrCmpNIW(const wchar_t *a, const wchar_t *b, int count);
// Folds in place and returns the text, like CharLowerW on a string pointer.
wchar_t *CharLowerW(wchar_t *text);
const wchar_t *StrStrIW(const wchar_t *text, const wchar_t *search);

// Bounded copies with the Windows runtime's rules: the target is always
// terminated; a source that does not fit leaves an empty target and returns
// ERANGE (wcscpy_s) or is cut (wcsncpy_s with _TRUNCATE).
inline constexpr std::size_t _TRUNCATE = static_cast<std::size_t>(-1);
inline constexpr int STRUNCATE = 80;
int wcscpy_s(wchar_t *target, std::size_t size, const wchar_t *source);
int wcsncpy_s(wchar_t *target, std::size_t size, const wchar_t *source, std::size_t count);
int wcscat_s(wchar_t *target, std::size_t size, const wchar_t *source);
