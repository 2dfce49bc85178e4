#include "SDKUtils.h"

#include <string>

#include "CAppUtils.h"
#include "CFSUtils.h"
#include "CLogging.h"
#include "archive/EngineHandles.h"
#include "archive/ResourceText.h"
#include "platform/FormatMessage.h"
#include "platform/Win32.h"

namespace {

constexpr wchar_t kSourceUnit[] = L".\\SDKUtils";

// Texts of results.
constexpr unsigned kSuccessText = 261;
constexpr unsigned kCancelledText = 262;
constexpr unsigned kAccessDeniedText = 303;
constexpr unsigned kInternalErrorText = 304;
constexpr unsigned kUnknownEngineCodeFormat = 305;  // the code, %d
constexpr unsigned kRecoveryHint = 1296;
// The error box: a format of the archive name and the result's text.
constexpr unsigned kArchiveErrorFormat = 306;
constexpr unsigned kArchiveErrorTitle = 307;

constexpr EngineResult kFirstEngineCode = 17000;
constexpr DWORD kSystemMessageFlags =
    FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
constexpr DWORD kUserDefaultLanguage = 1024;

// The text id of an engine code from 17502 to 17565. The texts of 17542
// and 17543 stand crossed: 17542 has 972 and 17543 has 971.
unsigned EngineCodeTextId(EngineResult code) {
    if (code <= 17541) return 263 + static_cast<unsigned>(code - 17502);
    if (code == 17542) return 972;
    if (code == 17543) return 971;
    if (code <= 17562) return 973 + static_cast<unsigned>(code - 17544);
    if (code == 17563) return 1078;
    if (code == 17564) return 1303;
    return 1304;
}

bool IsDescribedEngineCode(EngineResult code) { return code >= 17502 && code <= 17565; }

// Damaged data: the text gets the hint that recovery may help.
bool WantsRecoveryHint(EngineResult code) {
    return code == kEngineArchiveTruncated || code == kEngineItemDataDamaged ||
           code == kEngineCatalogueDamaged;
}

std::wstring SystemErrorText(EngineResult code) {
    LPWSTR system = nullptr;
    FormatMessageW(kSystemMessageFlags, nullptr, static_cast<DWORD>(code), kUserDefaultLanguage,
                   reinterpret_cast<LPWSTR>(&system), 0, nullptr);
    std::wstring text = FormatW(L"(%d) - %s", code, system ? system : L"");
    LocalFree(system);
    return text;
}

void ReportFailure(unsigned line, EngineResult code, const wchar_t *engineFunction) {
    CLogging::Err(L"CheckForEncrypted", line, kSourceUnit, static_cast<unsigned>(code), true,
                  engineFunction);
}

// Reads the root item's "encrypted" into `encrypted` where the format has
// it; an absent property means not encrypted.
EngineResult ReadRootEncrypted(EngineArchive archive, bool *encrypted) {
    archive::ScopedArchiveObject root;
    EngineResult result = AcquireRootArchiveObject(archive, root.Out());
    if (result != kEngineOK) {
        ReportFailure(__LINE__, result, L"AcquireRootArchiveObject()");
        return result;
    }
    if (!ArchiveObjectPropertyAvailable(root.Get(), kItemPropEncrypted)) return kEngineOK;
    result = GetArchiveObjectBooleanProperty(root.Get(), kItemPropEncrypted, encrypted);
    if (result == kEnginePropertyAbsent) {
        *encrypted = false;
        result = kEngineOK;
    } else if (result != kEngineOK) {
        ReportFailure(__LINE__, result, L"GetArchiveObjectBooleanProperty()");
    }
    return result;
}

}  // namespace

const wchar_t *TranslateEngineError(EngineResult code) {
    static std::wstring result;
    result.clear();
    unsigned id = kSuccessText;
    std::wstring message;
    std::wstring hint;
    if (code == kEngineOK) {
        id = kSuccessText;
    } else if (code == kEngineCancelled) {
        id = kCancelledText;
    } else if (code == kEngineAccessDenied) {
        id = kAccessDeniedText;
    } else if (code == kEngineInternalError) {
        id = kInternalErrorText;
    } else if (IsDescribedEngineCode(code)) {
        id = EngineCodeTextId(code);
    } else if (code >= kFirstEngineCode) {
        std::wstring format =
            archive::ResourceText(CAppUtils::GetResString(nullptr, kUnknownEngineCodeFormat));
        message = FormatW(format.c_str(), code);
    } else {
        message = SystemErrorText(code);
    }
    if (message.empty()) {
        message = archive::ResourceText(CAppUtils::GetResString(nullptr, id));
        if (WantsRecoveryHint(code)) {
            hint = archive::ResourceText(CAppUtils::GetResString(nullptr, kRecoveryHint));
        }
    }
    result = message + hint;
    return result.c_str();
}

void EngineErrorDialog(const wchar_t *archiveName, EngineResult code, bool silent) {
    if (silent) return;
    std::wstring text = TranslateEngineError(code);
    CAppUtils::ErrorMsgBox(kArchiveErrorFormat, kArchiveErrorTitle, archiveName ? archiveName : L"",
                           text.c_str());
}

EngineResult CheckForEncrypted(OpaqueEngineObject *engine, const wchar_t *path, bool *encrypted) {
    if (!CFSUtils::FileExists(path)) return kEngineOK;
    bool ignored = false;
    if (!encrypted) encrypted = &ignored;

    archive::ScopedFSObject file;
    EngineResult result = NewFSObjectFromUnicodePath(path, file.Out());
    if (result != kEngineOK) {
        ReportFailure(__LINE__, result, L"NewFSObjectFromUnicodePath()");
        return result;
    }
    archive::ScopedArchive archive;
    result = AcquireArchive(engine, file.Get(), archive.Out());
    if (result != kEngineOK) {
        ReportFailure(__LINE__, result, L"AcquireArchive()");
        return result;
    }
    archive::OpenedArchive opened;
    result = OpenArchive(engine, archive.Get(), kEngineAccessRead);
    if (result == kEnginePasswordNeeded) {
        *encrypted = true;
        return kEngineOK;
    }
    if (result != kEngineOK) {
        ReportFailure(__LINE__, result, L"OpenArchive()");
        return result;
    }
    opened.Opened(archive.Get());
    return ReadRootEncrypted(archive.Get(), encrypted);
}
