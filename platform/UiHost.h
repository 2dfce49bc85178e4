// Presentation belongs to a host that the program installs: the headless
// host (the default, with scripted answers for tests), the terminal host of
// the command-line programs, a graphical one. Library code never talks to a
// host directly; it calls MessageBoxW or runs a prompt dialog (CPassword,
// CExpandConflictAction, ...), and those ask the current host.
//
// A host answers as the dialog would: a message box returns the id of the
// button pressed (IDOK, IDYES, ...), a prompt what was entered or chosen, or
// nothing when it was refused. Where nobody can answer, a message box gives
// its default button and a prompt counts as refused.
//
// Hosts are called on the thread that asks, often a worker thread, and must
// be safe for several threads at once.
#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/WinTypes.h"

namespace platform {

// The password prompt. With `confirm` the password is a new one and is typed
// twice; `passwordWrong` tells that the password given last was refused.
struct PasswordPrompt {
    HWND owner = nullptr;
    std::wstring archiveName;
    bool confirm = false;
    bool passwordWrong = false;
};

// The answers of the conflict prompt, as its result field holds them.
enum ConflictAction : int {
    kConflictReplace = 0,
    kConflictReplaceAll = 1,
    kConflictSkip = 2,
    kConflictSkipAll = 3,
    kConflictReplaceIfNewer = 4,
    kConflictKeepBoth = 5,
    kConflictStop = 6,
};

// An item to be written already exists at `path`.
struct ConflictPrompt {
    HWND owner = nullptr;
    std::wstring path;
    bool folder = false;
};

// A folder of the archive is about to replace the folder at `path`.
struct FolderDeletePrompt {
    HWND owner = nullptr;
    std::wstring path;
};
struct FolderDeleteAnswer {
    bool dontAskAgain = false;
    bool mergeContents = false;
};

// Choose an existing folder; `text` says what for.
struct DirectoryPrompt {
    HWND owner = nullptr;
    std::wstring text;
    std::wstring initialFolder;
};

// Flags of the save prompt.
inline constexpr DWORD kSaveFileOverwritePrompt = 0x0001;

// Name a file to write. `filter` is in the form "Text Files (*.txt)|*.txt|...||".
struct SaveFilePrompt {
    HWND owner = nullptr;
    std::wstring title;
    std::wstring filter;
    DWORD flags = 0;
    std::wstring suggestedName;
};

// Locate an existing file of the pattern: the archive an index file stands for.
struct ArchiveLocationPrompt {
    HWND owner = nullptr;
    std::wstring pattern;
};

// A segment of a spanned archive is needed: put its disk in place, or name
// the folder that holds it. The answer is the folder to look in.
struct NextDiskPrompt {
    HWND owner = nullptr;
    std::wstring archiveName;
    std::wstring segmentName;
    std::wstring folder;
};

// The answers of the archive-name conflict prompt.
enum ArcNameConflictChoice : int {
    kArcNameReplace = 0,
    kArcNameAddTo = 1,
    kArcNameUseUnique = 2,
};

// A new archive is to be made at `path`, where an archive already lies;
// `uniqueName` is the free name offered instead.
struct ArcNameConflictPrompt {
    HWND owner = nullptr;
    std::wstring path;
    std::wstring uniqueName;
};

// Every prompt as one value, and what a prompt answers: a text (password,
// folder, file), a choice (action, button), or the folder-delete answer.
using PromptRequest =
    std::variant<PasswordPrompt, ConflictPrompt, FolderDeletePrompt, DirectoryPrompt,
                 SaveFilePrompt, ArchiveLocationPrompt, NextDiskPrompt, ArcNameConflictPrompt>;
using PromptAnswer = std::variant<std::wstring, int, FolderDeleteAnswer>;

// The progress dialog's template (2021): the controls a host renders it from.
namespace progress_template {
inline constexpr int kTemplateId = 2021;
inline constexpr int kDetailLine = 1109;     // text
inline constexpr int kFileName = 1111;       // text
inline constexpr int kFilesDone = 1113;      // text
inline constexpr int kOperationLine = 1114;  // text
inline constexpr int kProgressBar = 1115;    // progress bar, 0 to 100
inline constexpr int kTimeRemaining = 1117;  // text
inline constexpr int kCustomBar = 1118;      // progress bar, 0 to 100
inline constexpr int kCustomLabel = 1119;    // text
inline constexpr int kCustomFrame = 1325;    // shown and hidden with the custom bar
}  // namespace progress_template

class UiHost {
public:
    UiHost() = default;
    virtual ~UiHost() = default;
    UiHost(const UiHost &) = delete;
    UiHost &operator=(const UiHost &) = delete;

    // Shows a message box and returns the id of the chosen button.
    virtual int MessageBox(HWND owner, const std::wstring &text, const std::wstring &caption,
                           UINT flags) = 0;

    // The prompt dialogs. Each returns the answer, or nothing when the
    // prompt was refused (cancelled, closed, or nobody could answer). The
    // defaults hand the prompt to AnswerPrompt.
    virtual std::optional<std::wstring> AskPassword(const PasswordPrompt &prompt);
    virtual std::optional<int> AskConflictAction(const ConflictPrompt &prompt);
    virtual std::optional<FolderDeleteAnswer> ConfirmFolderDelete(const FolderDeletePrompt &prompt);
    virtual std::optional<std::wstring> ChooseDirectory(const DirectoryPrompt &prompt);
    virtual std::optional<std::wstring> ChooseSaveFile(const SaveFilePrompt &prompt);
    virtual std::optional<std::wstring> LocateArchive(const ArchiveLocationPrompt &prompt);
    virtual std::optional<std::wstring> AskNextDisk(const NextDiskPrompt &prompt);
    virtual std::optional<int> AskArcNameConflict(const ArcNameConflictPrompt &prompt);

    // A visible progress dialog changed the state of its controls, or its
    // operation ended. Called on the dialog's thread, which must not wait:
    // a host renders from the controls (ProgressView) or skips the update.
    // The defaults show nothing.
    virtual void ProgressChanged(HWND dialog);
    virtual void ProgressEnded(HWND dialog);

    // A dialog whose purpose is to show a text (a log, the digests of a
    // file) hands it over. A host that presents the text itself and needs
    // no window answers true, and the dialog then closes; the default shows
    // nothing and answers false, leaving the window to whoever drives it.
    virtual bool ShowText(HWND owner, const std::wstring &title, const std::wstring &text);

    // GetSystemMetrics values of the display the host presents on. The
    // default is the headless display: one virtual monitor of 1024 by 768.
    virtual int SystemMetric(int index);

protected:
    // Where the default prompts go: a host that treats every kind of prompt
    // alike answers here instead of overriding each. The answer must be of
    // the kind the prompt returns. The default refuses.
    virtual std::optional<PromptAnswer> AnswerPrompt(const PromptRequest &request);

private:
    template <class Value, class Prompt>
    std::optional<Value> Answered(const Prompt &prompt);
};

// The button a message box of these flags (MB_OKCANCEL, MB_DEFBUTTON2, ...)
// gives when nobody presses one. A default beyond the last button falls
// back on the first, as Windows does.
int DefaultMessageBoxAnswer(UINT flags);
// The buttons of the flags' MB_ type, in the order they are shown.
std::vector<int> MessageBoxButtons(UINT flags);

class HeadlessUiHost;

// Installs a host (not owned; it must outlive its use) and returns the one
// it replaces. A null host reinstalls the default headless host.
UiHost *SetUiHost(UiHost *host);
// The installed host; never null.
UiHost *CurrentUiHost();
// The process's default host, the one in charge when nothing else is
// installed.
HeadlessUiHost &DefaultHeadlessUiHost();

// Installs a host for the life of a scope, then puts the previous one back.
class ScopedUiHost {
public:
    explicit ScopedUiHost(UiHost *host) : previous_(SetUiHost(host)) {}
    ~ScopedUiHost() { SetUiHost(previous_); }
    ScopedUiHost(const ScopedUiHost &) = delete;
    ScopedUiHost &operator=(const ScopedUiHost &) = delete;

private:
    UiHost *previous_;
};

}  // namespace platform

// The default host comes with the seam.
#include "platform/HeadlessUiHost.h"
