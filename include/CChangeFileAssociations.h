// The dialog that chooses which archive kinds the shell opens with this
// product: one checked row per kind of the association table. OK applies
// the checks to the registry at once; keeping the options themselves falls
// to the caller.
#pragma once

#include <atomic>
#include <memory>

#include "platform/WinTypes.h"
#include "platform/Window.h"

class CAppOptionsRepository;

class CChangeFileAssociations {
public:
    static constexpr UINT kTemplateId = 751;
    enum : int {
        IDC_ASSOCIATION_LIST = 1039,
        IDC_CHECK_ALL = 1040,
        IDC_UNCHECK_ALL = 1093,
    };
    // The row states of the list view's check boxes.
    static constexpr UINT kUncheckedState = 4096;
    static constexpr UINT kCheckedState = 8192;

    // Another program asks for one row to be offered with its check
    // inverted by naming the row here; the request is used once.
    static constexpr const wchar_t *kRequestKey =
        L"Software\\Orvane Labs\\Varnick\\ChangeFileAssociation";
    static constexpr const wchar_t *kRequestValue = L"SelectedAssociation";

    // Makes and reads the application options.
    explicit CChangeFileAssociations(HWND parent);
    virtual ~CChangeFileAssociations();
    CChangeFileAssociations(const CChangeFileAssociations &) = delete;
    CChangeFileAssociations &operator=(const CChangeFileAssociations &) = delete;

    // Runs the dialog modally on the calling thread. True when it ended
    // with OK (the associations are then saved).
    bool Run();

    // Handlers of the dialog procedure.
    BOOL OnInitDialog();
    void OnCommand(WORD id);

    HWND parent;
    std::atomic<HWND> window{nullptr};
    std::unique_ptr<CAppOptionsRepository> options;

private:
    static INT_PTR DialogProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam);
    HWND List() const;
    void AddColumns();
    void AddRows();
    void InvertRequestedRow();
    void CheckAllRows(bool checked);
    void ApplyChecks();
};
