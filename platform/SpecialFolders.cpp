#include "platform/SpecialFolders.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cwchar>
#include <fstream>
#include <optional>
#include <vector>

#include "platform/WideText.h"
#include "platform/WinError.h"
#include "platform/WinPath.h"

namespace {

constexpr mode_t kPrivateMode = 0700;
constexpr mode_t kSharedMode = 0755;

std::wstring Environment(const char *name) {
    const char *value = std::getenv(name);
    return value ? platform::FromUtf8(value) : std::wstring();
}

// An XDG variable counts only when it holds an absolute path.
std::wstring AbsoluteEnvironment(const char *name) {
    std::wstring value = Environment(name);
    return platform::IsAbsolutePath(value) ? platform::WithoutTrailingSeparator(value)
                                           : std::wstring();
}

std::wstring VarnickHome() {
    std::wstring home = Environment("VARNICK_HOME");
    return home.empty() ? home : platform::WithoutTrailingSeparator(home);
}

std::wstring PasswordEntryHome() {
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd *found = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found &&
        found->pw_dir && *found->pw_dir) {
        return platform::FromUtf8(found->pw_dir);
    }
    return std::wstring();
}

// A folder of the XDG base directories: the variable, unless VARNICK_HOME
// gives the user a home of its own, else the usual place below the home.
std::wstring XdgBaseFolder(const char *variable, std::wstring_view belowHome) {
    if (VarnickHome().empty()) {
        std::wstring value = AbsoluteEnvironment(variable);
        if (!value.empty()) return value;
    }
    return platform::JoinPath(platform::UserHomeFolder(), belowHome);
}

std::wstring ConfigFolder() { return XdgBaseFolder("XDG_CONFIG_HOME", L".config"); }
std::wstring DataFolder() { return XdgBaseFolder("XDG_DATA_HOME", L".local/share"); }
std::wstring CacheFolder() { return XdgBaseFolder("XDG_CACHE_HOME", L".cache"); }

// The value of one line of user-dirs.dirs: "$HOME/Desktop" or an absolute
// path, in double quotes with backslash escapes. Anything else is ignored.
std::wstring UserDirValue(std::string_view value) {
    std::string text;
    if (!value.empty() && value.front() == '"') {
        for (std::size_t i = 1; i < value.size() && value[i] != '"'; ++i) {
            if (value[i] == '\\' && i + 1 < value.size()) ++i;
            text += value[i];
        }
    } else {
        text = std::string(value.substr(0, value.find_first_of(" \t#")));
    }
    std::wstring path = platform::FromUtf8(text);
    constexpr std::wstring_view kHome = L"$HOME";
    if (path.substr(0, kHome.size()) == kHome &&
        (path.size() == kHome.size() || platform::IsPathSeparator(path[kHome.size()]))) {
        return platform::WithoutTrailingSeparator(
            platform::JoinPath(platform::UserHomeFolder(), path.substr(kHome.size())));
    }
    return platform::IsAbsolutePath(path) ? platform::WithoutTrailingSeparator(path)
                                          : std::wstring();
}

std::wstring UserDirFromFile(const std::string &key) {
    const std::string path =
        platform::ToUtf8(platform::JoinPath(ConfigFolder(), L"user-dirs.dirs"));
    std::ifstream in(path);
    const std::string prefix = "XDG_" + key + "_DIR=";
    std::string line;
    std::wstring found;
    while (std::getline(in, line)) {
        std::size_t start = line.find_first_not_of(" \t");
        if (start == std::string::npos || line.compare(start, prefix.size(), prefix) != 0) continue;
        // A later line wins, as when the shell reads the file.
        std::wstring value = UserDirValue(std::string_view(line).substr(start + prefix.size()));
        if (!value.empty()) found = value;
    }
    return found;
}

// An XDG user directory (desktop, documents, ...): user-dirs.dirs, then the
// variable of the same name, then the usual folder below the home.
std::wstring XdgUserFolder(const std::string &key, std::wstring_view belowHome) {
    std::wstring folder = UserDirFromFile(key);
    if (folder.empty() && VarnickHome().empty()) {
        folder = AbsoluteEnvironment(("XDG_" + key + "_DIR").c_str());
    }
    return folder.empty() ? platform::JoinPath(platform::UserHomeFolder(), belowHome) : folder;
}

std::wstring MachineFolder(std::wstring_view systemPath) {
    std::wstring home = VarnickHome();
    return home.empty() ? std::wstring(systemPath)
                        : platform::JoinPath(platform::JoinPath(home, L"machine"), systemPath);
}

struct Folder {
    std::wstring path;
    bool perUser;
};

std::optional<Folder> KnownFolder(int csidl) {
    switch (csidl & ~CSIDL_FLAG_MASK) {
        case CSIDL_DESKTOP:
        case CSIDL_DESKTOPDIRECTORY:
            return Folder{XdgUserFolder("DESKTOP", L"Desktop"), true};
        case CSIDL_PERSONAL:
            return Folder{XdgUserFolder("DOCUMENTS", L"Documents"), true};
        case CSIDL_MYMUSIC:
            return Folder{XdgUserFolder("MUSIC", L"Music"), true};
        case CSIDL_MYVIDEO:
            return Folder{XdgUserFolder("VIDEOS", L"Videos"), true};
        case CSIDL_MYPICTURES:
            return Folder{XdgUserFolder("PICTURES", L"Pictures"), true};
        case CSIDL_TEMPLATES:
            return Folder{XdgUserFolder("TEMPLATES", L"Templates"), true};
        case CSIDL_STARTUP:
            return Folder{platform::JoinPath(ConfigFolder(), L"autostart"), true};
        case CSIDL_APPDATA:
            return Folder{ConfigFolder(), true};
        case CSIDL_LOCAL_APPDATA:
            return Folder{DataFolder(), true};
        case CSIDL_INTERNET_CACHE:
            return Folder{CacheFolder(), true};
        case CSIDL_PROFILE:
            return Folder{platform::UserHomeFolder(), true};
        case CSIDL_COMMON_APPDATA:
            return Folder{MachineFolder(L"/var/lib"), false};
        case CSIDL_WINDOWS:
            return Folder{MachineFolder(L"/usr"), false};
        case CSIDL_PROGRAM_FILES:
        case CSIDL_PROGRAM_FILESX86:
            return Folder{MachineFolder(L"/opt"), false};
        case CSIDL_COMMON_STARTUP:
            return Folder{MachineFolder(L"/etc/xdg/autostart"), false};
        default:
            return std::nullopt;
    }
}

// Makes the folder and its missing parents with the given mode. Status
// through the last error.
bool MakeFolders(const std::wstring &path, mode_t mode) {
    std::string native = platform::ToUtf8(path);
    for (std::size_t pos = 1; pos <= native.size(); ++pos) {
        if (pos != native.size() && native[pos] != '/') continue;
        std::string part = native.substr(0, pos);
        if (::mkdir(part.c_str(), mode) != 0 && errno != EEXIST) {
            platform::SetLastErrorFromErrno();
            return false;
        }
    }
    struct stat info {};
    if (::stat(native.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return false;
    }
    return true;
}

HRESULT ResolveFolder(int csidl, bool create, std::wstring &path) {
    std::optional<Folder> folder = KnownFolder(csidl);
    if (!folder) return E_INVALIDARG;
    create = create || (csidl & CSIDL_FLAG_CREATE) != 0;
    if (create && !MakeFolders(folder->path, folder->perUser ? kPrivateMode : kSharedMode)) {
        return E_FAIL;
    }
    path = std::move(folder->path);
    return S_OK;
}

HRESULT CopyFolder(int csidl, bool create, wchar_t *path) {
    if (!path) return E_INVALIDARG;
    path[0] = L'\0';
    std::wstring folder;
    HRESULT result = ResolveFolder(csidl, create, folder);
    if (FAILED(result)) return result;
    if (folder.size() >= platform::kPathBufferSize) return E_FAIL;
    std::wmemcpy(path, folder.c_str(), folder.size() + 1);
    return S_OK;
}

}  // namespace

BOOL SHGetSpecialFolderPathW(HWND, wchar_t *path, int csidl, BOOL create) {
    HRESULT result = CopyFolder(csidl, create != FALSE, path);
    if (result == E_INVALIDARG) SetLastError(ERROR_INVALID_PARAMETER);
    return SUCCEEDED(result) ? TRUE : FALSE;
}

HRESULT SHGetFolderPathW(HWND, int csidl, HANDLE, DWORD, wchar_t *path) {
    return CopyFolder(csidl, false, path);
}

namespace platform {

std::wstring SpecialFolder(int csidl, bool create) {
    std::wstring path;
    return SUCCEEDED(ResolveFolder(csidl, create, path)) ? path : std::wstring();
}

std::wstring UserHomeFolder() {
    std::wstring varnickHome = VarnickHome();
    if (!varnickHome.empty()) return JoinPath(varnickHome, L"user");
    std::wstring home = Environment("HOME");
    if (home.empty()) home = PasswordEntryHome();
    return home.empty() ? std::wstring(kPathSepString) : WithoutTrailingSeparator(home);
}

bool MakePrivateFolder(const std::wstring &path) {
    if (!MakeFolders(path, kPrivateMode)) return false;
    std::string native = ToUtf8(path);
    struct stat info {};
    if (::lstat(native.c_str(), &info) != 0 || !S_ISDIR(info.st_mode) ||
        info.st_uid != ::geteuid()) {
        SetLastError(ERROR_ACCESS_DENIED);
        return false;
    }
    if ((info.st_mode & 077) != 0 && ::chmod(native.c_str(), kPrivateMode) != 0) {
        SetLastErrorFromErrno();
        return false;
    }
    return true;
}

std::wstring UserRuntimeFolder() {
    std::wstring folder;
    if (!VarnickHome().empty()) {
        folder = JoinPath(UserHomeFolder(), L"run");
    } else {
        std::wstring runtime = AbsoluteEnvironment("XDG_RUNTIME_DIR");
        struct stat info {};
        if (!runtime.empty() && ::stat(ToUtf8(runtime).c_str(), &info) == 0 &&
            S_ISDIR(info.st_mode) && info.st_uid == ::geteuid()) {
            return runtime;
        }
        std::wstring temp = AbsoluteEnvironment("TMPDIR");
        if (temp.empty()) temp = L"/tmp";
        folder = JoinPath(temp, L"varnick-" + std::to_wstring(::geteuid()));
    }
    return MakePrivateFolder(folder) ? folder : std::wstring();
}

}  // namespace platform
