// varnick convert and varnick sfx: an archive rewritten in another format,
// or as a program that expands itself. The source is never changed.
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "CArchiveConvert.h"
#include "CFSUtils.h"
#include "CFormatOptionsRepository.h"
#include "CliCommon.h"
#include "Commands.h"
#include "FormatCatalogue.h"
#include "platform/Win32.h"

namespace cli {

namespace {

// The extensions each conversion takes its source from.
bool ConvertibleTo(format::type target, const std::wstring &source) {
    const wchar_t *extension = CFSUtils::Extension(source.c_str());
    const std::vector<const wchar_t *> sources =
        target == format::zip ? std::vector<const wchar_t *>{L".vnk", L".vnkx", L".tar"}
                              : std::vector<const wchar_t *>{L".vnk", L".zip", L".tar"};
    for (const wchar_t *candidate : sources) {
        if (platform::EqualsNoCase(extension, candidate)) return true;
    }
    return false;
}

// The names in `folder` that end in `extension`.
std::set<std::wstring> FilesEndingIn(const std::wstring &folder, const wchar_t *extension) {
    std::set<std::wstring> names;
    const std::wstring pattern = platform::JoinPath(folder, std::wstring(L"*") + extension);
    WIN32_FIND_DATAW entry{};
    HANDLE find = FindFirstFileW(pattern.c_str(), &entry);
    if (find == INVALID_HANDLE_VALUE) return names;
    do {
        if (!(entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) names.insert(entry.cFileName);
    } while (FindNextFileW(find, &entry));
    FindClose(find);
    return names;
}

// The one name of `after` that `before` lacks; empty when there is none.
std::wstring NewName(const std::set<std::wstring> &before, const std::set<std::wstring> &after) {
    for (const std::wstring &name : after) {
        if (!before.count(name)) return name;
    }
    return L"";
}

// Converts the session's archive; the result's path in `result`.
bool Convert(ArchiveSession &session, format::type target, std::wstring &result) {
    CArchive &archive = session.Archive();
    CFormatOptionsRepository options;
    CArchiveConvert converter(session.ParentWindow(), session.Engine().GetEngine(), &options);
    wchar_t password[MAX_PATH] = {};
    if (target == format::vnkx) {
        wchar_t destination[MAX_PATH] = {};
        wcsncpy_s(destination, MAX_PATH,
                  MakeUniqueArchiveName(archive.name.c_str(), L".vnkx", nullptr), _TRUNCATE);
        const bool converted =
            converter.ConvertArchiveToVnkx(archive.name.c_str(), password, destination, false);
        result = destination;
        return converted;
    }
    // The Zip result lies beside the source under a name the engine chooses.
    const std::wstring folder = platform::ParentPath(archive.name);
    const std::set<std::wstring> before = FilesEndingIn(folder, L".zip");
    const bool converted = converter.ConvertArchiveToZip(archive.name.c_str(), password);
    const std::wstring made = NewName(before, FilesEndingIn(folder, L".zip"));
    result = made.empty() ? made : platform::JoinPath(folder, made);
    return converted;
}

// Whether the password known for an encrypted archive opens it; the reason
// is told when not.
bool PasswordOpens(ArchiveSession &session) {
    CArchive &archive = session.Archive();
    if (!session.HoldsEncryptedItems() || archive.password.empty()) return true;
    if (archive.VerifyPassword(archive.password.c_str())) return true;
    session.ReportFailure(L"convert", kEngineWrongPassword);
    return false;
}

}  // namespace

int ConvertCommand(const std::vector<std::wstring> &words) {
    const Arguments arguments =
        ParseArguments(words, {}, {L"--to", L"--password", L"--password-file"});
    const std::wstring to = arguments.Value(L"--to");
    const format::type target = platform::EqualsNoCase(to, L"zip")    ? format::zip
                                : platform::EqualsNoCase(to, L"vnkx") ? format::vnkx
                                                                      : format::unknown;
    if (arguments.bad.empty() && target == format::unknown)
        return UsageError(L"--to zip or --to vnkx says what to convert into");
    int exitCode = kExitSuccess;
    std::unique_ptr<ArchiveSession> session = OpenListed(arguments, exitCode);
    if (!session) return exitCode;
    CArchive &archive = session->Archive();
    if (!ConvertibleTo(target, archive.name)) {
        PrintError(FormatW(L"convert %s: only %s archives convert to %s", archive.name.c_str(),
                           target == format::zip ? L"vnk, vnkx and tar" : L"vnk, zip and tar",
                           to.c_str()));
        return kExitFailure;
    }
    if (!PasswordOpens(*session)) return kExitFailure;
    // The library asks for the source's password; the known one answers.
    if (!archive.password.empty()) AnswerPasswordWith(archive.password);
    std::wstring result;
    bool converted = false;
    const ARCHIVE_RUN_OUTCOME outcome = session->RunBlocking([&] {
        converted = Convert(*session, target, result);
        return converted;
    });
    if (outcome == kArchiveRunInterrupted) {
        PrintError(L"convert: interrupted");
        return kExitCancelled;
    }
    if (!converted) {
        // A Zip password check lets some wrong passwords through; the
        // conversion then fails on the data.
        if (session->HoldsEncryptedItems()) return session->ReportPasswordFailure(L"convert");
        PrintError(FormatW(L"convert %s: the conversion failed", archive.name.c_str()));
        return kExitFailure;
    }
    Say(FormatW(L"%s\n", result.c_str()));
    return kExitSuccess;
}

int SfxCommand(const std::vector<std::wstring> &words) {
    const Arguments arguments = ParseArguments(words, {}, {L"--password", L"--password-file"});
    int exitCode = kExitSuccess;
    std::unique_ptr<ArchiveSession> session = OpenListed(arguments, exitCode);
    if (!session) return exitCode;
    exitCode = MakeSelfExtracting(*session);
    if (exitCode == kExitSuccess) Say(FormatW(L"%s\n", session->Archive().name.c_str()));
    return exitCode;
}

}  // namespace cli
