#include "CConfirmFolderDelete.h"

#include "platform/UiHost.h"
#include "ui/ModalOwner.h"

CConfirmFolderDelete::CConfirmFolderDelete(HWND parent, const wchar_t *path)
    : parent(parent), path(path ? path : L"") {}

bool CConfirmFolderDelete::Run() {
    ModalOwner modal(parent);
    std::optional<platform::FolderDeleteAnswer> answer =
        platform::CurrentUiHost()->ConfirmFolderDelete(platform::FolderDeletePrompt{parent, path});
    platform::FolderDeleteAnswer given = answer.value_or(platform::FolderDeleteAnswer{});
    dontAskAgain = given.dontAskAgain;
    mergeContents = given.mergeContents;
    return answer.has_value();
}
