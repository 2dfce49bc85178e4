// varnick add, remove, rename, mkdir and comment: changes to an archive
// that is there, each through one call of the library. Every item named on
// the command line is looked up in the archive's listing first, so a typo
// is told as such and nothing is changed.
#include <memory>
#include <string>
#include <vector>

#include "CAppOptionsRepository.h"
#include "CArchiveItem.h"
#include "CArchiveObject.h"
#include "CFSUtils.h"
#include "CFormatOptionsRepository.h"
#include "CNewArchiveContentList.h"
#include "CliCommon.h"
#include "Commands.h"
#include "platform/Win32.h"

namespace cli {

namespace {

const std::vector<std::wstring> kPasswordOptions = {L"--password", L"--password-file"};

int NoSuchItem(const std::wstring &item) {
    PrintError(FormatW(L"%s: no such item in the archive", item.c_str()));
    return kExitFailure;
}

bool HasSeparator(const std::wstring &name) { return name.find(kPathSep) != std::wstring::npos; }

// A new name of an item or folder: one level, no separator.
bool IsPlainName(const std::wstring &name) {
    return !name.empty() && !HasSeparator(name) && name != L"." && name != L"..";
}

// The library finds the folder of an addition or a new folder one level
// below the top only, so a deeper one is refused before anything is written.
int DeeperFolderRefused(const std::wstring &written) {
    return UsageError(FormatW(L"'%s': name a folder at the top of the archive", written.c_str()));
}

// The folder FOLDER of `add --into`, made when the archive lacks it.
int PrepareTargetFolder(ArchiveSession &session, const std::wstring &into, std::wstring &folder) {
    folder = ItemPathOf(into);
    if (folder.empty()) return kExitSuccess;
    if (HasSeparator(folder)) return DeeperFolderRefused(into);
    const CArchiveItem *existing = FindItem(session.Archive(), folder);
    if (existing && existing->IsFolder()) return kExitSuccess;
    if (existing) {
        PrintError(FormatW(L"%s: is a file in the archive, not a folder", folder.c_str()));
        return kExitFailure;
    }
    CArchive &archive = session.Archive();
    if (!archive.AddFolder(L"", folder.c_str()))
        return session.ReportFailure(L"add", archive.lastResult);
    return kExitSuccess;
}

// The ITEM words after ARCHIVE as the library takes them; kExitFailure at
// the first the archive does not hold.
int SelectItems(CArchive &archive, const std::vector<std::wstring> &positional,
                std::vector<std::wstring> &items) {
    for (std::size_t i = 1; i < positional.size(); ++i) {
        if (!FindItem(archive, positional[i])) return NoSuchItem(positional[i]);
        items.push_back(ItemPathOf(positional[i]));
    }
    return kExitSuccess;
}

bool IsGone(CArchive &archive, const std::wstring &item) {
    return FindItem(archive, item) == nullptr;
}

}  // namespace

std::wstring ItemPathOf(const std::wstring &written) {
    std::wstring path = written;
    if (!path.empty() && path.front() == kPathSep) path.erase(0, 1);
    while (!path.empty() && path.back() == kPathSep) path.pop_back();
    return path;
}

const CArchiveItem *FindItem(CArchive &archive, const std::wstring &written) {
    if (!archive.archiveObject) return nullptr;
    const std::wstring path = ItemPathOf(written);
    if (path.empty()) return nullptr;
    for (const CArchiveItem &item : archive.archiveObject->items) {
        if (item.path == path || item.path == path + kPathSep) return &item;
    }
    return nullptr;
}

bool CheckWords(const Arguments &arguments, std::size_t least, std::size_t most, int &exitCode) {
    if (!arguments.bad.empty()) {
        exitCode = UsageError(FormatW(L"unknown option '%s'", arguments.bad.c_str()));
        return false;
    }
    const std::size_t count = arguments.positional.size();
    if (count < least || count > most) {
        exitCode = UsageError();
        return false;
    }
    return true;
}

std::unique_ptr<ArchiveSession> OpenWithItems(const Arguments &arguments, std::size_t least,
                                              std::size_t most, int &exitCode) {
    if (!CheckWords(arguments, least, most, exitCode)) return nullptr;
    Arguments archiveOnly = arguments;
    archiveOnly.positional.resize(1);
    return OpenListed(archiveOnly, exitCode);
}

std::unique_ptr<ArchiveSession> OpenSelected(const Arguments &arguments,
                                             std::vector<std::wstring> &items, int &exitCode) {
    std::unique_ptr<ArchiveSession> session = OpenWithItems(arguments, 2, kAnyCount, exitCode);
    if (session) exitCode = SelectItems(session->Archive(), arguments.positional, items);
    if (exitCode != kExitSuccess) session.reset();
    return session;
}

int PrepareDestination(const std::wstring &written, std::wstring &folder) {
    wchar_t full[1024] = {};
    if (!GetFullPathNameW(written.empty() ? L"." : written.c_str(), 1024, full, nullptr)) {
        folder = written;
    } else {
        folder = full;
    }
    CFSUtils::ForceDirectories(folder.c_str());
    if (!CFSUtils::FolderExists(folder.c_str())) {
        PrintError(FormatW(L"%s: the folder cannot be made", folder.c_str()));
        return kExitFailure;
    }
    if (!CFSUtils::IsFolderWriteable(folder.c_str())) {
        PrintError(FormatW(L"%s: the folder cannot be written to", folder.c_str()));
        return kExitFailure;
    }
    return kExitSuccess;
}

int AddCommand(const std::vector<std::wstring> &words) {
    std::vector<std::wstring> valued = kPasswordOptions;
    valued.push_back(L"--into");
    const Arguments arguments = ParseArguments(words, {}, valued);
    int exitCode = kExitSuccess;
    std::unique_ptr<ArchiveSession> session = OpenWithItems(arguments, 2, kAnyCount, exitCode);
    if (!session) return exitCode;
    CNewArchiveContentList content;
    if (!CollectContent(arguments.positional, 1, content)) return kExitFailure;
    std::wstring folder;
    exitCode = PrepareTargetFolder(*session, arguments.Value(L"--into"), folder);
    if (exitCode != kExitSuccess) return exitCode;

    CAppOptionsRepository appOptions;
    CFormatOptionsRepository formatOptions;
    CArchive &archive = session->Archive();
    archive.appOptions = &appOptions;
    archive.formatOptions = &formatOptions;
    exitCode = session->Run(L"add", [&] { return archive.AddTo(&content, folder.c_str()); });
    archive.appOptions = nullptr;
    archive.formatOptions = nullptr;
    return exitCode;
}

int RemoveCommand(const std::vector<std::wstring> &words) {
    const Arguments arguments = ParseArguments(words, {}, kPasswordOptions);
    int exitCode = kExitSuccess;
    std::vector<std::wstring> items;
    std::unique_ptr<ArchiveSession> session = OpenSelected(arguments, items, exitCode);
    if (!session) return exitCode;
    CArchive &archive = session->Archive();
    archive.refreshAfterChange = true;
    exitCode = session->Run(L"remove", [&] { return archive.RemoveFrom(&items); });
    if (exitCode != kExitSuccess) return exitCode;
    // The library keeps no result of a removal; the listing it reads
    // afterwards tells whether the items went.
    for (const std::wstring &item : items) {
        if (!IsGone(archive, item)) {
            PrintError(FormatW(L"remove %s: %s is still in the archive", archive.name.c_str(),
                               item.c_str()));
            return kExitFailure;
        }
    }
    return kExitSuccess;
}

int RenameCommand(const std::vector<std::wstring> &words) {
    const Arguments arguments = ParseArguments(words, {}, kPasswordOptions);
    int exitCode = kExitSuccess;
    std::unique_ptr<ArchiveSession> session = OpenWithItems(arguments, 3, 3, exitCode);
    if (!session) return exitCode;
    const std::wstring &item = arguments.positional[1];
    const std::wstring &newName = arguments.positional[2];
    if (!IsPlainName(newName)) {
        return UsageError(FormatW(L"'%s': the new name is a name, not a path", newName.c_str()));
    }
    CArchive &archive = session->Archive();
    if (!FindItem(archive, item)) return NoSuchItem(item);
    if (!archive.RenameArchiveItem(ItemPathOf(item).c_str(), newName.c_str())) {
        return session->ReportFailure(L"rename", archive.lastResult);
    }
    return kExitSuccess;
}

int MkdirCommand(const std::vector<std::wstring> &words) {
    const Arguments arguments = ParseArguments(words, {}, kPasswordOptions);
    int exitCode = kExitSuccess;
    std::unique_ptr<ArchiveSession> session = OpenWithItems(arguments, 3, 3, exitCode);
    if (!session) return exitCode;
    const std::wstring parent = ItemPathOf(arguments.positional[1]);
    const std::wstring &name = arguments.positional[2];
    if (!IsPlainName(name)) {
        return UsageError(FormatW(L"'%s': the folder's name is a name, not a path", name.c_str()));
    }
    if (HasSeparator(parent)) return DeeperFolderRefused(arguments.positional[1]);
    CArchive &archive = session->Archive();
    if (!parent.empty()) {
        const CArchiveItem *found = FindItem(archive, parent);
        if (!found || !found->IsFolder()) return NoSuchItem(arguments.positional[1]);
    }
    const std::wstring path = parent.empty() ? name : parent + kPathSep + name;
    if (FindItem(archive, path)) {
        PrintError(FormatW(L"%s: already in the archive", path.c_str()));
        return kExitFailure;
    }
    if (!archive.AddFolder(parent.c_str(), name.c_str())) {
        return session->ReportFailure(L"mkdir", archive.lastResult);
    }
    return kExitSuccess;
}

int CommentCommand(const std::vector<std::wstring> &words) {
    const Arguments arguments = ParseArguments(words, {}, kPasswordOptions);
    int exitCode = kExitSuccess;
    std::unique_ptr<ArchiveSession> session = OpenWithItems(arguments, 1, 2, exitCode);
    if (!session) return exitCode;
    CArchive &archive = session->Archive();
    if (arguments.positional.size() == 1) {
        // The listing read the comment of any format that keeps one.
        if (!archive.comment.empty()) Print(archive.comment + L"\n");
        return kExitSuccess;
    }
    if (archive.formatType != format::vnkx) {
        PrintError(
            FormatW(L"comment %s: only a vnkx archive takes a comment", archive.name.c_str()));
        return kExitFailure;
    }
    if (!archive.SetVnkxComment(arguments.positional[1].c_str())) {
        return session->ReportFailure(L"comment", archive.lastResult);
    }
    return kExitSuccess;
}

}  // namespace cli
