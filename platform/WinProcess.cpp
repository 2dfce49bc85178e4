#include "platform/WinProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

#include "platform/WideText.h"
#include "platform/WinError.h"
#include "platform/WinModule.h"
#include "platform/WinPath.h"

extern char **environ;

namespace platform {

// ------------------------------------------------------- command lines

std::vector<std::wstring> SplitCommandLine(const wchar_t *commandLine) {
    std::vector<std::wstring> arguments;
    if (!commandLine) return arguments;
    const wchar_t *s = commandLine;
    for (;;) {
        while (*s == L' ' || *s == L'\t') ++s;
        if (!*s) break;
        std::wstring argument;
        // 1 inside a quoted part. Runs of quotes count up: every third quote
        // of a run is a literal one, and a run leaves the state it found
        // when its length is even.
        int quotes = 0;
        while (*s && (quotes == 1 || (*s != L' ' && *s != L'\t'))) {
            if (*s == L'\\') {
                std::size_t backslashes = 0;
                while (*s == L'\\') {
                    ++backslashes;
                    ++s;
                }
                if (*s != L'"') {
                    argument.append(backslashes, L'\\');
                    continue;
                }
                argument.append(backslashes / 2, L'\\');
                if (backslashes % 2 == 1) {
                    argument += L'"';
                    ++s;
                    continue;
                }
            }
            if (*s == L'"') {
                ++quotes;
                ++s;
                while (*s == L'"') {
                    if (++quotes == 3) {
                        argument += L'"';
                        quotes = 0;
                    }
                    ++s;
                }
                if (quotes == 2) quotes = 0;
                continue;
            }
            argument += *s++;
        }
        arguments.push_back(std::move(argument));
    }
    return arguments;
}

std::wstring QuoteArgument(const std::wstring &argument) {
    if (!argument.empty() && argument.find_first_of(L" \t\n\v\"") == std::wstring::npos) {
        return argument;
    }
    std::wstring quoted = L"\"";
    std::size_t backslashes = 0;
    for (wchar_t c : argument) {
        if (c == L'\\') {
            ++backslashes;
            continue;
        }
        if (c == L'"') {
            quoted.append(backslashes * 2 + 1, L'\\');
        } else {
            quoted.append(backslashes, L'\\');
        }
        backslashes = 0;
        quoted += c;
    }
    quoted.append(backslashes * 2, L'\\');
    quoted += L'"';
    return quoted;
}

std::wstring JoinCommandLine(const std::vector<std::wstring> &arguments) {
    std::wstring line;
    for (const std::wstring &argument : arguments) {
        if (!line.empty()) line += L' ';
        line += QuoteArgument(argument);
    }
    return line;
}

// ------------------------------------------------------ program names

namespace {

constexpr NameMapping kProgramNames[] = {
    {L"CmdLine.exe", L"varnick-cmdline"},
    {L"wizard.exe", L"varnick-wizard"},
    {L"Scheduler.exe", L"varnick-scheduler"},
    {L"AdminScheduler.exe", L"varnick-scheduler"},
    {L"VarnickAtShutdown.exe", L"varnick-atshutdown"},
    {L"arcnameservice.exe", L"varnick-arcnameservice"},
    {L"VarnickConnect_Wizard.exe", L"varnick-connect-wizard"},
    {L"Varnick14.exe", L"varnick-viewer"},
};

}  // namespace

std::wstring MapProgramName(const std::wstring &path) {
    // A name built with a Windows separator is recognised as well.
    std::size_t cut = path.find_last_of(L"/\\");
    std::wstring name = cut == std::wstring::npos ? path : path.substr(cut + 1);
    const wchar_t *executable = MappedName(kProgramNames, name);
    if (!executable) return path;
    std::wstring folder = cut == std::wstring::npos ? ProgramFolder() : path.substr(0, cut);
    return JoinPath(folder, executable);
}

// ------------------------------------------------------------ processes

namespace {

// One started child. A reaper thread waits for it from the start, so no
// child is left a zombie whether or not anybody keeps its handle.
struct ProcessState {
    ~ProcessState() {
        if (pidfd >= 0) close(pidfd);
    }
    pid_t pid = 0;
    int pidfd = -1;
    CompletionSignal completion;
    std::mutex mutex;
    bool terminateRequested = false;
    DWORD terminateCode = 0;
};

using ProcessObject = CompletionHandle<ProcessState>;

DWORD ExitCodeFromStatus(int status) {
    if (WIFEXITED(status)) return static_cast<DWORD>(WEXITSTATUS(status));
    if (WIFSIGNALED(status)) return 128u + static_cast<DWORD>(WTERMSIG(status));
    return 1;
}

void ReapChild(std::shared_ptr<ProcessState> state) {
    int status = 0;
    while (waitpid(state->pid, &status, 0) == -1 && errno == EINTR) {
    }
    DWORD code = ExitCodeFromStatus(status);
    {
        std::lock_guard<std::mutex> lock(state->mutex);
        if (state->terminateRequested && WIFSIGNALED(status)) code = state->terminateCode;
    }
    state->completion.Complete(code);
}

std::shared_ptr<ProcessState> TrackChild(pid_t pid) {
    auto state = std::make_shared<ProcessState>();
    state->pid = pid;
    state->pidfd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    std::thread(ReapChild, state).detach();
    return state;
}

// Spawns `program` (a path) with argv[0] as given; 0 or an errno value.
int Spawn(const std::string &program, const std::vector<std::string> &arguments,
          const std::string &directory, pid_t &pid) {
    std::vector<char *> argv;
    for (const std::string &argument : arguments)
        argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (!directory.empty()) posix_spawn_file_actions_addchdir_np(&actions, directory.c_str());
    int error = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

int ShellErrorFromErrno(int error) {
    switch (error) {
        case ENOENT:
            return SE_ERR_FNF;
        case ENOTDIR:
        case ELOOP:
        case ENAMETOOLONG:
            return SE_ERR_PNF;
        case ENOMEM:
        case EAGAIN:
        case E2BIG:
            return SE_ERR_OOM;
        case ENOEXEC:
            return SE_ERR_NOASSOC;
        default:
            return SE_ERR_ACCESSDENIED;
    }
}

DWORD LastErrorFromShellError(int result) {
    switch (result) {
        case SE_ERR_FNF:
            return ERROR_FILE_NOT_FOUND;
        case SE_ERR_PNF:
            return ERROR_PATH_NOT_FOUND;
        case SE_ERR_ACCESSDENIED:
            return ERROR_ACCESS_DENIED;
        case SE_ERR_OOM:
            return ERROR_NOT_ENOUGH_MEMORY;
        default:
            return ERROR_NO_ASSOCIATION;
    }
}

bool IsExecutableFile(const std::string &path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
           access(path.c_str(), X_OK) == 0;
}

// The first executable `name` in $PATH, or empty.
std::string FindOnPath(const std::string &name) {
    const char *path = std::getenv("PATH");
    std::string folders = path ? path : "/usr/local/bin:/usr/bin:/bin";
    std::size_t start = 0;
    for (;;) {
        std::size_t end = folders.find(':', start);
        std::string folder = folders.substr(start, end == std::string::npos ? end : end - start);
        std::string candidate = (folder.empty() ? std::string(".") : folder) + "/" + name;
        if (IsExecutableFile(candidate)) return candidate;
        if (end == std::string::npos) return {};
        start = end + 1;
    }
}

// Native programs: ELF images and scripts with an interpreter line.
bool HasProgramHeader(const std::string &path) {
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    char header[4] = {};
    ssize_t got = read(fd, header, sizeof header);
    close(fd);
    if (got >= 4 && std::memcmp(header,
                                "\x7f"
                                "ELF",
                                4) == 0)
        return true;
    return got >= 2 && header[0] == '#' && header[1] == '!';
}

bool HasWindowsProgramExtension(const std::wstring &path) {
    for (const wchar_t *extension : {L".exe", L".com", L".bat", L".cmd"}) {
        if (EndsWithNoCase(path, extension)) return true;
    }
    return false;
}

// A URL has a scheme of two or more characters before its colon (one letter
// would be a Windows drive).
bool IsUrl(const std::wstring &text) {
    std::size_t colon = text.find(L':');
    if (colon == std::wstring::npos || colon < 2) return false;
    for (std::size_t i = 0; i < colon; ++i) {
        wchar_t c = text[i];
        bool schemeChar =
            (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z') ||
            (i > 0 && ((c >= L'0' && c <= L'9') || c == L'+' || c == L'-' || c == L'.'));
        if (!schemeChar) return false;
    }
    return true;
}

struct LaunchResult {
    int shellResult = SE_ERR_NOASSOC;
    std::shared_ptr<ProcessState> process;
};

constexpr int kShellSuccess = 42;

LaunchResult SpawnProgram(const std::string &program, std::vector<std::string> arguments,
                          const std::string &directory) {
    LaunchResult result;
    arguments.insert(arguments.begin(), program);
    pid_t pid = 0;
    int error = Spawn(program, arguments, directory, pid);
    if (error != 0) {
        result.shellResult = ShellErrorFromErrno(error);
        return result;
    }
    result.shellResult = kShellSuccess;
    result.process = TrackChild(pid);
    return result;
}

// Hands the target to a desktop tool (xdg-open, lp); without the tool
// nothing can open it: no association.
LaunchResult SpawnTool(const char *tool, std::vector<std::string> arguments,
                       const std::string &directory) {
    std::string program = FindOnPath(tool);
    if (program.empty()) return LaunchResult{};
    LaunchResult result = SpawnProgram(program, std::move(arguments), directory);
    if (result.shellResult == SE_ERR_FNF) result.shellResult = SE_ERR_NOASSOC;
    return result;
}

std::vector<std::string> Utf8Arguments(const wchar_t *parameters) {
    std::vector<std::string> arguments;
    for (const std::wstring &argument : SplitCommandLine(parameters)) {
        arguments.push_back(ToUtf8(argument));
    }
    return arguments;
}

std::wstring CurrentFolder() {
    char buffer[4096];
    return getcwd(buffer, sizeof buffer) ? FromUtf8(buffer) : std::wstring();
}

// The target of a shell call: relative paths against the given folder, then
// the current one; a bare name of a program also along $PATH.
std::wstring ResolveTarget(const std::wstring &file, const std::wstring &directory) {
    if (IsAbsolutePath(file)) return file;
    std::vector<std::wstring> candidates;
    if (!directory.empty()) candidates.push_back(JoinPath(directory, file));
    candidates.push_back(JoinPath(CurrentFolder(), file));
    for (const std::wstring &candidate : candidates) {
        struct stat info;
        if (stat(ToUtf8(candidate).c_str(), &info) == 0) return candidate;
    }
    if (file.find(kPathSep) == std::wstring::npos) {
        std::string found = FindOnPath(ToUtf8(file));
        if (!found.empty()) return FromUtf8(found);
    }
    return candidates.front();
}

// Why a path cannot be had: its folder is missing (3), or only the file (2).
int MissingPathResult(const std::string &path, int error) {
    if (error == ENOTDIR || error == ELOOP || error == ENAMETOOLONG) return SE_ERR_PNF;
    if (error == EACCES) return SE_ERR_ACCESSDENIED;
    std::wstring parent = ParentPath(FromUtf8(path));
    struct stat info;
    if (!parent.empty() && stat(ToUtf8(parent).c_str(), &info) != 0) return SE_ERR_PNF;
    return SE_ERR_FNF;
}

LaunchResult ShellLaunch(const wchar_t *verbText, const wchar_t *fileText,
                         const wchar_t *parameters, const wchar_t *directoryText, ULONG mask) {
    if (!fileText || !*fileText) return LaunchResult{SE_ERR_FNF, nullptr};
    std::wstring file = fileText;
    if (mask & SEE_MASK_DOENVSUBST) {
        DWORD needed = ExpandEnvironmentStringsW(fileText, nullptr, 0);
        std::wstring expanded(needed, L'\0');
        ExpandEnvironmentStringsW(fileText, expanded.data(), needed);
        file = expanded.c_str();
    }
    const std::wstring verb = ToLower(verbText ? verbText : L"");
    const bool open = verb.empty() || verb == L"open";
    const std::string directory = ToUtf8(directoryText ? directoryText : L"");
    if (!directory.empty()) {
        struct stat info;
        if (stat(directory.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
            return LaunchResult{SE_ERR_PNF, nullptr};
        }
    }

    if (IsUrl(file)) {
        if (!open) return LaunchResult{};
        return SpawnTool("xdg-open", {ToUtf8(file)}, directory);
    }

    const std::string target =
        ToUtf8(NormalizePath(ResolveTarget(MapProgramName(file), FromUtf8(directory))));
    struct stat info;
    if (stat(target.c_str(), &info) != 0) {
        return LaunchResult{MissingPathResult(target, errno), nullptr};
    }
    if (S_ISDIR(info.st_mode)) {
        if (open || verb == L"explore") return SpawnTool("xdg-open", {target}, directory);
        return LaunchResult{};
    }

    const bool executable = access(target.c_str(), X_OK) == 0;
    const bool windowsProgram = HasWindowsProgramExtension(FromUtf8(target));
    if ((executable && (HasProgramHeader(target) || windowsProgram))) {
        if (open || verb == L"runas") {
            return SpawnProgram(target, Utf8Arguments(parameters), directory);
        }
        return LaunchResult{};
    }
    if (windowsProgram) return LaunchResult{SE_ERR_ACCESSDENIED, nullptr};

    if (open) return SpawnTool("xdg-open", {target}, directory);
    if (verb == L"print") return SpawnTool("lp", {target}, directory);
    if (verb == L"printto") {
        std::vector<std::string> arguments;
        std::vector<std::string> printer = Utf8Arguments(parameters);
        if (!printer.empty()) arguments = {"-d", printer.front()};
        arguments.push_back(target);
        return SpawnTool("lp", std::move(arguments), directory);
    }
    return LaunchResult{};
}

ProcessState *ProcessFromHandle(HANDLE handle) {
    auto *object = ObjectAs<ProcessObject>(handle);
    if (!object) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return &object->Shared();
}

}  // namespace
}  // namespace platform

BOOL ShellExecuteExW(SHELLEXECUTEINFOW *info) {
    using namespace platform;
    if (!info) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    info->hProcess = nullptr;
    LaunchResult launched =
        ShellLaunch(info->lpVerb, info->lpFile, info->lpParameters, info->lpDirectory, info->fMask);
    info->hInstApp = reinterpret_cast<HINSTANCE>(static_cast<LONG_PTR>(launched.shellResult));
    if (launched.shellResult <= 32) {
        SetLastError(LastErrorFromShellError(launched.shellResult));
        return FALSE;
    }
    if ((info->fMask & SEE_MASK_NOCLOSEPROCESS) && launched.process) {
        info->hProcess = new ProcessObject(launched.process);
    }
    return TRUE;
}

HINSTANCE ShellExecuteW(HWND, LPCWSTR verb, LPCWSTR file, LPCWSTR parameters, LPCWSTR directory,
                        INT) {
    using namespace platform;
    LaunchResult launched = ShellLaunch(verb, file, parameters, directory, 0);
    if (launched.shellResult <= 32) SetLastError(LastErrorFromShellError(launched.shellResult));
    return reinterpret_cast<HINSTANCE>(static_cast<LONG_PTR>(launched.shellResult));
}

namespace platform {
namespace {

// The program name of a Windows command line: up to the first blank, or
// quoted; no backslash escapes in it.
std::wstring TakeProgramName(const wchar_t *&s) {
    while (*s == L' ' || *s == L'\t') ++s;
    std::wstring name;
    if (*s == L'"') {
        ++s;
        while (*s && *s != L'"') name += *s++;
        if (*s) ++s;
    } else {
        while (*s && *s != L' ' && *s != L'\t') name += *s++;
    }
    return name;
}

}  // namespace
}  // namespace platform

BOOL CreateProcessW(LPCWSTR applicationName, LPWSTR commandLine, LPSECURITY_ATTRIBUTES,
                    LPSECURITY_ATTRIBUTES, BOOL, DWORD, LPVOID environment,
                    LPCWSTR currentDirectory, LPSTARTUPINFOW,
                    LPPROCESS_INFORMATION processInformation) {
    using namespace platform;
    if ((!applicationName && !commandLine) || environment || !processInformation) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const wchar_t *rest = commandLine ? commandLine : L"";
    std::wstring firstArgument = TakeProgramName(rest);
    std::wstring program = MapProgramName(applicationName ? applicationName : firstArgument);
    std::string path = ToUtf8(program);
    if (program.find(kPathSep) == std::wstring::npos) path = FindOnPath(path);
    if (path.empty()) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return FALSE;
    }
    std::vector<std::string> arguments = Utf8Arguments(rest);
    arguments.insert(arguments.begin(), path);
    pid_t pid = 0;
    int error = Spawn(path, arguments, ToUtf8(currentDirectory ? currentDirectory : L""), pid);
    if (error != 0) {
        SetLastError(error == ENOEXEC ? ERROR_BAD_EXE_FORMAT : WinErrorFromErrno(error));
        return FALSE;
    }
    auto state = TrackChild(pid);
    processInformation->hProcess = new ProcessObject(state);
    processInformation->hThread = new ProcessObject(state);
    processInformation->dwProcessId = static_cast<DWORD>(pid);
    processInformation->dwThreadId = static_cast<DWORD>(pid);
    return TRUE;
}

BOOL GetExitCodeProcess(HANDLE process, LPDWORD exitCode) {
    platform::ProcessState *state = platform::ProcessFromHandle(process);
    if (!state || !exitCode) return FALSE;
    *exitCode = state->completion.Code();
    return TRUE;
}

BOOL TerminateProcess(HANDLE process, UINT exitCode) {
    platform::ProcessState *state = platform::ProcessFromHandle(process);
    if (!state) return FALSE;
    if (state->completion.IsComplete()) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    {
        std::lock_guard<std::mutex> lock(state->mutex);
        state->terminateRequested = true;
        state->terminateCode = exitCode;
    }
    // The pidfd names this child even if its number were reused.
    int result =
        state->pidfd >= 0
            ? static_cast<int>(syscall(SYS_pidfd_send_signal, state->pidfd, SIGKILL, nullptr, 0))
            : kill(state->pid, SIGKILL);
    if (result != 0 && errno != ESRCH) {
        platform::SetLastErrorFromErrno();
        return FALSE;
    }
    return TRUE;
}

DWORD GetProcessId(HANDLE process) {
    platform::ProcessState *state = platform::ProcessFromHandle(process);
    return state ? static_cast<DWORD>(state->pid) : 0;
}

DWORD GetCurrentProcessId() { return static_cast<DWORD>(getpid()); }

// ---------------------------------------------------------- environment

namespace platform {
namespace {

// setenv and getenv are not safe against each other; these calls at least
// take turns.
std::mutex environmentMutex;

// The value of `name`: as given, else the first variable whose name equals
// it without regard to case.
bool LookUpVariable(const std::wstring &name, std::wstring &value) {
    const std::string narrow = ToUtf8(name);
    if (const char *found = std::getenv(narrow.c_str())) {
        value = FromUtf8(found);
        return true;
    }
    for (char **entry = environ; entry && *entry; ++entry) {
        const char *equals = std::strchr(*entry, '=');
        if (!equals) continue;
        if (EqualsNoCase(FromUtf8(std::string_view(*entry, equals - *entry)), name)) {
            value = FromUtf8(equals + 1);
            return true;
        }
    }
    return false;
}

std::wstring ExpandVariables(const std::wstring &source) {
    std::wstring result;
    std::size_t position = 0;
    while (position < source.size()) {
        std::size_t open = source.find(L'%', position);
        std::size_t close = open == std::wstring::npos ? open : source.find(L'%', open + 1);
        if (close == std::wstring::npos) {
            result.append(source, position, std::wstring::npos);
            break;
        }
        result.append(source, position, open - position);
        std::wstring name = source.substr(open + 1, close - open - 1);
        std::wstring value;
        if (!name.empty() && LookUpVariable(name, value)) {
            result += value;
            position = close + 1;
        } else {
            // Not a variable: the first percent sign stays, and the second
            // may open the next name.
            result += L'%';
            result += name;
            position = close;
        }
    }
    return result;
}

}  // namespace
}  // namespace platform

BOOL SetEnvironmentVariableW(LPCWSTR name, LPCWSTR value) {
    using namespace platform;
    if (!name || !*name || std::wcschr(name, L'=')) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    std::lock_guard<std::mutex> lock(environmentMutex);
    std::string narrow = ToUtf8(name);
    int result =
        value ? setenv(narrow.c_str(), ToUtf8(value).c_str(), 1) : unsetenv(narrow.c_str());
    if (result != 0) {
        SetLastErrorFromErrno();
        return FALSE;
    }
    return TRUE;
}

DWORD ExpandEnvironmentStringsW(LPCWSTR source, LPWSTR destination, DWORD size) {
    using namespace platform;
    if (!source) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    std::wstring expanded;
    {
        std::lock_guard<std::mutex> lock(environmentMutex);
        expanded = ExpandVariables(source);
    }
    const DWORD needed = static_cast<DWORD>(expanded.size() + 1);
    if (destination && size >= needed) std::wmemcpy(destination, expanded.c_str(), needed);
    return needed;
}
