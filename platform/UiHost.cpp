#include "platform/UiHost.h"

#include <atomic>

#include "platform/WinUser.h"

namespace platform {

namespace {

std::atomic<UiHost *> installedHost{nullptr};

}  // namespace

template <class Value, class Prompt>
std::optional<Value> UiHost::Answered(const Prompt &prompt) {
    std::optional<PromptAnswer> answer = AnswerPrompt(PromptRequest(prompt));
    if (!answer) return std::nullopt;
    return std::get<Value>(std::move(*answer));
}

std::optional<PromptAnswer> UiHost::AnswerPrompt(const PromptRequest &) { return std::nullopt; }

std::optional<std::wstring> UiHost::AskPassword(const PasswordPrompt &prompt) {
    return Answered<std::wstring>(prompt);
}

std::optional<int> UiHost::AskConflictAction(const ConflictPrompt &prompt) {
    return Answered<int>(prompt);
}

std::optional<FolderDeleteAnswer> UiHost::ConfirmFolderDelete(const FolderDeletePrompt &prompt) {
    return Answered<FolderDeleteAnswer>(prompt);
}

std::optional<std::wstring> UiHost::ChooseDirectory(const DirectoryPrompt &prompt) {
    return Answered<std::wstring>(prompt);
}

std::optional<std::wstring> UiHost::ChooseSaveFile(const SaveFilePrompt &prompt) {
    return Answered<std::wstring>(prompt);
}

std::optional<std::wstring> UiHost::LocateArchive(const ArchiveLocationPrompt &prompt) {
    return Answered<std::wstring>(prompt);
}

std::optional<std::wstring> UiHost::AskNextDisk(const NextDiskPrompt &prompt) {
    return Answered<std::wstring>(prompt);
}

std::optional<int> UiHost::AskArcNameConflict(const ArcNameConflictPrompt &prompt) {
    return Answered<int>(prompt);
}

void UiHost::ProgressChanged(HWND) {}

void UiHost::ProgressEnded(HWND) {}

bool UiHost::ShowText(HWND, const std::wstring &, const std::wstring &) { return false; }

int UiHost::SystemMetric(int index) {
    switch (index) {
        case SM_CXSCREEN:
        case SM_CXVIRTUALSCREEN:
            return 1024;
        case SM_CYSCREEN:
        case SM_CYVIRTUALSCREEN:
            return 768;
        case SM_CMONITORS:
            return 1;
        default:
            return 0;
    }
}

std::vector<int> MessageBoxButtons(UINT flags) {
    switch (flags & MB_TYPEMASK) {
        case MB_OKCANCEL:
            return {IDOK, IDCANCEL};
        case MB_ABORTRETRYIGNORE:
            return {IDABORT, IDRETRY, IDIGNORE};
        case MB_YESNOCANCEL:
            return {IDYES, IDNO, IDCANCEL};
        case MB_YESNO:
            return {IDYES, IDNO};
        case MB_RETRYCANCEL:
            return {IDRETRY, IDCANCEL};
        case MB_CANCELTRYCONTINUE:
            return {IDCANCEL, IDTRYAGAIN, IDCONTINUE};
        default:
            return {IDOK};
    }
}

int DefaultMessageBoxAnswer(UINT flags) {
    std::vector<int> buttons = MessageBoxButtons(flags);
    std::size_t index = (flags & MB_DEFMASK) >> 8;
    return index < buttons.size() ? buttons[index] : buttons.front();
}

HeadlessUiHost &DefaultHeadlessUiHost() {
    // Never destroyed: threads that outlive main may still show a box.
    static HeadlessUiHost *host = new HeadlessUiHost;
    return *host;
}

UiHost *SetUiHost(UiHost *host) {
    UiHost *previous = installedHost.exchange(host);
    return previous ? previous : &DefaultHeadlessUiHost();
}

UiHost *CurrentUiHost() {
    UiHost *host = installedHost.load();
    return host ? host : &DefaultHeadlessUiHost();
}

}  // namespace platform
