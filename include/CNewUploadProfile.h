// The dialog that makes or edits an upload profile: a name and the service
// that carries the upload, with the service's own panel inside the dialog.
// Unlike the FTP profile dialog it refuses a missing or taken name without a
// message.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "CPandoProfileDlg.h"
#include "CTrebuchetProfileDlg.h"
#include "TransferProfiles.h"
#include "platform/Dialog.h"

class CNewUploadProfile {
public:
    static constexpr WORD kTemplateId = 3015;
    enum : int {
        IDC_PROFILE_NAME = 1101,
        IDC_SERVICE = 1102,
        IDC_PANEL_FRAME = 1103,
    };
    // Where the panel lies inside the frame control.
    static constexpr int kPanelInsetLeft = 4;
    static constexpr int kPanelInsetTop = 12;
    static constexpr int kPanelInsetRight = 4;
    static constexpr int kPanelInsetBottom = 4;

    explicit CNewUploadProfile(HWND parent);
    ~CNewUploadProfile();
    CNewUploadProfile(const CNewUploadProfile &) = delete;
    CNewUploadProfile &operator=(const CNewUploadProfile &) = delete;

    // The accepted name, or an empty text after Cancel. Each returns a
    // process-wide text of its own, good until its next call.
    const wchar_t *RunNew();
    const wchar_t *RunEdit(const wchar_t *name);

    HWND parent;
    std::wstring result;
    bool isNew = false;
    std::unique_ptr<UploadProfileRecord> record;
    // The panel of the selected service: at most one stands.
    std::unique_ptr<CPandoProfileDlg> pandoPanel;
    std::unique_ptr<CTrebuchetProfileDlg> sharingPanel;
    // The dialog while it stands.
    std::atomic<HWND> window{nullptr};

private:
    static INT_PTR DialogProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam);
    void Run();
    void OnInitDialog();
    void FillServices();
    void SelectService(unsigned service);
    unsigned SelectedService() const;
    void PlacePanel();
    void OnNameChanged();
    void OnServiceChanged();
    void OnOK();
    bool NameTaken(const wchar_t *name) const;
};

// Dialog 3015 shown for itself: nothing is read from it, and only Cancel
// ends it.
class CUploadSettings {
public:
    static INT_PTR Run(HWND parent);
};
