// A registry key as text, the form the support report and `varnick reg
// export` print:
//
//   HKEY_CURRENT_USER\Software\Orvane Labs\Varnick
//     (Default),REG_SZ,"(value not set)"
//     Name,REG_SZ,"text"
//     Count,REG_DWORD,7
//     Data,REG_BINARY,01,ff
//     HKEY_CURRENT_USER\Software\Orvane Labs\Varnick\Options
//       ...
//
// Each level indents by two blanks; values stand one level deeper than
// their key. REG_EXPAND_SZ and REG_MULTI_SZ show their type only.
#pragma once

#include <cstdio>

#include "platform/Registry.h"

// Writes the key `path` below `hive` and everything below it into `file`
// (TextFilePrintf: a UTF-16 log or a plain stream such as stdout), indented
// `depth` levels. The key is opened with KEY_READ (0x20019); when that
// fails nothing is written and its status is returned. An empty path dumps
// the hive's root, whose line is the hive's name alone. Values with more
// than 1,024 bytes of data show the first 1,024.
LONG DumpRegistryKey(FILE *file, HKEY hive, const wchar_t *path, int depth = 0);

// "HKEY_CLASSES_ROOT", "HKEY_CURRENT_USER", "HKEY_LOCAL_MACHINE",
// "HKEY_USERS"; null for any other handle.
const wchar_t *RegistryHiveName(HKEY hive);
