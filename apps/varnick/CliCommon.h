// What every subcommand of varnick shares: exit codes, output, the options
// of a command line and one archive opened through the library.
#pragma once

#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CArchive.h"
#include "CArchiveRunLoop.h"
#include "CEngine.h"
#include "CNewArchiveContentList.h"
#include "FormatCatalogue.h"
#include "platform/TerminalUiHost.h"
#include "platform/WinTypes.h"

class CAppOptionsRepository;

namespace cli {

constexpr int kExitSuccess = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr int kExitCancelled = 3;

// The options of the whole program, given anywhere on its command line.
struct GlobalOptions {
    bool quiet = false;  // no progress, nothing said on success
    bool yes = false;    // every question answered yes, every conflict overwrite
};

// Takes --quiet (-q) and --yes (-y) out of `words`.
GlobalOptions TakeGlobalOptions(std::vector<std::wstring> &words);
// The options taken last.
const GlobalOptions &Global();

// The terminal host with the global options applied: --quiet draws no
// progress and writes no texts, --yes answers before anybody is asked.
class CommandLineUiHost : public platform::TerminalUiHost {
public:
    explicit CommandLineUiHost(const GlobalOptions &options) : options_(options) {}

    int MessageBox(HWND owner, const std::wstring &text, const std::wstring &caption,
                   UINT flags) override;
    std::optional<std::wstring> AskPassword(const platform::PasswordPrompt &prompt) override;
    std::optional<int> AskConflictAction(const platform::ConflictPrompt &prompt) override;
    std::optional<platform::FolderDeleteAnswer> ConfirmFolderDelete(
        const platform::FolderDeletePrompt &prompt) override;
    std::optional<int> AskArcNameConflict(const platform::ArcNameConflictPrompt &prompt) override;
    void ProgressChanged(HWND dialog) override;
    void ProgressEnded(HWND dialog) override;
    bool ShowText(HWND owner, const std::wstring &title, const std::wstring &text) override;

private:
    GlobalOptions options_;
};

// Answers a command gives ahead of the library's questions, for the runs
// that cannot take them any other way: the password of an archive being
// opened (a refused one is asked on the terminal), and the choice for every
// conflict.
void AnswerPasswordWith(const std::wstring &password);
void AnswerConflictsWith(int action);

// The result of a command on stdout.
void Print(const std::wstring &text);
// What a command says about a success; nothing with --quiet.
void Say(const std::wstring &text);
// "varnick: TEXT" on stderr.
void PrintError(const std::wstring &text);
// The usage of the command being run, set from the command table.
void SetUsage(const char *usage);
// That usage on stderr; kExitUsage. With a reason, the reason first.
int UsageError();
int UsageError(const std::wstring &reason);

// The words of a command line split into options ("--name value" or
// "--flag") and the rest, in order.
struct Arguments {
    std::vector<std::wstring> positional;
    std::vector<std::pair<std::wstring, std::wstring>> options;
    std::wstring bad;  // the first option not known to the command

    bool Has(const std::wstring &name) const;
    std::wstring Value(const std::wstring &name) const;
    // Every value of a repeatable option, in order.
    std::vector<std::wstring> Values(const std::wstring &name) const;
};

// `flags` are options without a value, `valued` options with one.
Arguments ParseArguments(const std::vector<std::wstring> &words,
                         const std::vector<std::wstring> &flags,
                         const std::vector<std::wstring> &valued);

// The password of --password, --password-file or VARNICK_PASSWORD, in that
// order; empty when none is given. False when the file cannot be read.
bool ResolvePassword(const Arguments &arguments, std::wstring &password);

// `path` made absolute; unchanged when it cannot be.
std::wstring FullPath(const std::wstring &path);
// The files and folders of the command line from `first` on, made absolute
// and handed to `folder` or `file`; false (told) at the first that does not
// exist.
bool VisitSources(const std::vector<std::wstring> &paths, std::size_t first,
                  const std::function<void(const std::wstring &)> &folder,
                  const std::function<void(const std::wstring &)> &file);
// The same into the files and folders of a content list.
bool CollectContent(const std::vector<std::wstring> &paths, std::size_t first,
                    CNewArchiveContentList &content);

// The options that say what to do when an item to be written is there:
// --overwrite, --skip, --rename (keep both) and --ask.
extern const std::vector<std::wstring> kConflictFlags;
// Sets the expand conflict method of `options` from those flags; false (a
// usage error told) for two of them, or --ask without a terminal.
bool ApplyConflictFlags(const Arguments &arguments, CAppOptionsRepository &options);

// A format `create` writes: the name the command line uses, other names it
// takes, and the library's format.
struct WritableFormat {
    const wchar_t *name;
    std::vector<const wchar_t *> aliases;
    format::type type;
};
const std::vector<WritableFormat> &WritableFormats();
// The writable format of a name or extension (any case, with or without
// the dot); null for none.
const WritableFormat *FindWritableFormat(const std::wstring &text);
// The writable format a format of the catalogue is written as (".tar.gz"
// as ".tgz"); null for one `create` does not write.
const WritableFormat *WritableFormatOf(format::type type);

// One archive in a session of the engine, with a hidden parent window whose
// message pump carries the progress on the terminal. While a session lives,
// Ctrl-C cancels its running operation.
class ArchiveSession {
public:
    explicit ArchiveSession(const std::wstring &path);
    ~ArchiveSession();
    ArchiveSession(const ArchiveSession &) = delete;
    ArchiveSession &operator=(const ArchiveSession &) = delete;

    CArchive &Archive() { return archive_; }
    CEngine &Engine() { return engine_; }
    HWND ParentWindow() const { return parent_; }
    // Whether the archive or any item of its listing is encrypted.
    bool HoldsEncryptedItems() const { return holdsEncryptedItems_; }

    // Reads format, sizes and listing; an exit code, on failure the reason
    // on stderr. Ctrl-C while it read (at its password prompt, say) stops
    // the command as interrupted.
    int ReadInfo();
    // Starts an operation of the archive's worker with `start` and pumps
    // messages until its end; an exit code, any failure told on stderr.
    int Run(const wchar_t *what, const std::function<bool()> &start);
    // Runs a blocking call of the library on a thread of its own beside the
    // pump, so that Ctrl-C still cancels it.
    ARCHIVE_RUN_OUTCOME RunBlocking(const std::function<bool()> &work) {
        return loop_.RunBlocking(archive_, work);
    }
    int ReportFailure(const wchar_t *what, EngineResult code);
    // Whether Ctrl-C came while no run was going, such as at a prompt
    // before one (which it ended unanswered); taken, so that it is told
    // once. The command then stops with ReportInterrupted.
    bool TakeInterruptOutsideRun() { return CArchiveRunLoop::TakeInterrupt(); }
    // "WHAT: interrupted" on stderr; kExitCancelled.
    static int ReportInterrupted(const wchar_t *what);
    // A failed run of an encrypted archive told as the password's fault:
    // missing when none was given, wrong otherwise.
    int ReportPasswordFailure(const wchar_t *what) {
        return ReportFailure(
            what, archive_.password.empty() ? kEnginePasswordNeeded : kEngineWrongPassword);
    }

private:
    int ExitCodeOf(const wchar_t *what, ARCHIVE_RUN_OUTCOME outcome);

    CEngine engine_;
    HWND parent_ = nullptr;
    CArchive archive_;
    CArchiveRunLoop loop_;
    bool holdsEncryptedItems_ = false;  // as the listing of ReadInfo saw it
};

}  // namespace cli

namespace cli {

// Turns the session's zip or vnkx archive into a self-extracting program
// "NAME.exe" beside it (the next free name); the session's archive name
// becomes the program's. An exit code, failures told.
int MakeSelfExtracting(ArchiveSession &session);

// The one ARCHIVE of a command line opened with its password and its
// listing read; null on failure, with the reason told and `exitCode` set.
std::unique_ptr<ArchiveSession> OpenListed(const Arguments &arguments, int &exitCode);

}  // namespace cli
