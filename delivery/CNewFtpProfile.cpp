#include "CNewFtpProfile.h"

#include <algorithm>
#include <cstring>

#include "CAppUtils.h"
#include "delivery/ProfileDialogParts.h"
#include "platform/Win32.h"

namespace {

constexpr unsigned kNameMissing = 1076;
constexpr unsigned kNameTaken = 1075;
constexpr unsigned kServerMissing = 492;
constexpr unsigned kUserMissing = 494;
constexpr unsigned kPasswordsDiffer = 488;
constexpr unsigned kTitle = 230;
constexpr UINT kDefaultPort = 21;
// What the mismatch clears of the record's password: bytes, not characters.
constexpr std::size_t kPasswordBytesCleared = 256;

}  // namespace

CNewFtpProfile::CNewFtpProfile(HWND parent) : parent(parent) {}

INT_PTR CNewFtpProfile::RunNew() {
    isNew = true;
    record = FtpProfileRecord{};
    return Run();
}

INT_PTR CNewFtpProfile::RunEdit(const wchar_t *name) {
    record = FtpProfileRecord{};
    wcsncpy_s(record.name, kProfileNameChars, name ? name : L"", _TRUNCATE);
    return Run();
}

INT_PTR CNewFtpProfile::Run() {
    INT_PTR result = DialogBoxParamW(CAppUtils::GetCommonHINST(), MAKEINTRESOURCEW(kTemplateId),
                                     parent, DialogProc, reinterpret_cast<LPARAM>(this));
    window = nullptr;
    return result;
}

INT_PTR CNewFtpProfile::DialogProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam) {
    auto *self = platform::DialogObject(dialog, message, lParam, &CNewFtpProfile::window);
    if (!self) return FALSE;
    switch (message) {
        case WM_INITDIALOG:
            self->OnInitDialog();
            return TRUE;
        case WM_COMMAND:
            if (LOWORD(wParam) == IDOK) self->OnOK();
            if (LOWORD(wParam) == IDCANCEL) EndDialog(dialog, 0);
            return TRUE;
        default:
            return FALSE;
    }
}

void CNewFtpProfile::OnInitDialog() {
    HWND dialog = window;
    CAppUtils::CenterDlgOverParent(dialog, parent);
    if (record.name[0] == L'\0') {
        SetDlgItemInt(dialog, IDC_PORT, kDefaultPort, FALSE);
        return;
    }
    // The lookup never fails (a missing file reads as defaults), so there is
    // no load failure to report here.
    record = *GetFTPProfile(record.name);
    FillFields();
}

void CNewFtpProfile::FillFields() {
    HWND dialog = window;
    SetDlgItemTextW(dialog, IDC_NAME, record.name);
    EnableWindow(GetDlgItem(dialog, IDC_NAME), FALSE);
    SetDlgItemTextW(dialog, IDC_SERVER, record.server);
    SetDlgItemInt(dialog, IDC_PORT, record.port, FALSE);
    SetDlgItemTextW(dialog, IDC_PATH, record.path);
    SetDlgItemTextW(dialog, IDC_USER, record.user);
    SetDlgItemTextW(dialog, IDC_PASSWORD, record.password);
    SetDlgItemTextW(dialog, IDC_CONFIRM, record.password);
    CheckDlgButton(dialog, IDC_OVERWRITE, record.overwrite ? BST_CHECKED : BST_UNCHECKED);
    CheckDlgButton(dialog, IDC_PASSIVE, record.passive ? BST_CHECKED : BST_UNCHECKED);
}

void CNewFtpProfile::Complain(unsigned textId) {
    CAppUtils::MsgBox(textId, kTitle, MB_OK | MB_ICONEXCLAMATION, window);
}

void CNewFtpProfile::Refuse(unsigned textId, int focusId) {
    Complain(textId);
    SetFocus(GetDlgItem(window, focusId));
}

bool CNewFtpProfile::NameTaken(const wchar_t *name) const {
    for (const wchar_t *found = GetFirstFTPProfile(); found; found = GetNextFTPProfile()) {
        if (_wcsicmp(found, name) == 0) return true;
    }
    return false;
}

void CNewFtpProfile::ReadText(int id, wchar_t *target, int size) {
    GetDlgItemTextW(window, id, target, size);
}

void CNewFtpProfile::OnOK() {
    HWND dialog = window;
    wchar_t name[kProfileNameChars] = {};
    wchar_t text[kProfileServerChars] = {};
    ReadText(IDC_NAME, name, kProfileNameChars);
    if (name[0] == L'\0') {
        Refuse(kNameMissing, IDC_NAME);
        return;
    }
    if (isNew && NameTaken(name)) {
        Refuse(kNameTaken, IDC_NAME);
        return;
    }
    ReadText(IDC_SERVER, text, kProfileServerChars);
    if (text[0] == L'\0') {
        Refuse(kServerMissing, IDC_SERVER);
        return;
    }
    ReadText(IDC_USER, text, kProfileServerChars);
    if (text[0] == L'\0') {
        Refuse(kUserMissing, IDC_USER);
        return;
    }
    wchar_t password[kProfilePasswordChars] = {};
    wchar_t confirm[kProfilePasswordChars] = {};
    ReadText(IDC_PASSWORD, password, kProfilePasswordChars);
    ReadText(IDC_CONFIRM, confirm, kProfilePasswordChars);
    if (std::wcscmp(password, confirm) != 0) {
        Complain(kPasswordsDiffer);
        SetDlgItemTextW(dialog, IDC_PASSWORD, L"");
        SetDlgItemTextW(dialog, IDC_CONFIRM, L"");
        std::fill_n(reinterpret_cast<unsigned char *>(record.password), kPasswordBytesCleared, 0);
        SetFocus(GetDlgItem(dialog, IDC_PASSWORD));
        return;
    }
    wcsncpy_s(record.name, kProfileNameChars, name, _TRUNCATE);
    ReadFields();
    // An edit starts from an empty file, so nothing of the old one survives.
    if (!isNew) DeleteFTPProfile(record.name);
    AddFTPProfile(&record);
    EndDialog(dialog, 1);
}

void CNewFtpProfile::ReadFields() {
    HWND dialog = window;
    record.port = GetDlgItemInt(dialog, IDC_PORT, nullptr, FALSE);
    ReadText(IDC_SERVER, record.server, kProfileServerChars);
    ReadText(IDC_PATH, record.path, kProfilePathChars);
    ReadText(IDC_USER, record.user, kProfileUserChars);
    ReadText(IDC_PASSWORD, record.password, kProfilePasswordChars);
    record.overwrite = IsDlgButtonChecked(dialog, IDC_OVERWRITE) == BST_CHECKED;
    record.passive = IsDlgButtonChecked(dialog, IDC_PASSIVE) == BST_CHECKED;
}
