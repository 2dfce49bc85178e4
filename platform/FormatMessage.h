// FormatMessageW for system texts, and LocalFree for the buffers it
// allocates. Only messages from the system table are offered: the library
// asks for nothing else.
#pragma once

#include <cstdarg>

#include "platform/WinTypes.h"

using HLOCAL = HANDLE;

inline constexpr DWORD FORMAT_MESSAGE_ALLOCATE_BUFFER = 0x0100;
inline constexpr DWORD FORMAT_MESSAGE_IGNORE_INSERTS = 0x0200;
inline constexpr DWORD FORMAT_MESSAGE_FROM_STRING = 0x0400;
inline constexpr DWORD FORMAT_MESSAGE_FROM_HMODULE = 0x0800;
inline constexpr DWORD FORMAT_MESSAGE_FROM_SYSTEM = 0x1000;
inline constexpr DWORD FORMAT_MESSAGE_ARGUMENT_ARRAY = 0x2000;
inline constexpr DWORD FORMAT_MESSAGE_MAX_WIDTH_MASK = 0x00FF;

// The system's text for `messageId` (platform::SystemMessageText), without
// a line break at its end. With FORMAT_MESSAGE_ALLOCATE_BUFFER, `buffer` is
// really a `LPWSTR *` that receives a new buffer of at least `size`
// characters, to be freed with LocalFree; otherwise the text goes into
// `buffer` of `size` characters. Returns the characters written without the
// terminator, or 0 with the last error set: ERROR_INVALID_PARAMETER for a
// source other than the system or a null buffer, ERROR_INSUFFICIENT_BUFFER
// when the text does not fit. The language is ignored: the texts are
// English. System texts hold no inserts, so `arguments` is not read.
DWORD FormatMessageW(DWORD flags, LPCVOID source, DWORD messageId, DWORD languageId, LPWSTR buffer,
                     DWORD size, va_list *arguments);

// Frees a buffer that FormatMessageW allocated; null is allowed. Returns
// null on success, as Windows does.
HLOCAL LocalFree(HLOCAL memory);
