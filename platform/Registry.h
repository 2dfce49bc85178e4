// The registry: hives of named keys with typed values, kept in one SQLite
// database a hive (platform/README.md, "Registry").
//
// The calls return Windows status codes and leave the last error alone, as
// the registry calls do. Key and value names compare without regard to case
// and keep the case they were made with.
//
// Text data. The store keeps REG_SZ, REG_EXPAND_SZ and REG_MULTI_SZ data as
// UTF-16LE bytes, so sizes are those Windows reports. The W calls move such
// data as wchar_t: the caller's buffer holds wchar_t, and every size of such
// data counts two bytes a UTF-16 unit (one character outside the astral
// planes). A buffer of N wchar_t is thus given as N * 2 bytes, never as
// sizeof. Data of every other type is moved as the bytes it is.
// platform::RegSetValueBytes and platform::RegQueryValueBytes move the stored
// bytes of any type unchanged.
#pragma once

#include "platform/WinFile.h"
#include "platform/WinThread.h"
#include "platform/WinTypes.h"

using LSTATUS = LONG;
using REGSAM = DWORD;
using ACCESS_MASK = DWORD;
using PHKEY = HKEY *;

// The predefined hive handles, with their Windows values.
#define VARNICK_PREDEFINED_HKEY(value) \
    (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(value))))
#define HKEY_CLASSES_ROOT VARNICK_PREDEFINED_HKEY(0x80000000u)
#define HKEY_CURRENT_USER VARNICK_PREDEFINED_HKEY(0x80000001u)
#define HKEY_LOCAL_MACHINE VARNICK_PREDEFINED_HKEY(0x80000002u)
#define HKEY_USERS VARNICK_PREDEFINED_HKEY(0x80000003u)

// Value types.
inline constexpr DWORD REG_NONE = 0;
inline constexpr DWORD REG_SZ = 1;
inline constexpr DWORD REG_EXPAND_SZ = 2;
inline constexpr DWORD REG_BINARY = 3;
inline constexpr DWORD REG_DWORD = 4;
inline constexpr DWORD REG_DWORD_LITTLE_ENDIAN = 4;
inline constexpr DWORD REG_DWORD_BIG_ENDIAN = 5;
inline constexpr DWORD REG_LINK = 6;
inline constexpr DWORD REG_MULTI_SZ = 7;
inline constexpr DWORD REG_RESOURCE_LIST = 8;
inline constexpr DWORD REG_FULL_RESOURCE_DESCRIPTOR = 9;
inline constexpr DWORD REG_RESOURCE_REQUIREMENTS_LIST = 10;
inline constexpr DWORD REG_QWORD = 11;
inline constexpr DWORD REG_QWORD_LITTLE_ENDIAN = 11;

// Access rights of a key handle (the generic rights and SYNCHRONIZE come
// with the file and thread calls). A handle allows what it was opened for.
inline constexpr REGSAM DELETE = 0x00010000;
inline constexpr REGSAM READ_CONTROL = 0x00020000;
inline constexpr REGSAM WRITE_DAC = 0x00040000;
inline constexpr REGSAM WRITE_OWNER = 0x00080000;
inline constexpr REGSAM MAXIMUM_ALLOWED = 0x02000000;
inline constexpr REGSAM KEY_QUERY_VALUE = 0x0001;
inline constexpr REGSAM KEY_SET_VALUE = 0x0002;
inline constexpr REGSAM KEY_CREATE_SUB_KEY = 0x0004;
inline constexpr REGSAM KEY_ENUMERATE_SUB_KEYS = 0x0008;
inline constexpr REGSAM KEY_NOTIFY = 0x0010;
inline constexpr REGSAM KEY_CREATE_LINK = 0x0020;
inline constexpr REGSAM KEY_WOW64_64KEY = 0x0100;
inline constexpr REGSAM KEY_WOW64_32KEY = 0x0200;
inline constexpr REGSAM KEY_READ = 0x00020019;
inline constexpr REGSAM KEY_WRITE = 0x00020006;
inline constexpr REGSAM KEY_EXECUTE = KEY_READ;
inline constexpr REGSAM KEY_ALL_ACCESS = 0x000F003F;

// Options and dispositions of RegCreateKeyExW.
inline constexpr DWORD REG_OPTION_RESERVED = 0x0000;
inline constexpr DWORD REG_OPTION_NON_VOLATILE = 0x0000;
inline constexpr DWORD REG_OPTION_VOLATILE = 0x0001;
inline constexpr DWORD REG_OPTION_CREATE_LINK = 0x0002;
inline constexpr DWORD REG_OPTION_BACKUP_RESTORE = 0x0004;
inline constexpr DWORD REG_OPTION_OPEN_LINK = 0x0008;
inline constexpr DWORD REG_CREATED_NEW_KEY = 1;
inline constexpr DWORD REG_OPENED_EXISTING_KEY = 2;

// Status codes of the registry beyond those in WinTypes.h.
inline constexpr DWORD ERROR_BADDB = 1009;
inline constexpr DWORD ERROR_REGISTRY_IO_FAILED = 1016;
inline constexpr DWORD ERROR_KEY_DELETED = 1018;

// Longest key name (one level) and value name, in characters.
inline constexpr DWORD kRegistryKeyNameMax = 255;
inline constexpr DWORD kRegistryValueNameMax = 16383;

// Security descriptors exist for the signatures that take them. The store
// has no security of its own: a key's access is that of its hive's
// database file, so a descriptor is accepted and changes nothing.
struct SECURITY_DESCRIPTOR {
    BYTE Revision;
    BYTE Sbz1;
    WORD Control;
    void *Owner;
    void *Group;
    void *Sacl;
    void *Dacl;
};
using PSECURITY_DESCRIPTOR = void *;
inline constexpr DWORD SECURITY_DESCRIPTOR_REVISION = 1;
inline constexpr WORD SE_DACL_PRESENT = 0x0004;
inline constexpr WORD SE_DACL_DEFAULTED = 0x0008;
BOOL InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor, DWORD revision);
BOOL SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR descriptor, BOOL present, void *dacl,
                               BOOL defaulted);

// Creates the key and any missing level on its way, or opens it. The class,
// the options and the security attributes are accepted and have no effect.
// A path with an empty level (a leading or doubled backslash) gives
// ERROR_BAD_PATHNAME; a trailing backslash is dropped.
LONG RegCreateKeyExW(HKEY key, LPCWSTR subKey, DWORD reserved, LPWSTR keyClass, DWORD options,
                     REGSAM access, LPSECURITY_ATTRIBUTES security, PHKEY result,
                     LPDWORD disposition);
// A null or empty subkey opens the key itself again.
LONG RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM access, PHKEY result);
LONG RegCloseKey(HKEY key);

// A null or empty name is the key's default value. With data null the size
// and type are reported; a buffer too small gives ERROR_MORE_DATA with the
// needed size in *size and nothing written. String data gets no terminator
// that the stored data lacks.
LONG RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data,
                      LPDWORD size);
LONG RegSetValueExW(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE *data,
                    DWORD size);
LONG RegDeleteValueW(HKEY key, LPCWSTR name);

// Deletes a key that has no subkeys (ERROR_ACCESS_DENIED if it has some);
// an empty subkey names the key itself. SHDeleteKeyW deletes the key with
// everything below it. A hive's root is never deleted.
LONG RegDeleteKeyW(HKEY key, LPCWSTR subKey);
LSTATUS SHDeleteKeyW(HKEY key, LPCWSTR subKey);

// Enumeration by index, ERROR_NO_MORE_ITEMS past the end. Values come in the
// order they were first made (a rewrite keeps its place); subkeys in the
// order of their upper-cased names. Name sizes are in characters: in, the
// buffer with its terminator; out, the name without it. A name that does
// not fit gives ERROR_MORE_DATA.
LONG RegEnumValueW(HKEY key, DWORD index, LPWSTR name, LPDWORD nameChars, LPDWORD reserved,
                   LPDWORD type, LPBYTE data, LPDWORD size);
LONG RegEnumKeyExW(HKEY key, DWORD index, LPWSTR name, LPDWORD nameChars, LPDWORD reserved,
                   LPWSTR keyClass, LPDWORD classChars, LPFILETIME lastWrite);
LONG RegEnumKeyW(HKEY key, DWORD index, LPWSTR name, DWORD nameChars);

namespace platform {

// RegSetValueExW / RegQueryValueExW with the data as the store keeps it:
// text types as UTF-16LE bytes, every size in real bytes.
LONG RegSetValueBytes(HKEY key, const wchar_t *name, DWORD type, const BYTE *data, DWORD size);
LONG RegQueryValueBytes(HKEY key, const wchar_t *name, DWORD *type, BYTE *data, DWORD *size);

// Closes every connection this process keeps to the hive databases; the
// next call opens them again. A process that forks without exec calls it
// first: a database connection must not cross a fork.
void CloseRegistryConnections();

// Whether data of this type is text (REG_SZ, REG_EXPAND_SZ, REG_MULTI_SZ).
bool IsRegistryTextType(DWORD type);

}  // namespace platform
