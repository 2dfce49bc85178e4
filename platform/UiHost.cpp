#include "platform/UiHost.h"

#include <atomic>

#include "platform/WinUser.h"

namespace platform {

namespace {

// The buttons of each MB_TYPEMASK value, in the order Windows shows them.
std::vector<int> ButtonsOf(UINT flags) {
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

std::atomic<UiHost *> installedHost{nullptr};

}  // namespace

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

int DefaultMessageBoxAnswer(UINT flags) {
    std::vector<int> buttons = ButtonsOf(flags);
    std::size_t index = (flags & MB_DEFMASK) >> 8;
    return index < buttons.size() ? buttons[index] : buttons.front();
}

int HeadlessUiHost::MessageBox(HWND owner, const std::wstring &text, const std::wstring &caption,
                               UINT flags) {
    std::lock_guard lock(mutex_);
    int answer = DefaultMessageBoxAnswer(flags);
    if (!answers_.empty()) {
        answer = answers_.front();
        answers_.pop_front();
    }
    recorded_.push_back(MessageBoxRecord{owner, text, caption, flags, answer});
    return answer;
}

void HeadlessUiHost::QueueAnswer(int answer) {
    std::lock_guard lock(mutex_);
    answers_.push_back(answer);
}

std::vector<MessageBoxRecord> HeadlessUiHost::Recorded() const {
    std::lock_guard lock(mutex_);
    return recorded_;
}

void HeadlessUiHost::Reset() {
    std::lock_guard lock(mutex_);
    answers_.clear();
    recorded_.clear();
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
