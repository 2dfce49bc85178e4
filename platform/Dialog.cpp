#include "platform/Dialog.h"

#include <algorithm>
#include <climits>
#include <cwchar>
#include <memory>

#include "platform/WideText.h"
#include "platform/WinError.h"
#include "platform/WinFormat.h"
#include "platform/WinThread.h"

using platform::ControlState;
using platform::ListRow;
using platform::Window;
using platform::WindowLock;

namespace {

// Messages whose handled result is the dialog procedure's own return value
// instead of DWLP_MSGRESULT.
bool AnswersDirectly(UINT message) {
    constexpr UINT kCompareItem = 0x0039;
    constexpr UINT kVKeyToItem = 0x002E;
    constexpr UINT kCharToItem = 0x002F;
    constexpr UINT kQueryDragIcon = 0x0037;
    constexpr UINT kFirstCtlColor = 0x0132;
    constexpr UINT kLastCtlColor = 0x0138;
    return message == WM_INITDIALOG || message == kCompareItem || message == kVKeyToItem ||
           message == kCharToItem || message == kQueryDragIcon ||
           (message >= kFirstCtlColor && message <= kLastCtlColor);
}

std::shared_ptr<Window> LocalWindow(HWND handle) {
    std::shared_ptr<Window> window = platform::FindWindowObject(handle);
    if (window && !window->remote) return window;
    SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    return nullptr;
}

// The existing child with that id, without making one.
HWND ExistingChild(const Window &parent, int id) {
    std::lock_guard guard(WindowLock());
    for (HWND child : parent.children) {
        std::shared_ptr<Window> object = platform::FindWindowObjectLocked(child);
        if (object && object->id == id) return child;
    }
    return nullptr;
}

HWND ExistingChild(HWND parent, int id) {
    std::shared_ptr<Window> window = platform::FindWindowObject(parent);
    return window ? ExistingChild(*window, id) : nullptr;
}

bool DialogEnded(const Window &dialog) {
    std::lock_guard guard(WindowLock());
    return dialog.dialog.ended || dialog.life != platform::WindowLife::Alive;
}

HWND CreateDialogWindow(HINSTANCE instance, LPCWSTR templateName, HWND parent, DLGPROC procedure,
                        LPARAM param, bool modal) {
    HWND dialog = CreateWindowExW(0, WC_DIALOG, L"", WS_POPUP | WS_CAPTION | WS_SYSMENU, 0, 0, 0, 0,
                                  parent, nullptr, instance, nullptr);
    if (!dialog) return nullptr;
    std::shared_ptr<Window> window = platform::FindOwnWindow(dialog);
    {
        std::lock_guard guard(WindowLock());
        window->dialog.modal = modal;
        if (IS_INTRESOURCE(templateName)) {
            window->dialog.templateId =
                static_cast<WORD>(reinterpret_cast<ULONG_PTR>(templateName));
        } else if (templateName) {
            window->dialog.templateName = templateName;
        }
        window->dialog.initializing = true;
    }
    SetWindowLongPtrW(dialog, DWLP_DLGPROC, reinterpret_cast<LONG_PTR>(procedure));
    SendMessageW(dialog, WM_INITDIALOG, 0, param);
    bool shownDuringInit;
    {
        std::lock_guard guard(WindowLock());
        window->dialog.initializing = false;
        shownDuringInit = window->dialog.shownDuringInit;
    }
    if (!IsWindow(dialog)) return nullptr;
    if (!shownDuringInit && !DialogEnded(*window)) ShowWindow(dialog, SW_SHOWNORMAL);
    platform::NotifyWindowEvent(platform::WindowEventKind::Created, dialog);
    return dialog;
}

// Parses what GetDlgItemInt accepts; false for anything else.
bool ParseDialogInt(const std::wstring &text, bool isSigned, UINT &value) {
    std::size_t at = text.find_first_not_of(L" \t");
    if (at == std::wstring::npos) return false;
    bool negative = false;
    if (isSigned && text[at] == L'-') {
        negative = true;
        ++at;
    }
    if (at >= text.size()) return false;
    unsigned long long magnitude = 0;
    for (; at < text.size(); ++at) {
        if (text[at] < L'0' || text[at] > L'9') return false;
        magnitude = magnitude * 10 + static_cast<unsigned>(text[at] - L'0');
        if (magnitude > UINT_MAX) return false;
    }
    if (isSigned) {
        const unsigned long long limit = negative ? 1ULL + INT_MAX : INT_MAX;
        if (magnitude > limit) return false;
        long long signedValue =
            negative ? -static_cast<long long>(magnitude) : static_cast<long long>(magnitude);
        value = static_cast<UINT>(static_cast<int>(signedValue));
        return true;
    }
    value = static_cast<UINT>(magnitude);
    return true;
}

// ------------------------------------------------------------ control state

int ClampToRange(const ControlState &state, int position) {
    if (state.rangeLow > state.rangeHigh) return position;
    return std::clamp(position, state.rangeLow, state.rangeHigh);
}

LRESULT OldRange(const ControlState &state) {
    return MAKELRESULT(static_cast<WORD>(state.rangeLow), static_cast<WORD>(state.rangeHigh));
}

// Progress bar messages; false for others.
bool ProgressMessage(ControlState &state, UINT message, WPARAM wParam, LPARAM lParam,
                     LRESULT &result) {
    const int previous = state.position;
    switch (message) {
        case PBM_SETRANGE:
            result = OldRange(state);
            state.rangeLow = LOWORD(static_cast<DWORD_PTR>(lParam));
            state.rangeHigh = HIWORD(static_cast<DWORD_PTR>(lParam));
            state.position = ClampToRange(state, state.position);
            return true;
        case PBM_SETRANGE32:
            result = OldRange(state);
            state.rangeLow = static_cast<int>(wParam);
            state.rangeHigh = static_cast<int>(lParam);
            state.position = ClampToRange(state, state.position);
            return true;
        case PBM_GETRANGE:
            if (auto *range = reinterpret_cast<PBRANGE *>(lParam)) {
                range->iLow = state.rangeLow;
                range->iHigh = state.rangeHigh;
            }
            result = wParam ? state.rangeLow : state.rangeHigh;
            return true;
        case PBM_SETPOS:
            state.position = ClampToRange(state, static_cast<int>(wParam));
            result = previous;
            return true;
        case PBM_GETPOS:
            result = state.position;
            return true;
        case PBM_SETBARCOLOR:
        case PBM_SETMARQUEE:
            result = 0;
            return true;
        default:
            return false;
    }
}

bool ValidRow(const ControlState &state, LONG_PTR index) {
    return index >= 0 && static_cast<std::size_t>(index) < state.rows.size();
}

LRESULT AddRow(ControlState &state, LONG_PTR index, LPCWSTR text) {
    if (index == -1) index = static_cast<LONG_PTR>(state.rows.size());
    if (index < 0 || static_cast<std::size_t>(index) > state.rows.size()) return CB_ERR;
    ListRow row;
    row.texts.emplace_back(text ? text : L"");
    state.rows.insert(state.rows.begin() + index, std::move(row));
    if (state.selection >= index) ++state.selection;
    return index;
}

LRESULT DeleteRow(ControlState &state, LONG_PTR index) {
    if (!ValidRow(state, index)) return CB_ERR;
    state.rows.erase(state.rows.begin() + index);
    if (state.selection == index) state.selection = -1;
    if (state.selection > index) --state.selection;
    return static_cast<LRESULT>(state.rows.size());
}

LRESULT FindExact(const ControlState &state, LONG_PTR start, LPCWSTR text) {
    const auto count = static_cast<LONG_PTR>(state.rows.size());
    for (LONG_PTR step = 1; step <= count; ++step) {
        LONG_PTR index = ((start < 0 ? -1 : start) + step) % count;
        if (platform::EqualsNoCase(state.rows[index].texts.front(), text ? text : L""))
            return index;
    }
    return CB_ERR;
}

// Combo box messages (a selection also shows the row as the control's
// text); false for others.
bool ListMessage(Window &control, UINT message, WPARAM wParam, LPARAM lParam, LRESULT &result) {
    ControlState &state = control.control;
    const auto index = static_cast<LONG_PTR>(wParam);
    const auto *text = reinterpret_cast<LPCWSTR>(lParam);
    switch (message) {
        case CB_ADDSTRING:
            result = AddRow(state, -1, text);
            return true;
        case CB_INSERTSTRING:
            result = AddRow(state, index, text);
            return true;
        case CB_DELETESTRING:
            result = DeleteRow(state, index);
            return true;
        case CB_RESETCONTENT:
            state.rows.clear();
            state.selection = -1;
            result = 0;
            return true;
        case CB_GETCOUNT:
            result = static_cast<LRESULT>(state.rows.size());
            return true;
        case CB_GETLBTEXT:
            result = CB_ERR;
            if (ValidRow(state, index) && lParam) {
                const std::wstring &row = state.rows[index].texts.front();
                std::wmemcpy(reinterpret_cast<LPWSTR>(lParam), row.c_str(), row.size() + 1);
                result = static_cast<LRESULT>(row.size());
            }
            return true;
        case CB_GETLBTEXTLEN:
            result = ValidRow(state, index)
                         ? static_cast<LRESULT>(state.rows[index].texts.front().size())
                         : CB_ERR;
            return true;
        case CB_SETCURSEL:
            state.selection = ValidRow(state, index) ? static_cast<int>(index) : -1;
            result = state.selection >= 0 ? state.selection : CB_ERR;
            control.text = state.selection >= 0 ? state.rows[index].texts.front() : L"";
            return true;
        case CB_GETCURSEL:
            result = state.selection;
            return true;
        case CB_GETITEMDATA:
            result = ValidRow(state, index) ? state.rows[index].data : CB_ERR;
            return true;
        case CB_SETITEMDATA:
            result = CB_ERR;
            if (ValidRow(state, index)) {
                state.rows[index].data = lParam;
                result = 0;
            }
            return true;
        case CB_FINDSTRINGEXACT:
            result = FindExact(state, index, text);
            return true;
        default:
            return false;
    }
}

std::wstring &SubItemText(ListRow &row, int subItem) {
    if (row.texts.size() <= static_cast<std::size_t>(subItem)) row.texts.resize(subItem + 1);
    return row.texts[subItem];
}

void SetRowState(ListRow &row, UINT state, UINT mask) {
    row.state = (row.state & ~mask) | (state & mask);
}

void ApplyItem(ListRow &row, const LVITEMW &item) {
    if ((item.mask & LVIF_TEXT) && item.pszText)
        SubItemText(row, std::max(0, item.iSubItem)) = item.pszText;
    if (item.mask & LVIF_STATE) SetRowState(row, item.state, item.stateMask);
    if (item.mask & LVIF_PARAM) row.data = item.lParam;
}

LRESULT InsertListViewItem(ControlState &state, const LVITEMW *item) {
    if (!item) return -1;
    const auto count = static_cast<int>(state.rows.size());
    const int index = std::clamp(item->iItem, 0, count);
    ListRow row;
    row.texts.emplace_back();
    ApplyItem(row, *item);
    if ((state.listViewStyle & LVS_EX_CHECKBOXES) && !(row.state & LVIS_STATEIMAGEMASK)) {
        row.state |= INDEXTOSTATEIMAGEMASK(1);
    }
    state.rows.insert(state.rows.begin() + index, std::move(row));
    return index;
}

// List view messages; false for others.
bool ListViewMessage(ControlState &state, UINT message, WPARAM wParam, LPARAM lParam,
                     LRESULT &result) {
    const auto index = static_cast<LONG_PTR>(static_cast<int>(wParam));
    auto *item = reinterpret_cast<LVITEMW *>(lParam);
    switch (message) {
        case LVM_GETITEMCOUNT:
            result = static_cast<LRESULT>(state.rows.size());
            return true;
        case LVM_INSERTITEMW:
            result = InsertListViewItem(state, item);
            return true;
        case LVM_SETITEMTEXTW:
            result = FALSE;
            if (item && ValidRow(state, index)) {
                SubItemText(state.rows[index], std::max(0, item->iSubItem)) =
                    item->pszText ? item->pszText : L"";
                result = TRUE;
            }
            return true;
        case LVM_SETITEMSTATE:
            result = FALSE;
            if (item && (index == -1 || ValidRow(state, index))) {
                for (LONG_PTR i = 0; i < static_cast<LONG_PTR>(state.rows.size()); ++i) {
                    if (index == -1 || i == index)
                        SetRowState(state.rows[i], item->state, item->stateMask);
                }
                result = TRUE;
            }
            return true;
        case LVM_GETITEMSTATE:
            result =
                ValidRow(state, index) ? static_cast<LRESULT>(state.rows[index].state & lParam) : 0;
            return true;
        case LVM_SETEXTENDEDLISTVIEWSTYLE: {
            result = state.listViewStyle;
            const auto mask = wParam ? static_cast<DWORD>(wParam) : 0xFFFFFFFFu;
            state.listViewStyle =
                (state.listViewStyle & ~mask) | (static_cast<DWORD>(lParam) & mask);
            return true;
        }
        case LVM_INSERTCOLUMNW:
            result = static_cast<LRESULT>(wParam);
            return true;
        default:
            return false;
    }
}

// Button messages; false for others.
bool ButtonMessage(ControlState &state, UINT message, WPARAM wParam, LRESULT &result) {
    switch (message) {
        case BM_GETCHECK:
        case BM_GETSTATE:
            result = state.check;
            return true;
        case BM_SETCHECK:
            state.check = static_cast<int>(wParam);
            result = 0;
            return true;
        case BM_SETSTATE:
            result = 0;
            return true;
        default:
            return false;
    }
}

bool IsQuery(UINT message) {
    switch (message) {
        case BM_GETCHECK:
        case BM_GETSTATE:
        case PBM_GETRANGE:
        case PBM_GETPOS:
        case CB_GETCOUNT:
        case CB_GETLBTEXT:
        case CB_GETLBTEXTLEN:
        case CB_GETCURSEL:
        case CB_GETITEMDATA:
        case CB_FINDSTRINGEXACT:
        case LVM_GETITEMCOUNT:
        case LVM_GETITEMSTATE:
            return true;
        default:
            return false;
    }
}

void Click(HWND control) {
    std::shared_ptr<Window> window = platform::FindWindowObject(control);
    if (!window) return;
    HWND parent;
    int id;
    {
        std::lock_guard guard(WindowLock());
        switch (window->style & BS_TYPEMASK) {
            case BS_AUTOCHECKBOX:
                window->control.check =
                    window->control.check == BST_CHECKED ? BST_UNCHECKED : BST_CHECKED;
                break;
            case BS_AUTO3STATE:
                window->control.check = (window->control.check + 1) % 3;
                break;
            case BS_AUTORADIOBUTTON:
                window->control.check = BST_CHECKED;
                break;
            default:
                break;
        }
        parent = window->parent;
        id = window->id;
    }
    platform::NotifyWindowEvent(platform::WindowEventKind::Changed, control);
    if (parent) {
        SendMessageW(parent, WM_COMMAND, MAKEWPARAM(static_cast<WORD>(id), BN_CLICKED),
                     reinterpret_cast<LPARAM>(control));
    }
}

}  // namespace

namespace platform {

LRESULT CALLBACK ControlWindowProc(HWND control, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == BM_CLICK) {
        Click(control);
        return 0;
    }
    std::shared_ptr<Window> window = FindWindowObject(control);
    if (!window) return DefWindowProcW(control, message, wParam, lParam);
    LRESULT result = 0;
    bool handled;
    {
        std::lock_guard guard(WindowLock());
        ControlState &state = window->control;
        handled = ButtonMessage(state, message, wParam, result) ||
                  ProgressMessage(state, message, wParam, lParam, result) ||
                  ListMessage(*window, message, wParam, lParam, result) ||
                  ListViewMessage(state, message, wParam, lParam, result);
    }
    if (!handled) return DefWindowProcW(control, message, wParam, lParam);
    if (!IsQuery(message)) NotifyWindowEvent(WindowEventKind::Changed, control);
    return result;
}

WORD DialogTemplateId(HWND dialog) {
    std::shared_ptr<Window> window = FindWindowObject(dialog);
    if (!window || !window->isDialog) return 0;
    std::lock_guard guard(WindowLock());
    return window->dialog.templateId;
}

ControlSnapshot ReadControl(HWND dialog, int id) {
    ControlSnapshot snapshot;
    std::shared_ptr<Window> parent = FindWindowObject(dialog);
    if (!parent) return snapshot;
    HWND control = ExistingChild(*parent, id);
    std::shared_ptr<Window> window = FindWindowObject(control);
    if (!window) return snapshot;
    snapshot.exists = true;
    snapshot.window = control;
    {
        std::lock_guard guard(WindowLock());
        snapshot.text = window->text;
        snapshot.enabled = !(window->style & WS_DISABLED);
        snapshot.state = window->control;
    }
    snapshot.visible = IsWindowVisible(control) != FALSE;
    return snapshot;
}

}  // namespace platform

// ------------------------------------------------------------------ dialogs

HWND CreateDialogParamW(HINSTANCE instance, LPCWSTR templateName, HWND parent, DLGPROC procedure,
                        LPARAM param) {
    return CreateDialogWindow(instance, templateName, parent, procedure, param, false);
}

INT_PTR DialogBoxParamW(HINSTANCE instance, LPCWSTR templateName, HWND parent, DLGPROC procedure,
                        LPARAM param) {
    if (parent && !IsWindow(parent)) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return 0;
    }
    HWND dialog = CreateDialogWindow(instance, templateName, parent, procedure, param, true);
    if (!dialog) return -1;
    std::shared_ptr<Window> window = platform::FindOwnWindow(dialog);
    HWND owner = GetWindow(dialog, GW_OWNER);
    const bool disableOwner = owner && IsWindowEnabled(owner);
    if (disableOwner) EnableWindow(owner, FALSE);

    bool quit = false;
    WPARAM quitCode = 0;
    while (!DialogEnded(*window)) {
        MSG message;
        BOOL got = GetMessageW(&message, nullptr, 0, 0);
        if (got == -1) break;
        if (!got) {
            quit = true;
            quitCode = message.wParam;
            break;
        }
        if (!IsDialogMessageW(dialog, &message)) {
            TranslateMessage(&message);
            DispatchMessageW(&message);
        }
    }

    INT_PTR result;
    {
        std::lock_guard guard(WindowLock());
        result = window->dialog.result;
    }
    if (disableOwner) EnableWindow(owner, TRUE);
    if (IsWindow(dialog)) DestroyWindow(dialog);
    if (quit) PostQuitMessage(static_cast<int>(quitCode));
    return result;
}

BOOL EndDialog(HWND dialog, INT_PTR result) {
    std::shared_ptr<Window> window = LocalWindow(dialog);
    if (!window || !window->isDialog) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return FALSE;
    }
    bool modal;
    {
        std::lock_guard guard(WindowLock());
        window->dialog.ended = true;
        window->dialog.result = result;
        modal = window->dialog.modal;
    }
    ShowWindow(dialog, SW_HIDE);
    // Wakes the modal loop, which may be waiting for a posted message while
    // the end came with a sent one or from another thread.
    if (modal) PostMessageW(dialog, WM_NULL, 0, 0);
    return TRUE;
}

LRESULT DefDlgProcW(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam) {
    auto procedure = reinterpret_cast<DLGPROC>(GetWindowLongPtrW(dialog, DWLP_DLGPROC));
    if (procedure) {
        SetWindowLongPtrW(dialog, DWLP_MSGRESULT, 0);
        INT_PTR handled = procedure(dialog, message, wParam, lParam);
        if (handled) {
            return AnswersDirectly(message) ? handled : GetWindowLongPtrW(dialog, DWLP_MSGRESULT);
        }
    }
    switch (message) {
        case WM_CLOSE:
            PostMessageW(dialog, WM_COMMAND, MAKEWPARAM(IDCANCEL, BN_CLICKED),
                         reinterpret_cast<LPARAM>(ExistingChild(dialog, IDCANCEL)));
            return 0;
        case WM_INITDIALOG:
            return FALSE;
        default:
            return DefWindowProcW(dialog, message, wParam, lParam);
    }
}

BOOL IsDialogMessageW(HWND dialog, LPMSG message) {
    if (!dialog || !message) return FALSE;
    if (message->hwnd != dialog && !IsChild(dialog, message->hwnd)) return FALSE;
    const bool enter = message->wParam == VK_RETURN;
    const bool escape = message->wParam == VK_ESCAPE;
    if (message->message == WM_KEYDOWN && (enter || escape)) {
        const int id = escape ? IDCANCEL : IDOK;
        SendMessageW(dialog, WM_COMMAND, MAKEWPARAM(static_cast<WORD>(id), BN_CLICKED),
                     reinterpret_cast<LPARAM>(ExistingChild(dialog, id)));
        return TRUE;
    }
    if (message->message == WM_CHAR && (enter || escape)) return TRUE;
    DispatchMessageW(message);
    return TRUE;
}

// ----------------------------------------------------------------- controls

HWND GetDlgItem(HWND dialog, int id) {
    std::shared_ptr<Window> window = LocalWindow(dialog);
    if (!window) return nullptr;
    if (HWND found = ExistingChild(*window, id)) return found;
    if (!window->isDialog) {
        SetLastError(ERROR_CONTROL_ID_NOT_FOUND);
        return nullptr;
    }
    return platform::CreateImplicitControl(window, id);
}

int GetDlgCtrlID(HWND control) {
    std::shared_ptr<Window> window = LocalWindow(control);
    if (!window) return 0;
    std::lock_guard guard(WindowLock());
    return window->parent ? window->id : 0;
}

LRESULT SendDlgItemMessageW(HWND dialog, int id, UINT message, WPARAM wParam, LPARAM lParam) {
    HWND control = GetDlgItem(dialog, id);
    return control ? SendMessageW(control, message, wParam, lParam) : 0;
}

BOOL SetDlgItemTextW(HWND dialog, int id, LPCWSTR text) {
    HWND control = GetDlgItem(dialog, id);
    return control ? SetWindowTextW(control, text) : FALSE;
}

UINT GetDlgItemTextW(HWND dialog, int id, LPWSTR text, int size) {
    if (text && size > 0) text[0] = L'\0';
    HWND control = GetDlgItem(dialog, id);
    return control ? static_cast<UINT>(GetWindowTextW(control, text, size)) : 0;
}

BOOL SetDlgItemInt(HWND dialog, int id, UINT value, BOOL isSigned) {
    std::wstring text = isSigned ? FormatW(L"%d", static_cast<int>(value)) : FormatW(L"%u", value);
    return SetDlgItemTextW(dialog, id, text.c_str());
}

UINT GetDlgItemInt(HWND dialog, int id, BOOL *translated, BOOL isSigned) {
    if (translated) *translated = FALSE;
    HWND control = GetDlgItem(dialog, id);
    if (!control) return 0;
    std::wstring text(static_cast<std::size_t>(GetWindowTextLengthW(control)) + 1, L'\0');
    text.resize(static_cast<std::size_t>(
        GetWindowTextW(control, text.data(), static_cast<int>(text.size()))));
    UINT value = 0;
    if (!ParseDialogInt(text, isSigned != FALSE, value)) return 0;
    if (translated) *translated = TRUE;
    return value;
}

BOOL CheckDlgButton(HWND dialog, int id, UINT check) {
    HWND control = GetDlgItem(dialog, id);
    if (!control) return FALSE;
    SendMessageW(control, BM_SETCHECK, check, 0);
    return TRUE;
}

UINT IsDlgButtonChecked(HWND dialog, int id) {
    return static_cast<UINT>(SendDlgItemMessageW(dialog, id, BM_GETCHECK, 0, 0));
}

BOOL CheckRadioButton(HWND dialog, int firstId, int lastId, int checkId) {
    if (!LocalWindow(dialog)) return FALSE;
    for (int id = firstId; id <= lastId; ++id) {
        CheckDlgButton(dialog, id, id == checkId ? BST_CHECKED : BST_UNCHECKED);
    }
    return TRUE;
}

void ListView_SetItemText(HWND list, int item, int subItem, LPWSTR text) {
    LVITEMW row{};
    row.iSubItem = subItem;
    row.pszText = text;
    SendMessageW(list, LVM_SETITEMTEXTW, static_cast<WPARAM>(item), reinterpret_cast<LPARAM>(&row));
}

void ListView_SetItemState(HWND list, int item, UINT state, UINT mask) {
    LVITEMW row{};
    row.state = state;
    row.stateMask = mask;
    SendMessageW(list, LVM_SETITEMSTATE, static_cast<WPARAM>(item), reinterpret_cast<LPARAM>(&row));
}

void ListView_SetCheckState(HWND list, int item, BOOL checked) {
    ListView_SetItemState(list, item, INDEXTOSTATEIMAGEMASK(checked ? 2 : 1), LVIS_STATEIMAGEMASK);
}
