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
    if (args.size() < 2 || args.size() > 3 || args[1] != L"export") return cli::UsageError();
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
    if (rest.size() > 1) return cli::UsageError();
    wchar_t current[1024];
    std::wstring folder = rest.size() == 1                      ? rest[0]
                          : GetCurrentDirectoryW(1024, current) ? std::wstring(current)
                                                                : L".";
    return ListFolder(folder);
}

int FoldersCommand(const std::vector<std::wstring> &rest) {
    return rest.empty() ? ShowFolders() : cli::UsageError();
}

int RegistryExportCommand(const std::vector<std::wstring> &rest) {
    std::vector<std::wstring> args{L"reg"};
    args.insert(args.end(), rest.begin(), rest.end());
    return RegistryCommand(args);
}

// One subcommand: its name, what runs it, the line `varnick --help` shows
// and the usage `varnick NAME --help` and every usage error show. A usage
// may run over several lines: the synopsis first, then its options.
struct Command {
    const wchar_t *name;
    int (*run)(const std::vector<std::wstring> &words);
    const char *summary;
    const char *usage;
};

const Command kCommands[] = {
    {L"create", cli::CreateCommand, "make a new archive of files and folders",
     "create ARCHIVE PATH... [OPTIONS] [PASSWORD]\n"
     "  --format NAME       zip, vnkx, vnk, 7z, tar, tgz (tar.gz), tbz2 (tar.bz2), gz, bz2;\n"
     "                      without it, the archive's extension names the format\n"
     "  --level 0-9         the compression level (zip and vnkx)\n"
     "  --method NAME       vnkx: deflate, bzip2, lzma2, ppmd, zstd, store, lz4, brotli,\n"
     "                      lzma2-large; zip: store, deflate\n"
     "  --mask PATTERN      take only files below the folders whose names match; give it\n"
     "                      again or separate patterns with ';' (\"*.txt;*.md\")\n"
     "  --per-item          one archive for each PATH, in the folder of ARCHIVE, whose\n"
     "                      extension names the format\n"
     "  --timestamp         add the local date and time to the archive's name\n"
     "  --delete-sources    delete the files and folders once they are archived\n"
     "  --sfx               make a self-extracting program NAME.exe (zip, vnkx)\n"
     "  --ask-password      ask for a password, twice, without echo\n"
     "  vnkx only:\n"
     "  --segment-size N    split into segments of N bytes (k, M, G: 1024 multiples)\n"
     "  --index             also write an index of the archive (a .vidx file)\n"
     "  --redundancy N      add N percent (0-50) of recovery data\n"
     "  --comment TEXT      the archive's comment"},
    {L"list", cli::ListCommand, "one line an item: date, size, compressed size, path",
     "list ARCHIVE [--json] [PASSWORD]"},
    {L"info", cli::InfoCommand, "format, access, sizes, counts, encryption and comment",
     "info ARCHIVE [PASSWORD]"},
    {L"expand", cli::ExpandCommand, "expand every item into a folder",
     "expand ARCHIVE [-d FOLDER] [--overwrite|--skip|--rename|--ask] [PASSWORD]\n"
     "  without -d, into the current folder. An item that is there already is\n"
     "  asked about on a terminal and kept otherwise; --overwrite replaces it (a\n"
     "  folder is merged into), --skip keeps it without asking, --rename writes the\n"
     "  new one under a free name, --ask always asks"},
    {L"verify", cli::VerifyCommand, "test every item of the archive", "verify ARCHIVE [PASSWORD]"},
    {L"add", cli::AddCommand, "add files and folders to an archive",
     "add ARCHIVE PATH... [--into FOLDER] [PASSWORD]\n"
     "  --into puts them in FOLDER at the top of the archive, made when missing;\n"
     "  PASSWORD encrypts what is added"},
    {L"extract", cli::ExtractCommand, "expand chosen items into a folder",
     "extract ARCHIVE ITEM... [-d FOLDER] [--overwrite|--skip|--rename|--ask] [PASSWORD]\n"
     "  ITEM is a path as list shows it. Each lands in FOLDER under its own name, a\n"
     "  folder with all it holds. Without -d, into the current folder; conflicts as\n"
     "  for expand"},
    {L"remove", cli::RemoveCommand, "remove items from an archive",
     "remove ARCHIVE ITEM... [PASSWORD]"},
    {L"rename", cli::RenameCommand, "give an item of an archive a new name",
     "rename ARCHIVE ITEM NEWNAME [PASSWORD]"},
    {L"mkdir", cli::MkdirCommand, "make a new folder in an archive",
     "mkdir ARCHIVE PARENT NAME [PASSWORD]\n  PARENT / is the top of the archive"},
    {L"comment", cli::CommentCommand, "show the comment of an archive, or set it (vnkx)",
     "comment ARCHIVE [TEXT] [PASSWORD]"},
    {L"encrypt", cli::EncryptCommand, "encrypt every item of an archive with a new password",
     "encrypt ARCHIVE [PASSWORD]\n  without PASSWORD the new one is asked twice on the terminal"},
    {L"decrypt", cli::DecryptCommand, "take the encryption off an archive",
     "decrypt ARCHIVE [PASSWORD]\n  without PASSWORD it is asked on the terminal"},
    {L"recover", cli::RecoverCommand, "write a repaired copy of a damaged archive",
     "recover ARCHIVE -d FOLDER [PASSWORD]\n"
     "  the copy keeps the archive's name, in FOLDER (not the archive's own folder)"},
    {L"convert", cli::ConvertCommand, "write an archive anew as zip or vnkx, beside it",
     "convert ARCHIVE --to zip|vnkx [PASSWORD]\n"
     "  vnk, vnkx and tar archives convert to zip; vnk, zip and tar to vnkx. An\n"
     "  encrypted archive's password protects the result too"},
    {L"sfx", cli::SfxCommand, "make a program that expands the archive, NAME.exe beside it",
     "sfx ARCHIVE [PASSWORD]\n"
     "  zip and vnkx archives; the program takes a destination folder to expand into"},
    {L"digest", cli::DigestCommand, "the MD5 and SHA-1 digests of a file",
     "digest FILE [--md5] [--sha1] [--write]\n"
     "  without --md5 or --sha1, both; --write also writes FILE.md5 and FILE.sha1"},
    {L"formats", cli::FormatsCommand, "the kinds of archive that can be read and written",
     "formats"},
    {L"job", cli::JobCommand, "run a job file as varnick-cmdline does, or write a new one",
     "job FILE | job --new FILE --archive ARCHIVE PATH... | job --results FILE\n"
     "  FILE alone runs the job; --new writes a job that compresses the PATHs into\n"
     "  ARCHIVE, in the format its extension names; --results shows the archives the\n"
     "  last successful run made and where it logged"},
    {L"ls", ListFolderCommand, "list a folder: attributes, date, size and name of each entry",
     "ls [FOLDER]"},
    {L"folders", FoldersCommand, "show the folders the product keeps its data in", "folders"},
    {L"reg", RegistryExportCommand, "print a registry key and everything below it",
     "reg export [HIVE\\KEY]\n"
     "  HIVE is HKCU, HKLM, HKCR or HKU, or the long name; without a key, the whole of\n"
     "  HKCU, HKLM and HKCR"},
};

// Said once below the commands and below every command's usage.
constexpr const char *kCommonOptions =
    "PASSWORD is --password TEXT or --password-file FILE; without either,\n"
    "VARNICK_PASSWORD is used when set.\n"
    "--quiet shows no progress and nothing on success (errors still go to stderr);\n"
    "--yes answers every question with yes, and a conflict with overwrite.\n"
    "VARNICK_HOME, when set, moves every folder of the product below it.\n";

int Help() {
    std::string text = "usage: varnick [--quiet] [--yes] COMMAND [ARGUMENTS]\n\ncommands:\n";
    for (const Command &entry : kCommands) {
        text += "  " + platform::ToUtf8(entry.name);
        text.append(
            entry.name[0] && std::wcslen(entry.name) < 10 ? 10 - std::wcslen(entry.name) : 1, ' ');
        text += entry.summary;
        text += "\n";
    }
    text += "  --version   show the version\n";
    text += "\n'varnick COMMAND --help' shows the usage of a command.\n";
    text += kCommonOptions;
    std::fputs(text.c_str(), stdout);
    return kExitSuccess;
}

int CommandHelp(const Command &entry) {
    std::printf("usage: varnick %s\n\n%s.\n\n%s", entry.usage, entry.summary, kCommonOptions);
    return kExitSuccess;
}

const Command *FindCommand(const std::wstring &name) {
    for (const Command &entry : kCommands) {
        if (name == entry.name) return &entry;
    }
    return nullptr;
}

bool AsksForHelp(const std::vector<std::wstring> &words) {
    for (const std::wstring &word : words) {
        if (word == L"--help" || word == L"-h") return true;
    }
    return false;
}

}  // namespace

int main(int argc, char **argv) {
    std::vector<std::wstring> args;
    for (int i = 1; i < argc; ++i) args.push_back(platform::FromUtf8(argv[i]));
    const cli::GlobalOptions global = cli::TakeGlobalOptions(args);
    // Message boxes and prompts of the library reach the user's terminal.
    cli::CommandLineUiHost host(global);
    platform::ScopedUiHost installed(&host);
    if (args.empty()) {
        std::fputs(
            "usage: varnick [--quiet] [--yes] COMMAND [ARGUMENTS]\n"
            "'varnick --help' lists the commands.\n",
            stderr);
        return kExitUsage;
    }
    const std::wstring &command = args[0];
    if (command == L"--help" || command == L"-h" || command == L"help") return Help();
    if (command == L"--version") {
        Print(FormatW(L"varnick %s\n", CAppUtils::AppVersion()));
        return kExitSuccess;
    }
    const Command *entry = FindCommand(command);
    if (!entry) {
        PrintError(FormatW(L"unknown command '%s': 'varnick --help' lists them", command.c_str()));
        return kExitUsage;
    }
    const std::vector<std::wstring> rest(args.begin() + 1, args.end());
    if (AsksForHelp(rest)) return CommandHelp(*entry);
    cli::SetUsage(entry->usage);
    if (!LoadResources()) return kExitFailure;
    return entry->run(rest);
}
