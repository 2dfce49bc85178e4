// The host of the command-line programs: message boxes and prompts as text
// on the terminal, and progress dialogs as a block of lines redrawn in place.
//
// It talks to the terminal through two descriptors, by default standard
// input and standard error (standard output stays the program's). Unless
// both are terminals nothing is shown: message boxes give their default
// button and prompts are refused, as when nobody can answer. Ctrl-C at a
// prompt cancels it (a message box gives its default button) and is then
// passed on to the program's own handling of SIGINT (PromptInterrupt).
#pragma once

#include <unistd.h>
#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/UiHost.h"

namespace platform {

class PromptInterrupt;

// What a progress dialog shows, read from its controls.
struct ProgressView {
    std::wstring title;
    std::wstring operation;
    std::wstring detail;
    std::wstring fileName;
    int percent = 0;
    std::wstring filesDone;
    std::wstring timeRemaining;
    bool customShown = false;
    std::wstring customLabel;
    int customPercent = 0;
};

// The view of a progress dialog window, from the controls of its template.
ProgressView ReadProgressView(HWND dialog);

// The lines a terminal shows for a view, each cut to `width` columns less
// one; always the same number of lines, so that a block can be redrawn.
std::vector<std::string> ProgressLines(const ProgressView &view, int width);

class TerminalUiHost : public UiHost {
public:
    // The descriptors are borrowed.
    explicit TerminalUiHost(int input = STDIN_FILENO, int output = STDERR_FILENO);

    // Whether there is somebody to show things to and ask.
    bool HasTerminal() const;

    int MessageBox(HWND owner, const std::wstring &text, const std::wstring &caption,
                   UINT flags) override;
    std::optional<std::wstring> AskPassword(const PasswordPrompt &prompt) override;
    std::optional<int> AskConflictAction(const ConflictPrompt &prompt) override;
    std::optional<FolderDeleteAnswer> ConfirmFolderDelete(
        const FolderDeletePrompt &prompt) override;
    std::optional<std::wstring> ChooseDirectory(const DirectoryPrompt &prompt) override;
    std::optional<std::wstring> ChooseSaveFile(const SaveFilePrompt &prompt) override;
    std::optional<std::wstring> LocateArchive(const ArchiveLocationPrompt &prompt) override;
    std::optional<std::wstring> AskNextDisk(const NextDiskPrompt &prompt) override;
    std::optional<int> AskArcNameConflict(const ArcNameConflictPrompt &prompt) override;

    // Redraws the dialog's block at most ten times a second; the end draws
    // the last state and leaves the block on the screen. Skipped, never
    // waited for, while a prompt stands.
    void ProgressChanged(HWND dialog) override;
    void ProgressEnded(HWND dialog) override;

    // Writes the title and the text to the output, terminal or not (a text
    // asks nothing), and lets the dialog close (true).
    bool ShowText(HWND owner, const std::wstring &title, const std::wstring &text) override;

    // Draws a view as the block of `dialog` (what ProgressChanged does
    // after reading the controls). `last` ends the block.
    void DrawProgress(HWND dialog, const ProgressView &view, bool last);

    static constexpr std::chrono::milliseconds kRedrawInterval{100};

private:
    struct Choice {
        std::wstring label;
        int value;
    };

    void Write(const std::string &text);
    void WriteLine(const std::wstring &text);
    std::optional<std::string> ReadLine();
    std::optional<std::wstring> AskLine(const std::wstring &question);
    std::optional<int> Choose(const std::wstring &question, const std::vector<Choice> &choices,
                              std::optional<int> preset);
    std::optional<bool> AskYesNo(const std::wstring &question, bool preset);
    std::optional<std::wstring> AskExisting(const std::wstring &question,
                                            const std::wstring &preset, bool folder);
    std::optional<std::wstring> AskPasswordOnce(const std::wstring &question);
    // Draws with the terminal held.
    void Draw(HWND dialog, const ProgressView &view, bool last);
    // Puts the cursor below a progress block before a prompt writes.
    void LeaveProgressBlock();
    // Runs a prompt with the terminal held, below any progress block;
    // refused at once when there is no terminal.
    template <class Ask>
    auto Prompting(Ask ask) -> decltype(ask());
    // Runs a prompt that Ctrl-C cancels (std::nullopt); the interrupt is
    // then passed on to the program's own handling of SIGINT.
    template <class Ask>
    auto Interruptibly(Ask ask) -> decltype(ask());
    int Columns() const;

    int input_;
    int output_;
    bool terminal_;
    // Held by a prompt for as long as it stands, and by a redraw.
    std::mutex terminalMutex_;
    // The catch of the prompt standing, if any.
    const PromptInterrupt *interrupt_ = nullptr;
    HWND progressDialog_ = nullptr;
    int progressLines_ = 0;
    std::chrono::steady_clock::time_point lastDraw_{};
};

}  // namespace platform
