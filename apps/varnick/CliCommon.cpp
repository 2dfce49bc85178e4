#include "CliCommon.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "CAppOptionsRepository.h"
#include "CAppUtils.h"
#include "CArchiveItem.h"
#include "CArchiveObject.h"
#include "CFSUtils.h"
#include "SDKUtils.h"
#include "platform/Win32.h"

namespace cli {

namespace {

INT_PTR CALLBACK SilentDialogProc(HWND, UINT, WPARAM, LPARAM) { return FALSE; }

bool Contains(const std::vector<std::wstring> &names, const std::wstring &name) {
    for (const std::wstring &known : names) {
        if (known == name) return true;
    }
    return false;
}

// The engine's own words for the failures a user meets most, with what to do.
std::wstring PlainReason(EngineResult code) {
    switch (code) {
        case ERROR_FILE_NOT_FOUND:
            return L"no such file";
        case kEngineNotAnArchive:
            return L"not an archive";
        case kEngineWrongPassword:
        case kEnginePasswordOnPlainArchive:
            return L"wrong password";
        case kEnginePasswordNeeded:
            return L"the archive is encrypted: give --password";
        default:
            return TranslateEngineError(code);
    }
}

}  // namespace

namespace {

GlobalOptions globalOptions;
const char *commandUsage = "COMMAND [ARGUMENTS]";
std::optional<std::wstring> presetPassword;
std::optional<int> presetConflictAction;

}  // namespace

GlobalOptions TakeGlobalOptions(std::vector<std::wstring> &words) {
    GlobalOptions options;
    std::vector<std::wstring> rest;
    for (const std::wstring &word : words) {
        if (word == L"--quiet" || word == L"-q") {
            options.quiet = true;
        } else if (word == L"--yes" || word == L"-y") {
            options.yes = true;
        } else {
            rest.push_back(word);
        }
    }
    words = std::move(rest);
    globalOptions = options;
    return options;
}

const GlobalOptions &Global() { return globalOptions; }

int CommandLineUiHost::MessageBox(HWND owner, const std::wstring &text, const std::wstring &caption,
                                  UINT flags) {
    if (options_.yes) {
        const std::vector<int> buttons = platform::MessageBoxButtons(flags);
        for (int preferred : {IDYES, IDOK}) {
            for (int button : buttons) {
                if (button == preferred) return button;
            }
        }
    }
    return TerminalUiHost::MessageBox(owner, text, caption, flags);
}

std::optional<std::wstring> CommandLineUiHost::AskPassword(const platform::PasswordPrompt &prompt) {
    // A refused preset is not offered again: the terminal asks, if there is one.
    if (presetPassword && !prompt.passwordWrong && !prompt.confirm) return presetPassword;
    presetPassword.reset();
    return TerminalUiHost::AskPassword(prompt);
}

std::optional<int> CommandLineUiHost::AskConflictAction(const platform::ConflictPrompt &prompt) {
    if (presetConflictAction) return presetConflictAction;
    if (options_.yes) return platform::kConflictReplaceAll;
    return TerminalUiHost::AskConflictAction(prompt);
}

std::optional<platform::FolderDeleteAnswer> CommandLineUiHost::ConfirmFolderDelete(
    const platform::FolderDeletePrompt &prompt) {
    // Overwriting a folder merges into it, as expand --overwrite does.
    if (options_.yes) return platform::FolderDeleteAnswer{true, true};
    return TerminalUiHost::ConfirmFolderDelete(prompt);
}

std::optional<int> CommandLineUiHost::AskArcNameConflict(
    const platform::ArcNameConflictPrompt &prompt) {
    if (options_.yes) return platform::kArcNameReplace;
    return TerminalUiHost::AskArcNameConflict(prompt);
}

void CommandLineUiHost::ProgressChanged(HWND dialog) {
    if (!options_.quiet) TerminalUiHost::ProgressChanged(dialog);
}

void CommandLineUiHost::ProgressEnded(HWND dialog) {
    if (!options_.quiet) TerminalUiHost::ProgressEnded(dialog);
}

bool CommandLineUiHost::ShowText(HWND owner, const std::wstring &title, const std::wstring &text) {
    if (options_.quiet) return true;
    return TerminalUiHost::ShowText(owner, title, text);
}

void AnswerPasswordWith(const std::wstring &password) { presetPassword = password; }

void AnswerConflictsWith(int action) { presetConflictAction = action; }

void Print(const std::wstring &text) { std::fputs(platform::ToUtf8(text).c_str(), stdout); }

void Say(const std::wstring &text) {
    if (!globalOptions.quiet) Print(text);
}

void PrintError(const std::wstring &text) {
    std::fputs(("varnick: " + platform::ToUtf8(text) + "\n").c_str(), stderr);
}

void SetUsage(const char *usage) { commandUsage = usage; }

int UsageError() {
    std::fprintf(stderr, "usage: varnick %s\n", commandUsage);
    return kExitUsage;
}

int UsageError(const std::wstring &reason) {
    PrintError(reason);
    return UsageError();
}

bool Arguments::Has(const std::wstring &name) const {
    for (const auto &option : options) {
        if (option.first == name) return true;
    }
    return false;
}

std::wstring Arguments::Value(const std::wstring &name) const {
    std::wstring value;
    for (const auto &option : options) {
        if (option.first == name) value = option.second;  // the last one wins
    }
    return value;
}

std::vector<std::wstring> Arguments::Values(const std::wstring &name) const {
    std::vector<std::wstring> values;
    for (const auto &option : options) {
        if (option.first == name) values.push_back(option.second);
    }
    return values;
}

Arguments ParseArguments(const std::vector<std::wstring> &words,
                         const std::vector<std::wstring> &flags,
                         const std::vector<std::wstring> &valued) {
    Arguments parsed;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::wstring &word = words[i];
        if (word.size() < 2 || word[0] != L'-') {
            parsed.positional.push_back(word);
        } else if (Contains(flags, word)) {
            parsed.options.emplace_back(word, L"");
        } else if (Contains(valued, word) && i + 1 < words.size()) {
            parsed.options.emplace_back(word, words[++i]);
        } else if (parsed.bad.empty()) {
            parsed.bad = word;
        }
    }
    return parsed;
}

bool ResolvePassword(const Arguments &arguments, std::wstring &password) {
    password.clear();
    if (arguments.Has(L"--password")) {
        password = arguments.Value(L"--password");
        return true;
    }
    if (arguments.Has(L"--password-file")) {
        const std::wstring path = arguments.Value(L"--password-file");
        std::ifstream file(platform::ToUtf8(path), std::ios::binary);
        if (!file) {
            PrintError(FormatW(L"%s: cannot read the password file", path.c_str()));
            return false;
        }
        std::string line;
        std::getline(file, line);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        password = platform::FromUtf8(line);
        return true;
    }
    if (const char *fromEnvironment = std::getenv("VARNICK_PASSWORD")) {
        password = platform::FromUtf8(fromEnvironment);
    }
    return true;
}

std::wstring FullPath(const std::wstring &path) {
    wchar_t full[1024] = {};
    return GetFullPathNameW(path.c_str(), 1024, full, nullptr) ? std::wstring(full) : path;
}

bool VisitSources(const std::vector<std::wstring> &paths, std::size_t first,
                  const std::function<void(const std::wstring &)> &folder,
                  const std::function<void(const std::wstring &)> &file) {
    for (std::size_t i = first; i < paths.size(); ++i) {
        const std::wstring full = FullPath(paths[i]);
        if (CFSUtils::FolderExists(full.c_str())) {
            folder(full);
        } else if (CFSUtils::FileExists(full.c_str())) {
            file(full);
        } else {
            PrintError(FormatW(L"%s: no such file or folder", paths[i].c_str()));
            return false;
        }
    }
    return true;
}

bool CollectContent(const std::vector<std::wstring> &paths, std::size_t first,
                    CNewArchiveContentList &content) {
    return VisitSources(
        paths, first, [&](const std::wstring &folder) { content.Folders.push_back(folder); },
        [&](const std::wstring &file) { content.Files.push_back(file); });
}

const std::vector<std::wstring> kConflictFlags = {L"--overwrite", L"--skip", L"--rename", L"--ask"};

bool ApplyConflictFlags(const Arguments &arguments, CAppOptionsRepository &options) {
    int given = 0;
    for (const std::wstring &flag : kConflictFlags) given += arguments.Has(flag) ? 1 : 0;
    if (given > 1) {
        UsageError(L"--overwrite, --skip, --rename and --ask exclude each other");
        return false;
    }
    const bool terminal = isatty(STDIN_FILENO) && isatty(STDERR_FILENO);
    if (arguments.Has(L"--ask") && !terminal) {
        UsageError(L"--ask needs a terminal to ask on");
        return false;
    }
    // Replacing merges into a folder that is there, so files the archive
    // does not hold survive. Without a choice the library asks through the
    // terminal, and without a terminal the answer is to keep what is there.
    options.ExpandMergeContents = true;
    if (arguments.Has(L"--overwrite") || (given == 0 && Global().yes)) {
        options.ExpandConflictMethod = kResolutionReplace;
    } else if (arguments.Has(L"--rename")) {
        options.ExpandConflictMethod = kResolutionKeepBoth;
    } else {
        options.ExpandConflictMethod = kResolutionAsk;
        // The library clears "apply to all" when a run starts, so a skip
        // is answered to each question instead.
        if (arguments.Has(L"--skip")) AnswerConflictsWith(platform::kConflictSkipAll);
    }
    return true;
}

const std::vector<WritableFormat> &WritableFormats() {
    static const std::vector<WritableFormat> formats = {
        {L"zip", {}, format::zip},
        {L"vnkx", {}, format::vnkx},
        {L"vnk", {}, format::vnk},
        {L"7z", {}, format::sevenz},
        {L"tar", {}, format::tar},
        // A ".tar.gz" is written as the library writes ".tgz": a tar with
        // gzip around it (its own row names a single gzip file).
        {L"tgz", {L"tar.gz", L"targz"}, format::tgz},
        {L"tbz2", {L"tar.bz2", L"tbz", L"tarbz2"}, format::tbz2},
        {L"gz", {L"gzip"}, format::gz},
        {L"bz2", {L"bzip2"}, format::bz2},
    };
    return formats;
}

const WritableFormat *FindWritableFormat(const std::wstring &text) {
    const std::wstring name = !text.empty() && text[0] == L'.' ? text.substr(1) : text;
    for (const WritableFormat &writable : WritableFormats()) {
        if (platform::EqualsNoCase(name, writable.name)) return &writable;
        for (const wchar_t *alias : writable.aliases) {
            if (platform::EqualsNoCase(name, alias)) return &writable;
        }
    }
    return nullptr;
}

const WritableFormat *WritableFormatOf(format::type type) {
    if (type == format::targz) type = format::tgz;
    if (type == format::tarbz2) type = format::tbz2;
    for (const WritableFormat &writable : WritableFormats()) {
        if (writable.type == type) return &writable;
    }
    return nullptr;
}

ArchiveSession::ArchiveSession(const std::wstring &path) {
    parent_ = CreateDialogParamW(nullptr, MAKEINTRESOURCEW(1), nullptr, SilentDialogProc, 0);
    archive_.engine = &engine_;
    archive_.parentWindow = parent_;
    archive_.hasWindow = parent_ != nullptr;
    archive_.silent = true;  // every failure is told once, here, on stderr
    archive_.noPrompts = !isatty(STDIN_FILENO);
    archive_.name = path;
}

ArchiveSession::~ArchiveSession() {
    // The worker must be over before the archive goes.
    CArchiveRunLoop::WaitUntilIdle(archive_);
    if (parent_) DestroyWindow(parent_);
}

int ArchiveSession::ReadInfo() {
    archive_.lastResult = 0;
    const bool read = archive_.GetArchiveInfo(false);
    // Ctrl-C at the password prompt of a Zip listing ends only the prompt:
    // the listing goes on without the password, and the run would ask again.
    if (TakeInterruptOutsideRun()) return ReportInterrupted(L"read");
    if (read) {
        holdsEncryptedItems_ = archive_.encrypted;
        for (const CArchiveItem &item : archive_.archiveObject->items) {
            holdsEncryptedItems_ = holdsEncryptedItems_ || item.encrypted;
        }
        return kExitSuccess;
    }
    if (archive_.lastResult == 0) archive_.lastResult = kEngineNotAnArchive;
    return ReportFailure(L"read", archive_.lastResult);
}

int ArchiveSession::Run(const wchar_t *what, const std::function<bool()> &start) {
    return ExitCodeOf(what, loop_.Run(archive_, start));
}

int ArchiveSession::ExitCodeOf(const wchar_t *what, ARCHIVE_RUN_OUTCOME outcome) {
    switch (outcome) {
        case kArchiveRunSucceeded:
            return kExitSuccess;
        case kArchiveRunInterrupted:
            return ReportInterrupted(what);
        case kArchiveRunCancelled:
            // A question of the library that no one answered: the password
            // of an encrypted archive, or a conflict. The library forgets
            // which at the end of the run.
            if (holdsEncryptedItems_) return ReportPasswordFailure(what);
            PrintError(FormatW(L"%s: stopped at a question no one answered", what));
            return kExitFailure;
        default:
            return ReportFailure(what, archive_.lastResult);
    }
}

int ArchiveSession::ReportInterrupted(const wchar_t *what) {
    PrintError(FormatW(L"%s: interrupted", what));
    return kExitCancelled;
}

int ArchiveSession::ReportFailure(const wchar_t *what, EngineResult code) {
    PrintError(
        FormatW(L"%s %s: %s (%d)", what, archive_.name.c_str(), PlainReason(code).c_str(), code));
    return kExitFailure;
}

}  // namespace cli

namespace cli {

std::unique_ptr<ArchiveSession> OpenListed(const Arguments &arguments, int &exitCode) {
    if (!arguments.bad.empty()) {
        exitCode = UsageError(FormatW(L"unknown option '%s'", arguments.bad.c_str()));
        return nullptr;
    }
    if (arguments.positional.size() != 1) {
        exitCode = UsageError();
        return nullptr;
    }
    std::wstring password;
    if (!ResolvePassword(arguments, password)) {
        exitCode = kExitFailure;
        return nullptr;
    }
    auto session = std::make_unique<ArchiveSession>(arguments.positional[0]);
    session->Archive().password = password;
    exitCode = session->ReadInfo();
    if (exitCode != kExitSuccess) return nullptr;
    return session;
}

}  // namespace cli

namespace cli {

int MakeSelfExtracting(ArchiveSession &session) {
    CArchive &archive = session.Archive();
    const format::type type = archive.formatType;
    if (type != format::zip && type != format::vnkx) {
        PrintError(FormatW(L"sfx %s: only zip and vnkx archives become self-extracting",
                           archive.name.c_str()));
        return kExitFailure;
    }
    const std::wstring source = archive.name;
    const int exitCode = session.Run(L"sfx", [&] {
        return type == format::vnkx ? archive.MakeSeaVnkx() : archive.MakeSeaZip();
    });
    if (exitCode != kExitSuccess) return exitCode;
    // The library leaves the program in its temporary folder.
    const std::wstring made = archive.name;
    const std::wstring target = MakeUniqueArchiveName(source.c_str(), L".exe", nullptr);
    if (!MoveFileW(made.c_str(), target.c_str())) {
        archive.name = target;
        return session.ReportFailure(L"sfx", static_cast<EngineResult>(GetLastError()));
    }
    archive.name = target;
    return kExitSuccess;
}

}  // namespace cli
