// Modules: the running program, this library, loaded libraries and the
// texts of resource libraries.
//
// An HMODULE / HINSTANCE is a dlopen handle. The product's Windows library
// names are mapped to the shared objects in the program folder (the folder
// of this library): "Resources.dll" to libvarnick-resources.so,
// "NonLocalizedResources.dll" to libvarnick-nlresources.so,
// "VarnickEngine.dll" to libVarnickEngine.so; any other "Name.dll" is
// looked for as libName.so there as well.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "platform/WinTypes.h"

// The file path of a module: null is the running program, LibraryModule()
// this library. Copies at most size-1 characters and a terminator; when the
// path is cut, returns size and sets ERROR_INSUFFICIENT_BUFFER. Otherwise
// returns the length without the terminator. 0 on failure.
DWORD GetModuleFileNameW(HMODULE module, LPWSTR fileName, DWORD size);
// Null gives the running program's handle; a name gives the handle of an
// already loaded library (mapped as above), or null.
HMODULE GetModuleHandleW(LPCWSTR moduleName);

// Loads a library: a path with a folder as it stands (the name mapped), a
// bare name from the program folder first, then the system's search.
// Null with ERROR_MOD_NOT_FOUND when it cannot be found or loaded.
HMODULE LoadLibraryW(LPCWSTR fileName);
FARPROC GetProcAddress(HMODULE module, LPCSTR procName);
BOOL FreeLibrary(HMODULE module);

// Copies text `id` of the resource library `instance` into buffer, cut to
// max-1 characters and terminated, and returns its length; an id the library
// lacks gives 0 and an empty buffer. The Windows mode with max 0 (a
// read-only pointer to the text) is not offered: it returns 0.
int LoadStringW(HINSTANCE instance, UINT id, LPWSTR buffer, int max);

namespace platform {

// This shared library itself, as a module handle.
HMODULE LibraryModule();
// The folder of this library, where its programs and resource libraries
// lie; no trailing separator.
std::wstring ProgramFolder();
// One entry of a table from the product's Windows file names to their
// POSIX names; the program and library name maps are such tables.
struct NameMapping {
    const wchar_t *windowsName;
    const wchar_t *posixName;
};
// The POSIX name of `windowsName` (compared without regard to case), or null.
const wchar_t *MappedName(std::span<const NameMapping> table, std::wstring_view windowsName);

// The text of string `id` in `instance`, or null when it has none. The
// pointer stays valid while the library is loaded.
const wchar_t *FindResourceString(HINSTANCE instance, UINT id);

}  // namespace platform
