#include "CNextDiskDlg.h"

#include "platform/UiHost.h"
#include "ui/ModalOwner.h"

CNextDiskDlg::CNextDiskDlg(HWND parent, const wchar_t *archiveName, const wchar_t *segmentName,
                           const wchar_t *folder)
    : parent(parent),
      archiveName(archiveName ? archiveName : L""),
      segmentName(segmentName ? segmentName : L""),
      folder(folder ? folder : L"") {}

bool CNextDiskDlg::Run() {
    ModalOwner modal(parent);
    std::optional<std::wstring> answer = platform::CurrentUiHost()->AskNextDisk(
        platform::NextDiskPrompt{parent, archiveName, segmentName, folder});
    if (!answer) return false;
    if (!answer->empty()) folder = *answer;
    return true;
}
