#include "CArchiveMakeSeaVnkx.h"

#include <memory>
#include <string>

#include "CArchive.h"
#include "CArchiveObject.h"
#include "CFSUtils.h"
#include "CFormatOptionsRepository.h"
#include "CLogging.h"
#include "EngineHandles.h"
#include "SDKUtils.h"
#include "platform/Win32.h"

namespace {

constexpr const wchar_t *kUnit = L".\\CArchiveMakeSeaVnkx";
constexpr const char *kZipId = "zip";
constexpr const char *kVnkxId = "vnkx";
// The stub's placement: the engine knows only this one.
constexpr int32_t kStubOption = 2;
// Zip "compMethod" of the self-extracting output: deflate, which every
// stub can expand.
constexpr int32_t kZipDeflate = 1;
// What an early check records when the engine is never asked.
constexpr EngineResult kMissingArchive = ERROR_FILE_NOT_FOUND;

void LogFailure(const wchar_t *function, unsigned line, EngineResult code, const wchar_t *call) {
    CLogging::Err(function, line, kUnit, static_cast<unsigned>(code), true, call);
}

void LogText(const wchar_t *function, unsigned line, const wchar_t *text) {
    CLogging::Err(function, line, kUnit, 0, false, text);
}

void SetInteger(OpaqueEngineObject *engine, const char *formatId, const char *name, int32_t value,
                const wchar_t *function) {
    EngineResult status = SetFormatIntegerProperty(engine, formatId, name, value);
    if (status) LogFailure(function, __LINE__, status, L"SetFormatIntegerProperty()");
}

void SetBoolean(OpaqueEngineObject *engine, const char *formatId, const char *name, bool value,
                const wchar_t *function) {
    EngineResult status = SetFormatBooleanProperty(engine, formatId, name, value);
    if (status) LogFailure(function, __LINE__, status, L"SetFormatBooleanProperty()");
}

// Leaves "selfExtracting" off on every way out, so that later work in the
// same engine session makes ordinary archives.
class SelfExtractingScope {
public:
    SelfExtractingScope(OpaqueEngineObject *engine, const char *formatId, const wchar_t *function)
        : engine_(engine), formatId_(formatId), function_(function) {
        SetBoolean(engine_, formatId_, kFormatPropSelfExtracting, true, function_);
    }
    ~SelfExtractingScope() {
        SetBoolean(engine_, formatId_, kFormatPropSelfExtracting, false, function_);
    }
    SelfExtractingScope(const SelfExtractingScope &) = delete;
    SelfExtractingScope &operator=(const SelfExtractingScope &) = delete;

private:
    OpaqueEngineObject *engine_;
    const char *formatId_;
    const wchar_t *function_;
};

// The temporary folder joined with `name`, any earlier file of that name
// removed.
std::wstring FreshTempPath(const wchar_t *name) {
    std::wstring path = std::wstring(CFSUtils::GetTempFolder()) + kPathSep + name;
    if (CFSUtils::FileExists(path.c_str())) CFSUtils::DeleteFileW(path.c_str(), true);
    return path;
}

// The engine's file object for the archive; a failure is logged and becomes
// the archive's last result.
bool OpenSource(CArchive &owner, archive::ScopedFSObject &file, const wchar_t *function) {
    EngineResult status = NewFSObjectFromUnicodePath(owner.name.c_str(), file.Out());
    if (status) {
        LogFailure(function, __LINE__, status, L"NewFSObjectFromUnicodePath()");
        owner.lastResult = status;
    }
    return status == kEngineOK;
}

}  // namespace

CArchiveMakeSeaVnkx::CArchiveMakeSeaVnkx(CArchiveObject *object, CArchive *archive)
    : object_(object), archive_(archive) {}

CArchiveMakeSeaVnkx::~CArchiveMakeSeaVnkx() = default;

bool CArchiveMakeSeaVnkx::MakeSDKSea() {
    static constexpr const wchar_t *kFunction = L"CArchiveMakeSeaVnkx::MakeSDKSea";
    archive::ScopedFSObject file;
    archive::ScopedFSObject sea;
    EngineResult status = NewFSObjectFromUnicodePath(archive_->name.c_str(), file.Out());
    if (status == kEngineOK)
        status = AddSelfExtractingToArchive(object_->Engine(), file.Get(), sea.Out(), kStubOption);
    if (status == kEngineOK) {
        archive::ScopedStringRef path;
        status = AcquirePathFromFSObject(sea.Get(), path.Out());
        if (status == kEngineOK) archive_->name = GetUnicodeStringFromStringRef(path.Get());
    }
    archive_->lastResult = status;
    if (status != kEngineOK) {
        LogFailure(kFunction, __LINE__, status, L"AddSelfExtractingToArchive()");
        if (object_->progressDialog) object_->progressDialog->StopTimer();
        EngineErrorDialog(archive_->name.c_str(), status, archive_->silent);
    }
    return status == kEngineOK;
}

bool CArchiveMakeSeaVnkx::TransformZip() {
    static constexpr const wchar_t *kFunction = L"CArchiveMakeSeaVnkx::TransformZip";
    OpaqueEngineObject *engine = object_->Engine();
    archive_->lastResult = kEngineInvalidParameter;
    if (!engine) return false;
    const wchar_t *path = archive_->name.c_str();
    if (!CFSUtils::FileExists(path)) {
        archive_->lastResult = kMissingArchive;
        return false;
    }
    if (!platform::EqualsNoCase(CFSUtils::Extension(path), L".zip")) {
        archive_->lastResult = kEngineWrongFormat;
        return false;
    }
    archive::ScopedFSObject file;
    if (!OpenSource(*archive_, file, kFunction)) return false;
    const CFormatOptionsRepository defaults;
    const CFormatOptionsRepository &options =
        archive_->formatOptions ? *archive_->formatOptions : defaults;
    SetInteger(engine, kZipId, kFormatPropEncryptMethod, 0, kFunction);
    SetInteger(engine, kZipId, kFormatPropCompMethod, kZipDeflate, kFunction);
    SetInteger(engine, kZipId, kFormatPropCompressionLevel,
               static_cast<int32_t>(options.ZipCompressionLevel), kFunction);
    SelfExtractingScope selfExtracting(engine, kZipId, kFunction);
    return TransformIntoTemp(file.Get(), kZipId, nullptr, kFunction) == kEngineOK;
}

bool CArchiveMakeSeaVnkx::TransformVnkx() {
    static constexpr const wchar_t *kFunction = L"CArchiveMakeSeaVnkx::TransformVnkx";
    const std::wstring path = archive_->name;
    OpaqueEngineObject *engine = object_->Engine();
    archive_->lastResult = kEngineInvalidParameter;
    if (!engine) return false;
    if (!CFSUtils::FileExists(path.c_str())) {
        LogText(kFunction, __LINE__, L"Archive doesn't exist");
        archive_->lastResult = kMissingArchive;
        return false;
    }
    if (!platform::EqualsNoCase(CFSUtils::Extension(path.c_str()), L".vnkx")) {
        LogText(kFunction, __LINE__, L"Archive is not vnkx");
        archive_->lastResult = kEngineWrongFormat;
        return false;
    }
    archive::ScopedFSObject file;
    if (!OpenSource(*archive_, file, kFunction)) return false;
    SelfExtractingScope selfExtracting(engine, kVnkxId, kFunction);
    bool encrypted = false;
    CheckForEncrypted(engine, path.c_str(), &encrypted);
    archive::ScopedStringRef secret;
    EngineResult status = kEngineOK;
    if (!encrypted) {
        SetInteger(engine, kVnkxId, kFormatPropEncryptMethod, 0, kFunction);
    } else {
        status = NewStringRefFromUnicodeString(archive_->password.c_str(), secret.Out());
        if (status) LogFailure(kFunction, __LINE__, status, L"NewStringRefFromUnicodeString()");
        const DWORD method = archive_->formatOptions
                                 ? archive_->formatOptions->VnkxEncryptionMethod
                                 : CFormatOptionsRepository().VnkxEncryptionMethod;
        SetInteger(engine, kVnkxId, kFormatPropEncryptMethod, static_cast<int32_t>(method),
                   kFunction);
        SetBoolean(engine, kVnkxId, kFormatPropEncryptArchive, false, kFunction);
        // The default is read and then not used: the key size stays 0,
        // the engine's own choice.
        int32_t keySizeDefault = 0;
        status =
            GetFormatIntegerProperty(engine, kVnkxId, kFormatPropKeySizeDefault, &keySizeDefault);
        if (status) LogFailure(kFunction, __LINE__, status, L"GetFormatIntegerProperty()");
        SetInteger(engine, kVnkxId, kFormatPropKeySize, 0, kFunction);
    }
    return TransformIntoTemp(file.Get(), kVnkxId, secret.Get(), kFunction) == kEngineOK;
}

EngineResult CArchiveMakeSeaVnkx::TransformIntoTemp(FSObject source, const char *formatId,
                                                    StringRef password, const wchar_t *function) {
    OpaqueEngineObject *engine = object_->Engine();
    const std::wstring destination =
        FreshTempPath(CFSUtils::ExtractFileName(archive_->name.c_str()));
    archive::ScopedFSObject target;
    archive::ScopedFSObject result;
    EngineResult status = NewFSObjectFromUnicodePath(destination.c_str(), target.Out());
    if (status == kEngineOK) {
        status = TransformArchive(engine, source, target.Get(), result.Out(), formatId, password,
                                  password, 1, 0);
        if (status && status != kEngineCancelled)
            LogFailure(function, __LINE__, status, L"TransformArchive()");
    } else {
        LogFailure(function, __LINE__, status, L"NewFSObjectFromUnicodePath()");
    }
    if (status == kEngineOK) {
        archive::ScopedStringRef name;
        status = AcquireFSObjectName(result.Get(), name.Out());
        if (status == kEngineOK) {
            const std::wstring made = std::wstring(CFSUtils::GetTempFolder()) + kPathSep +
                                      GetUnicodeStringFromStringRef(name.Get());
            archive_->name = made;
        } else {
            LogFailure(function, __LINE__, status, L"AcquireFSObjectName()");
        }
    }
    archive_->lastResult = status;
    return status;
}
