#include "platform/WinModule.h"

#include <dlfcn.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <cwchar>
#include <vector>

#include "platform/WideText.h"
#include "platform/WinError.h"
#include "platform/WinPath.h"
#include "resources/StringTable.h"

inline constexpr DWORD ERROR_RESOURCE_NAME_NOT_FOUND = 1814;

namespace platform {
namespace {

HMODULE ProgramModule() {
    static HMODULE program = static_cast<HMODULE>(dlopen(nullptr, RTLD_NOW));
    return program;
}

std::string RunningProgramPath() {
    std::vector<char> buffer(4096);
    ssize_t length = readlink("/proc/self/exe", buffer.data(), buffer.size());
    if (length <= 0 || static_cast<std::size_t>(length) >= buffer.size()) return {};
    return std::string(buffer.data(), static_cast<std::size_t>(length));
}

std::string ModulePath(HMODULE module) {
    if (!module || module == ProgramModule()) return RunningProgramPath();
    link_map *map = nullptr;
    if (dlinfo(module, RTLD_DI_LINKMAP, &map) != 0 || !map) return {};
    if (!map->l_name || !*map->l_name) return RunningProgramPath();
    return map->l_name;
}

constexpr NameMapping kLibraryNames[] = {
    {L"Resources.dll", L"libvarnick-resources.so"},
    {L"NonLocalizedResources.dll", L"libvarnick-nlresources.so"},
    {L"VarnickEngine.dll", L"libVarnickEngine.so"},
};

// The shared object's file name for a Windows library name.
std::wstring SharedObjectName(const std::wstring &name) {
    if (const wchar_t *mapped = MappedName(kLibraryNames, name)) return mapped;
    if (EndsWithNoCase(name, L".dll") && name.size() > 4) {
        return L"lib" + name.substr(0, name.size() - 4) + L".so";
    }
    return name;
}

// Where a library name may be found, in order of preference.
std::vector<std::string> LibraryCandidates(const std::wstring &fileName) {
    const std::wstring folder = ParentPath(fileName);
    const bool hasFolder = fileName.find(kPathSep) != std::wstring::npos;
    const std::wstring name = hasFolder ? FileNamePart(fileName) : fileName;
    const std::wstring mapped = SharedObjectName(name);
    std::vector<std::string> candidates;
    if (hasFolder) {
        candidates.push_back(ToUtf8(JoinPath(folder, mapped)));
        if (mapped != name) candidates.push_back(ToUtf8(fileName));
        return candidates;
    }
    candidates.push_back(ToUtf8(JoinPath(ProgramFolder(), mapped)));
    // The system's own search for a bare name.
    candidates.push_back(ToUtf8(mapped));
    if (mapped != name) candidates.push_back(ToUtf8(name));
    return candidates;
}

bool FileExists(const std::string &path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

HMODULE OpenLibrary(const wchar_t *fileName, int flags) {
    if (!fileName || !*fileName) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    bool foundButUnloadable = false;
    for (const std::string &candidate : LibraryCandidates(fileName)) {
        if (void *handle = dlopen(candidate.c_str(), flags)) return static_cast<HMODULE>(handle);
        if (candidate.find('/') != std::string::npos && FileExists(candidate)) {
            foundButUnloadable = true;
        }
    }
    SetLastError(foundButUnloadable ? 193 /* ERROR_BAD_EXE_FORMAT */ : ERROR_MOD_NOT_FOUND);
    return nullptr;
}

}  // namespace

const wchar_t *MappedName(std::span<const NameMapping> table, std::wstring_view windowsName) {
    for (const NameMapping &entry : table) {
        if (EqualsNoCase(windowsName, entry.windowsName)) return entry.posixName;
    }
    return nullptr;
}

HMODULE LibraryModule() {
    static HMODULE library = [] {
        Dl_info info{};
        if (!dladdr(reinterpret_cast<void *>(&LibraryModule), &info) || !info.dli_fname) {
            return static_cast<HMODULE>(nullptr);
        }
        return static_cast<HMODULE>(dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD));
    }();
    return library;
}

std::wstring ProgramFolder() {
    static const std::wstring folder = ParentPath(FromUtf8(ModulePath(LibraryModule())));
    return folder;
}

const wchar_t *FindResourceString(HINSTANCE instance, UINT id) {
    void *module = instance ? static_cast<void *>(instance) : static_cast<void *>(ProgramModule());
    auto table =
        reinterpret_cast<decltype(&VarnickStringTable)>(dlsym(module, "VarnickStringTable"));
    if (!table) return nullptr;
    std::size_t count = 0;
    const VarnickStringEntry *entries = table(&count);
    std::size_t low = 0;
    std::size_t high = count;
    while (low < high) {
        std::size_t middle = low + (high - low) / 2;
        if (entries[middle].id < id) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    if (low < count && entries[low].id == id) return entries[low].text;
    return nullptr;
}

}  // namespace platform

DWORD GetModuleFileNameW(HMODULE module, LPWSTR fileName, DWORD size) {
    std::string path = platform::ModulePath(module);
    if (path.empty()) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return 0;
    }
    if (!fileName || size == 0) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    std::wstring wide = platform::FromUtf8(path);
    if (wide.size() >= size) {
        std::wmemcpy(fileName, wide.c_str(), size - 1);
        fileName[size - 1] = L'\0';
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return size;
    }
    std::wmemcpy(fileName, wide.c_str(), wide.size() + 1);
    return static_cast<DWORD>(wide.size());
}

HMODULE GetModuleHandleW(LPCWSTR moduleName) {
    if (!moduleName) return platform::ProgramModule();
    HMODULE module = platform::OpenLibrary(moduleName, RTLD_NOW | RTLD_NOLOAD);
    // A module handle is not a reference: give back the one NOLOAD took.
    if (module) dlclose(module);
    return module;
}

HMODULE LoadLibraryW(LPCWSTR fileName) {
    return platform::OpenLibrary(fileName, RTLD_NOW | RTLD_LOCAL);
}

FARPROC GetProcAddress(HMODULE module, LPCSTR procName) {
    // Ordinals (values below 0x10000) have no counterpart here.
    if (!module || reinterpret_cast<ULONG_PTR>(procName) < 0x10000) {
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    void *symbol = dlsym(module, procName);
    if (!symbol) {
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    return reinterpret_cast<FARPROC>(symbol);
}

BOOL FreeLibrary(HMODULE module) {
    if (!module) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    // The program and this library stay; their handles are shared.
    if (module == platform::ProgramModule() || module == platform::LibraryModule()) return TRUE;
    if (dlclose(module) != 0) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    return TRUE;
}

int LoadStringW(HINSTANCE instance, UINT id, LPWSTR buffer, int max) {
    if (!buffer || max <= 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const wchar_t *text = platform::FindResourceString(instance, id);
    if (!text) {
        buffer[0] = L'\0';
        SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
        return 0;
    }
    std::size_t length = std::min(std::wcslen(text), static_cast<std::size_t>(max - 1));
    std::wmemcpy(buffer, text, length);
    buffer[length] = L'\0';
    return static_cast<int>(length);
}
