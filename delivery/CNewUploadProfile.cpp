#include "CNewUploadProfile.h"

#include "CAppUtils.h"
#include "delivery/ProfileDialogParts.h"
#include "platform/Win32.h"

namespace {

// Notification codes of an edit field and a combo box.
constexpr WORD kEditChanged = 0x0300;
constexpr WORD kSelectionChanged = 1;

constexpr unsigned kServices[] = {kUploadServicePando, kUploadServiceSharing};

}  // namespace

CNewUploadProfile::CNewUploadProfile(HWND parent)
    : parent(parent), record(std::make_unique<UploadProfileRecord>()) {}

CNewUploadProfile::~CNewUploadProfile() = default;

const wchar_t *CNewUploadProfile::RunNew() {
    static std::wstring accepted;
    isNew = true;
    *record = UploadProfileRecord{};
    Run();
    accepted = result;
    return accepted.c_str();
}

const wchar_t *CNewUploadProfile::RunEdit(const wchar_t *name) {
    static std::wstring accepted;
    *record = UploadProfileRecord{};
    wcsncpy_s(record->name, kProfileNameChars, name ? name : L"", _TRUNCATE);
    Run();
    accepted = result;
    return accepted.c_str();
}

void CNewUploadProfile::Run() {
    result.clear();
    DialogBoxParamW(CAppUtils::GetCommonHINST(), MAKEINTRESOURCEW(kTemplateId), parent, DialogProc,
                    reinterpret_cast<LPARAM>(this));
    window = nullptr;
}

INT_PTR CNewUploadProfile::DialogProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam) {
    auto *self = platform::DialogObject(dialog, message, lParam, &CNewUploadProfile::window);
    if (!self) return FALSE;
    switch (message) {
        case WM_INITDIALOG:
            self->OnInitDialog();
            return TRUE;
        case WM_COMMAND:
            switch (LOWORD(wParam)) {
                case IDOK:
                    self->OnOK();
                    break;
                case IDCANCEL:
                    EndDialog(dialog, 0);
                    break;
                case IDC_PROFILE_NAME:
                    if (HIWORD(wParam) == kEditChanged) self->OnNameChanged();
                    break;
                case IDC_SERVICE:
                    if (HIWORD(wParam) == kSelectionChanged) self->OnServiceChanged();
                    break;
                default:
                    break;
            }
            return TRUE;
        case WM_DESTROY:
            // The panels are windows of this dialog's thread.
            self->pandoPanel.reset();
            self->sharingPanel.reset();
            return FALSE;
        default:
            return FALSE;
    }
}

void CNewUploadProfile::OnInitDialog() {
    HWND dialog = window;
    CAppUtils::CenterDlgOverParent(dialog, parent);
    FillServices();
    if (record->name[0] == L'\0') {
        SendDlgItemMessageW(dialog, IDC_SERVICE, CB_SETCURSEL, 0, 0);
        EnableWindow(GetDlgItem(dialog, IDOK), FALSE);
    } else {
        *record = *GetUploadProfile(record->name);
        SetDlgItemTextW(dialog, IDC_PROFILE_NAME, record->name);
        EnableWindow(GetDlgItem(dialog, IDC_PROFILE_NAME), FALSE);
        SelectService(record->service);
    }
    PlacePanel();
}

// Each item carries its service number, which is also its text's id.
void CNewUploadProfile::FillServices() {
    for (unsigned service : kServices) {
        std::wstring text = CAppUtils::LoadString(service);
        LRESULT index = SendDlgItemMessageW(window, IDC_SERVICE, CB_ADDSTRING, 0,
                                            reinterpret_cast<LPARAM>(text.c_str()));
        SendDlgItemMessageW(window, IDC_SERVICE, CB_SETITEMDATA, static_cast<WPARAM>(index),
                            static_cast<LPARAM>(service));
    }
}

void CNewUploadProfile::SelectService(unsigned service) {
    LRESULT count = SendDlgItemMessageW(window, IDC_SERVICE, CB_GETCOUNT, 0, 0);
    for (LRESULT index = 0; index < count; ++index) {
        LRESULT data =
            SendDlgItemMessageW(window, IDC_SERVICE, CB_GETITEMDATA, static_cast<WPARAM>(index), 0);
        if (static_cast<unsigned>(data) != service) continue;
        SendDlgItemMessageW(window, IDC_SERVICE, CB_SETCURSEL, static_cast<WPARAM>(index), 0);
        return;
    }
}

// 0 when nothing is selected.
unsigned CNewUploadProfile::SelectedService() const {
    LRESULT index = SendDlgItemMessageW(window, IDC_SERVICE, CB_GETCURSEL, 0, 0);
    if (index == CB_ERR) return 0;
    LRESULT data =
        SendDlgItemMessageW(window, IDC_SERVICE, CB_GETITEMDATA, static_cast<WPARAM>(index), 0);
    return data == CB_ERR ? 0 : static_cast<unsigned>(data);
}

void CNewUploadProfile::PlacePanel() {
    RECT frame{};
    GetWindowRect(GetDlgItem(window, IDC_PANEL_FRAME), &frame);
    frame.left += kPanelInsetLeft;
    frame.top += kPanelInsetTop;
    frame.right -= kPanelInsetRight;
    frame.bottom -= kPanelInsetBottom;
    switch (SelectedService()) {
        case kUploadServicePando:
            pandoPanel = std::make_unique<CPandoProfileDlg>(window);
            pandoPanel->Run(&frame);
            break;
        case kUploadServiceSharing:
            sharingPanel = std::make_unique<CTrebuchetProfileDlg>(window);
            sharingPanel->Run(&frame);
            break;
        default:
            break;
    }
}

void CNewUploadProfile::OnNameChanged() {
    bool named = GetWindowTextLengthW(GetDlgItem(window, IDC_PROFILE_NAME)) > 0;
    EnableWindow(GetDlgItem(window, IDOK), named ? TRUE : FALSE);
}

void CNewUploadProfile::OnServiceChanged() {
    pandoPanel.reset();
    sharingPanel.reset();
    PlacePanel();
    InvalidateRect(window, nullptr, TRUE);
    UpdateWindow(window);
}

bool CNewUploadProfile::NameTaken(const wchar_t *name) const {
    for (const wchar_t *found = GetFirstUploadProfile(); found; found = GetNextUploadProfile()) {
        if (_wcsicmp(found, name) == 0) return true;
    }
    return false;
}

void CNewUploadProfile::OnOK() {
    wchar_t name[kProfileNameChars] = {};
    GetDlgItemTextW(window, IDC_PROFILE_NAME, name, kProfileNameChars);
    if (name[0] == L'\0') return;
    if (isNew && NameTaken(name)) return;
    result = name;
    wcsncpy_s(record->name, kProfileNameChars, name, _TRUNCATE);
    record->service = SelectedService();
    AddUploadProfile(record.get());
    EndDialog(window, 1);
}

namespace {

INT_PTR UploadSettingsProc(HWND dialog, UINT message, WPARAM wParam, LPARAM) {
    if (message == WM_INITDIALOG) return TRUE;
    if (message != WM_COMMAND || LOWORD(wParam) != IDCANCEL) return FALSE;
    EndDialog(dialog, IDCANCEL);
    return TRUE;
}

}  // namespace

INT_PTR CUploadSettings::Run(HWND parent) {
    return DialogBoxParamW(CAppUtils::GetCommonHINST(),
                           MAKEINTRESOURCEW(CNewUploadProfile::kTemplateId), parent,
                           UploadSettingsProc, 0);
}
