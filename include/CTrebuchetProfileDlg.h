// The panel of an upload profile for the sharing service, shown inside the
// upload profile dialog: the account's name and password.
#pragma once

#include <string>

#include "platform/WinTypes.h"

class CTrebuchetProfileDlg {
public:
    static constexpr WORD kTemplateId = 3017;
    enum : int { IDC_ACCOUNT_NAME = 1201, IDC_ACCOUNT_PASSWORD = 1202 };

    explicit CTrebuchetProfileDlg(HWND parent);
    // Destroys the panel window.
    ~CTrebuchetProfileDlg();
    CTrebuchetProfileDlg(const CTrebuchetProfileDlg &) = delete;
    CTrebuchetProfileDlg &operator=(const CTrebuchetProfileDlg &) = delete;

    // Makes the panel modeless and places it in `rect` of the parent.
    bool Run(const RECT *rect);
    // The field as it stands now, up to 256 characters; good until the next
    // call of either.
    const wchar_t *GetName();
    const wchar_t *GetPassword();

    HWND parent;
    HWND window = nullptr;

private:
    const wchar_t *ReadField(int id);

    std::wstring text_;
};
