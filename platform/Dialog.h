// Dialog windows and their controls.
//
// There are no dialog resources here: a template name (a number from
// MAKEINTRESOURCEW, or a text) only names the dialog, and the dialog window
// is made empty. Its controls come into being when they are first addressed
// by id (GetDlgItem and every call built on it): a child window of class
// "DlgItem", visible and enabled, made without messages on the dialog's
// thread. Controls made with CreateWindowExW under the system class names
// ("Button", "Static", "Edit", "ComboBox", "msctls_progress32",
// "SysListView32") behave the same. Every control keeps its state in its
// window object and answers the messages of buttons, progress bars, combo
// boxes and list views alike, so dialog logic runs headless and tests read
// what it set.
//
// A modeless dialog (CreateDialogParamW) gets WM_INITDIALOG and is then shown
// and activated, unless its procedure set the visibility itself during
// WM_INITDIALOG. A modal dialog (DialogBoxParamW) runs a message loop on the
// calling thread until EndDialog, with its owner disabled meanwhile.
#pragma once

#include <string>

#include "platform/MessageQueue.h"
#include "platform/WinTypes.h"
#include "platform/Window.h"

using DLGPROC = INT_PTR (*)(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam);

// The dialog class "#32770", also reachable by its atom.
#define WC_DIALOG MAKEINTATOM(0x8002)

// System control classes.
#define WC_BUTTONW L"Button"
#define WC_STATICW L"Static"
#define WC_EDITW L"Edit"
#define WC_COMBOBOXW L"ComboBox"
#define PROGRESS_CLASSW L"msctls_progress32"
#define WC_LISTVIEWW L"SysListView32"

inline constexpr int IDC_STATIC = -1;

// Virtual keys IsDialogMessageW acts on.
inline constexpr WPARAM VK_TAB = 0x09;
inline constexpr WPARAM VK_RETURN = 0x0D;
inline constexpr WPARAM VK_ESCAPE = 0x1B;

inline constexpr DWORD ERROR_CONTROL_ID_NOT_FOUND = 1421;

// Buttons.
inline constexpr UINT BM_GETCHECK = 0x00F0;
inline constexpr UINT BM_SETCHECK = 0x00F1;
inline constexpr UINT BM_GETSTATE = 0x00F2;
inline constexpr UINT BM_SETSTATE = 0x00F3;
inline constexpr UINT BM_CLICK = 0x00F5;
inline constexpr UINT BST_UNCHECKED = 0x0000;
inline constexpr UINT BST_CHECKED = 0x0001;
inline constexpr UINT BST_INDETERMINATE = 0x0002;
inline constexpr WORD BN_CLICKED = 0;
inline constexpr DWORD BS_PUSHBUTTON = 0x0000;
inline constexpr DWORD BS_DEFPUSHBUTTON = 0x0001;
inline constexpr DWORD BS_CHECKBOX = 0x0002;
inline constexpr DWORD BS_AUTOCHECKBOX = 0x0003;
inline constexpr DWORD BS_RADIOBUTTON = 0x0004;
inline constexpr DWORD BS_3STATE = 0x0005;
inline constexpr DWORD BS_AUTO3STATE = 0x0006;
inline constexpr DWORD BS_AUTORADIOBUTTON = 0x0009;
inline constexpr DWORD BS_TYPEMASK = 0x000F;

// Progress bars.
inline constexpr UINT PBM_SETRANGE = WM_USER + 1;
inline constexpr UINT PBM_SETPOS = WM_USER + 2;
inline constexpr UINT PBM_SETRANGE32 = WM_USER + 6;
inline constexpr UINT PBM_GETRANGE = WM_USER + 7;
inline constexpr UINT PBM_GETPOS = WM_USER + 8;
inline constexpr UINT PBM_SETBARCOLOR = WM_USER + 9;
inline constexpr UINT PBM_SETMARQUEE = WM_USER + 10;
struct PBRANGE {
    int iLow;
    int iHigh;
};

// Combo boxes: rows of text with item data and one selected row.
inline constexpr UINT CB_ADDSTRING = 0x0143;
inline constexpr UINT CB_DELETESTRING = 0x0144;
inline constexpr UINT CB_GETCOUNT = 0x0146;
inline constexpr UINT CB_GETCURSEL = 0x0147;
inline constexpr UINT CB_GETLBTEXT = 0x0148;
inline constexpr UINT CB_GETLBTEXTLEN = 0x0149;
inline constexpr UINT CB_INSERTSTRING = 0x014A;
inline constexpr UINT CB_RESETCONTENT = 0x014B;
inline constexpr UINT CB_SETCURSEL = 0x014E;
inline constexpr UINT CB_GETITEMDATA = 0x0150;
inline constexpr UINT CB_SETITEMDATA = 0x0151;
inline constexpr UINT CB_FINDSTRINGEXACT = 0x0158;
inline constexpr LRESULT CB_ERR = -1;

// List views.
inline constexpr UINT LVM_FIRST = 0x1000;
inline constexpr UINT LVM_GETITEMCOUNT = LVM_FIRST + 4;
inline constexpr UINT LVM_SETITEMSTATE = LVM_FIRST + 43;
inline constexpr UINT LVM_GETITEMSTATE = LVM_FIRST + 44;
inline constexpr UINT LVM_SETEXTENDEDLISTVIEWSTYLE = LVM_FIRST + 54;
inline constexpr UINT LVM_INSERTITEMW = LVM_FIRST + 77;
inline constexpr UINT LVM_INSERTCOLUMNW = LVM_FIRST + 97;
inline constexpr UINT LVM_SETITEMTEXTW = LVM_FIRST + 116;
inline constexpr UINT LVIF_TEXT = 0x0001;
inline constexpr UINT LVIF_PARAM = 0x0004;
inline constexpr UINT LVIF_STATE = 0x0008;
inline constexpr UINT LVIS_STATEIMAGEMASK = 0xF000;
inline constexpr DWORD LVS_EX_CHECKBOXES = 0x0004;
inline constexpr UINT INDEXTOSTATEIMAGEMASK(UINT index) { return index << 12; }

struct LVITEMW {
    UINT mask;
    int iItem;
    int iSubItem;
    UINT state;
    UINT stateMask;
    LPWSTR pszText;
    int cchTextMax;
    int iImage;
    LPARAM lParam;
    int iIndent;
    int iGroupId;
    UINT cColumns;
    UINT *puColumns;
    int *piColFmt;
    int iGroup;
};

struct LVCOLUMNW {
    UINT mask;
    int fmt;
    int cx;
    LPWSTR pszText;
    int cchTextMax;
    int iSubItem;
    int iImage;
    int iOrder;
    int cxMin;
    int cxDefault;
    int cxIdeal;
};

// The dialog's procedure gets every message but WM_NCCREATE and WM_CREATE;
// WM_INITDIALOG carries `param`.
HWND CreateDialogParamW(HINSTANCE instance, LPCWSTR templateName, HWND parent, DLGPROC procedure,
                        LPARAM param);
// Runs the dialog on the calling thread until EndDialog and returns its
// result; 0 when the parent is not a window, -1 when the dialog could not be
// made. The owner (the parent's top-level window, on any thread) is disabled
// while the dialog runs. A WM_QUIT ends the loop and is posted again.
INT_PTR DialogBoxParamW(HINSTANCE instance, LPCWSTR templateName, HWND parent, DLGPROC procedure,
                        LPARAM param);
// Sets the result and ends the modal loop (from any thread); a modeless
// dialog is only hidden.
BOOL EndDialog(HWND dialog, INT_PTR result);
// The dialog window procedure: calls the DLGPROC; what it handles answers
// DWLP_MSGRESULT (or its own result for WM_INITDIALOG and the other
// messages that answer directly). WM_CLOSE posts WM_COMMAND IDCANCEL.
LRESULT DefDlgProcW(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam);
// Dispatches a message meant for the dialog or one of its controls (Escape
// and Enter become WM_COMMAND IDCANCEL and IDOK) and returns TRUE; FALSE for
// any other message.
BOOL IsDialogMessageW(HWND dialog, LPMSG message);

// The child with that id; for a dialog, made on first use (see above).
HWND GetDlgItem(HWND dialog, int id);
int GetDlgCtrlID(HWND control);
LRESULT SendDlgItemMessageW(HWND dialog, int id, UINT message, WPARAM wParam, LPARAM lParam);
BOOL SetDlgItemTextW(HWND dialog, int id, LPCWSTR text);
UINT GetDlgItemTextW(HWND dialog, int id, LPWSTR text, int size);
BOOL SetDlgItemInt(HWND dialog, int id, UINT value, BOOL isSigned);
// Leading blanks are skipped; anything but digits after that (and a sign
// when signed) fails, as does overflow: 0 and FALSE in `translated`.
UINT GetDlgItemInt(HWND dialog, int id, BOOL *translated, BOOL isSigned);
BOOL CheckDlgButton(HWND dialog, int id, UINT check);
UINT IsDlgButtonChecked(HWND dialog, int id);
BOOL CheckRadioButton(HWND dialog, int firstId, int lastId, int checkId);

// The list view helpers of the common controls, as functions.
inline int ListView_GetItemCount(HWND list) {
    return static_cast<int>(SendMessageW(list, LVM_GETITEMCOUNT, 0, 0));
}
inline int ListView_InsertItem(HWND list, const LVITEMW *item) {
    return static_cast<int>(SendMessageW(list, LVM_INSERTITEMW, 0, reinterpret_cast<LPARAM>(item)));
}
void ListView_SetItemText(HWND list, int item, int subItem, LPWSTR text);
void ListView_SetItemState(HWND list, int item, UINT state, UINT mask);
void ListView_SetCheckState(HWND list, int item, BOOL checked);

namespace platform {

// The window procedure of every control class.
LRESULT CALLBACK ControlWindowProc(HWND control, UINT message, WPARAM wParam, LPARAM lParam);

// The number of a dialog made from a numbered template, else 0.
WORD DialogTemplateId(HWND dialog);

// The object behind a dialog procedure. It comes as the parameter of
// WM_INITDIALOG, is kept in DWLP_USER and told its window through
// `windowMember`; every later message finds it there. Null for the messages
// before WM_INITDIALOG.
template <class Object, class WindowMember>
Object *DialogObject(HWND dialog, UINT message, LPARAM lParam, WindowMember Object::*windowMember) {
    if (message != WM_INITDIALOG) {
        return reinterpret_cast<Object *>(GetWindowLongPtrW(dialog, DWLP_USER));
    }
    auto *self = reinterpret_cast<Object *>(lParam);
    SetWindowLongPtrW(dialog, DWLP_USER, lParam);
    if (self) self->*windowMember = dialog;
    return self;
}

// A copy of a control's state, readable from any thread without waiting and
// without making the control; `exists` is false when there is no such
// control.
struct ControlSnapshot {
    bool exists = false;
    HWND window = nullptr;
    std::wstring text;
    bool enabled = false;
    bool visible = false;
    ControlState state;
};
ControlSnapshot ReadControl(HWND dialog, int id);

}  // namespace platform
