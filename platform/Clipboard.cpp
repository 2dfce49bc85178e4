#include "platform/Clipboard.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "platform/MessageQueue.h"
#include "platform/WideText.h"
#include "platform/WinError.h"
#include "platform/WinThread.h"
#include "platform/Window.h"

namespace {

struct Entry {
    UINT format;
    HANDLE data;
    bool made;  // text made from another text format on request
};

struct ClipboardState {
    std::mutex lock;
    bool open = false;
    DWORD openThread = 0;
    HWND openWindow = nullptr;
    HWND owner = nullptr;
    std::vector<Entry> formats;  // in the order they were set
    bool textChanged = false;
    platform::ClipboardTextHook hook;
};

// Never destroyed: the clipboard may be used during static destruction.
ClipboardState &Clipboard() {
    static auto *state = new ClipboardState;
    return *state;
}

bool IsTextFormat(UINT format) {
    return format == CF_TEXT || format == CF_OEMTEXT || format == CF_UNICODETEXT;
}

bool OpenedByCaller(const ClipboardState &state) {
    if (state.open && state.openThread == GetCurrentThreadId()) return true;
    SetLastError(ERROR_CLIPBOARD_NOT_OPEN);
    return false;
}

HANDLE StoredLocked(const ClipboardState &state, UINT format) {
    for (const Entry &entry : state.formats) {
        if (entry.format == format) return entry.data;
    }
    return nullptr;
}

void Release(HANDLE data) {
    if (platform::IsGlobalMemory(data)) GlobalFree(data);
}

// The text of a stored text block, read within the block's size.
std::optional<std::wstring> ReadText(UINT format, HANDLE data) {
    SIZE_T size = GlobalSize(data);
    const void *bytes = GlobalLock(data);
    if (!bytes) return std::nullopt;
    std::wstring text;
    if (format == CF_UNICODETEXT) {
        const auto *characters = static_cast<const wchar_t *>(bytes);
        text.assign(characters, wcsnlen(characters, size / sizeof(wchar_t)));
    } else {
        const auto *characters = static_cast<const char *>(bytes);
        text = platform::FromUtf8(std::string_view(characters, strnlen(characters, size)));
    }
    GlobalUnlock(data);
    return text;
}

HGLOBAL WriteText(UINT format, const std::wstring &text) {
    std::string narrow;
    const void *source = text.c_str();
    SIZE_T size = (text.size() + 1) * sizeof(wchar_t);
    if (format != CF_UNICODETEXT) {
        narrow = platform::ToUtf8(text);
        source = narrow.c_str();
        size = narrow.size() + 1;
    }
    HGLOBAL data = GlobalAlloc(GMEM_MOVEABLE, size);
    if (!data) return nullptr;
    std::memcpy(GlobalLock(data), source, size);
    GlobalUnlock(data);
    return data;
}

// The clipboard's text from whichever text format it holds.
std::optional<std::wstring> TextLocked(const ClipboardState &state) {
    for (UINT format : {CF_UNICODETEXT, CF_TEXT, CF_OEMTEXT}) {
        if (HANDLE data = StoredLocked(state, format)) return ReadText(format, data);
    }
    return std::nullopt;
}

// What can be had: the stored formats, then the text formats that can be
// made from stored text.
std::vector<UINT> AvailableLocked(const ClipboardState &state) {
    std::vector<UINT> formats;
    for (const Entry &entry : state.formats) formats.push_back(entry.format);
    const bool hasText = std::any_of(formats.begin(), formats.end(), IsTextFormat);
    if (!hasText) return formats;
    for (UINT format : {CF_UNICODETEXT, CF_TEXT, CF_OEMTEXT}) {
        if (std::find(formats.begin(), formats.end(), format) == formats.end()) {
            formats.push_back(format);
        }
    }
    return formats;
}

}  // namespace

BOOL OpenClipboard(HWND owner) {
    ClipboardState &state = Clipboard();
    std::lock_guard guard(state.lock);
    const DWORD self = GetCurrentThreadId();
    if (state.open && state.openThread != self) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    state.open = true;
    state.openThread = self;
    state.openWindow = owner;
    state.textChanged = false;
    return TRUE;
}

BOOL CloseClipboard() {
    ClipboardState &state = Clipboard();
    std::optional<std::wstring> text;
    platform::ClipboardTextHook hook;
    {
        std::lock_guard guard(state.lock);
        if (!OpenedByCaller(state)) return FALSE;
        state.open = false;
        state.openThread = 0;
        state.openWindow = nullptr;
        if (state.textChanged && state.hook) {
            text = TextLocked(state);
            hook = state.hook;
        }
        state.textChanged = false;
    }
    if (text && hook) hook(*text);
    return TRUE;
}

BOOL EmptyClipboard() {
    ClipboardState &state = Clipboard();
    HWND previousOwner;
    {
        std::lock_guard guard(state.lock);
        if (!OpenedByCaller(state)) return FALSE;
        for (const Entry &entry : state.formats) Release(entry.data);
        state.formats.clear();
        previousOwner = state.owner;
        state.owner = state.openWindow;
    }
    if (previousOwner && IsWindow(previousOwner)) {
        SendNotifyMessageW(previousOwner, WM_DESTROYCLIPBOARD, 0, 0);
    }
    return TRUE;
}

HANDLE SetClipboardData(UINT format, HANDLE data) {
    ClipboardState &state = Clipboard();
    std::lock_guard guard(state.lock);
    if (!OpenedByCaller(state)) return nullptr;
    if (!format || !data) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    // Text made from earlier text no longer matches what is set now.
    if (IsTextFormat(format)) {
        auto made = std::stable_partition(state.formats.begin(), state.formats.end(),
                                          [](const Entry &entry) { return !entry.made; });
        std::for_each(made, state.formats.end(), [](const Entry &entry) { Release(entry.data); });
        state.formats.erase(made, state.formats.end());
        state.textChanged = true;
    }
    auto found = std::find_if(state.formats.begin(), state.formats.end(),
                              [format](const Entry &entry) { return entry.format == format; });
    if (found != state.formats.end()) {
        if (found->data != data) Release(found->data);
        found->data = data;
    } else {
        state.formats.push_back(Entry{format, data, false});
    }
    return data;
}

HANDLE GetClipboardData(UINT format) {
    ClipboardState &state = Clipboard();
    std::lock_guard guard(state.lock);
    if (!OpenedByCaller(state)) return nullptr;
    if (HANDLE data = StoredLocked(state, format)) return data;
    if (!IsTextFormat(format)) return nullptr;
    std::optional<std::wstring> text = TextLocked(state);
    if (!text) return nullptr;
    HGLOBAL made = WriteText(format, *text);
    if (made) state.formats.push_back(Entry{format, made, true});
    return made;
}

BOOL IsClipboardFormatAvailable(UINT format) {
    ClipboardState &state = Clipboard();
    std::lock_guard guard(state.lock);
    std::vector<UINT> formats = AvailableLocked(state);
    return std::find(formats.begin(), formats.end(), format) != formats.end() ? TRUE : FALSE;
}

int CountClipboardFormats() {
    ClipboardState &state = Clipboard();
    std::lock_guard guard(state.lock);
    return static_cast<int>(AvailableLocked(state).size());
}

UINT RegisterClipboardFormatW(LPCWSTR name) {
    if (!name || !*name) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    return platform::AddAtomName(name);
}

HWND GetOpenClipboardWindow() {
    ClipboardState &state = Clipboard();
    std::lock_guard guard(state.lock);
    return state.open ? state.openWindow : nullptr;
}

namespace platform {

ClipboardTextHook SetClipboardTextHook(ClipboardTextHook hook) {
    ClipboardState &state = Clipboard();
    std::lock_guard guard(state.lock);
    return std::exchange(state.hook, std::move(hook));
}

}  // namespace platform
