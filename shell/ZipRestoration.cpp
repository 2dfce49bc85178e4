#include "ZipRestoration.h"

#include <string>

#include "CRegistry.h"

namespace {

constexpr DWORD kCurrentUser = 0;
constexpr DWORD kClassesRoot = 2;
constexpr WORD kFirstLaterSystem = 0x600;

// An empty zip file: the end-of-central-directory record alone.
constexpr DWORD kEmptyZipSize = 22;
unsigned char kEmptyZip[kEmptyZipSize] = {'P', 'K', 5, 6};

void WriteClassesText(const wchar_t *keyPath, const wchar_t *name, const wchar_t *text) {
    CRegistry key;
    key.SetMajorKey(kClassesRoot);
    key.CreateAppKey(keyPath);
    key.WriteRegSetting(name, text);
}

void WriteEmptyZipTemplate(bool laterSystem) {
    CRegistry shellNew;
    shellNew.SetMajorKey(kClassesRoot);
    shellNew.CreateAppKey(L".zip\\CompressedFolder\\ShellNew");
    shellNew.WriteRegSetting(L"Data", static_cast<void *>(kEmptyZip), kEmptyZipSize);
    if (laterSystem) {
        shellNew.WriteRegSetting(L"ItemName", L"@%SystemRoot%\\system32\\zipfldr.dll,-10194");
    }
}

void RemoveUserChoice() {
    CRegistry userChoice;
    userChoice.SetMajorKey(kCurrentUser);
    userChoice.SetAppKey(
        L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\FileExts\\.zip\\UserChoice");
    userChoice.RemoveKey();
}

}  // namespace

void RestoreZipRegistration(WORD version) {
    const bool laterSystem = version >= kFirstLaterSystem;
    if (laterSystem) WriteClassesText(L".zip", L"PerceivedType", L"compressed");
    WriteClassesText(L".zip", L"Content Type", L"application/x-zip-compressed");
    WriteClassesText(L".zip", nullptr, L"CompressedFolder");
    WriteEmptyZipTemplate(laterSystem);
    // The value name has lost its first letter; it is written so on purpose,
    // as the registration has always been written.
    WriteClassesText(L".zip\\OpenWithProgids", L"ompressedFolder", L"");
    WriteClassesText(L".zip\\PersistentHandler", nullptr,
                     L"{098f2470-bae0-11cd-b579-08002b30bfeb}");
    if (laterSystem) RemoveUserChoice();
}
