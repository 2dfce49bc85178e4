#include "CExpandConflictAction.h"

#include "platform/UiHost.h"
#include "ui/ModalOwner.h"

static_assert(int{CExpandConflictAction::Replace} == platform::kConflictReplace &&
              int{CExpandConflictAction::ReplaceAll} == platform::kConflictReplaceAll &&
              int{CExpandConflictAction::Skip} == platform::kConflictSkip &&
              int{CExpandConflictAction::SkipAll} == platform::kConflictSkipAll &&
              int{CExpandConflictAction::ReplaceIfNewer} == platform::kConflictReplaceIfNewer &&
              int{CExpandConflictAction::KeepBoth} == platform::kConflictKeepBoth &&
              int{CExpandConflictAction::Stop} == platform::kConflictStop);

CExpandConflictAction::CExpandConflictAction(HWND parent, const wchar_t *path, bool folder)
    : parent(parent), path(path ? path : L""), folder(folder) {}

bool CExpandConflictAction::Run() {
    ModalOwner modal(parent);
    std::optional<int> answer = platform::CurrentUiHost()->AskConflictAction(
        platform::ConflictPrompt{parent, path, folder});
    // An answer out of the seven is no answer.
    if (!answer || *answer < Replace || *answer > Stop) {
        action = Stop;
        return false;
    }
    action = *answer;
    return true;
}
