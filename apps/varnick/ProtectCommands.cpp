// varnick encrypt, decrypt and recover: the archive is written anew by the
// library (encryption added or taken away, or a repaired copy in a folder)
// while this thread pumps the progress on the terminal.
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CFSUtils.h"
#include "CFormatOptionsRepository.h"
#include "CPassword.h"
#include "CliCommon.h"
#include "Commands.h"
#include "platform/UiHost.h"
#include "platform/Win32.h"

namespace cli {

namespace {

const std::vector<std::wstring> kPasswordOptions = {L"--password", L"--password-file"};

// The library asks the user where a recovered archive goes; the command
// line has said it already.
class RecoveryFolderHost : public CommandLineUiHost {
public:
    explicit RecoveryFolderHost(std::wstring folder)
        : CommandLineUiHost(Global()), folder_(std::move(folder)) {}

    std::optional<std::wstring> ChooseDirectory(const platform::DirectoryPrompt &) override {
        return folder_;
    }

private:
    std::wstring folder_;
};

// The one ARCHIVE of the command line with its listing read, and the
// password the options give. The listing tells whether the archive is
// encrypted, so it reads an archive to be encrypted without that password:
// a known password alone would mark a vnkx archive encrypted.
std::unique_ptr<ArchiveSession> OpenProtected(const Arguments &arguments, bool listWithPassword,
                                              std::wstring &given, int &exitCode) {
    if (!CheckWords(arguments, 1, 1, exitCode)) return nullptr;
    exitCode = kExitFailure;
    if (!ResolvePassword(arguments, given)) return nullptr;
    auto session = std::make_unique<ArchiveSession>(arguments.positional[0]);
    if (listWithPassword) session->Archive().password = given;
    exitCode = session->ReadInfo();
    if (exitCode != kExitSuccess) return nullptr;
    return session;
}

// The password given, or else the one the listing asked for, or else one
// typed at the library's prompt (twice for a new one); nothing when none
// comes (told, with `exitCode` set).
std::optional<std::wstring> PasswordFor(const wchar_t *what, const std::wstring &given,
                                        ArchiveSession &session, bool isNew, int &exitCode) {
    if (!given.empty()) return given;
    CArchive &archive = session.Archive();
    if (!isNew && !archive.password.empty()) return archive.password;
    CPassword prompt(session.ParentWindow(), archive.name.c_str(), isNew, false);
    if (prompt.Run() && !prompt.password.empty()) return prompt.password;
    exitCode = kExitFailure;
    if (session.TakeInterruptOutsideRun()) {
        exitCode = ArchiveSession::ReportInterrupted(what);
    } else if (isNew) {
        PrintError(FormatW(L"%s %s: a new password is needed: give --password", what,
                           archive.name.c_str()));
    } else {
        session.ReportFailure(what, kEnginePasswordNeeded);
    }
    return std::nullopt;
}

int NotEncrypted(const CArchive &archive) {
    PrintError(FormatW(L"decrypt %s: the archive is not encrypted", archive.name.c_str()));
    return kExitFailure;
}

}  // namespace

int EncryptCommand(const std::vector<std::wstring> &words) {
    const Arguments arguments = ParseArguments(words, {}, kPasswordOptions);
    int exitCode = kExitSuccess;
    std::wstring given;
    std::unique_ptr<ArchiveSession> session = OpenProtected(arguments, false, given, exitCode);
    if (!session) return exitCode;
    CArchive &archive = session->Archive();
    if (session->HoldsEncryptedItems()) {
        PrintError(
            FormatW(L"encrypt %s: already encrypted (decrypt it first)", archive.name.c_str()));
        return kExitFailure;
    }
    const std::optional<std::wstring> password =
        PasswordFor(L"encrypt", given, *session, true, exitCode);
    if (!password) return exitCode;
    CFormatOptionsRepository formatOptions;
    archive.formatOptions = &formatOptions;
    archive.encrypted = false;
    exitCode = session->Run(L"encrypt", [&] { return archive.Encrypt(password->c_str()); });
    archive.formatOptions = nullptr;
    // The library says nothing when the new file cannot take the old one's
    // place; only a finished run marks the archive encrypted.
    if (exitCode == kExitSuccess && !archive.encrypted) {
        PrintError(FormatW(L"encrypt %s: the encrypted archive could not replace the old one",
                           archive.name.c_str()));
        return kExitFailure;
    }
    return exitCode;
}

int DecryptCommand(const std::vector<std::wstring> &words) {
    const Arguments arguments = ParseArguments(words, {}, kPasswordOptions);
    int exitCode = kExitSuccess;
    std::wstring given;
    std::unique_ptr<ArchiveSession> session = OpenProtected(arguments, true, given, exitCode);
    if (!session) return exitCode;
    CArchive &archive = session->Archive();
    if (!session->HoldsEncryptedItems() && !archive.IsEncrypted()) return NotEncrypted(archive);
    const std::optional<std::wstring> password =
        PasswordFor(L"decrypt", given, *session, false, exitCode);
    if (!password) return exitCode;
    archive.password = *password;
    if (!archive.VerifyPassword(password->c_str())) {
        return session->ReportFailure(L"decrypt", kEngineWrongPassword);
    }
    // The library forgets a password that an archive without encryption
    // took.
    if (archive.password.empty()) return NotEncrypted(archive);
    exitCode =
        session->Run(L"decrypt", [&] { return archive.RemoveEncryption(password->c_str()); });
    if (exitCode == kExitSuccess && !archive.password.empty()) {
        PrintError(FormatW(L"decrypt %s: the decrypted archive could not replace the old one",
                           archive.name.c_str()));
        return kExitFailure;
    }
    return exitCode;
}

int RecoverCommand(const std::vector<std::wstring> &words) {
    const Arguments arguments =
        ParseArguments(words, {}, {L"-d", L"--password", L"--password-file"});
    int exitCode = kExitSuccess;
    if (!CheckWords(arguments, 1, 1, exitCode)) return exitCode;
    if (!arguments.Has(L"-d")) return UsageError(L"recover needs -d FOLDER");
    std::wstring password;
    if (!ResolvePassword(arguments, password)) return kExitFailure;
    ArchiveSession session(arguments.positional[0]);
    CArchive &archive = session.Archive();
    // A damaged archive may not list, so it is not read first.
    if (!CFSUtils::FileExists(archive.name.c_str())) {
        return session.ReportFailure(L"recover", ERROR_FILE_NOT_FOUND);
    }
    std::wstring folder;
    exitCode = PrepareDestination(arguments.Value(L"-d"), folder);
    if (exitCode != kExitSuccess) return exitCode;
    archive.password = password;
    RecoveryFolderHost host(folder);
    platform::ScopedUiHost answering(&host);
    exitCode = session.Run(L"recover", [&] { return archive.Recover(); });
    if (exitCode == kExitSuccess) {
        Say(FormatW(
            L"recovered into %s\n",
            platform::JoinPath(folder, CFSUtils::ExtractFileName(archive.name.c_str())).c_str()));
    }
    return exitCode;
}

}  // namespace cli
