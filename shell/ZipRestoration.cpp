#include "ZipRestoration.h"

#include <string>

#include "CRegistry.h"
#include "shell/ClassesRoot.h"

namespace {

using shell::WriteClassesText;

constexpr DWORD kCurrentUser = 0;
constexpr WORD kFirstLaterSystem = 0x600;

// An empty zip file: the end-of-central-directory record alone.
constexpr DWORD kEmptyZipSize = 22;
unsigned char kEmptyZip[kEmptyZipSize] = {'P', 'K', 5, 6};

void WriteEmptyZipTemplate(bool laterSystem) {
    CRegistry shellNew;
    shell::UseClassesKey(shellNew, L".zip\\CompressedFolder\\ShellNew", true);
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
    // The value name lacks its first letter. Kept exactly so: registrations
    // written before carry this name.
    WriteClassesText(L".zip\\OpenWithProgids", L"ompressedFolder", L"");
    WriteClassesText(L".zip\\PersistentHandler", nullptr,
                     L"{098f2470-bae0-11cd-b579-08002b30bfeb}");
    if (laterSystem) RemoveUserChoice();
}
