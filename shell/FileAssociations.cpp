#include "FileAssociations.h"

#include <cstdint>
#include <string>

#include "CAppUtils.h"
#include "CFSUtils.h"
#include "CRegistry.h"
#include "ZipRestoration.h"
#include "platform/ShellNotify.h"
#include "platform/WideText.h"
#include "shell/ArchiveProgIds.h"
#include "shell/ClassesRoot.h"

namespace {

using shell::ReadText;
using shell::UseClassesKey;

constexpr wchar_t kContentType[] = L"Content Type";
constexpr wchar_t kVarnickContentType[] = L"application/varnick";
// A saved value shorter than this is no usable ProgID.
constexpr std::size_t kShortestSavedValue = 3;

bool InAssociationList(format::type type) {
    for (const format::type listed : kFileAssociationTypes) {
        if (listed == type) return true;
    }
    return false;
}

// The extension of a kind that can be associated; empty for any other.
std::wstring AssociableExtension(format::type type) {
    if (!InAssociationList(type)) return {};
    return GetFormatExtension(type);
}

bool IsVarnickProgId(const std::wstring &value) {
    const std::size_t prefixLength = std::wcslen(kVarnickProgIdPrefix);
    return !value.empty() && _wcsnicmp(value.c_str(), kVarnickProgIdPrefix, prefixLength) == 0;
}

void NotifyAssociationsChanged() {
    SHChangeNotify(SHCNE_ASSOCCHANGED, SHCNF_IDLIST, nullptr, nullptr);
}

// Asks the shell to redraw the files of the extension with their new icon.
void RefreshImage(const std::wstring &extension) {
    const int iconIndex = CFSUtils::GetIconIndex(extension.c_str());
    SHChangeNotify(SHCNE_UPDATEIMAGE, SHCNF_DWORD,
                   reinterpret_cast<const void *>(static_cast<std::intptr_t>(iconIndex)), nullptr);
}

// Saves the extension's default and content type below the ProgID, then
// points the extension at the ProgID.
void Claim(CRegistry &extensionKey, const std::wstring &extension, const wchar_t *progId) {
    // The ProgID itself is made first: the backup must not be lost because
    // the ProgIDs have not been written yet.
    CRegistry progIdKey;
    UseClassesKey(progIdKey, progId, true);
    CRegistry backup;
    UseClassesKey(backup, std::wstring(progId) + L'\\' + extension, true);

    std::wstring previous;
    if (ReadText(extensionKey, nullptr, previous)) {
        backup.WriteRegSetting(nullptr, previous.c_str());
        std::wstring previousContentType;
        if (ReadText(extensionKey, kContentType, previousContentType)) {
            backup.WriteRegSetting(kContentType, previousContentType.c_str());
        }
    }
    extensionKey.WriteRegSetting(nullptr, progId);
    extensionKey.WriteRegSetting(kContentType, kVarnickContentType);
}

void ClearExtension(CRegistry &extensionKey) {
    extensionKey.WriteRegSetting(nullptr, L"");
    extensionKey.RemoveName(kContentType);
}

// Puts back what the backup below the ProgID holds; without a backup the
// extension is left empty, except ".zip", whose system registration is
// rebuilt.
void Release(CRegistry &extensionKey, const std::wstring &extension, const wchar_t *progId,
             format::type type) {
    CRegistry backup;
    UseClassesKey(backup, std::wstring(progId) + L'\\' + extension, false);
    std::wstring saved;
    if (ReadText(backup, nullptr, saved)) {
        if (saved.size() >= kShortestSavedValue) {
            extensionKey.WriteRegSetting(nullptr, saved.c_str());
            std::wstring savedContentType;
            if (ReadText(backup, kContentType, savedContentType)) {
                extensionKey.WriteRegSetting(kContentType, savedContentType.c_str());
            }
        } else {
            ClearExtension(extensionKey);
        }
    } else if (type != format::zip) {
        ClearExtension(extensionKey);
    } else {
        RestoreZipRegistration(static_cast<WORD>(CAppUtils::GetWINVER()));
    }
    RefreshImage(extension);
}

}  // namespace

FILEASSOCIATIONS::FILEASSOCIATIONS() {
    for (std::size_t i = 0; i < kFileAssociationCount; ++i) {
        entries[i] = FILEASSOCIATION{FALSE, kFileAssociationTypes[i]};
    }
}

const wchar_t *ArchiveProgIdOf(format::type type) {
    switch (type) {
        case format::zip:
        case format::cbz:
            return kArchiveProgIds[0].name;
        case format::vnk:
            return kArchiveProgIds[1].name;
        case format::vnkx:
            return kArchiveProgIds[2].name;
        case format::vidx:
            return kArchiveProgIds[3].name;
        case format::tar:
        case format::tgz:
        case format::tbz2:
        case format::tz:
        case format::tlzma:
        case format::cbt:
        case format::gtar:
        case format::gnutar:
        case format::ustar:
            return kArchiveProgIds[4].name;
        case format::rar:
        case format::cbr:
            return kArchiveProgIds[5].name;
        default:
            return kArchiveProgIds[8].name;
    }
}

bool IsAssociatedWithVarnick(format::type type) {
    const std::wstring extension = AssociableExtension(type);
    if (extension.empty()) return false;
    CRegistry extensionKey;
    UseClassesKey(extensionKey, extension, false);
    std::wstring progId;
    return ReadText(extensionKey, nullptr, progId) && IsVarnickProgId(progId);
}

bool SetFileAssociation(format::type type, int on, bool) {
    if ((on != 0) == IsAssociatedWithVarnick(type)) return false;
    const std::wstring extension = AssociableExtension(type);
    if (extension.empty()) {
        NotifyAssociationsChanged();
        return true;
    }
    const wchar_t *progId = ArchiveProgIdOf(type);
    CRegistry extensionKey;
    UseClassesKey(extensionKey, extension, true);
    if (on) {
        Claim(extensionKey, extension, progId);
        RefreshImage(extension);
    } else {
        std::wstring current;
        if (!ReadText(extensionKey, nullptr, current)) return true;
        // Only this kind's own ProgID is given back; another of the
        // product's ProgIDs on the extension stays.
        if (platform::EqualsNoCase(current, progId)) Release(extensionKey, extension, progId, type);
    }
    NotifyAssociationsChanged();
    return true;
}

void SaveAllFileAssociations(FILEASSOCIATIONS *associations) {
    if (!associations) return;
    for (const FILEASSOCIATION &entry : associations->entries) {
        SetFileAssociation(entry.type, entry.associated, false);
    }
}
