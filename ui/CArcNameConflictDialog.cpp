#include "CArcNameConflictDialog.h"

#include "platform/UiHost.h"
#include "ui/ModalOwner.h"

static_assert(int{CArcNameConflictDialog::ReplaceArchive} == platform::kArcNameReplace &&
              int{CArcNameConflictDialog::AddToArchive} == platform::kArcNameAddTo &&
              int{CArcNameConflictDialog::UseUniqueName} == platform::kArcNameUseUnique);

CArcNameConflictDialog::CArcNameConflictDialog(HWND parent, const wchar_t *path,
                                               const wchar_t *uniqueName)
    : parent(parent), path(path ? path : L""), uniqueName(uniqueName ? uniqueName : L"") {}

bool CArcNameConflictDialog::Run() {
    ModalOwner modal(parent);
    std::optional<int> answer = platform::CurrentUiHost()->AskArcNameConflict(
        platform::ArcNameConflictPrompt{parent, path, uniqueName});
    if (!answer || *answer < ReplaceArchive || *answer > UseUniqueName) return false;
    choice = *answer;
    return true;
}
