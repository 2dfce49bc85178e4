// The window-manager calls the library makes, in their Windows form: this
// header brings the whole window layer (windows, queues, dialogs, clipboard,
// global memory) and adds message boxes, capture, cursors and the display.
//
// Message boxes go to the installed UiHost. Capture and the cursor are
// process-wide state of the window layer.
#pragma once

#include "platform/Clipboard.h"
#include "platform/Dialog.h"
#include "platform/GlobalMemory.h"
#include "platform/MessageQueue.h"
#include "platform/UiHost.h"
#include "platform/WinTypes.h"
#include "platform/Window.h"

// Button sets, defaults and answers not named in WinTypes.h.
inline constexpr UINT MB_CANCELTRYCONTINUE = 0x00000006;
inline constexpr UINT MB_DEFBUTTON4 = 0x00000300;
inline constexpr UINT MB_HELP = 0x00004000;
inline constexpr int IDCLOSE = 8;
inline constexpr int IDHELP = 9;
inline constexpr int IDTRYAGAIN = 10;
inline constexpr int IDCONTINUE = 11;

// System cursors: integer resource names, as MAKEINTRESOURCEW makes them.
#define VARNICK_SYSTEM_CURSOR(id) (reinterpret_cast<LPCWSTR>(static_cast<ULONG_PTR>(id)))
#define IDC_ARROW VARNICK_SYSTEM_CURSOR(0x7F00)
#define IDC_IBEAM VARNICK_SYSTEM_CURSOR(0x7F01)
#define IDC_WAIT VARNICK_SYSTEM_CURSOR(0x7F02)
#define IDC_HAND VARNICK_SYSTEM_CURSOR(0x7F89)

// GetSystemMetrics indexes.
inline constexpr int SM_CXSCREEN = 0;
inline constexpr int SM_CYSCREEN = 1;
inline constexpr int SM_CXVIRTUALSCREEN = 78;
inline constexpr int SM_CYVIRTUALSCREEN = 79;
inline constexpr int SM_CMONITORS = 80;

// Asks the current UiHost. A null text shows as empty and a null caption as
// "Error", as on Windows.
int MessageBoxW(HWND owner, LPCWSTR text, LPCWSTR caption, UINT flags);

// System cursors (null instance, an IDC_* name) give a handle that names
// the cursor; cursor resources of modules are not supported and give null.
HCURSOR LoadCursorW(HINSTANCE instance, LPCWSTR name);
// Returns the cursor that was set before.
HCURSOR SetCursor(HCURSOR cursor);
HCURSOR GetCursor();

// The display's figures from the current UiHost; 0 for an unknown index.
int GetSystemMetrics(int index);

// Debug output: written to stderr as UTF-8 when VARNICK_DEBUG is set in the
// environment, otherwise dropped, as nobody is listening.
void OutputDebugStringW(LPCWSTR text);

// The language the user reads texts in, as a Windows language id (primary
// language in the low 10 bits, sublanguage above). From the locale of the
// environment (LC_ALL, LC_MESSAGES, LANG, the first one set); English (US)
// when none is set, for the "C" and "POSIX" locales, and for a language
// without a Windows id here.
using LANGID = WORD;
inline constexpr WORD LANG_CHINESE = 0x04;
inline constexpr WORD LANG_GERMAN = 0x07;
inline constexpr WORD LANG_ENGLISH = 0x09;
inline constexpr WORD LANG_FRENCH = 0x0C;
inline constexpr WORD LANG_JAPANESE = 0x11;
inline constexpr WORD SUBLANG_DEFAULT = 0x01;
inline constexpr WORD SUBLANG_CHINESE_SIMPLIFIED = 0x02;
inline constexpr LANGID MAKELANGID(WORD primary, WORD sub) {
    return static_cast<LANGID>((sub << 10) | primary);
}
inline constexpr WORD PRIMARYLANGID(LANGID id) { return id & 0x3FF; }
inline constexpr WORD SUBLANGID(LANGID id) { return id >> 10; }
LANGID GetUserDefaultUILanguage();
