#include "CPassword.h"

#include "platform/UiHost.h"
#include "ui/ModalOwner.h"

CPassword::CPassword(HWND parent, const wchar_t *archiveName, bool confirm, bool passwordWrong)
    : parent(parent),
      archiveName(archiveName ? archiveName : L""),
      confirm(confirm),
      passwordWrong(passwordWrong) {}

bool CPassword::Run() {
    ModalOwner modal(parent);
    std::optional<std::wstring> answer = platform::CurrentUiHost()->AskPassword(
        platform::PasswordPrompt{parent, archiveName, confirm, passwordWrong});
    if (!answer) return false;
    password = *answer;
    return true;
}
