#include "CCommonDlgs.h"

#include "CAppUtils.h"
#include "platform/UiHost.h"
#include "ui/ModalOwner.h"

static_assert(SAVEFILE_OVERWRITEPROMPT == platform::kSaveFileOverwritePrompt);

namespace {

// Filters of the save dialog are long lists.
constexpr int kPromptTextChars = 1024;

}  // namespace

std::wstring CCommonDlgs::RunChooseDirectory(HWND parent, const wchar_t *text,
                                             const wchar_t *initialFolder) {
    ModalOwner modal(parent);
    std::optional<std::wstring> folder = platform::CurrentUiHost()->ChooseDirectory(
        platform::DirectoryPrompt{parent, text ? text : L"", initialFolder ? initialFolder : L""});
    return folder.value_or(L"");
}

std::wstring CCommonDlgs::RunChooseDirectory(HWND parent, unsigned textId) {
    return RunChooseDirectory(parent, CAppUtils::LoadString(textId, kPromptTextChars).c_str());
}

bool CCommonDlgs::RunSaveFile(HWND parent, unsigned titleId, unsigned filterId, DWORD flags,
                              const wchar_t *suggestedName, std::wstring &chosen) {
    ModalOwner modal(parent);
    std::optional<std::wstring> file = platform::CurrentUiHost()->ChooseSaveFile(
        platform::SaveFilePrompt{parent, CAppUtils::LoadString(titleId, kPromptTextChars),
                                 CAppUtils::LoadString(filterId, kPromptTextChars), flags,
                                 suggestedName ? suggestedName : L""});
    if (!file || file->empty()) return false;
    chosen = *file;
    return true;
}

bool CCommonDlgs::GetIndexArchiveRealArchiveLocation(HWND parent, const wchar_t *pattern,
                                                     std::wstring &path) {
    ModalOwner modal(parent);
    std::optional<std::wstring> file = platform::CurrentUiHost()->LocateArchive(
        platform::ArchiveLocationPrompt{parent, pattern ? pattern : L""});
    if (!file || file->empty()) return false;
    path = *file;
    return true;
}
