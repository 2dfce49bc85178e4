// varnick create: a new archive of files and folders, in the format of its
// name or of --format, through the library's compression.
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "CAppOptionsRepository.h"
#include "CFSUtils.h"
#include "CFormatOptionsRepository.h"
#include "CNewArchiveContentList.h"
#include "CliCommon.h"
#include "Commands.h"
#include "FormatCatalogue.h"
#include "platform/Win32.h"

namespace cli {

namespace {

// The formats a new archive can be made in from the command line.
constexpr format::type kCreatable[] = {format::zip, format::vnkx};

bool MatchesFormat(format::type type, const std::wstring &text) {
    std::wstring extension = GetFormatExtension(type);
    if (!extension.empty() && extension[0] == L'.') extension.erase(0, 1);
    return platform::EqualsNoCase(text, GetFormatName(type)) ||
           platform::EqualsNoCase(text, extension);
}

// The format of --format, by name or extension, or else of the archive's
// own name; false when neither names one that can be made.
bool ChooseFormat(const Arguments &arguments, format::type &chosen) {
    const std::wstring &archive = arguments.positional[0];
    for (format::type type : kCreatable) {
        const bool named =
            arguments.Has(L"--format")
                ? MatchesFormat(type, arguments.Value(L"--format"))
                : GetFormatType(archive.c_str()) == type &&
                      CFSUtils::CheckFileExtension(archive.c_str(), GetFormatExtension(type));
        if (named) {
            chosen = type;
            return true;
        }
    }
    return false;
}

bool ParseLevel(const std::wstring &text, DWORD &level) {
    if (text.size() != 1 || text[0] < L'0' || text[0] > L'9') return false;
    level = static_cast<DWORD>(text[0] - L'0');
    return true;
}

void ApplyLevel(format::type type, DWORD level, CFormatOptionsRepository &options) {
    if (type == format::zip) {
        options.ZipCompressionLevel = level;
    } else {
        options.VnkxUseSimple = false;
        options.VnkxCompressionLevel = level;
    }
}

// Files and folders of the command line, made absolute; false at the first
// that does not exist.
bool CollectContent(const std::vector<std::wstring> &paths, CNewArchiveContentList &content) {
    for (std::size_t i = 1; i < paths.size(); ++i) {
        wchar_t full[1024] = {};
        if (!GetFullPathNameW(paths[i].c_str(), 1024, full, nullptr)) return false;
        if (CFSUtils::FolderExists(full)) {
            content.Folders.push_back(full);
        } else if (CFSUtils::FileExists(full)) {
            content.Files.push_back(full);
        } else {
            PrintError(FormatW(L"%s: no such file or folder", paths[i].c_str()));
            return false;
        }
    }
    return true;
}

}  // namespace

int CreateCommand(const std::vector<std::wstring> &words) {
    const Arguments arguments =
        ParseArguments(words, {}, {L"--format", L"--level", L"--password", L"--password-file"});
    if (!arguments.bad.empty()) {
        return UsageError(FormatW(L"unknown option '%s'", arguments.bad.c_str()));
    }
    if (arguments.positional.size() < 2) return UsageError();
    format::type type = format::zip;
    if (!ChooseFormat(arguments, type)) {
        return UsageError(
            L"unknown format: name zip or vnkx with --format or the archive's extension");
    }
    DWORD level = 0;
    if (arguments.Has(L"--level") && !ParseLevel(arguments.Value(L"--level"), level)) {
        return UsageError(L"the level is a digit from 0 to 9");
    }
    CNewArchiveContentList content;
    if (!CollectContent(arguments.positional, content)) return kExitFailure;
    std::wstring password;
    if (!ResolvePassword(arguments, password)) return kExitFailure;

    CAppOptionsRepository appOptions;
    CFormatOptionsRepository formatOptions;
    if (arguments.Has(L"--level")) ApplyLevel(type, level, formatOptions);
    ArchiveSession session(arguments.positional[0]);
    CArchive &archive = session.Archive();
    archive.appOptions = &appOptions;
    archive.formatOptions = &formatOptions;
    archive.formatType = type;
    archive.password = password;
    archive.encrypted = !password.empty();
    archive.noPrompts = true;
    const int exitCode = session.Run(L"create", [&] { return archive.CreateFromList(&content); });
    archive.appOptions = nullptr;
    archive.formatOptions = nullptr;
    return exitCode;
}

}  // namespace cli
