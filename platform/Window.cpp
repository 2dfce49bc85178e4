#include "platform/Window.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <cwchar>
#include <type_traits>
#include <unordered_map>
#include <utility>

#include "platform/Dialog.h"
#include "platform/MessageQueue.h"
#include "platform/WideText.h"
#include "platform/WinError.h"
#include "platform/WinThread.h"
#include "platform/WindowBroker.h"

namespace platform {

namespace {

struct WindowClass {
    std::wstring name;
    ATOM atom = 0;
    WNDPROC procedure = nullptr;
    int windowExtra = 0;
    HINSTANCE instance = nullptr;
    UINT style = 0;
    bool system = false;
};

constexpr ATOM kDialogAtom = 0x8002;
constexpr ATOM kFirstAtom = 0xC000;
constexpr std::size_t kAtomCount = 0x4000;
constexpr std::uintptr_t kFirstHandle = 0x10010;
constexpr std::uintptr_t kHandleStep = 4;

struct WindowTable {
    std::mutex lock;
    std::unordered_map<std::uintptr_t, std::shared_ptr<Window>> windows;
    std::uintptr_t nextHandle = kFirstHandle;
    std::vector<WindowClass> classes;
    std::vector<std::wstring> atoms;                 // index + kFirstAtom
    std::unordered_map<std::wstring, ATOM> atomIds;  // by folded name
    std::vector<std::pair<int, WindowEventListener>> listeners;
    int nextListener = 1;
};

std::atomic<HWND> captureWindow{nullptr};

std::uintptr_t Key(HWND window) { return reinterpret_cast<std::uintptr_t>(window); }

ATOM AddAtomLocked(WindowTable &table, const std::wstring &name) {
    if (name.empty()) return 0;
    std::wstring folded = ToLower(name);
    if (auto found = table.atomIds.find(folded); found != table.atomIds.end()) return found->second;
    if (table.atoms.size() >= kAtomCount) return 0;
    auto atom = static_cast<ATOM>(kFirstAtom + table.atoms.size());
    table.atoms.push_back(name);
    table.atomIds.emplace(std::move(folded), atom);
    return atom;
}

void AddSystemClass(WindowTable &table, const wchar_t *name, ATOM atom, WNDPROC procedure,
                    int extra) {
    WindowClass windowClass;
    windowClass.name = name;
    windowClass.atom = atom ? atom : AddAtomLocked(table, name);
    windowClass.procedure = procedure;
    windowClass.windowExtra = extra;
    windowClass.system = true;
    table.classes.push_back(std::move(windowClass));
}

// Never destroyed: windows are dropped by threads ending after static
// destruction has begun.
WindowTable &Table() {
    static WindowTable *table = [] {
        auto *made = new WindowTable;
        AddSystemClass(*made, L"#32770", kDialogAtom, DefDlgProcW, DLGWINDOWEXTRA);
        AddSystemClass(*made, WC_BUTTONW, 0x0080, ControlWindowProc, 0);
        AddSystemClass(*made, WC_EDITW, 0x0081, ControlWindowProc, 0);
        AddSystemClass(*made, WC_STATICW, 0x0082, ControlWindowProc, 0);
        AddSystemClass(*made, WC_COMBOBOXW, 0x0085, ControlWindowProc, 0);
        AddSystemClass(*made, PROGRESS_CLASSW, 0, ControlWindowProc, 0);
        AddSystemClass(*made, WC_LISTVIEWW, 0, ControlWindowProc, 0);
        AddSystemClass(*made, kDialogItemClass, 0, ControlWindowProc, 0);
        return made;
    }();
    return *table;
}

WindowClass *FindClassLocked(LPCWSTR name) {
    for (WindowClass &windowClass : Table().classes) {
        bool match = IS_INTRESOURCE(name)
                         ? windowClass.atom == static_cast<ATOM>(reinterpret_cast<ULONG_PTR>(name))
                         : EqualsNoCase(windowClass.name, name);
        if (match) return &windowClass;
    }
    return nullptr;
}

std::shared_ptr<Window> FindLocked(HWND handle) {
    auto found = Table().windows.find(Key(handle));
    if (found == Table().windows.end() || found->second->life == WindowLife::Gone) return nullptr;
    return found->second;
}

bool IsOwnThread(const Window &window) {
    return !window.remote && window.threadId == GetCurrentThreadId();
}

bool IsChildLocked(const Window &window) { return window.parent != nullptr; }

// The top-level window a window belongs to.
HWND TopLevelLocked(std::shared_ptr<Window> window) {
    while (window && window->parent) {
        std::shared_ptr<Window> parent = FindLocked(window->parent);
        if (!parent) break;
        window = parent;
    }
    return window ? window->handle : nullptr;
}

bool IsSameOrDescendantLocked(HWND ancestor, HWND window) {
    while (window) {
        if (window == ancestor) return true;
        std::shared_ptr<Window> object = FindLocked(window);
        window = object ? object->parent : nullptr;
    }
    return false;
}

void RefuseWindow() { SetLastError(ERROR_INVALID_WINDOW_HANDLE); }

// The window behind a handle for a call that needs a local window.
std::shared_ptr<Window> LocalWindow(HWND handle) {
    std::shared_ptr<Window> window = FindWindowObject(handle);
    if (!window || window->remote) {
        RefuseWindow();
        return nullptr;
    }
    return window;
}

// Tells a window of a state change: directly on its own thread, queued
// without waiting from another.
void Inform(const std::shared_ptr<Window> &window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (IsOwnThread(*window)) {
        CallWindowProcedure(window, message, wParam, lParam);
    } else {
        SendNotifyMessageW(window->handle, message, wParam, lParam);
    }
}

// Makes `handle` the active window of its thread and gives it the focus
// unless the focus is inside it already. Messages go out only when the
// window belongs to the calling thread.
void Activate(const std::shared_ptr<Window> &window) {
    HWND previous = nullptr;
    HWND previousFocus = nullptr;
    bool focusMoves = false;
    {
        std::lock_guard guard(WindowLock());
        MessageQueue &queue = *window->queue;
        previous = queue.active;
        if (previous == window->handle) return;
        queue.active = window->handle;
        previousFocus = queue.focus;
        focusMoves = !IsSameOrDescendantLocked(window->handle, previousFocus);
        if (focusMoves) queue.focus = window->handle;
    }
    if (!IsOwnThread(*window)) return;
    if (std::shared_ptr<Window> old = FindOwnWindow(previous)) {
        CallWindowProcedure(old, WM_ACTIVATE, WA_INACTIVE,
                            reinterpret_cast<LPARAM>(window->handle));
    }
    CallWindowProcedure(window, WM_ACTIVATE, WA_ACTIVE, reinterpret_cast<LPARAM>(previous));
    if (!focusMoves) return;
    if (std::shared_ptr<Window> old = FindOwnWindow(previousFocus)) {
        CallWindowProcedure(old, WM_KILLFOCUS, reinterpret_cast<WPARAM>(window->handle), 0);
    }
    CallWindowProcedure(window, WM_SETFOCUS, reinterpret_cast<WPARAM>(previousFocus), 0);
}

// Activates the top-level window that `window` belongs to.
void ActivateTopLevelOf(const std::shared_ptr<Window> &window) {
    HWND topLevel;
    {
        std::lock_guard guard(WindowLock());
        topLevel = TopLevelLocked(window);
    }
    if (std::shared_ptr<Window> top = FindWindowObject(topLevel)) Activate(top);
}

// When the active window goes away or hides, its owner takes over if it
// can; no messages, as the change happens during destruction.
void HandOverActivationLocked(const Window &window) {
    MessageQueue &queue = *window.queue;
    if (IsSameOrDescendantLocked(window.handle, queue.focus)) queue.focus = nullptr;
    if (queue.active != window.handle) return;
    queue.active = nullptr;
    std::shared_ptr<Window> owner = FindLocked(window.owner);
    if (owner && owner->threadId == window.threadId && (owner->style & WS_VISIBLE)) {
        queue.active = owner->handle;
        if (!queue.focus) queue.focus = owner->handle;
    }
}

void RemoveFromParentLocked(const Window &window) {
    std::shared_ptr<Window> parent = FindLocked(window.parent);
    if (!parent) return;
    auto &siblings = parent->children;
    siblings.erase(std::remove(siblings.begin(), siblings.end(), window.handle), siblings.end());
}

void ForgetProcessState(HWND handle) {
    HWND expected = handle;
    captureWindow.compare_exchange_strong(expected, nullptr);
}

// The last step of a destruction: the handle stops being valid.
void Finalize(const std::shared_ptr<Window> &window) {
    {
        std::lock_guard guard(WindowLock());
        HandOverActivationLocked(*window);
        RemoveFromParentLocked(*window);
        window->life = WindowLife::Gone;
        Table().windows.erase(Key(window->handle));
    }
    ForgetProcessState(window->handle);
    window->queue->ForgetWindow(window->handle);
    WindowBroker::Instance().Withdraw(window->handle);
    NotifyWindowEvent(WindowEventKind::Destroyed, window->handle);
}

void DestroyTree(const std::shared_ptr<Window> &window) {
    {
        std::lock_guard guard(WindowLock());
        window->life = WindowLife::Destroying;
        window->dialog.ended = true;
    }
    CallWindowProcedure(window, WM_DESTROY, 0, 0);
    std::vector<HWND> children;
    {
        std::lock_guard guard(WindowLock());
        children = window->children;
    }
    for (HWND child : children) {
        std::shared_ptr<Window> object = FindWindowObject(child);
        if (!object || object->life != WindowLife::Alive) continue;
        if (IsOwnThread(*object)) {
            DestroyTree(object);
        } else {
            Finalize(object);
        }
    }
    CallWindowProcedure(window, WM_NCDESTROY, 0, 0);
    Finalize(window);
}

std::vector<std::shared_ptr<Window>> OwnedWindowsOnThread(HWND owner, DWORD threadId) {
    std::vector<std::shared_ptr<Window>> owned;
    std::lock_guard guard(WindowLock());
    for (const auto &[key, window] : Table().windows) {
        if (window->owner == owner && window->threadId == threadId &&
            window->life == WindowLife::Alive && !window->remote) {
            owned.push_back(window);
        }
    }
    return owned;
}

RECT MakeRect(int x, int y, int width, int height) {
    auto fix = [](int value) { return value == CW_USEDEFAULT ? 0 : value; };
    RECT rect;
    rect.left = fix(x);
    rect.top = fix(y);
    rect.right = rect.left + std::max(0, fix(width));
    rect.bottom = rect.top + std::max(0, fix(height));
    return rect;
}

bool ActivatingShow(int command) {
    return command != SW_SHOWNA && command != SW_SHOWNOACTIVATE && command != SW_SHOWMINNOACTIVE &&
           command != SW_HIDE && command != SW_MINIMIZE;
}

bool TitleMatches(const std::wstring &text, LPCWSTR title) {
    return !title || EqualsNoCase(text, title);
}

bool ClassMatchesLocked(const Window &window, LPCWSTR className) {
    if (!className) return true;
    if (IS_INTRESOURCE(className)) {
        return window.classAtom == static_cast<ATOM>(reinterpret_cast<ULONG_PTR>(className));
    }
    return EqualsNoCase(window.className, className);
}

HWND FindLocalTopLevel(LPCWSTR className, LPCWSTR title) {
    std::lock_guard guard(WindowLock());
    std::uintptr_t best = 0;
    for (const auto &[key, window] : Table().windows) {
        if (window->remote || window->messageOnly || IsChildLocked(*window)) continue;
        if (window->life != WindowLife::Alive) continue;
        if (!ClassMatchesLocked(*window, className) || !TitleMatches(window->text, title)) continue;
        best = std::max(best, key);
    }
    return reinterpret_cast<HWND>(best);
}

}  // namespace

std::mutex &WindowLock() { return Table().lock; }

std::shared_ptr<Window> FindWindowObject(HWND window) {
    if (!window) return nullptr;
    std::lock_guard guard(WindowLock());
    return FindLocked(window);
}

std::shared_ptr<Window> FindWindowObjectLocked(HWND window) { return FindLocked(window); }

std::shared_ptr<Window> FindOwnWindow(HWND window) {
    std::shared_ptr<Window> object = FindWindowObject(window);
    return object && IsOwnThread(*object) ? object : nullptr;
}

LRESULT CallWindowProcedure(const std::shared_ptr<Window> &window, UINT message, WPARAM wParam,
                            LPARAM lParam) {
    WNDPROC procedure;
    {
        std::lock_guard guard(WindowLock());
        procedure = window->procedure;
    }
    if (!procedure) return DefWindowProcW(window->handle, message, wParam, lParam);
    return procedure(window->handle, message, wParam, lParam);
}

HWND ProxyWindow(std::shared_ptr<RemoteWindow> remote) {
    std::lock_guard guard(WindowLock());
    WindowTable &table = Table();
    for (const auto &[key, window] : table.windows) {
        if (window->remote && window->remote->socketPath == remote->socketPath &&
            window->life == WindowLife::Alive) {
            return window->handle;
        }
    }
    auto window = std::make_shared<Window>();
    window->handle = reinterpret_cast<HWND>(table.nextHandle);
    table.nextHandle += kHandleStep;
    window->className = remote->className;
    window->threadId = remote->threadId;
    window->remote = std::move(remote);
    table.windows.emplace(Key(window->handle), window);
    return window->handle;
}

std::vector<HWND> TopLevelWindows() {
    std::vector<HWND> windows;
    std::lock_guard guard(WindowLock());
    for (const auto &[key, window] : Table().windows) {
        if (window->remote || window->messageOnly || window->parent) continue;
        if (window->life == WindowLife::Alive) windows.push_back(window->handle);
    }
    return windows;
}

void DropWindowsOfThread(DWORD threadId) {
    std::vector<HWND> dropped;
    {
        std::lock_guard guard(WindowLock());
        for (auto it = Table().windows.begin(); it != Table().windows.end();) {
            Window &window = *it->second;
            if (window.remote || window.threadId != threadId) {
                ++it;
                continue;
            }
            RemoveFromParentLocked(window);
            window.life = WindowLife::Gone;
            dropped.push_back(window.handle);
            it = Table().windows.erase(it);
        }
    }
    for (HWND handle : dropped) {
        ForgetProcessState(handle);
        WindowBroker::Instance().Withdraw(handle);
        NotifyWindowEvent(WindowEventKind::Destroyed, handle);
    }
}

HWND CreateImplicitControl(const std::shared_ptr<Window> &dialog, int id) {
    HWND handle = nullptr;
    {
        std::lock_guard guard(WindowLock());
        if (dialog->life != WindowLife::Alive) return nullptr;
        for (HWND child : dialog->children) {
            std::shared_ptr<Window> object = FindLocked(child);
            if (object && object->id == id) return child;
        }
        WindowTable &table = Table();
        auto control = std::make_shared<Window>();
        control->handle = reinterpret_cast<HWND>(table.nextHandle);
        table.nextHandle += kHandleStep;
        control->threadId = dialog->threadId;
        control->queue = dialog->queue;
        WindowClass *windowClass = FindClassLocked(kDialogItemClass);
        control->className = windowClass->name;
        control->classAtom = windowClass->atom;
        control->systemClass = true;
        control->instance = dialog->instance;
        control->procedure = windowClass->procedure;
        control->parent = dialog->handle;
        control->style = WS_CHILD | WS_VISIBLE;
        control->id = id;
        table.windows.emplace(Key(control->handle), control);
        dialog->children.push_back(control->handle);
        handle = control->handle;
    }
    NotifyWindowEvent(WindowEventKind::Created, handle);
    return handle;
}

ATOM AddAtomName(const std::wstring &name) {
    std::lock_guard guard(WindowLock());
    return AddAtomLocked(Table(), name);
}

std::wstring AtomName(ATOM atom) {
    std::lock_guard guard(WindowLock());
    std::size_t index = static_cast<std::size_t>(atom) - kFirstAtom;
    if (atom < kFirstAtom || index >= Table().atoms.size()) return {};
    return Table().atoms[index];
}

int AddWindowEventListener(WindowEventListener listener) {
    std::lock_guard guard(WindowLock());
    int cookie = Table().nextListener++;
    Table().listeners.emplace_back(cookie, std::move(listener));
    return cookie;
}

void RemoveWindowEventListener(int cookie) {
    std::lock_guard guard(WindowLock());
    auto &listeners = Table().listeners;
    listeners.erase(std::remove_if(listeners.begin(), listeners.end(),
                                   [cookie](const auto &entry) { return entry.first == cookie; }),
                    listeners.end());
}

void NotifyWindowEvent(WindowEventKind kind, HWND window) {
    std::vector<std::pair<int, WindowEventListener>> listeners;
    {
        std::lock_guard guard(WindowLock());
        if (Table().listeners.empty()) return;
        listeners = Table().listeners;
    }
    for (const auto &[cookie, listener] : listeners) listener(WindowEvent{kind, window});
}

}  // namespace platform

using platform::FindWindowObject;
using platform::Window;
using platform::WindowLife;
using platform::WindowLock;

// ------------------------------------------------------------------ classes

namespace {

ATOM RegisterClassFrom(const WNDCLASSEXW &source) {
    if (!source.lpszClassName || IS_INTRESOURCE(source.lpszClassName) || !*source.lpszClassName ||
        !source.lpfnWndProc || source.cbWndExtra < 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    std::lock_guard guard(WindowLock());
    if (platform::FindClassLocked(source.lpszClassName)) {
        SetLastError(ERROR_CLASS_ALREADY_EXISTS);
        return 0;
    }
    platform::WindowClass windowClass;
    windowClass.name = source.lpszClassName;
    windowClass.atom = platform::AddAtomLocked(platform::Table(), windowClass.name);
    if (!windowClass.atom) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }
    windowClass.procedure = source.lpfnWndProc;
    windowClass.windowExtra = source.cbWndExtra;
    windowClass.instance = source.hInstance;
    windowClass.style = source.style;
    platform::Table().classes.push_back(windowClass);
    return windowClass.atom;
}

}  // namespace

ATOM RegisterClassExW(const WNDCLASSEXW *windowClass) {
    if (!windowClass || windowClass->cbSize != sizeof(WNDCLASSEXW)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    return RegisterClassFrom(*windowClass);
}

ATOM RegisterClassW(const WNDCLASSW *windowClass) {
    if (!windowClass) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    WNDCLASSEXW extended{};
    extended.cbSize = sizeof(extended);
    extended.style = windowClass->style;
    extended.lpfnWndProc = windowClass->lpfnWndProc;
    extended.cbClsExtra = windowClass->cbClsExtra;
    extended.cbWndExtra = windowClass->cbWndExtra;
    extended.hInstance = windowClass->hInstance;
    extended.hIcon = windowClass->hIcon;
    extended.hCursor = windowClass->hCursor;
    extended.hbrBackground = windowClass->hbrBackground;
    extended.lpszMenuName = windowClass->lpszMenuName;
    extended.lpszClassName = windowClass->lpszClassName;
    return RegisterClassFrom(extended);
}

BOOL UnregisterClassW(LPCWSTR className, HINSTANCE) {
    std::lock_guard guard(WindowLock());
    platform::WindowClass *windowClass = platform::FindClassLocked(className);
    if (!windowClass || windowClass->system) {
        SetLastError(ERROR_CLASS_DOES_NOT_EXIST);
        return FALSE;
    }
    for (const auto &[key, window] : platform::Table().windows) {
        if (!window->remote && window->classAtom == windowClass->atom) {
            SetLastError(ERROR_CLASS_HAS_WINDOWS);
            return FALSE;
        }
    }
    auto &classes = platform::Table().classes;
    classes.erase(classes.begin() + (windowClass - classes.data()));
    return TRUE;
}

int GetClassNameW(HWND window, LPWSTR className, int size) {
    std::shared_ptr<Window> object = FindWindowObject(window);
    if (!object) {
        platform::RefuseWindow();
        return 0;
    }
    if (!className || size <= 0) return 0;
    wcsncpy_s(className, static_cast<std::size_t>(size), object->className.c_str(), _TRUNCATE);
    return static_cast<int>(std::wcslen(className));
}

// ------------------------------------------------------ creation, destruction

HWND CreateWindowExW(DWORD exStyle, LPCWSTR className, LPCWSTR windowName, DWORD style, int x,
                     int y, int width, int height, HWND parent, HMENU menu, HINSTANCE instance,
                     LPVOID param) {
    auto window = std::make_shared<Window>();
    window->queue = platform::CurrentQueue();
    window->threadId = GetCurrentThreadId();
    window->messageOnly = parent == HWND_MESSAGE;
    const bool child = (style & WS_CHILD) && !window->messageOnly;
    bool announce = false;
    {
        std::lock_guard guard(WindowLock());
        platform::WindowClass *windowClass =
            className ? platform::FindClassLocked(className) : nullptr;
        if (!windowClass) {
            SetLastError(ERROR_CANNOT_FIND_WND_CLASS);
            return nullptr;
        }
        std::shared_ptr<Window> parentObject;
        if (parent && !window->messageOnly) {
            parentObject = platform::FindLocked(parent);
            if (!parentObject || parentObject->remote) {
                platform::RefuseWindow();
                return nullptr;
            }
        }
        if (child && !parentObject) {
            SetLastError(ERROR_TLW_WITH_WSCHILD);
            return nullptr;
        }
        platform::WindowTable &table = platform::Table();
        window->handle = reinterpret_cast<HWND>(table.nextHandle);
        table.nextHandle += platform::kHandleStep;
        window->className = windowClass->name;
        window->classAtom = windowClass->atom;
        window->systemClass = windowClass->system;
        window->isDialog = windowClass->atom == platform::kDialogAtom;
        window->instance = instance;
        window->procedure = windowClass->procedure;
        window->extra.assign(static_cast<std::size_t>(windowClass->windowExtra), 0);
        window->style = style & ~WS_VISIBLE;
        window->exStyle = exStyle;
        window->text = windowName ? windowName : L"";
        window->rect = platform::MakeRect(x, y, width, height);
        if (child) {
            window->parent = parent;
            window->id = static_cast<int>(reinterpret_cast<std::intptr_t>(menu));
            parentObject->children.push_back(window->handle);
        } else if (parentObject) {
            window->owner = platform::TopLevelLocked(parentObject);
        }
        table.windows.emplace(platform::Key(window->handle), window);
        announce = !child && !window->messageOnly && !windowClass->system;
    }

    CREATESTRUCTW create{};
    create.lpCreateParams = param;
    create.hInstance = instance;
    create.hMenu = menu;
    create.hwndParent = parent;
    create.cx = width;
    create.cy = height;
    create.x = x;
    create.y = y;
    create.style = static_cast<LONG>(style);
    create.lpszName = windowName;
    create.lpszClass = className;
    create.dwExStyle = exStyle;
    auto createParam = reinterpret_cast<LPARAM>(&create);
    HWND handle = window->handle;
    if (!platform::CallWindowProcedure(window, WM_NCCREATE, 0, createParam) ||
        platform::CallWindowProcedure(window, WM_CREATE, 0, createParam) == -1) {
        if (IsWindow(handle)) DestroyWindow(handle);
        return nullptr;
    }
    if (!IsWindow(handle)) return nullptr;
    if (style & WS_VISIBLE) ShowWindow(handle, SW_SHOW);
    if (announce) platform::WindowBroker::Instance().Announce(handle, window->className);
    // A dialog is announced to the hosts once it is initialised.
    if (!window->isDialog) platform::NotifyWindowEvent(platform::WindowEventKind::Created, handle);
    return handle;
}

BOOL DestroyWindow(HWND window) {
    std::shared_ptr<Window> object = platform::LocalWindow(window);
    if (!object) return FALSE;
    if (!platform::IsOwnThread(*object)) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    {
        std::lock_guard guard(WindowLock());
        if (object->life != WindowLife::Alive) return TRUE;
    }
    for (const auto &owned : platform::OwnedWindowsOnThread(window, object->threadId)) {
        DestroyWindow(owned->handle);
    }
    platform::DestroyTree(object);
    return TRUE;
}

BOOL IsWindow(HWND window) {
    std::shared_ptr<Window> object = FindWindowObject(window);
    if (!object) return FALSE;
    if (object->remote && !platform::WindowBroker::IsAlive(*object->remote)) {
        std::lock_guard guard(WindowLock());
        object->life = WindowLife::Gone;
        platform::Table().windows.erase(platform::Key(window));
        return FALSE;
    }
    return TRUE;
}

LRESULT DefWindowProcW(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
        case WM_NCCREATE:
        case WM_QUERYENDSESSION:
            return TRUE;
        case WM_CLOSE:
            DestroyWindow(window);
            return 0;
        case WM_SETTEXT: {
            std::shared_ptr<Window> object = FindWindowObject(window);
            if (!object) return FALSE;
            {
                std::lock_guard guard(WindowLock());
                object->text = lParam ? reinterpret_cast<LPCWSTR>(lParam) : L"";
            }
            platform::NotifyWindowEvent(platform::WindowEventKind::Changed, window);
            return TRUE;
        }
        case WM_GETTEXT: {
            auto *buffer = reinterpret_cast<LPWSTR>(lParam);
            std::shared_ptr<Window> object = FindWindowObject(window);
            if (!object || !buffer || wParam == 0) return 0;
            std::lock_guard guard(WindowLock());
            wcsncpy_s(buffer, wParam, object->text.c_str(), _TRUNCATE);
            return static_cast<LRESULT>(std::wcslen(buffer));
        }
        case WM_GETTEXTLENGTH: {
            std::shared_ptr<Window> object = FindWindowObject(window);
            if (!object) return 0;
            std::lock_guard guard(WindowLock());
            return static_cast<LRESULT>(object->text.size());
        }
        default:
            return 0;
    }
}

// -------------------------------------------------------------- relations

HWND GetParent(HWND window) {
    std::shared_ptr<Window> object = platform::LocalWindow(window);
    if (!object) return nullptr;
    std::lock_guard guard(WindowLock());
    if (object->parent) return object->parent;
    return (object->style & WS_POPUP) ? object->owner : nullptr;
}

HWND GetWindow(HWND window, UINT relation) {
    std::shared_ptr<Window> object = platform::LocalWindow(window);
    if (!object) return nullptr;
    std::lock_guard guard(WindowLock());
    if (relation == GW_OWNER) return object->owner;
    if (relation == GW_CHILD) return object->children.empty() ? nullptr : object->children.front();
    return nullptr;
}

BOOL IsChild(HWND parent, HWND window) {
    if (!parent || parent == window) return FALSE;
    std::lock_guard guard(WindowLock());
    return platform::IsSameOrDescendantLocked(parent, window) ? TRUE : FALSE;
}

// ------------------------------------------------------------------ state

BOOL EnableWindow(HWND window, BOOL enable) {
    std::shared_ptr<Window> object = platform::LocalWindow(window);
    if (!object) return FALSE;
    bool wasDisabled;
    {
        std::lock_guard guard(WindowLock());
        wasDisabled = (object->style & WS_DISABLED) != 0;
        if (wasDisabled != !enable) {
            object->style ^= WS_DISABLED;
            platform::MessageQueue &queue = *object->queue;
            if (!enable && platform::IsSameOrDescendantLocked(window, queue.focus)) {
                queue.focus = nullptr;
            }
        }
    }
    if (wasDisabled != !enable) {
        platform::Inform(object, WM_ENABLE, enable ? TRUE : FALSE, 0);
        platform::NotifyWindowEvent(platform::WindowEventKind::Changed, window);
    }
    return wasDisabled ? TRUE : FALSE;
}

BOOL IsWindowEnabled(HWND window) {
    std::shared_ptr<Window> object = platform::LocalWindow(window);
    if (!object) return FALSE;
    std::lock_guard guard(WindowLock());
    return (object->style & WS_DISABLED) ? FALSE : TRUE;
}

BOOL ShowWindow(HWND window, int command) {
    std::shared_ptr<Window> object = platform::LocalWindow(window);
    if (!object) return FALSE;
    const bool show = command != SW_HIDE;
    bool wasVisible;
    bool topLevel;
    {
        std::lock_guard guard(WindowLock());
        wasVisible = (object->style & WS_VISIBLE) != 0;
        topLevel = !object->parent;
        if (show) {
            object->style |= WS_VISIBLE;
        } else {
            object->style &= ~WS_VISIBLE;
        }
        if (object->dialog.initializing) object->dialog.shownDuringInit = true;
        if (!show && wasVisible) platform::HandOverActivationLocked(*object);
    }
    if (show != wasVisible) {
        platform::Inform(object, WM_SHOWWINDOW, show ? TRUE : FALSE, 0);
        platform::NotifyWindowEvent(
            show ? platform::WindowEventKind::Shown : platform::WindowEventKind::Hidden, window);
    }
    if (show && topLevel && platform::IsOwnThread(*object) && platform::ActivatingShow(command)) {
        platform::Activate(object);
    }
    return wasVisible ? TRUE : FALSE;
}

BOOL IsWindowVisible(HWND window) {
    std::shared_ptr<Window> object = platform::LocalWindow(window);
    if (!object) return FALSE;
    std::lock_guard guard(WindowLock());
    while (object) {
        if (!(object->style & WS_VISIBLE)) return FALSE;
        object = object->parent ? platform::FindLocked(object->parent) : nullptr;
    }
    return TRUE;
}

BOOL UpdateWindow(HWND window) { return platform::LocalWindow(window) ? TRUE : FALSE; }

BOOL InvalidateRect(HWND window, const RECT *, BOOL) {
    return !window || platform::LocalWindow(window) ? TRUE : FALSE;
}

BOOL SetWindowPos(HWND window, HWND, int x, int y, int width, int height, UINT flags) {
    std::shared_ptr<Window> object = platform::LocalWindow(window);
    if (!object) return FALSE;
    bool resized = false;
    RECT rect;
    {
        std::lock_guard guard(WindowLock());
        rect = object->rect;
        if (!(flags & SWP_NOMOVE)) {
            LONG w = rect.right - rect.left;
            LONG h = rect.bottom - rect.top;
            rect = RECT{x, y, x + w, y + h};
        }
        if (!(flags & SWP_NOSIZE)) {
            resized = width != rect.right - rect.left || height != rect.bottom - rect.top;
            rect.right = rect.left + std::max(0, width);
            rect.bottom = rect.top + std::max(0, height);
        }
        object->rect = rect;
    }
    if (resized) {
        platform::Inform(object, WM_SIZE, SIZE_RESTORED,
                         MAKELPARAM(static_cast<WORD>(rect.right - rect.left),
                                    static_cast<WORD>(rect.bottom - rect.top)));
    }
    if (flags & SWP_SHOWWINDOW) ShowWindow(window, (flags & SWP_NOACTIVATE) ? SW_SHOWNA : SW_SHOW);
    if (flags & SWP_HIDEWINDOW) ShowWindow(window, SW_HIDE);
    return TRUE;
}

BOOL MoveWindow(HWND window, int x, int y, int width, int height, BOOL) {
    return SetWindowPos(window, nullptr, x, y, width, height, SWP_NOZORDER | SWP_NOACTIVATE);
}

BOOL GetWindowRect(HWND window, RECT *rect) {
    std::shared_ptr<Window> object = platform::LocalWindow(window);
    if (!object || !rect) return FALSE;
    std::lock_guard guard(WindowLock());
    *rect = object->rect;
    return TRUE;
}

BOOL GetClientRect(HWND window, RECT *rect) {
    std::shared_ptr<Window> object = platform::LocalWindow(window);
    if (!object || !rect) return FALSE;
    std::lock_guard guard(WindowLock());
    *rect =
        RECT{0, 0, object->rect.right - object->rect.left, object->rect.bottom - object->rect.top};
    return TRUE;
}

// ------------------------------------------------------------------- text

BOOL SetWindowTextW(HWND window, LPCWSTR text) {
    if (!platform::LocalWindow(window)) return FALSE;
    return SendMessageW(window, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text)) ? TRUE : FALSE;
}

int GetWindowTextW(HWND window, LPWSTR text, int size) {
    if (text && size > 0) text[0] = L'\0';
    std::shared_ptr<Window> object = FindWindowObject(window);
    if (!object) {
        platform::RefuseWindow();
        return 0;
    }
    if (!text || size <= 0) return 0;
    if (platform::IsOwnThread(*object)) {
        return static_cast<int>(SendMessageW(window, WM_GETTEXT, static_cast<WPARAM>(size),
                                             reinterpret_cast<LPARAM>(text)));
    }
    std::wstring stored;
    if (object->remote) {
        if (!platform::WindowBroker::Instance().QueryTitle(*object->remote, stored)) return 0;
    } else {
        std::lock_guard guard(WindowLock());
        stored = object->text;
    }
    wcsncpy_s(text, static_cast<std::size_t>(size), stored.c_str(), _TRUNCATE);
    return static_cast<int>(std::wcslen(text));
}

int GetWindowTextLengthW(HWND window) {
    std::shared_ptr<Window> object = platform::LocalWindow(window);
    if (!object) return 0;
    if (platform::IsOwnThread(*object)) {
        return static_cast<int>(SendMessageW(window, WM_GETTEXTLENGTH, 0, 0));
    }
    std::lock_guard guard(WindowLock());
    return static_cast<int>(object->text.size());
}

// ------------------------------------------------------------ window longs

namespace {

// Reads or writes a window value; `write` null reads. Returns the value
// before, or 0 with ERROR_INVALID_INDEX.
LONG_PTR AccessWindowLong(HWND window, int index, const LONG_PTR *write, std::size_t width) {
    std::shared_ptr<Window> object = platform::LocalWindow(window);
    if (!object) return 0;
    bool stateChanged = false;
    LONG_PTR previous = 0;
    {
        std::lock_guard guard(WindowLock());
        auto swap = [&](auto &field) {
            using Field = std::remove_reference_t<decltype(field)>;
            previous = static_cast<LONG_PTR>(field);
            if (write) field = static_cast<Field>(*write);
        };
        switch (index) {
            case GWLP_WNDPROC:
                previous = reinterpret_cast<LONG_PTR>(object->procedure);
                if (write) object->procedure = reinterpret_cast<WNDPROC>(*write);
                break;
            case GWLP_HINSTANCE:
                previous = reinterpret_cast<LONG_PTR>(object->instance);
                break;
            case GWLP_HWNDPARENT:
                previous =
                    reinterpret_cast<LONG_PTR>(object->parent ? object->parent : object->owner);
                if (write && !object->parent) object->owner = reinterpret_cast<HWND>(*write);
                break;
            case GWLP_ID:
                swap(object->id);
                break;
            case GWL_STYLE:
                previous = static_cast<LONG_PTR>(static_cast<LONG>(object->style));
                if (write) {
                    object->style = static_cast<DWORD>(*write);
                    stateChanged = true;
                }
                break;
            case GWL_EXSTYLE:
                previous = static_cast<LONG_PTR>(static_cast<LONG>(object->exStyle));
                if (write) object->exStyle = static_cast<DWORD>(*write);
                break;
            case GWLP_USERDATA:
                swap(object->userData);
                break;
            default:
                if (index < 0 || static_cast<std::size_t>(index) + width > object->extra.size()) {
                    SetLastError(ERROR_INVALID_INDEX);
                    return 0;
                }
                BYTE *at = object->extra.data() + index;
                if (width == sizeof(LONG_PTR)) {
                    std::memcpy(&previous, at, width);
                } else {
                    LONG narrow;
                    std::memcpy(&narrow, at, width);
                    previous = narrow;
                }
                // Only the pointer-sized call writes.
                if (write) std::memcpy(at, write, sizeof(LONG_PTR));
        }
    }
    if (stateChanged) platform::NotifyWindowEvent(platform::WindowEventKind::Changed, window);
    return previous;
}

}  // namespace

LONG_PTR SetWindowLongPtrW(HWND window, int index, LONG_PTR value) {
    return AccessWindowLong(window, index, &value, sizeof(LONG_PTR));
}

LONG_PTR GetWindowLongPtrW(HWND window, int index) {
    return AccessWindowLong(window, index, nullptr, sizeof(LONG_PTR));
}

LONG GetWindowLongW(HWND window, int index) {
    return static_cast<LONG>(AccessWindowLong(window, index, nullptr, sizeof(LONG)));
}

DWORD GetWindowThreadProcessId(HWND window, LPDWORD processId) {
    std::shared_ptr<Window> object = FindWindowObject(window);
    if (!object) {
        platform::RefuseWindow();
        return 0;
    }
    if (processId) *processId = object->remote ? object->remote->processId : GetCurrentProcessId();
    return object->threadId;
}

UINT RegisterWindowMessageW(LPCWSTR name) {
    if (!name || !*name) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    return platform::AddAtomName(name);
}

// ------------------------------------------------------ focus, activation

HWND SetFocus(HWND window) {
    std::shared_ptr<platform::MessageQueue> queue = platform::CurrentQueue();
    std::shared_ptr<Window> object;
    if (window) {
        object = platform::LocalWindow(window);
        if (!object) return nullptr;
        if (!platform::IsOwnThread(*object)) {
            SetLastError(ERROR_ACCESS_DENIED);
            return nullptr;
        }
    }
    HWND previous;
    {
        std::lock_guard guard(WindowLock());
        previous = platform::FindLocked(queue->focus) ? queue->focus : nullptr;
    }
    if (previous == window) return previous;
    if (object) {
        platform::ActivateTopLevelOf(object);
    }
    {
        std::lock_guard guard(WindowLock());
        queue->focus = window;
    }
    if (std::shared_ptr<Window> old = platform::FindOwnWindow(previous)) {
        platform::CallWindowProcedure(old, WM_KILLFOCUS, reinterpret_cast<WPARAM>(window), 0);
    }
    if (object) {
        platform::CallWindowProcedure(object, WM_SETFOCUS, reinterpret_cast<WPARAM>(previous), 0);
    }
    return previous;
}

HWND GetFocus() {
    std::shared_ptr<platform::MessageQueue> queue = platform::CurrentQueue();
    std::lock_guard guard(WindowLock());
    return platform::FindLocked(queue->focus) ? queue->focus : nullptr;
}

HWND GetActiveWindow() {
    std::shared_ptr<platform::MessageQueue> queue = platform::CurrentQueue();
    std::lock_guard guard(WindowLock());
    return platform::FindLocked(queue->active) ? queue->active : nullptr;
}

BOOL SetForegroundWindow(HWND window) {
    if (!window) return FALSE;
    std::shared_ptr<Window> object = FindWindowObject(window);
    if (!object || object->remote) return TRUE;
    platform::ActivateTopLevelOf(object);
    return TRUE;
}

HWND SetCapture(HWND window) { return platform::captureWindow.exchange(window); }

BOOL ReleaseCapture() {
    platform::captureWindow.store(nullptr);
    return TRUE;
}

HWND GetCapture() { return platform::captureWindow.load(); }

HWND FindWindowW(LPCWSTR className, LPCWSTR windowName) {
    if (HWND local = platform::FindLocalTopLevel(className, windowName)) return local;
    std::wstring name;
    if (className && IS_INTRESOURCE(className)) {
        name = platform::AtomName(static_cast<ATOM>(reinterpret_cast<ULONG_PTR>(className)));
        if (name.empty()) return nullptr;
        className = name.c_str();
    }
    return platform::WindowBroker::Instance().Find(className, windowName);
}
