#include "platform/TerminalUiHost.h"

#include <sys/ioctl.h>
#include <termios.h>
#include <cerrno>

#include <algorithm>

#include "platform/PromptInterrupt.h"
#include "platform/WideText.h"
#include "platform/WinFile.h"
#include "platform/WinFormat.h"
#include "platform/WinPath.h"
#include "platform/WinUser.h"

namespace platform {

namespace {

constexpr int kBarCells = 30;
constexpr int kDefaultColumns = 80;

// The words of the buttons, as the system shows them.
const wchar_t *ButtonName(int button) {
    switch (button) {
        case IDOK:
            return L"OK";
        case IDCANCEL:
            return L"Cancel";
        case IDABORT:
            return L"Abort";
        case IDRETRY:
            return L"Retry";
        case IDIGNORE:
            return L"Ignore";
        case IDYES:
            return L"Yes";
        case IDNO:
            return L"No";
        case IDTRYAGAIN:
            return L"Try Again";
        case IDCONTINUE:
            return L"Continue";
        default:
            return L"?";
    }
}

// Cuts a text to `columns` characters, keeping its end when `keepEnd` (a
// file name matters more than its folders).
std::wstring FitText(std::wstring text, int columns, bool keepEnd) {
    std::size_t limit = static_cast<std::size_t>(std::max(columns, 4));
    if (text.size() <= limit) return text;
    if (keepEnd) return L"..." + text.substr(text.size() - (limit - 3));
    return text.substr(0, limit - 3) + L"...";
}

std::wstring Bar(int percent) {
    int clamped = std::clamp(percent, 0, 100);
    int filled = clamped * kBarCells / 100;
    return L"[" + std::wstring(filled, L'#') + std::wstring(kBarCells - filled, L'.') + L"]" +
           FormatW(L" %3d%%", clamped);
}

std::wstring Trimmed(const std::wstring &text) {
    std::size_t first = text.find_first_not_of(L" \t");
    if (first == std::wstring::npos) return L"";
    std::size_t last = text.find_last_not_of(L" \t");
    return text.substr(first, last - first + 1);
}

std::wstring FullPath(const std::wstring &path) {
    std::wstring buffer(kPathBufferSize, L'\0');
    DWORD length =
        GetFullPathNameW(path.c_str(), static_cast<DWORD>(buffer.size()), buffer.data(), nullptr);
    if (length == 0 || length >= buffer.size()) return path;
    buffer.resize(length);
    return buffer;
}

// Turns echo off on a terminal for the life of the object, so that a
// password is not shown; the newline the user types still is.
class EchoOff {
public:
    explicit EchoOff(int fd) : fd_(fd) {
        if (tcgetattr(fd_, &saved_) != 0) return;
        termios quiet = saved_;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        quiet.c_lflag |= ECHONL;
        active_ = tcsetattr(fd_, TCSANOW, &quiet) == 0;
    }
    ~EchoOff() {
        if (active_) tcsetattr(fd_, TCSANOW, &saved_);
    }
    EchoOff(const EchoOff &) = delete;
    EchoOff &operator=(const EchoOff &) = delete;

private:
    int fd_;
    termios saved_{};
    bool active_ = false;
};

}  // namespace

ProgressView ReadProgressView(HWND dialog) {
    namespace ids = progress_template;
    ProgressView view;
    // Snapshots, so that a worker's host never waits for the window.
    std::wstring title(1024, L'\0');
    title.resize(static_cast<std::size_t>(
        std::max(GetWindowTextW(dialog, title.data(), static_cast<int>(title.size())), 0)));
    view.title = title;
    view.operation = ReadControl(dialog, ids::kOperationLine).text;
    view.detail = ReadControl(dialog, ids::kDetailLine).text;
    view.fileName = ReadControl(dialog, ids::kFileName).text;
    view.percent = ReadControl(dialog, ids::kProgressBar).state.position;
    view.filesDone = ReadControl(dialog, ids::kFilesDone).text;
    view.timeRemaining = ReadControl(dialog, ids::kTimeRemaining).text;
    ControlSnapshot custom = ReadControl(dialog, ids::kCustomBar);
    view.customShown = custom.exists && custom.visible;
    view.customPercent = custom.state.position;
    view.customLabel = ReadControl(dialog, ids::kCustomLabel).text;
    return view;
}

std::vector<std::string> ProgressLines(const ProgressView &view, int width) {
    int columns = std::max(width - 1, 20);
    std::wstring status = Bar(view.percent);
    if (!view.filesDone.empty()) status += L"  Files: " + view.filesDone;
    if (!view.timeRemaining.empty()) status += L"  Left: " + view.timeRemaining;
    std::wstring custom;
    if (view.customShown) {
        custom = view.customLabel.empty() ? Bar(view.customPercent)
                                          : view.customLabel + L" " + Bar(view.customPercent);
    }
    std::vector<std::wstring> lines = {
        FitText(view.title, columns, false), FitText(view.operation, columns, false),
        FitText(view.detail, columns, true), FitText(view.fileName, columns, true),
        FitText(status, columns, false),     FitText(custom, columns, false),
    };
    std::vector<std::string> result;
    for (const std::wstring &line : lines) result.push_back(ToUtf8(line));
    return result;
}

TerminalUiHost::TerminalUiHost(int input, int output)
    : input_(input), output_(output), terminal_(isatty(input) == 1 && isatty(output) == 1) {}

bool TerminalUiHost::HasTerminal() const { return terminal_; }

int TerminalUiHost::Columns() const {
    winsize size{};
    if (ioctl(output_, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
    return kDefaultColumns;
}

void TerminalUiHost::Write(const std::string &text) {
    std::size_t done = 0;
    while (done < text.size()) {
        ssize_t written = ::write(output_, text.data() + done, text.size() - done);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;
        done += static_cast<std::size_t>(written);
    }
}

void TerminalUiHost::WriteLine(const std::wstring &text) { Write(ToUtf8(text) + "\n"); }

std::optional<std::string> TerminalUiHost::ReadLine() {
    // Byte by byte, so nothing typed ahead for a later prompt is swallowed.
    std::string line;
    for (;;) {
        if (interrupt_ && !interrupt_->WaitForInput(input_)) return std::nullopt;
        char c = 0;
        ssize_t got = ::read(input_, &c, 1);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) {
            if (line.empty()) return std::nullopt;
            return line;
        }
        if (c == '\n') return line;
        if (c != '\r') line += c;
    }
}

std::optional<std::wstring> TerminalUiHost::AskLine(const std::wstring &question) {
    Write(ToUtf8(question));
    std::optional<std::string> line = ReadLine();
    if (!line) {
        Write("\n");
        return std::nullopt;
    }
    return Trimmed(FromUtf8(*line));
}

std::optional<int> TerminalUiHost::Choose(const std::wstring &question,
                                          const std::vector<Choice> &choices,
                                          std::optional<int> preset) {
    std::wstring menu;
    for (std::size_t i = 0; i < choices.size(); ++i) {
        menu += FormatW(L"%s(%u) %s", i ? L"  " : L"", static_cast<unsigned>(i + 1),
                        choices[i].label.c_str());
    }
    std::wstring ask = question.empty() ? L"" : question + L"\n";
    ask += menu;
    for (const Choice &choice : choices) {
        if (preset && choice.value == *preset) ask += L" [" + choice.label + L"]";
    }
    ask += L": ";
    for (;;) {
        std::optional<std::wstring> answer = AskLine(ask);
        if (!answer) return std::nullopt;
        if (answer->empty() && preset) return preset;
        // A number, a whole label, or the beginning of one label and no other.
        wchar_t *end = nullptr;
        unsigned long number = std::wcstoul(answer->c_str(), &end, 10);
        if (end && *end == L'\0' && number >= 1 && number <= choices.size()) {
            return choices[number - 1].value;
        }
        auto exact = std::find_if(choices.begin(), choices.end(), [&](const Choice &choice) {
            return EqualsNoCase(choice.label, *answer);
        });
        if (exact != choices.end()) return exact->value;
        std::optional<int> match;
        int matches = 0;
        for (const Choice &choice : choices) {
            if (choice.label.size() >= answer->size() &&
                EqualsNoCase(choice.label.substr(0, answer->size()), *answer)) {
                match = choice.value;
                ++matches;
            }
        }
        if (matches == 1) return match;
        ask = L"Please answer with one of the numbers or words: ";
    }
}

std::optional<bool> TerminalUiHost::AskYesNo(const std::wstring &question, bool preset) {
    std::optional<int> answer =
        Choose(question, {{L"Yes", IDYES}, {L"No", IDNO}}, preset ? IDYES : IDNO);
    if (!answer) return std::nullopt;
    return *answer == IDYES;
}

std::optional<std::wstring> TerminalUiHost::AskExisting(const std::wstring &question,
                                                        const std::wstring &preset, bool folder) {
    std::wstring ask = question + (preset.empty() ? L": " : L" [" + preset + L"]: ");
    for (;;) {
        std::optional<std::wstring> answer = AskLine(ask);
        if (!answer) return std::nullopt;
        std::wstring path = answer->empty() ? preset : *answer;
        if (path.empty()) return std::nullopt;
        path = FullPath(path);
        bool isFolder = PathIsDirectoryW(path.c_str()) != FALSE;
        if (folder ? isFolder : (PathFileExistsW(path.c_str()) && !isFolder)) return path;
        WriteLine(path + (folder ? L" is not a folder." : L" is not a file."));
    }
}

void TerminalUiHost::LeaveProgressBlock() {
    if (progressLines_ > 0) Write("\n");
    progressLines_ = 0;
    progressDialog_ = nullptr;
}

template <class Ask>
auto TerminalUiHost::Prompting(Ask ask) -> decltype(ask()) {
    if (!terminal_) return std::nullopt;
    std::lock_guard lock(terminalMutex_);
    LeaveProgressBlock();
    return Interruptibly(ask);
}

template <class Ask>
auto TerminalUiHost::Interruptibly(Ask ask) -> decltype(ask()) {
    // Passes a caught interrupt on when it goes, after the answer is taken.
    PromptInterrupt interrupt;
    interrupt_ = &interrupt;
    auto answer = ask();
    interrupt_ = nullptr;
    // Ctrl-C cancels the prompt even when it came with the answer.
    if (interrupt.Caught()) return std::nullopt;
    return answer;
}

int TerminalUiHost::MessageBox(HWND, const std::wstring &text, const std::wstring &caption,
                               UINT flags) {
    int preset = DefaultMessageBoxAnswer(flags);
    if (!terminal_) return preset;
    std::lock_guard lock(terminalMutex_);
    LeaveProgressBlock();
    std::vector<Choice> choices;
    for (int button : MessageBoxButtons(flags)) choices.push_back({ButtonName(button), button});
    std::wstring question = caption.empty() ? text : caption + L"\n" + text;
    return Interruptibly([&] { return Choose(question, choices, preset); }).value_or(preset);
}

bool TerminalUiHost::ShowText(HWND, const std::wstring &title, const std::wstring &text) {
    std::lock_guard lock(terminalMutex_);
    LeaveProgressBlock();
    std::wstring shown;
    for (std::size_t i = 0; i < text.size(); ++i) {
        bool lineEnd = text[i] == L'\r' && i + 1 < text.size() && text[i + 1] == L'\n';
        if (!lineEnd) shown += text[i];
    }
    if (!shown.empty() && shown.back() != L'\n') shown += L'\n';
    Write(ToUtf8(title.empty() ? shown : title + L"\n" + shown));
    return true;
}

std::optional<std::wstring> TerminalUiHost::AskPasswordOnce(const std::wstring &question) {
    // Echo goes off before the question shows, so that nothing typed as
    // soon as it appears is shown.
    EchoOff quiet(input_);
    Write(ToUtf8(question));
    std::optional<std::string> secret = ReadLine();
    if (!secret) {
        Write("\n");
        return std::nullopt;
    }
    return FromUtf8(*secret);
}

std::optional<std::wstring> TerminalUiHost::AskPassword(const PasswordPrompt &prompt) {
    return Prompting([&]() -> std::optional<std::wstring> {
        if (prompt.passwordWrong) WriteLine(L"The password was not correct.");
        std::wstring question = L"Password for " + prompt.archiveName + L": ";
        for (;;) {
            std::optional<std::wstring> password = AskPasswordOnce(question);
            if (!password || !prompt.confirm) return password;
            std::optional<std::wstring> again = AskPasswordOnce(L"Type it again: ");
            if (!again) return std::nullopt;
            if (*again == *password) return password;
            WriteLine(L"The two passwords differ.");
        }
    });
}

std::optional<int> TerminalUiHost::AskConflictAction(const ConflictPrompt &prompt) {
    return Prompting([&]() -> std::optional<int> {
        std::wstring question =
            (prompt.folder ? L"The folder " : L"The file ") + prompt.path + L" already exists.";
        return Choose(question,
                      {{L"Replace", kConflictReplace},
                       {L"Replace all", kConflictReplaceAll},
                       {L"Skip", kConflictSkip},
                       {L"Skip all", kConflictSkipAll},
                       {L"Replace if newer", kConflictReplaceIfNewer},
                       {L"Keep both", kConflictKeepBoth},
                       {L"Stop", kConflictStop}},
                      std::nullopt);
    });
}

std::optional<FolderDeleteAnswer> TerminalUiHost::ConfirmFolderDelete(
    const FolderDeletePrompt &prompt) {
    return Prompting([&]() -> std::optional<FolderDeleteAnswer> {
        WriteLine(L"The folder " + prompt.path + L" will be replaced by the one being expanded.");
        std::optional<bool> askAgain = AskYesNo(L"Ask again next time?", true);
        if (!askAgain) return std::nullopt;
        std::optional<bool> merge = AskYesNo(L"Merge folder contents from now on?", false);
        if (!merge) return std::nullopt;
        return FolderDeleteAnswer{!*askAgain, *merge};
    });
}

std::optional<std::wstring> TerminalUiHost::ChooseDirectory(const DirectoryPrompt &prompt) {
    return Prompting([&]() -> std::optional<std::wstring> {
        if (!prompt.text.empty()) WriteLine(prompt.text);
        return AskExisting(L"Folder", prompt.initialFolder, true);
    });
}

std::optional<std::wstring> TerminalUiHost::ChooseSaveFile(const SaveFilePrompt &prompt) {
    return Prompting([&]() -> std::optional<std::wstring> {
        if (!prompt.title.empty()) WriteLine(prompt.title);
        std::wstring ask = prompt.suggestedName.empty()
                               ? std::wstring(L"File name: ")
                               : L"File name [" + prompt.suggestedName + L"]: ";
        for (;;) {
            std::optional<std::wstring> answer = AskLine(ask);
            if (!answer) return std::nullopt;
            std::wstring path = answer->empty() ? prompt.suggestedName : *answer;
            if (path.empty()) return std::nullopt;
            path = FullPath(path);
            if (PathIsDirectoryW(path.c_str())) {
                WriteLine(path + L" is a folder.");
                continue;
            }
            if (!(prompt.flags & kSaveFileOverwritePrompt) || !PathFileExistsW(path.c_str())) {
                return path;
            }
            std::optional<bool> replace = AskYesNo(path + L" already exists. Replace it?", false);
            if (!replace) return std::nullopt;
            if (*replace) return path;
        }
    });
}

std::optional<std::wstring> TerminalUiHost::LocateArchive(const ArchiveLocationPrompt &prompt) {
    return Prompting([&]() -> std::optional<std::wstring> {
        WriteLine(L"Where is the archive (" + prompt.pattern + L")?");
        return AskExisting(L"File", L"", false);
    });
}

std::optional<std::wstring> TerminalUiHost::AskNextDisk(const NextDiskPrompt &prompt) {
    return Prompting([&]() -> std::optional<std::wstring> {
        WriteLine(L"The segment " + prompt.segmentName + L" of " + prompt.archiveName +
                  L" is needed. Insert its disk, or name the folder that holds it.");
        return AskExisting(L"Folder", prompt.folder, true);
    });
}

std::optional<int> TerminalUiHost::AskArcNameConflict(const ArcNameConflictPrompt &prompt) {
    return Prompting([&]() -> std::optional<int> {
        return Choose(L"The archive " + prompt.path + L" already exists.",
                      {{L"Replace it", kArcNameReplace},
                       {L"Add to it", kArcNameAddTo},
                       {L"Make " + prompt.uniqueName + L" instead", kArcNameUseUnique}},
                      std::nullopt);
    });
}

void TerminalUiHost::DrawProgress(HWND dialog, const ProgressView &view, bool last) {
    if (!terminal_) return;
    std::lock_guard lock(terminalMutex_);
    Draw(dialog, view, last);
}

void TerminalUiHost::Draw(HWND dialog, const ProgressView &view, bool last) {
    std::vector<std::string> lines = ProgressLines(view, Columns());
    std::string out;
    if (dialog == progressDialog_ && progressLines_ > 1) {
        out += "\r\x1b[" + std::to_string(progressLines_ - 1) + "A";
    } else if (progressLines_ > 0) {
        // Another dialog's block stays as it ended.
        out += "\n";
    }
    for (std::size_t i = 0; i < lines.size(); ++i) {
        out += "\r\x1b[2K" + lines[i];
        if (i + 1 < lines.size()) out += "\n";
    }
    if (last) out += "\n";
    Write(out);
    progressDialog_ = last ? nullptr : dialog;
    progressLines_ = last ? 0 : static_cast<int>(lines.size());
    lastDraw_ = std::chrono::steady_clock::now();
}

void TerminalUiHost::ProgressChanged(HWND dialog) {
    if (!terminal_) return;
    std::unique_lock lock(terminalMutex_, std::try_to_lock);
    if (!lock.owns_lock()) return;
    if (dialog == progressDialog_ &&
        std::chrono::steady_clock::now() - lastDraw_ < kRedrawInterval) {
        return;
    }
    Draw(dialog, ReadProgressView(dialog), false);
}

void TerminalUiHost::ProgressEnded(HWND dialog) {
    if (!terminal_) return;
    std::unique_lock lock(terminalMutex_, std::try_to_lock);
    if (!lock.owns_lock()) return;
    Draw(dialog, ReadProgressView(dialog), true);
}

}  // namespace platform
