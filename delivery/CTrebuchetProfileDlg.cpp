#include "CTrebuchetProfileDlg.h"

#include "TransferProfiles.h"
#include "delivery/ProfileDialogParts.h"

CTrebuchetProfileDlg::CTrebuchetProfileDlg(HWND parent) : parent(parent) {}

CTrebuchetProfileDlg::~CTrebuchetProfileDlg() { delivery::DestroyProfilePanel(window); }

bool CTrebuchetProfileDlg::Run(const RECT *rect) {
    window = delivery::CreateProfilePanel(parent, kTemplateId, rect);
    return window != nullptr;
}

const wchar_t *CTrebuchetProfileDlg::GetName() { return ReadField(IDC_ACCOUNT_NAME); }

const wchar_t *CTrebuchetProfileDlg::GetPassword() { return ReadField(IDC_ACCOUNT_PASSWORD); }

const wchar_t *CTrebuchetProfileDlg::ReadField(int id) {
    wchar_t value[kProfileNameChars] = {};
    if (window) GetDlgItemTextW(window, id, value, kProfileNameChars);
    text_ = value;
    return text_.c_str();
}
