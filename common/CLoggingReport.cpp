// The report for customer support: the machine, the program folder and the
// product's registry keys, in one log.

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "CAppUtils.h"
#include "CCrypto.h"
#include "CLogging.h"
#include "common/RegistryDump.h"
#include "platform/Win32.h"

namespace {

constexpr wchar_t kWriteMode[] = L"wt, ccs=UNICODE";
constexpr double kBytesPerGB = 1024.0 * 1024.0 * 1024.0;
constexpr DWORD kEnvironmentChars = 0x7FFF;
constexpr DWORD kFirstVersionWithVirtualFiles = 0x0600;

// "NAME=%NAME%", so that each line names its variable; an unset one stays
// as written, as the expansion leaves unknown names.
constexpr const wchar_t *kEnvironmentLines[] = {
    L"PATH=%PATH%", L"HOME=%HOME%",   L"TMPDIR=%TMPDIR%",
    L"LANG=%LANG%", L"SHELL=%SHELL%", L"USER=%USER%",
};

struct FileCloser {
    void operator()(FILE *file) const { fclose(file); }
};
using LogFile = std::unique_ptr<FILE, FileCloser>;

struct FindCloser {
    void operator()(HANDLE find) const { FindClose(find); }
};
using FindHandle = std::unique_ptr<void, FindCloser>;

// The support report lies beside the other logs; its folder is not made.
std::wstring SupportLogPath() {
    std::wstring local = platform::SpecialFolder(CSIDL_LOCAL_APPDATA, false);
    if (local.empty()) return local;
    return local + kPathSep + L"Orvane Labs" + kPathSep + L"Logs" + kPathSep + L"Support.log";
}

// A folder through its Windows call; "" when the call fails.
template <typename Call>
std::wstring SystemFolder(Call call) {
    wchar_t buffer[1024];
    UINT length = call(buffer, 1024);
    return length > 0 && length < 1024 ? std::wstring(buffer, length) : std::wstring();
}

void DriveSpace(FILE *log, int level) {
    CLogging::Msg(log, level, L"Drive Space:\n");
    for (const std::wstring &drive : platform::FixedDrives()) {
        ULARGE_INTEGER available{}, total{}, free{};
        if (!GetDiskFreeSpaceExW(drive.c_str(), &available, &total, &free)) continue;
        CLogging::Msg(log, level, L"  %s - size %.2fGB, free %.2fGB\n", drive.c_str(),
                      static_cast<double>(total.QuadPart) / kBytesPerGB,
                      static_cast<double>(available.QuadPart) / kBytesPerGB);
    }
}

void EnvironmentStrings(FILE *log, int level) {
    CLogging::Msg(log, level, L"Environment strings:\n");
    std::wstring expanded(kEnvironmentChars, L'\0');
    for (const wchar_t *line : kEnvironmentLines) {
        DWORD needed = ExpandEnvironmentStringsW(line, expanded.data(), kEnvironmentChars);
        if (needed != 0 && needed < kEnvironmentChars)
            CLogging::Msg(log, level, L"%s\n", expanded.c_str());
    }
    CLogging::Msg(log, level, L"\n");
}

// Links lead out of the folder, or back up it.
bool SkippedInListing(const WIN32_FIND_DATAW &entry) {
    if (CAppUtils::GetWINVER() >= kFirstVersionWithVirtualFiles &&
        (entry.dwFileAttributes & (FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_VIRTUAL)))
        return true;
    return std::wstring_view(entry.cFileName) == L"." ||
           std::wstring_view(entry.cFileName) == L"..";
}

void FileLine(FILE *log, int level, const std::wstring &folder, const WIN32_FIND_DATAW &entry) {
    wchar_t size[32];
    wchar_t date[64];
    wchar_t time[64];
    CAppUtils::FormatFileSize(entry.nFileSizeHigh, entry.nFileSizeLow, size);
    CAppUtils::FormatDateTime(&entry.ftLastWriteTime, date, time);
    std::wstring path = folder + kPathSep + entry.cFileName;
    std::wstring md5 = CCrypto::ComputeMD5(path.c_str());
    CLogging::Msg(log, level, L"%s,%s,%s,%s,%s,%s\n", entry.cFileName, size, date, time,
                  md5.c_str(), folder.c_str());
}

void WalkFolder(FILE *log, int level, const std::wstring &folder) {
    WIN32_FIND_DATAW entry;
    std::wstring pattern = folder + kPathSep + L"*.*";
    HANDLE first = FindFirstFileW(pattern.c_str(), &entry);
    if (first == INVALID_HANDLE_VALUE) return;
    FindHandle find(first);
    do {
        if (SkippedInListing(entry)) continue;
        if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
            WalkFolder(log, level, folder + kPathSep + entry.cFileName);
        else
            FileLine(log, level, folder, entry);
    } while (FindNextFileW(find.get(), &entry));
}

// ---------------------------------------------------------------- registry

struct DumpedKey {
    HKEY hive;
    const wchar_t *subKey;
};

constexpr const wchar_t *kClassKeys[] = {
    L"*\\ShellEx\\ContextMenuHandlers",
    L"*\\ShellEx\\PropertySheetHandlers",
    L".varnicktask",
    L"Applications\\CmdLine.exe",
    L"Applications\\Varnick14.exe",
    L"CLSID\\{E3A73D70-3E82-499B-BC43-6A50287AD3B0}",
    L"CLSID\\{4758DB74-84D8-4752-9E3C-722DB7F52BB3}",
    L"Directory\\ShellEx\\ContextMenuHandlers\\VarnickContextMenuHandler",
    L"Varnick.Archive.Open.Generic",
    L"Varnick.Archive.Open.Rar",
    L"Varnick.Archive.Open.Vnk",
    L"Varnick.Archive.Open.Vnkx",
    L"Varnick.Archive.Open.Tar",
    L"Varnick.Archive.Open.Zip",
    L"Varnick.Scheduler.Task",
};

constexpr const wchar_t *kArchiveExtensions[] = {
    L".arc", L".arj", L".as",   L".b64", L".bin", L".bz2",  L".cab", L".gz",   L".hqx", L".lha",
    L".lzh", L".mim", L".mime", L".mme", L".ntx", L".rar",  L".vnk", L".vnkx", L".tar", L".tbz2",
    L".tgz", L".tz",  L".uu",   L".uue", L".ync", L".yenc", L".z",   L".zip",  L".7z",  L".lzma",
};

std::vector<DumpedKey> DumpedKeys() {
    std::vector<DumpedKey> keys = {{HKEY_CURRENT_USER, L"SOFTWARE\\Orvane Labs\\Varnick"},
                                   {HKEY_LOCAL_MACHINE, L"SOFTWARE\\Orvane Labs\\Varnick"}};
    for (const wchar_t *key : kClassKeys) keys.push_back({HKEY_CLASSES_ROOT, key});
    for (const wchar_t *key : kArchiveExtensions) keys.push_back({HKEY_CLASSES_ROOT, key});
    return keys;
}

}  // namespace

void CLogging::MakeSupportLog() {
    std::wstring path = SupportLogPath();
    if (path.empty()) return;
    LogFile log(_wfopen(path.c_str(), kWriteMode));
    if (!log) return;
    SetCursor(LoadCursorW(nullptr, IDC_WAIT));
    SetCapture(GetActiveWindow());
    ComputerInfo(log.get(), 0);
    ProgDir(log.get(), 0);
    RegKeys(log.get(), 0);
    log.reset();
    ReleaseCapture();
    SetCursor(LoadCursorW(nullptr, IDC_ARROW));
}

void CLogging::ComputerInfo(FILE *log, int level) {
    Msg(log, level, L"\n------  Computer Information  -------\n");
    OSVERSIONINFOEXW version{};
    version.dwOSVersionInfoSize = sizeof version;
    GetVersionExW(reinterpret_cast<OSVERSIONINFOW *>(&version));
    Msg(log, level, L"WindowsVersion=%i.%i\n", static_cast<int>(version.dwMajorVersion),
        static_cast<int>(version.dwMinorVersion));

    MEMORYSTATUSEX memory{};
    memory.dwLength = sizeof memory;
    GlobalMemoryStatusEx(&memory);
    Msg(log, level, L"PhysicalMemory=%iMB\n", static_cast<int>(memory.ullTotalPhys >> 20));

    DriveSpace(log, level);
    Msg(log, level, L"NumberOfMonitors=%i\n", GetSystemMetrics(SM_CMONITORS));
    Msg(log, level, L"PrimaryMonitorScreenResolution=%ix%i\n", GetSystemMetrics(SM_CXSCREEN),
        GetSystemMetrics(SM_CYSCREEN));

    if (std::wstring system = SystemFolder(GetSystemDirectoryW); !system.empty())
        Msg(log, level, L"System Directory=%s\n", system.c_str());
    if (std::wstring windows = SystemFolder(GetWindowsDirectoryW); !windows.empty())
        Msg(log, level, L"Windows Directory=%s\n", windows.c_str());
    EnvironmentStrings(log, level);
}

void CLogging::ProgDir(FILE *log, int level) {
    Msg(log, level, L"\n------  Program Directory  -------\n");
    ListFolder(log, level, CAppUtils::GetExePath());
    Msg(log, level, L"\n");
}

void CLogging::ListFolder(FILE *log, int level, const wchar_t *folder) {
    if (!log || !folder) return;
    WalkFolder(log, level, folder);
}

void CLogging::RegKeys(FILE *log, int level) {
    Msg(log, level, L"\n------  Registry  -------\n");
    // The dump writes its lines itself; they belong to this section's level.
    if (log && LevelPasses(level)) {
        for (const DumpedKey &dumped : DumpedKeys())
            DumpRegistryKey(log, dumped.hive, dumped.subKey);
    }
    Msg(log, level, L"\n");
}
