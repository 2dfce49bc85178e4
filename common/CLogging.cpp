#include "CLogging.h"

#include <atomic>
#include <cstdarg>
#include <ctime>
#include <mutex>

#include "CFSUtils.h"
#include "platform/Win32.h"

namespace {

constexpr std::size_t kRecordChars = 512;
constexpr wchar_t kAppendMode[] = L"at, ccs=UNICODE";
constexpr wchar_t kWriteMode[] = L"wt, ccs=UNICODE";
constexpr wchar_t kErrorFileName[] = L"Errors.log";

// The paths are built once and read by every thread that logs; the lock
// only keeps two first uses from building them at the same time.
std::mutex pathsMutex;
std::wstring logFolder;
std::wstring errorFilePath;
std::wstring lastLogPath;

std::atomic<FILE *> sessionErrorHandle{nullptr};
std::atomic<int> levelLow{0};
std::atomic<int> levelHigh{0};

// Callers hold pathsMutex.
const std::wstring &BuildLogFolder() {
    if (logFolder.empty()) {
        wchar_t base[platform::kPathBufferSize];
        if (!SHGetSpecialFolderPathW(nullptr, base, CSIDL_LOCAL_APPDATA, FALSE)) return logFolder;
        logFolder = std::wstring(base) + kPathSep + L"Orvane Labs" + kPathSep + L"Logs" + kPathSep;
        CFSUtils::ForceDirectories(logFolder.c_str());
    }
    return logFolder;
}

// _wasctime of the local time; with the line feed at its end.
std::wstring LocalTimeText() {
    __time64_t now = _time64(nullptr);
    struct tm local {};
    if (_localtime64_s(&local, &now) != 0) return L"\n";
    const wchar_t *text = _wasctime(&local);
    return text ? text : L"\n";
}

// The one form of an error record, for the error file and any log.
std::wstring ErrorRecord(const wchar_t *function, unsigned line, const wchar_t *file, unsigned code,
                         bool engine, const wchar_t *text) {
    std::wstring time = LocalTimeText();
    if (!time.empty()) time.pop_back();
    wchar_t record[kRecordChars];
    swprintf_s(record, kRecordChars, L"%s %s %s: %i at %s [line %i : %s]\n", time.c_str(),
               text ? text : L" ", engine ? L"Varnick Compression Message" : L"Runtime error",
               static_cast<int>(code), function ? function : L"", static_cast<int>(line),
               file ? file : L"");
    return record;
}

std::wstring FormatLine(const wchar_t *format, va_list args) {
    wchar_t line[kRecordChars];
    line[0] = L'\0';
    if (format) _vsnwprintf_s(line, kRecordChars, _TRUNCATE, format, args);
    return line;
}

void WriteLine(FILE *log, const std::wstring &line) {
    TextFilePuts(line.c_str(), log);
    fflush(log);
}

bool AppendToErrorFile(const std::wstring &line) {
    std::wstring path = CLogging::ErrorFilePath();
    if (path.empty()) return false;
    FILE *file = _wfopen(path.c_str(), kAppendMode);
    if (!file) return false;
    TextFilePuts(line.c_str(), file);
    fclose(file);
    return true;
}

// Opens a log, writes its header and makes it the last log; a failure is
// recorded in the name of the public call.
FILE *OpenAndHead(const std::wstring &path, bool append, const wchar_t *function, unsigned line) {
    FILE *log = _wfopen(path.c_str(), append ? kAppendMode : kWriteMode);
    if (!log) {
        CLogging::Err(function, line, L".\\CLogging", GetLastError());
        return nullptr;
    }
    CLogging::Msg(log, 0, L"\n\n---------------------------------------\n%s\n",
                  LocalTimeText().c_str());
    std::lock_guard lock(pathsMutex);
    lastLogPath = path;
    return log;
}

}  // namespace

// ---------------------------------------------------------- error records

void CLogging::Err(const wchar_t *function, unsigned line, const wchar_t *file, unsigned code,
                   bool engine, const wchar_t *text) {
    std::wstring record = ErrorRecord(function, line, file, code, engine, text);
    if (!AppendToErrorFile(record)) return;
    if (FILE *session = sessionErrorHandle.load()) WriteLine(session, record);
}

void CLogging::LogErr(FILE *log, const wchar_t *function, unsigned line, const wchar_t *file,
                      unsigned code, bool engine, const wchar_t *text) {
    if (!log) return;
    WriteLine(log, ErrorRecord(function, line, file, code, engine, text));
}

void CLogging::MsgInErrFile(const wchar_t *format, ...) {
    va_list args;
    va_start(args, format);
    std::wstring line = FormatLine(format, args);
    va_end(args);
    AppendToErrorFile(line);
}

void CLogging::SetSessionErrorHandle(FILE *log) {
    if (log) sessionErrorHandle.store(log);
}

FILE *CLogging::SessionErrorHandle() { return sessionErrorHandle.load(); }

// ------------------------------------------------------------------ paths

std::wstring CLogging::LogFolder() {
    std::lock_guard lock(pathsMutex);
    return BuildLogFolder();
}

std::wstring CLogging::ErrorFilePath() {
    std::lock_guard lock(pathsMutex);
    if (errorFilePath.empty()) {
        const std::wstring &folder = BuildLogFolder();
        if (!folder.empty()) errorFilePath = folder + kErrorFileName;
    }
    return errorFilePath;
}

void CLogging::ResetLogFolder() {
    std::lock_guard lock(pathsMutex);
    logFolder.clear();
    errorFilePath.clear();
}

std::wstring CLogging::LastLogPath() {
    std::lock_guard lock(pathsMutex);
    return lastLogPath;
}

// ------------------------------------------------------------------- logs

FILE *CLogging::OpenLog(const wchar_t *name, bool append) {
    std::wstring path = LogFolder() + (name ? name : L"") + L".log";
    return OpenAndHead(path, append, L"CLogging::OpenLog", 59);
}

FILE *CLogging::OpenExternalLog(const wchar_t *path, bool append) {
    return OpenAndHead(path ? path : L"", append, L"CLogging::OpenExternalLog", 79);
}

void CLogging::CloseLog(FILE *log) {
    if (!log) return;
    FILE *expected = log;
    sessionErrorHandle.compare_exchange_strong(expected, nullptr);
    fclose(log);
}

void CLogging::CloseAndDeleteLog(FILE *log) {
    if (!log) return;
    CloseLog(log);
    ::DeleteFileW(LastLogPath().c_str());
}

void CLogging::ClearLog(const wchar_t *path) {
    if (!path) return;
    if (FILE *log = _wfopen(path, kWriteMode)) fclose(log);
}

bool CLogging::LevelPasses(int level) {
    return level == 0 || (levelLow.load() <= level && level <= levelHigh.load());
}

void CLogging::SetLevel(int low, int high) {
    levelLow.store(low);
    levelHigh.store(high);
}

void CLogging::Msg(FILE *log, int level, const wchar_t *format, ...) {
    if (!log || !CLogging::LevelPasses(level)) return;
    va_list args;
    va_start(args, format);
    std::wstring line = FormatLine(format, args);
    va_end(args);
    WriteLine(log, line);
}

void CLogging::Dbg(const wchar_t *format, ...) {
    va_list args;
    va_start(args, format);
    std::wstring line = FormatLine(format, args);
    va_end(args);
    OutputDebugStringW(line.c_str());
}

// The plain exported name stays silent, unlike CLogging::Dbg.
void Dbg(const wchar_t *, ...) {}
