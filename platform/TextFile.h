// The one text-file helper: C runtime files with the Windows text modes.
//
// _wfopen opens "r", "w", "a" with an optional "+", and "t" (text, the
// default) or "b" (binary), optionally followed by ", ccs=UNICODE",
// ", ccs=UTF-16LE" or ", ccs=UTF-8". A binary mode gives a plain FILE*.
// A text mode gives a FILE* that carries the file's encoding:
//  - ccs=UNICODE / UTF-16LE: UTF-16LE; ccs=UTF-8: UTF-8; no ccs: the
//    system code page, which is UTF-8 here.
//  - Writing: a write-capable ccs mode that finds the file empty (new,
//    truncated or of size 0) writes the byte order mark first (FF FE, or
//    EF BB BF for UTF-8); an append to a non-empty file writes none and keeps
//    the encoding of the mark it finds there. Every "\n" goes out as CR LF.
//  - Reading: in a ccs mode FF FE means UTF-16LE, EF BB BF UTF-8, and a file
//    without a mark is read in the ccs encoding. CR LF comes back as "\n".
//    Without ccs no mark is looked for.
// Underneath, such a FILE* carries UTF-8 text with "\n" line ends; the
// conversion to the file's form happens below stdio. TextFilePuts,
// TextFileGets and TextFilePrintf are the wide calls for it (the runtime's
// fputws, fgetws and fwprintf); narrow stdio calls see the UTF-8 form.
// fclose closes any of these files. Text opened for reading is decoded
// whole at open; ftell and fseek then count positions in the UTF-8 form.
// Failure: null, with the last error set.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>
#include <string_view>

#include "platform/WinTypes.h"

FILE *_wfopen(const wchar_t *path, const wchar_t *mode);

// fputws: writes the text; >= 0 on success, -1 (WEOF) on failure. On a
// plain FILE* (binary modes, stdout) the text goes out as UTF-8.
int TextFilePuts(const wchar_t *text, FILE *file);

// fgetws: reads at most count - 1 characters, up to and including a "\n",
// and terminates the buffer. Null at end of file when nothing was read, and
// for null arguments or a count below 1. A character above U+FFFF is one
// wchar_t here, and counts as one.
wchar_t *TextFileGets(wchar_t *buffer, int count, FILE *file);

// fwprintf with a Windows format (see WinFormat.h). Returns the characters
// written, or -1.
int TextFilePrintf(FILE *file, const wchar_t *format, ...);
int TextFileVPrintf(FILE *file, const wchar_t *format, va_list args);

namespace platform {

// The whole file decoded as "rt, ccs=UNICODE" (or another reading text
// mode) reads it, CR LF as "\n". False (last error set) when it cannot be
// opened or read.
bool ReadTextFile(const std::wstring &path, std::wstring &text,
                  const wchar_t *mode = L"rt, ccs=UNICODE");

// Writes the text as "wt, ccs=UNICODE" or, with append, "at, ccs=UNICODE".
bool WriteTextFile(const std::wstring &path, std::wstring_view text, bool append);

}  // namespace platform
