// The dialog that makes or edits a stored FTP profile. OK checks the fields
// in a fixed order; the first that fails says why in a message box, takes
// the focus, and the dialog stays open.
#pragma once

#include <atomic>

#include "TransferProfiles.h"
#include "platform/Dialog.h"

class CNewFtpProfile {
public:
    static constexpr WORD kTemplateId = 3001;
    enum : int {
        IDC_NAME = 1001,
        IDC_SERVER = 1002,
        IDC_PORT = 1003,
        IDC_PATH = 1004,
        IDC_USER = 1005,
        IDC_PASSWORD = 1006,
        IDC_CONFIRM = 1007,
        IDC_OVERWRITE = 1008,
        IDC_PASSIVE = 1009,
    };

    explicit CNewFtpProfile(HWND parent);

    // 1 when a profile was stored, 0 after Cancel.
    INT_PTR RunNew();
    // The name cannot be changed; an accepted edit replaces the whole file.
    INT_PTR RunEdit(const wchar_t *name);

    HWND parent;
    bool isNew = false;
    FtpProfileRecord record{};
    // The dialog while it stands.
    std::atomic<HWND> window{nullptr};

private:
    static INT_PTR DialogProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam);
    INT_PTR Run();
    void OnInitDialog();
    void FillFields();
    void OnOK();
    void Complain(unsigned textId);
    // The message of a failed check, and the focus to its field.
    void Refuse(unsigned textId, int focusId);
    bool NameTaken(const wchar_t *name) const;
    void ReadFields();
    void ReadText(int id, wchar_t *target, int size);
};
