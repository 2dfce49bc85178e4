// The clipboard: state of the window layer in this process.
//
// One thread at a time has it open. Data are HGLOBAL blocks (GlobalMemory.h)
// that the clipboard owns once set: it frees them when they are replaced or
// emptied. CF_UNICODETEXT holds wchar_t text, CF_TEXT and CF_OEMTEXT the
// system code page (UTF-8); each text format is made from another one when
// asked for. A host that can reach the system clipboard installs a text hook:
// it is called when the clipboard is closed after text was put on it.
#pragma once

#include <functional>
#include <string>

#include "platform/GlobalMemory.h"
#include "platform/WinTypes.h"

inline constexpr UINT CF_TEXT = 1;
inline constexpr UINT CF_BITMAP = 2;
inline constexpr UINT CF_OEMTEXT = 7;
inline constexpr UINT CF_DIB = 8;
inline constexpr UINT CF_UNICODETEXT = 13;
inline constexpr UINT CF_HDROP = 15;
inline constexpr UINT CF_LOCALE = 16;

inline constexpr DWORD ERROR_CLIPBOARD_NOT_OPEN = 1418;

// Fails (ERROR_ACCESS_DENIED) while another thread has it open; opening it
// again on the same thread succeeds.
BOOL OpenClipboard(HWND owner);
// Fails with ERROR_CLIPBOARD_NOT_OPEN unless the calling thread opened it.
BOOL CloseClipboard();
// Frees all data; the window that opened the clipboard becomes its owner.
BOOL EmptyClipboard();
// Takes the block and returns it; null on failure (clipboard not open, null
// data: delayed rendering is not offered).
HANDLE SetClipboardData(UINT format, HANDLE data);
// The clipboard's block of the format (do not free it), or null.
HANDLE GetClipboardData(UINT format);
// Open or not.
BOOL IsClipboardFormatAvailable(UINT format);
int CountClipboardFormats();
// From the atom table of RegisterWindowMessageW.
UINT RegisterClipboardFormatW(LPCWSTR name);
HWND GetOpenClipboardWindow();

namespace platform {

// Called on the closing thread, without locks held, with the clipboard's
// text. Empty clears the hook. Returns the hook it replaces.
using ClipboardTextHook = std::function<void(const std::wstring &text)>;
ClipboardTextHook SetClipboardTextHook(ClipboardTextHook hook);

}  // namespace platform
