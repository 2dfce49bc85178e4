// Window objects behind HWND, window classes and the window calls.
//
// A window belongs to the thread that made it and gets its messages through
// that thread's queue (MessageQueue.h). An HWND is a number that names one
// window for the life of the process and is never given to another window,
// so a destroyed window's handle stays invalid. A handle can also stand for
// a window of another process of the user (a proxy made by FindWindowW, see
// WindowBroker.h); such a handle answers IsWindow, SendMessageW and
// PostMessageW, GetWindowTextW, GetClassNameW and GetWindowThreadProcessId.
//
// State changes never wait for another thread: EnableWindow, ShowWindow and
// SetWindowPos on a window of another thread change the state at once and
// queue the notification (WM_ENABLE, WM_SHOWWINDOW, WM_SIZE) to its owner.
// GetWindowTextW on a window of another thread reads the stored text instead
// of sending WM_GETTEXT.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/WinError.h"
#include "platform/WinProcess.h"
#include "platform/WinTypes.h"

#ifndef CALLBACK
#define CALLBACK
#endif
#ifndef WINAPI
#define WINAPI
#endif

using INT_PTR = std::intptr_t;
using PDWORD_PTR = DWORD_PTR *;
struct HBRUSH__;
using HBRUSH = HBRUSH__ *;

using WNDPROC = LRESULT (*)(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

// Integer resource names and atoms in a pointer, as Windows passes them.
#ifndef MAKEINTRESOURCEW
#define MAKEINTRESOURCEW(id) \
    (reinterpret_cast<LPWSTR>(static_cast<ULONG_PTR>(static_cast<WORD>(id))))
#endif
#ifndef MAKEINTATOM
#define MAKEINTATOM(atom) MAKEINTRESOURCEW(atom)
#endif
inline bool IS_INTRESOURCE(const void *name) {
    return (reinterpret_cast<ULONG_PTR>(name) >> 16) == 0;
}

inline constexpr WPARAM MAKEWPARAM(WORD low, WORD high) { return MAKELONG(low, high); }
inline constexpr LPARAM MAKELPARAM(WORD low, WORD high) {
    return static_cast<LPARAM>(static_cast<LONG>(MAKELONG(low, high)));
}
inline constexpr LRESULT MAKELRESULT(WORD low, WORD high) { return MAKELPARAM(low, high); }

// Special window handles.
#define HWND_MESSAGE (reinterpret_cast<HWND>(static_cast<LONG_PTR>(-3)))
#define HWND_BROADCAST (reinterpret_cast<HWND>(static_cast<LONG_PTR>(0xFFFF)))
#define HWND_TOP (reinterpret_cast<HWND>(static_cast<LONG_PTR>(0)))
#define HWND_BOTTOM (reinterpret_cast<HWND>(static_cast<LONG_PTR>(1)))
#define HWND_TOPMOST (reinterpret_cast<HWND>(static_cast<LONG_PTR>(-1)))
#define HWND_NOTOPMOST (reinterpret_cast<HWND>(static_cast<LONG_PTR>(-2)))

// Window messages.
inline constexpr UINT WM_NULL = 0x0000;
inline constexpr UINT WM_CREATE = 0x0001;
inline constexpr UINT WM_DESTROY = 0x0002;
inline constexpr UINT WM_MOVE = 0x0003;
inline constexpr UINT WM_SIZE = 0x0005;
inline constexpr UINT WM_ACTIVATE = 0x0006;
inline constexpr UINT WM_SETFOCUS = 0x0007;
inline constexpr UINT WM_KILLFOCUS = 0x0008;
inline constexpr UINT WM_ENABLE = 0x000A;
inline constexpr UINT WM_SETTEXT = 0x000C;
inline constexpr UINT WM_GETTEXT = 0x000D;
inline constexpr UINT WM_GETTEXTLENGTH = 0x000E;
inline constexpr UINT WM_PAINT = 0x000F;
inline constexpr UINT WM_CLOSE = 0x0010;
inline constexpr UINT WM_QUERYENDSESSION = 0x0011;
inline constexpr UINT WM_QUIT = 0x0012;
inline constexpr UINT WM_ERASEBKGND = 0x0014;
inline constexpr UINT WM_ENDSESSION = 0x0016;
inline constexpr UINT WM_SHOWWINDOW = 0x0018;
inline constexpr UINT WM_SETCURSOR = 0x0020;
inline constexpr UINT WM_SETFONT = 0x0030;
inline constexpr UINT WM_GETFONT = 0x0031;
inline constexpr UINT WM_COPYDATA = 0x004A;
inline constexpr UINT WM_NOTIFY = 0x004E;
inline constexpr UINT WM_CONTEXTMENU = 0x007B;
inline constexpr UINT WM_NCCREATE = 0x0081;
inline constexpr UINT WM_NCDESTROY = 0x0082;
inline constexpr UINT WM_KEYDOWN = 0x0100;
inline constexpr UINT WM_KEYUP = 0x0101;
inline constexpr UINT WM_CHAR = 0x0102;
inline constexpr UINT WM_SYSKEYDOWN = 0x0104;
inline constexpr UINT WM_SYSKEYUP = 0x0105;
inline constexpr UINT WM_INITDIALOG = 0x0110;
inline constexpr UINT WM_COMMAND = 0x0111;
inline constexpr UINT WM_SYSCOMMAND = 0x0112;
inline constexpr UINT WM_TIMER = 0x0113;
inline constexpr UINT WM_HSCROLL = 0x0114;
inline constexpr UINT WM_VSCROLL = 0x0115;
inline constexpr UINT WM_ENTERIDLE = 0x0121;
inline constexpr UINT WM_MOUSEMOVE = 0x0200;
inline constexpr UINT WM_LBUTTONDOWN = 0x0201;
inline constexpr UINT WM_LBUTTONUP = 0x0202;
inline constexpr UINT WM_LBUTTONDBLCLK = 0x0203;
inline constexpr UINT WM_RBUTTONDOWN = 0x0204;
inline constexpr UINT WM_RBUTTONUP = 0x0205;
inline constexpr UINT WM_CAPTURECHANGED = 0x0215;
inline constexpr UINT WM_DEVICECHANGE = 0x0219;
inline constexpr UINT WM_DROPFILES = 0x0233;
inline constexpr UINT WM_RENDERFORMAT = 0x0305;
inline constexpr UINT WM_RENDERALLFORMATS = 0x0306;
inline constexpr UINT WM_DESTROYCLIPBOARD = 0x0307;
inline constexpr UINT WM_CLIPBOARDUPDATE = 0x031D;
inline constexpr UINT WM_USER = 0x0400;
inline constexpr UINT WM_APP = 0x8000;

// wParam of WM_SIZE.
inline constexpr WPARAM SIZE_RESTORED = 0;
inline constexpr WPARAM SIZE_MINIMIZED = 1;
inline constexpr WPARAM SIZE_MAXIMIZED = 2;

// Window styles.
inline constexpr DWORD WS_OVERLAPPED = 0x00000000;
inline constexpr DWORD WS_POPUP = 0x80000000;
inline constexpr DWORD WS_CHILD = 0x40000000;
inline constexpr DWORD WS_MINIMIZE = 0x20000000;
inline constexpr DWORD WS_VISIBLE = 0x10000000;
inline constexpr DWORD WS_DISABLED = 0x08000000;
inline constexpr DWORD WS_CLIPSIBLINGS = 0x04000000;
inline constexpr DWORD WS_CLIPCHILDREN = 0x02000000;
inline constexpr DWORD WS_MAXIMIZE = 0x01000000;
inline constexpr DWORD WS_CAPTION = 0x00C00000;
inline constexpr DWORD WS_BORDER = 0x00800000;
inline constexpr DWORD WS_DLGFRAME = 0x00400000;
inline constexpr DWORD WS_VSCROLL = 0x00200000;
inline constexpr DWORD WS_HSCROLL = 0x00100000;
inline constexpr DWORD WS_SYSMENU = 0x00080000;
inline constexpr DWORD WS_THICKFRAME = 0x00040000;
inline constexpr DWORD WS_GROUP = 0x00020000;
inline constexpr DWORD WS_TABSTOP = 0x00010000;
inline constexpr DWORD WS_MINIMIZEBOX = 0x00020000;
inline constexpr DWORD WS_MAXIMIZEBOX = 0x00010000;
inline constexpr DWORD WS_OVERLAPPEDWINDOW =
    WS_OVERLAPPED | WS_CAPTION | WS_SYSMENU | WS_THICKFRAME | WS_MINIMIZEBOX | WS_MAXIMIZEBOX;
inline constexpr DWORD WS_POPUPWINDOW = WS_POPUP | WS_BORDER | WS_SYSMENU;
inline constexpr DWORD WS_EX_TOPMOST = 0x00000008;
inline constexpr DWORD WS_EX_ACCEPTFILES = 0x00000010;
inline constexpr DWORD WS_EX_TOOLWINDOW = 0x00000080;
inline constexpr DWORD WS_EX_APPWINDOW = 0x00040000;
inline constexpr int CW_USEDEFAULT = static_cast<int>(0x80000000);

// Class styles (kept, not acted on).
inline constexpr UINT CS_VREDRAW = 0x0001;
inline constexpr UINT CS_HREDRAW = 0x0002;
inline constexpr UINT CS_DBLCLKS = 0x0008;

// GetWindowLongPtrW / SetWindowLongPtrW indexes. Non-negative indexes are
// byte offsets into the window's extra bytes (cbWndExtra; a dialog has
// DLGWINDOWEXTRA of them, holding the DWLP_ values).
inline constexpr int GWLP_WNDPROC = -4;
inline constexpr int GWLP_HINSTANCE = -6;
inline constexpr int GWLP_HWNDPARENT = -8;
inline constexpr int GWLP_ID = -12;
inline constexpr int GWL_STYLE = -16;
inline constexpr int GWL_EXSTYLE = -20;
inline constexpr int GWLP_USERDATA = -21;
inline constexpr int DWLP_MSGRESULT = 0;
inline constexpr int DWLP_DLGPROC = DWLP_MSGRESULT + static_cast<int>(sizeof(LRESULT));
inline constexpr int DWLP_USER = DWLP_DLGPROC + static_cast<int>(sizeof(void *));
inline constexpr int DLGWINDOWEXTRA = 48;

// SetWindowPos flags.
inline constexpr UINT SWP_NOSIZE = 0x0001;
inline constexpr UINT SWP_NOMOVE = 0x0002;
inline constexpr UINT SWP_NOZORDER = 0x0004;
inline constexpr UINT SWP_NOREDRAW = 0x0008;
inline constexpr UINT SWP_NOACTIVATE = 0x0010;
inline constexpr UINT SWP_FRAMECHANGED = 0x0020;
inline constexpr UINT SWP_SHOWWINDOW = 0x0040;
inline constexpr UINT SWP_HIDEWINDOW = 0x0080;
inline constexpr UINT SWP_NOOWNERZORDER = 0x0200;

// GetWindow relations.
inline constexpr UINT GW_HWNDFIRST = 0;
inline constexpr UINT GW_HWNDNEXT = 2;
inline constexpr UINT GW_OWNER = 4;
inline constexpr UINT GW_CHILD = 5;

// wParam of WM_ACTIVATE.
inline constexpr WORD WA_INACTIVE = 0;
inline constexpr WORD WA_ACTIVE = 1;

// Errors of the window calls.
inline constexpr DWORD ERROR_INVALID_WINDOW_HANDLE = 1400;
inline constexpr DWORD ERROR_TLW_WITH_WSCHILD = 1406;
inline constexpr DWORD ERROR_CANNOT_FIND_WND_CLASS = 1407;
inline constexpr DWORD ERROR_WINDOW_OF_OTHER_THREAD = 1408;
inline constexpr DWORD ERROR_CLASS_ALREADY_EXISTS = 1410;
inline constexpr DWORD ERROR_CLASS_DOES_NOT_EXIST = 1411;
inline constexpr DWORD ERROR_CLASS_HAS_WINDOWS = 1412;
inline constexpr DWORD ERROR_INVALID_INDEX = 1413;

struct WNDCLASSEXW {
    UINT cbSize;
    UINT style;
    WNDPROC lpfnWndProc;
    int cbClsExtra;
    int cbWndExtra;
    HINSTANCE hInstance;
    HICON hIcon;
    HCURSOR hCursor;
    HBRUSH hbrBackground;
    LPCWSTR lpszMenuName;
    LPCWSTR lpszClassName;
    HICON hIconSm;
};

struct WNDCLASSW {
    UINT style;
    WNDPROC lpfnWndProc;
    int cbClsExtra;
    int cbWndExtra;
    HINSTANCE hInstance;
    HICON hIcon;
    HCURSOR hCursor;
    HBRUSH hbrBackground;
    LPCWSTR lpszMenuName;
    LPCWSTR lpszClassName;
};

// lParam of WM_NCCREATE and WM_CREATE.
struct CREATESTRUCTW {
    LPVOID lpCreateParams;
    HINSTANCE hInstance;
    HMENU hMenu;
    HWND hwndParent;
    int cy;
    int cx;
    int y;
    int x;
    LONG style;
    LPCWSTR lpszName;
    LPCWSTR lpszClass;
    DWORD dwExStyle;
};

// lParam of WM_COPYDATA: the bytes are the receiver's to read during the
// message only.
struct COPYDATASTRUCT {
    ULONG_PTR dwData;
    DWORD cbData;
    LPVOID lpData;
};
using PCOPYDATASTRUCT = COPYDATASTRUCT *;

// Classes are process-wide (the instance is kept, not used to tell classes
// apart); names compare without case. The atom of a registered class comes
// from the table of RegisterWindowMessageW. Registering a name twice fails
// with ERROR_CLASS_ALREADY_EXISTS.
ATOM RegisterClassExW(const WNDCLASSEXW *windowClass);
ATOM RegisterClassW(const WNDCLASSW *windowClass);
// Fails with ERROR_CLASS_HAS_WINDOWS while windows of the class live, and
// for the system classes.
BOOL UnregisterClassW(LPCWSTR className, HINSTANCE instance);
int GetClassNameW(HWND window, LPWSTR className, int size);

// The class is a name or an atom (MAKEINTATOM). The parent HWND_MESSAGE
// makes a message-only window, which FindWindowW does not see. A child
// (WS_CHILD) has `menu` as its control id. The window gets WM_NCCREATE and
// WM_CREATE (FALSE or -1 there fails the creation), then WM_SHOWWINDOW if
// WS_VISIBLE is in the style. A top-level window of a class the program
// registered is announced to the other processes of the user.
HWND CreateWindowExW(DWORD exStyle, LPCWSTR className, LPCWSTR windowName, DWORD style, int x,
                     int y, int width, int height, HWND parent, HMENU menu, HINSTANCE instance,
                     LPVOID param);

// WM_SETTEXT, WM_GETTEXT and WM_GETTEXTLENGTH keep the window's text;
// WM_CLOSE destroys the window; WM_NCCREATE and WM_QUERYENDSESSION answer
// TRUE; anything else 0.
LRESULT DefWindowProcW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

// Only on the thread that owns the window (else ERROR_ACCESS_DENIED). Owned
// windows go first; then the window gets WM_DESTROY, its children are
// destroyed (WM_DESTROY, then WM_NCDESTROY, innermost last), and the window
// gets WM_NCDESTROY. Its posted messages and timers are dropped.
BOOL DestroyWindow(HWND window);
BOOL IsWindow(HWND window);
// The parent of a child window, the owner of a WS_POPUP window, else null.
HWND GetParent(HWND window);
HWND GetWindow(HWND window, UINT relation);
BOOL IsChild(HWND parent, HWND window);

// Returns nonzero when the window was disabled before.
BOOL EnableWindow(HWND window, BOOL enable);
BOOL IsWindowEnabled(HWND window);
// SW_HIDE hides; every other command shows. Returns nonzero when the window
// was visible before. Showing a top-level window of the calling thread
// activates it, except with SW_SHOWNA, SW_SHOWNOACTIVATE, SW_SHOWMINNOACTIVE.
BOOL ShowWindow(HWND window, int command);
// The window and all its parents have WS_VISIBLE.
BOOL IsWindowVisible(HWND window);
BOOL UpdateWindow(HWND window);
BOOL InvalidateRect(HWND window, const RECT *rect, BOOL erase);

BOOL SetWindowPos(HWND window, HWND insertAfter, int x, int y, int width, int height, UINT flags);
BOOL MoveWindow(HWND window, int x, int y, int width, int height, BOOL repaint);
BOOL GetWindowRect(HWND window, RECT *rect);
BOOL GetClientRect(HWND window, RECT *rect);

BOOL SetWindowTextW(HWND window, LPCWSTR text);
int GetWindowTextW(HWND window, LPWSTR text, int size);
int GetWindowTextLengthW(HWND window);

LONG_PTR SetWindowLongPtrW(HWND window, int index, LONG_PTR value);
LONG_PTR GetWindowLongPtrW(HWND window, int index);
LONG GetWindowLongW(HWND window, int index);

// The thread that owns the window; `processId` gets its process.
DWORD GetWindowThreadProcessId(HWND window, LPDWORD processId);

// Numbers from 0xC000 to 0xFFFF; the same name (without regard to case)
// gives the same number in this process. Shared with the registered
// clipboard formats and class atoms, as on Windows.
UINT RegisterWindowMessageW(LPCWSTR name);

// Focus and activation are per thread. SetFocus takes a window of the
// calling thread (else null, ERROR_ACCESS_DENIED), sends WM_KILLFOCUS and
// WM_SETFOCUS and returns the window that had the focus.
HWND SetFocus(HWND window);
HWND GetFocus();
HWND GetActiveWindow();
// A window of this process is activated on its thread. A null window fails;
// any other handle succeeds.
BOOL SetForegroundWindow(HWND window);

// Mouse capture, process-wide. SetCapture returns the window that had it
// before; a destroyed window loses it.
HWND SetCapture(HWND window);
BOOL ReleaseCapture();
HWND GetCapture();

// A top-level window by class name and title, either of which may be null;
// both compare without case. Windows of this process come first, newest
// first, then announced windows of the user's other processes, for which a
// proxy handle is returned. Message-only windows are not found.
HWND FindWindowW(LPCWSTR className, LPCWSTR windowName);

namespace platform {

class MessageQueue;
struct RemoteWindow;

// A row of a combo box or list view: the texts of its columns (the item and
// its sub-items), its state bits (the check box in the state image bits),
// and the item data.
struct ListRow {
    std::vector<std::wstring> texts;
    UINT state = 0;
    LPARAM data = 0;
};

// What a control keeps besides its text, enabled and visible state. A
// control answers the messages of buttons, progress bars, combo boxes and
// list views alike, whatever its class.
struct ControlState {
    int check = 0;  // BST_UNCHECKED
    int rangeLow = 0;
    int rangeHigh = 100;
    int position = 0;
    std::vector<ListRow> rows;
    int selection = -1;
    DWORD listViewStyle = 0;
};

// What a dialog window keeps besides its window state.
struct DialogState {
    bool modal = false;
    bool ended = false;
    INT_PTR result = 0;
    WORD templateId = 0;           // for a template given by number
    std::wstring templateName;     // for a template given by name
    bool initializing = false;     // during WM_INITDIALOG
    bool shownDuringInit = false;  // ShowWindow was called during WM_INITDIALOG
};

enum class WindowLife { Alive, Destroying, Gone };

// The window object. Fields that never change after creation are set before
// the window is registered; every other field is guarded by WindowLock().
class Window {
public:
    // Fixed at creation.
    HWND handle = nullptr;
    DWORD threadId = 0;
    std::shared_ptr<MessageQueue> queue;
    std::wstring className;
    ATOM classAtom = 0;
    bool systemClass = false;
    HINSTANCE instance = nullptr;
    bool messageOnly = false;
    bool isDialog = false;
    std::shared_ptr<RemoteWindow> remote;  // a window of another process

    // Guarded by WindowLock().
    WindowLife life = WindowLife::Alive;
    WNDPROC procedure = nullptr;
    HWND parent = nullptr;  // of a child
    HWND owner = nullptr;   // of a top-level window
    std::vector<HWND> children;
    DWORD style = 0;
    DWORD exStyle = 0;
    int id = 0;
    std::wstring text;
    RECT rect{};
    LONG_PTR userData = 0;
    std::vector<BYTE> extra;
    ControlState control;
    DialogState dialog;
};

// The lock of all window state: the handle table, classes and every
// window's guarded fields. Never held while a window procedure runs.
std::mutex &WindowLock();

// The live window (not yet past WM_NCDESTROY) behind a handle, or null.
std::shared_ptr<Window> FindWindowObject(HWND window);
// The same with WindowLock() held by the caller.
std::shared_ptr<Window> FindWindowObjectLocked(HWND window);
// The same for a window of the calling thread (proxies and windows of other
// threads give null).
std::shared_ptr<Window> FindOwnWindow(HWND window);
// Calls the window's procedure on the calling thread, without the lock.
LRESULT CallWindowProcedure(const std::shared_ptr<Window> &window, UINT message, WPARAM wParam,
                            LPARAM lParam);
// Makes a proxy for a window of another process, or gives the one made
// before for the same announcement.
HWND ProxyWindow(std::shared_ptr<RemoteWindow> remote);
// The live top-level windows of this process (not message-only).
std::vector<HWND> TopLevelWindows();
// Drops the windows of a thread that ends, without messages.
void DropWindowsOfThread(DWORD threadId);
// The built-in class of implicit dialog controls.
inline constexpr wchar_t kDialogItemClass[] = L"DlgItem";
// Makes a child control of `dialog` with the given id on the dialog's thread
// without sending it messages (see GetDlgItem).
HWND CreateImplicitControl(const std::shared_ptr<Window> &dialog, int id);

// One atom table for window messages, clipboard formats and class names:
// numbers from 0xC000; 0 when the name is empty or the table is full.
ATOM AddAtomName(const std::wstring &name);
// The name of an atom of that table, or "".
std::wstring AtomName(ATOM atom);

// Notices for a presenting host. Listeners run on the thread that made the
// change, after it, without locks held; they must not block.
enum class WindowEventKind { Created, Destroyed, Shown, Hidden, Changed };
struct WindowEvent {
    WindowEventKind kind;
    HWND window;
};
using WindowEventListener = std::function<void(const WindowEvent &)>;
// Returns a cookie for RemoveWindowEventListener.
int AddWindowEventListener(WindowEventListener listener);
void RemoveWindowEventListener(int cookie);
void NotifyWindowEvent(WindowEventKind kind, HWND window);

}  // namespace platform
