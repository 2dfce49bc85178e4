// varnick list and varnick info: what an archive holds, read through the
// library's listing without changing the archive.
#include <memory>
#include <string>
#include <vector>

#include "CAppUtils.h"
#include "CArchiveItem.h"
#include "CArchiveObject.h"
#include "CliCommon.h"
#include "Commands.h"
#include "FormatCatalogue.h"
#include "platform/Win32.h"

namespace cli {

namespace {

std::wstring DateText(EngineDateTime ticks) {
    FILETIME time{static_cast<DWORD>(ticks & 0xFFFFFFFFu), static_cast<DWORD>(ticks >> 32)};
    wchar_t date[64] = {};
    wchar_t clock[64] = {};
    CAppUtils::FormatDateTime(&time, date, clock);
    return std::wstring(date) + L" " + clock;
}

std::wstring SizeText(std::uint64_t size) {
    wchar_t text[32];
    return CAppUtils::FormatFileSize(static_cast<std::int64_t>(size), text);
}

std::wstring JsonString(const std::wstring &text) {
    std::wstring quoted = L"\"";
    for (wchar_t c : text) {
        if (c == L'"' || c == L'\\') {
            quoted += L'\\';
            quoted += c;
        } else if (c < 0x20) {
            quoted += FormatW(L"\\u%04x", static_cast<unsigned>(c));
        } else {
            quoted += c;
        }
    }
    return quoted + L"\"";
}

const std::vector<CArchiveItem> &ItemsOf(CArchive &archive) {
    static const std::vector<CArchiveItem> none;
    return archive.archiveObject ? archive.archiveObject->items : none;
}

void PrintItemLines(const std::vector<CArchiveItem> &items) {
    for (const CArchiveItem &item : items) {
        if (item.IsFolder()) continue;
        Print(FormatW(L"%s  %15s  %15s  %s\n", DateText(item.modificationDate).c_str(),
                      SizeText(item.expandedSize).c_str(), SizeText(item.compressedSize).c_str(),
                      item.path.c_str()));
    }
}

void PrintItemsAsJson(const std::vector<CArchiveItem> &items) {
    Print(L"[");
    bool first = true;
    for (const CArchiveItem &item : items) {
        Print(
            FormatW(L"%s\n  {\"path\": %s, \"folder\": %s, \"size\": %I64u, "
                    L"\"compressedSize\": %I64u, \"date\": %s, \"encrypted\": %s}",
                    first ? L"" : L",", JsonString(item.path).c_str(),
                    item.IsFolder() ? L"true" : L"false", item.expandedSize, item.compressedSize,
                    JsonString(DateText(item.modificationDate)).c_str(),
                    item.encrypted ? L"true" : L"false"));
        first = false;
    }
    Print(L"\n]\n");
}

}  // namespace

int ListCommand(const std::vector<std::wstring> &words) {
    const Arguments arguments =
        ParseArguments(words, {L"--json"}, {L"--password", L"--password-file"});
    int exitCode = kExitSuccess;
    std::unique_ptr<ArchiveSession> session = OpenListed(arguments, exitCode);
    if (!session) return exitCode;
    const std::vector<CArchiveItem> &items = ItemsOf(session->Archive());
    if (arguments.Has(L"--json")) {
        PrintItemsAsJson(items);
    } else {
        PrintItemLines(items);
    }
    return kExitSuccess;
}

int InfoCommand(const std::vector<std::wstring> &words) {
    const Arguments arguments = ParseArguments(words, {}, {L"--password", L"--password-file"});
    int exitCode = kExitSuccess;
    std::unique_ptr<ArchiveSession> session = OpenListed(arguments, exitCode);
    if (!session) return exitCode;
    CArchive &archive = session->Archive();
    Print(FormatW(L"archive          %s\n", archive.name.c_str()));
    Print(FormatW(L"format           %s\n", GetFormatName(archive.formatType)));
    Print(FormatW(L"access           %s\n", archive.modeText.c_str()));
    Print(FormatW(L"archive size     %s\n", SizeText(archive.archiveSize).c_str()));
    Print(FormatW(L"expanded size    %s\n", SizeText(archive.expandedSize).c_str()));
    Print(FormatW(L"compressed size  %s\n", SizeText(archive.compressedSize).c_str()));
    Print(FormatW(L"files            %u\n", archive.fileCount));
    Print(FormatW(L"folders          %u\n", archive.folderCount));
    Print(FormatW(L"encrypted        %s\n",
                  session->HoldsEncryptedItems() || archive.IsEncrypted() ? L"yes" : L"no"));
    Print(FormatW(L"comment          %s\n", archive.comment.c_str()));
    return kExitSuccess;
}

}  // namespace cli
