#include "CStartupSupport.h"

#include <string>

#include "CAppUtils.h"
#include "CRegistry.h"
#include "platform/WinFormat.h"
#include "platform/WinPath.h"
#include "shell/ArchiveProgIds.h"
#include "shell/ClassesRoot.h"

namespace {

constexpr wchar_t kTaskClass[] = L"Varnick.Scheduler.Task";
constexpr UINT kTaskDisplayNameId = 640;
constexpr UINT kTaskOpenVerbId = 641;
constexpr UINT kTaskEditVerbId = 642;

void WriteDefault(const std::wstring &keyPath, const std::wstring &text) {
    shell::WriteClassesText(keyPath, nullptr, text);
}

std::wstring ProgramPath(const wchar_t *program) {
    return platform::JoinPath(CAppUtils::GetExePath(), program);
}

void WriteArchiveProgId(const ArchiveProgId &progId, const std::wstring &viewer,
                        const std::wstring &iconLibrary) {
    const std::wstring key = progId.name;
    WriteDefault(key, CAppUtils::LoadString(progId.displayNameId));
    WriteDefault(key + L"\\DefaultIcon",
                 FormatW(L"\"%s\",%d", iconLibrary.c_str(), progId.iconIndex));
    WriteDefault(key + L"\\shell\\Open", CAppUtils::LoadString(kOpenVerbStringId));
    WriteDefault(key + L"\\shell\\Open\\Command", FormatW(L"\"%s\" -o \"%%1\"", viewer.c_str()));
}

void WriteTaskClass() {
    const std::wstring scheduler = ProgramPath(L"Scheduler.exe");
    const std::wstring key = kTaskClass;
    WriteDefault(L".varnicktask", kTaskClass);
    shell::WriteClassesText(L".varnicktask", L"Content Type", L"application/varnick");
    WriteDefault(key, CAppUtils::LoadString(kTaskDisplayNameId));
    WriteDefault(key + L"\\DefaultIcon", FormatW(L"\"%s\",-0", scheduler.c_str()));
    WriteDefault(key + L"\\shell\\Open", CAppUtils::LoadString(kTaskOpenVerbId));
    WriteDefault(key + L"\\shell\\Open\\Command", FormatW(L"\"%s\" -s \"%%1\"", scheduler.c_str()));
    WriteDefault(key + L"\\shell\\Edit", CAppUtils::LoadString(kTaskEditVerbId));
    // No blank between the switch and the quote: registrations made before
    // have it so, and the value must stay the same byte for byte.
    WriteDefault(key + L"\\shell\\Edit\\Command", FormatW(L"\"%s\" -se\"%%1\"", scheduler.c_str()));
}

}  // namespace

void CStartupSupport::SetGeneralFileAssociationStrings() {
    const std::wstring viewer = ProgramPath(L"Varnick14.exe");
    const std::wstring iconLibrary = CAppUtils::GetInstResNLPath();
    for (const ArchiveProgId &progId : kArchiveProgIds) {
        WriteArchiveProgId(progId, viewer, iconLibrary);
    }
    WriteTaskClass();
}
