// Windows-shaped scalar types, handles, records and constants.
//
// The library is written against the Windows API; this header gives those
// names their POSIX meaning. Record layouts that go to disk or across a
// process boundary keep their published sizes (checked below).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cwchar>

using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using UINT = unsigned int;
using ULONG = std::uint32_t;
using LONG = std::int32_t;
using INT = int;
using BOOL = int;
using BOOLEAN = BYTE;
using WCHAR = wchar_t;
using CHAR = char;
using LPWSTR = wchar_t *;
using LPCWSTR = const wchar_t *;
using LPSTR = char *;
using LPCSTR = const char *;
using LPVOID = void *;
using LPCVOID = const void *;
using LPDWORD = DWORD *;
using LPBYTE = BYTE *;
using __int64 = std::int64_t;
using LONGLONG = std::int64_t;
using ULONGLONG = std::uint64_t;
using DWORD64 = std::uint64_t;
using UINT_PTR = std::uintptr_t;
using ULONG_PTR = std::uintptr_t;
using LONG_PTR = std::intptr_t;
using DWORD_PTR = ULONG_PTR;
using SIZE_T = std::size_t;
using WPARAM = UINT_PTR;
using LPARAM = LONG_PTR;
using LRESULT = LONG_PTR;
using HRESULT = std::int32_t;
using ATOM = WORD;
using COLORREF = DWORD;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

#ifndef MAX_PATH
#define MAX_PATH 260
#endif

// Opaque handle kinds. Each is a distinct pointer type so that passing the
// wrong kind fails to compile, as it does with STRICT on Windows.
#define VARNICK_DECLARE_HANDLE(name) \
    struct name##__;                 \
    using name = name##__ *
VARNICK_DECLARE_HANDLE(HWND);
VARNICK_DECLARE_HANDLE(HINSTANCE);
VARNICK_DECLARE_HANDLE(HKEY);
VARNICK_DECLARE_HANDLE(HDC);
VARNICK_DECLARE_HANDLE(HICON);
VARNICK_DECLARE_HANDLE(HMENU);
VARNICK_DECLARE_HANDLE(HFONT);
VARNICK_DECLARE_HANDLE(HBITMAP);
#undef VARNICK_DECLARE_HANDLE
using HMODULE = HINSTANCE;
using HCURSOR = HICON;
using HANDLE = void *;
using HGLOBAL = HANDLE;
using FARPROC = void (*)();

#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)))

inline constexpr DWORD INVALID_FILE_ATTRIBUTES = 0xFFFFFFFFu;
inline constexpr DWORD INFINITE = 0xFFFFFFFFu;

// Status codes (winerror.h) the library and its tests rely on.
inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD NO_ERROR = 0;
inline constexpr DWORD ERROR_INVALID_FUNCTION = 1;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
inline constexpr DWORD ERROR_TOO_MANY_OPEN_FILES = 4;
inline constexpr DWORD ERROR_ACCESS_DENIED = 5;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;
inline constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr DWORD ERROR_BAD_FORMAT = 11;
inline constexpr DWORD ERROR_OUTOFMEMORY = 14;
inline constexpr DWORD ERROR_NO_MORE_FILES = 18;
inline constexpr DWORD ERROR_WRITE_PROTECT = 19;
inline constexpr DWORD ERROR_NOT_READY = 21;
inline constexpr DWORD ERROR_SHARING_VIOLATION = 32;
inline constexpr DWORD ERROR_LOCK_VIOLATION = 33;
inline constexpr DWORD ERROR_HANDLE_EOF = 38;
inline constexpr DWORD ERROR_HANDLE_DISK_FULL = 39;
inline constexpr DWORD ERROR_NOT_SUPPORTED = 50;
inline constexpr DWORD ERROR_FILE_EXISTS = 80;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_BROKEN_PIPE = 109;
inline constexpr DWORD ERROR_DISK_FULL = 112;
inline constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr DWORD ERROR_INVALID_NAME = 123;
inline constexpr DWORD ERROR_MOD_NOT_FOUND = 126;
inline constexpr DWORD ERROR_PROC_NOT_FOUND = 127;
inline constexpr DWORD ERROR_DIR_NOT_EMPTY = 145;
inline constexpr DWORD ERROR_BAD_PATHNAME = 161;
inline constexpr DWORD ERROR_ALREADY_EXISTS = 183;
inline constexpr DWORD ERROR_FILENAME_EXCED_RANGE = 206;
inline constexpr DWORD ERROR_MORE_DATA = 234;
inline constexpr DWORD WAIT_TIMEOUT = 258;
inline constexpr DWORD ERROR_NO_MORE_ITEMS = 259;
inline constexpr DWORD ERROR_DIRECTORY = 267;
inline constexpr DWORD ERROR_NOT_OWNER = 288;
inline constexpr DWORD ERROR_OPERATION_ABORTED = 995;
inline constexpr DWORD ERROR_IO_PENDING = 997;
inline constexpr DWORD ERROR_NOACCESS = 998;
inline constexpr DWORD ERROR_CANCELLED = 1223;
inline constexpr DWORD ERROR_TIMEOUT = 1460;

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001u);
inline constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002u);
inline constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003u);
inline constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);
inline constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000Eu);
inline constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057u);
inline constexpr bool SUCCEEDED(HRESULT hr) { return hr >= 0; }
inline constexpr bool FAILED(HRESULT hr) { return hr < 0; }

// Published record layouts.
struct SYSTEMTIME {
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
};
using LPSYSTEMTIME = SYSTEMTIME *;
static_assert(sizeof(SYSTEMTIME) == 16);

struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};
using LPFILETIME = FILETIME *;
static_assert(sizeof(FILETIME) == 8);

union LARGE_INTEGER {
    struct {
        DWORD LowPart;
        LONG HighPart;
    } u;
    LONGLONG QuadPart;
};
union ULARGE_INTEGER {
    struct {
        DWORD LowPart;
        DWORD HighPart;
    } u;
    ULONGLONG QuadPart;
};
static_assert(sizeof(LARGE_INTEGER) == 8);

struct RECT {
    LONG left;
    LONG top;
    LONG right;
    LONG bottom;
};
struct POINT {
    LONG x;
    LONG y;
};
struct SIZE {
    LONG cx;
    LONG cy;
};

struct SECURITY_ATTRIBUTES {
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
};
using LPSECURITY_ATTRIBUTES = SECURITY_ATTRIBUTES *;

// Overlapped I/O is not offered; the record exists for signatures.
struct OVERLAPPED {
    ULONG_PTR Internal;
    ULONG_PTR InternalHigh;
    DWORD Offset;
    DWORD OffsetHigh;
    HANDLE hEvent;
};
using LPOVERLAPPED = OVERLAPPED *;

struct GUID {
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];
};
static_assert(sizeof(GUID) == 16);

inline constexpr WORD LOWORD(DWORD_PTR v) { return static_cast<WORD>(v & 0xFFFF); }
inline constexpr WORD HIWORD(DWORD_PTR v) { return static_cast<WORD>((v >> 16) & 0xFFFF); }
inline constexpr DWORD MAKELONG(WORD low, WORD high) {
    return static_cast<DWORD>(low) | (static_cast<DWORD>(high) << 16);
}

// File attribute bits as Windows reports them.
inline constexpr DWORD FILE_ATTRIBUTE_READONLY = 0x00000001;
inline constexpr DWORD FILE_ATTRIBUTE_HIDDEN = 0x00000002;
inline constexpr DWORD FILE_ATTRIBUTE_SYSTEM = 0x00000004;
inline constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x00000010;
inline constexpr DWORD FILE_ATTRIBUTE_ARCHIVE = 0x00000020;
inline constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x00000080;
inline constexpr DWORD FILE_ATTRIBUTE_TEMPORARY = 0x00000100;
inline constexpr DWORD FILE_ATTRIBUTE_REPARSE_POINT = 0x00000400;
inline constexpr DWORD FILE_ATTRIBUTE_VIRTUAL = 0x00010000;

// Message box flags and answers.
inline constexpr UINT MB_OK = 0x00000000;
inline constexpr UINT MB_OKCANCEL = 0x00000001;
inline constexpr UINT MB_ABORTRETRYIGNORE = 0x00000002;
inline constexpr UINT MB_YESNOCANCEL = 0x00000003;
inline constexpr UINT MB_YESNO = 0x00000004;
inline constexpr UINT MB_RETRYCANCEL = 0x00000005;
inline constexpr UINT MB_ICONHAND = 0x00000010;
inline constexpr UINT MB_ICONERROR = MB_ICONHAND;
inline constexpr UINT MB_ICONQUESTION = 0x00000020;
inline constexpr UINT MB_ICONEXCLAMATION = 0x00000030;
inline constexpr UINT MB_ICONWARNING = MB_ICONEXCLAMATION;
inline constexpr UINT MB_ICONASTERISK = 0x00000040;
inline constexpr UINT MB_ICONINFORMATION = MB_ICONASTERISK;
inline constexpr UINT MB_DEFBUTTON1 = 0x00000000;
inline constexpr UINT MB_DEFBUTTON2 = 0x00000100;
inline constexpr UINT MB_DEFBUTTON3 = 0x00000200;
inline constexpr UINT MB_TYPEMASK = 0x0000000F;
inline constexpr UINT MB_ICONMASK = 0x000000F0;
inline constexpr UINT MB_DEFMASK = 0x00000F00;
inline constexpr UINT MB_SETFOREGROUND = 0x00010000;
inline constexpr UINT MB_TOPMOST = 0x00040000;

inline constexpr int IDOK = 1;
inline constexpr int IDCANCEL = 2;
inline constexpr int IDABORT = 3;
inline constexpr int IDRETRY = 4;
inline constexpr int IDIGNORE = 5;
inline constexpr int IDYES = 6;
inline constexpr int IDNO = 7;
