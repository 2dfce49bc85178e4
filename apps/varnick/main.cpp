// varnick: the command-line program for people. It works through the
// library only.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "CAppUtils.h"
#include "CFSUtils.h"
#include "CliCommon.h"
#include "Commands.h"
#include "common/RegistryDump.h"
#include "platform/Registry.h"
#include "platform/TerminalUiHost.h"
#include "platform/UiHost.h"
#include "platform/Win32.h"

namespace {

using cli::kExitFailure;
using cli::kExitSuccess;
using cli::kExitUsage;
using cli::Print;
using cli::PrintError;

int Usage(FILE *to) {
    std::fputs(
        "usage: varnick COMMAND [ARGUMENTS]\n"
        "\n"
        "commands:\n"
        "  list ARCHIVE [--json]\n"
        "                  one line an item: date, size, compressed size, path\n"
        "  info ARCHIVE    format, access, sizes, counts, encryption and comment\n"
        "  create ARCHIVE PATH... [--format zip|vnkx] [--level 0-9]\n"
        "                  a new archive of the files and folders\n"
        "  expand ARCHIVE [-d FOLDER] [--overwrite|--skip]\n"
        "                  expand into FOLDER (the current folder without -d); an\n"
        "                  existing file is kept unless --overwrite\n"
        "  verify ARCHIVE  test every item of the archive\n"
        "  ls [FOLDER]     list a folder: attributes, date, size and name of each entry\n"
        "  folders         show the folders the product keeps its data in\n"
        "  reg export [HIVE\\KEY]\n"
        "                  print a registry key and everything below it (HIVE is\n"
        "                  HKCU, HKLM, HKCR or HKU, or the long name); without a key,\n"
        "                  the whole of HKCU, HKLM and HKCR\n"
        "  --version       show the version\n"
        "  --help          show this text\n"
        "\n"
        "The archive commands take --password TEXT or --password-file FILE;\n"
        "without either, VARNICK_PASSWORD is used when set.\n"
        "VARNICK_HOME, when set, moves every folder of the product below it.\n",
        to);
    return to == stderr ? kExitUsage : kExitSuccess;
}

std::wstring AttributeText(DWORD attributes) {
    std::wstring text = L"-----";
    if (attributes & FILE_ATTRIBUTE_DIRECTORY) text[0] = L'd';
    if (attributes & FILE_ATTRIBUTE_READONLY) text[1] = L'r';
    if (attributes & FILE_ATTRIBUTE_HIDDEN) text[2] = L'h';
    if (attributes & FILE_ATTRIBUTE_SYSTEM) text[3] = L's';
    if (attributes & FILE_ATTRIBUTE_ARCHIVE) text[4] = L'a';
    return text;
}

std::wstring EntryLine(const WIN32_FIND_DATAW &entry) {
    wchar_t date[64];
    wchar_t time[64];
    CAppUtils::FormatDateTime(&entry.ftLastWriteTime, date, time);
    std::wstring size = L"<folder>";
    if (!(entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) {
        wchar_t text[32];
        size = CAppUtils::FormatFileSize(entry.nFileSizeHigh, entry.nFileSizeLow, text);
    }
    return FormatW(L"%s  %s %s  %20s  %s\n", AttributeText(entry.dwFileAttributes).c_str(), date,
                   time, size.c_str(), entry.cFileName);
}

// Lists FOLDER the way the library sees it: Windows attribute bits, local
// dates in the user's short form, sizes with the thousands separator.
int ListFolder(const std::wstring &folder) {
    if (!CFSUtils::FolderExists(folder.c_str())) {
        PrintError(FormatW(L"%s: no such folder", folder.c_str()));
        return kExitFailure;
    }
    const std::wstring pattern = platform::JoinPath(folder, L"*.*");
    WIN32_FIND_DATAW entry{};
    HANDLE find = FindFirstFileW(pattern.c_str(), &entry);
    if (find == INVALID_HANDLE_VALUE) {
        PrintError(FormatW(L"%s: %s", folder.c_str(), CAppUtils::WinErrorToString(GetLastError())));
        return kExitFailure;
    }
    std::uint64_t total = 0;
    DWORD files = 0;
    do {
        if (std::wcscmp(entry.cFileName, L".") == 0 || std::wcscmp(entry.cFileName, L"..") == 0) {
            continue;
        }
        Print(EntryLine(entry));
        if (!(entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) {
            total += (static_cast<std::uint64_t>(entry.nFileSizeHigh) << 32) | entry.nFileSizeLow;
            ++files;
        }
    } while (FindNextFileW(find, &entry));
    FindClose(find);
    wchar_t size[32];
    Print(FormatW(L"%u files, %s bytes\n", files,
                  CAppUtils::FormatFileSize(static_cast<std::int64_t>(total), size)));
    return kExitSuccess;
}

int ShowFolders() {
    struct Row {
        const wchar_t *name;
        int csidl;
    };
    const Row rows[] = {
        {L"local application data", CSIDL_LOCAL_APPDATA},
        {L"application data", CSIDL_APPDATA},
        {L"common application data", CSIDL_COMMON_APPDATA},
        {L"documents", CSIDL_PERSONAL},
        {L"desktop", CSIDL_DESKTOPDIRECTORY},
    };
    for (const Row &row : rows) {
        Print(FormatW(L"%-24s %s\n", row.name, platform::SpecialFolder(row.csidl, false).c_str()));
    }
    Print(FormatW(L"%-24s %s\n", L"my archives", CFSUtils::GetMyArchivesFolder()));
    Print(FormatW(L"%-24s %s\n", L"temporary files", CFSUtils::GetTempFolder()));
    Print(FormatW(L"%-24s %s\n", L"programs", CAppUtils::GetExePath()));
    return kExitSuccess;
}

// "HKCU\Software\X" into its hive and the key path below it; false for a
// hive of another name.
bool ParseRegistryPath(const std::wstring &text, HKEY &hive, std::wstring &path) {
    struct Hive {
        const wchar_t *shortName;
        HKEY hive;
    };
    const Hive hives[] = {{L"HKCU", HKEY_CURRENT_USER},
                          {L"HKLM", HKEY_LOCAL_MACHINE},
                          {L"HKCR", HKEY_CLASSES_ROOT},
                          {L"HKU", HKEY_USERS}};
    const std::size_t split = text.find(L'\\');
    const std::wstring name = text.substr(0, split);
    path = split == std::wstring::npos ? L"" : text.substr(split + 1);
    for (const Hive &entry : hives) {
        if (platform::EqualsNoCase(name, entry.shortName) ||
            platform::EqualsNoCase(name, RegistryHiveName(entry.hive))) {
            hive = entry.hive;
            return true;
        }
    }
    return false;
}

// Prints a key of the registry store and everything below it, in the form
// of the support report.
int ExportRegistryKey(HKEY hive, const std::wstring &path) {
    const LONG status = DumpRegistryKey(stdout, hive, path.c_str());
    if (status == ERROR_SUCCESS) return kExitSuccess;
    std::wstring key = RegistryHiveName(hive);
    if (!path.empty()) key += L"\\" + path;
    if (status == ERROR_FILE_NOT_FOUND) {
        PrintError(FormatW(L"%s: no such key", key.c_str()));
    } else {
        PrintError(FormatW(L"%s: %s", key.c_str(), CAppUtils::WinErrorToString(status)));
    }
    return kExitFailure;
}

int RegistryCommand(const std::vector<std::wstring> &args) {
    if (args.size() < 2 || args.size() > 3 || args[1] != L"export") {
        std::fputs("usage: varnick reg export [HIVE\\KEY]\n", stderr);
        return kExitUsage;
    }
    if (args.size() == 2) {
        for (HKEY hive : {HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE, HKEY_CLASSES_ROOT}) {
            const int result = ExportRegistryKey(hive, L"");
            if (result != kExitSuccess) return result;
        }
        return kExitSuccess;
    }
    HKEY hive = nullptr;
    std::wstring path;
    if (!ParseRegistryPath(args[2], hive, path)) {
        PrintError(FormatW(L"unknown hive in '%s': use HKCU, HKLM, HKCR or HKU", args[2].c_str()));
        return kExitUsage;
    }
    return ExportRegistryKey(hive, path);
}

// The resource libraries lie beside the library; without them every text
// of the product would be empty.
bool LoadResources() {
    HINSTANCE localized = LoadLibraryW(CAppUtils::GetInstResPath());
    HINSTANCE nonLocalized = LoadLibraryW(CAppUtils::GetInstResNLPath());
    if (!localized || !nonLocalized) {
        PrintError(L"the resource libraries are missing beside the program");
        return false;
    }
    CAppUtils::SetCommonHINST(localized, nonLocalized);
    return true;
}

int ListFolderCommand(const std::vector<std::wstring> &rest) {
    if (rest.size() > 1) return Usage(stderr);
    wchar_t current[1024];
    std::wstring folder = rest.size() == 1                      ? rest[0]
                          : GetCurrentDirectoryW(1024, current) ? std::wstring(current)
                                                                : L".";
    return ListFolder(folder);
}

int FoldersCommand(const std::vector<std::wstring> &rest) {
    return rest.empty() ? ShowFolders() : Usage(stderr);
}

int RegistryExportCommand(const std::vector<std::wstring> &rest) {
    std::vector<std::wstring> args{L"reg"};
    args.insert(args.end(), rest.begin(), rest.end());
    return RegistryCommand(args);
}

struct Command {
    const wchar_t *name;
    int (*run)(const std::vector<std::wstring> &rest);
};

const Command kCommands[] = {
    {L"ls", ListFolderCommand},      {L"folders", FoldersCommand},
    {L"reg", RegistryExportCommand}, {L"list", cli::ListCommand},
    {L"info", cli::InfoCommand},     {L"expand", cli::ExpandCommand},
    {L"verify", cli::VerifyCommand}, {L"create", cli::CreateCommand},
};

}  // namespace

int main(int argc, char **argv) {
    // Message boxes and prompts of the library reach the user's terminal.
    platform::TerminalUiHost terminal;
    platform::ScopedUiHost installed(&terminal);
    std::vector<std::wstring> args;
    for (int i = 1; i < argc; ++i) args.push_back(platform::FromUtf8(argv[i]));
    if (args.empty()) return Usage(stderr);
    const std::wstring &command = args[0];
    if (command == L"--help" || command == L"-h" || command == L"help") return Usage(stdout);
    if (command == L"--version") {
        Print(FormatW(L"varnick %s\n", CAppUtils::AppVersion()));
        return kExitSuccess;
    }
    if (!LoadResources()) return kExitFailure;
    const std::vector<std::wstring> rest(args.begin() + 1, args.end());
    for (const Command &entry : kCommands) {
        if (command == entry.name) return entry.run(rest);
    }
    PrintError(FormatW(L"unknown command '%s'", command.c_str()));
    return Usage(stderr);
}
