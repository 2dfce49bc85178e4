#include "CArchiveEncrypt.h"

#include <string>

#include "CArchive.h"
#include "CArchiveObject.h"
#include "CFSUtils.h"
#include "CFormatOptionsRepository.h"
#include "CLogging.h"
#include "EngineHandles.h"
#include "FormatCatalogue.h"
#include "platform/Win32.h"

namespace {

constexpr const wchar_t *kUnit = L".\\CArchiveEncrypt";
// Answers of VerifyArchivePassword.
constexpr EngineResult kNoEncryption = 17545;
constexpr EngineResult kWrongPassword = 17546;

void LogFailure(const wchar_t *function, unsigned line, EngineResult code, const wchar_t *call) {
    CLogging::Err(function, line, kUnit, static_cast<unsigned>(code), true, call);
}

void SetInteger(OpaqueEngineObject *engine, const char *formatId, const char *name, int32_t value,
                const wchar_t *function) {
    EngineResult status = SetFormatIntegerProperty(engine, formatId, name, value);
    if (status) LogFailure(function, __LINE__, status, L"SetFormatIntegerProperty()");
}

// The archive's file and the format its content shows; a failure is logged
// and becomes the archive's last result.
bool IdentifyArchive(OpaqueEngineObject *engine, CArchive &target, archive::ScopedFSObject &file,
                     EngineFormatId &formatId, const wchar_t *function) {
    EngineResult status = NewFSObjectFromUnicodePath(target.name.c_str(), file.Out());
    if (status == 0) status = DetermineFileFormat(engine, file.Get(), formatId);
    if (status == 0) return true;
    LogFailure(function, __LINE__, status, L"DetermineFileFormat()");
    target.lastResult = status;
    return false;
}

}  // namespace

CArchiveEncrypt::CArchiveEncrypt(CArchiveObject *object, CArchive *archive)
    : object_(object), archive_(archive) {}

CArchiveEncrypt::~CArchiveEncrypt() = default;

bool CArchiveEncrypt::VerifyPassword(const wchar_t *password) {
    static constexpr const wchar_t *kFunction = L"CArchiveEncrypt::VerifyPassword";
    OpaqueEngineObject *engine = object_->Engine();
    archive::ScopedStringRef secret;
    archive::ScopedFSObject file;
    archive::ScopedArchive acquired;
    EngineResult status = NewStringRefFromUnicodeString(password ? password : L"", secret.Out());
    if (status == 0) status = NewFSObjectFromUnicodePath(archive_->name.c_str(), file.Out());
    if (status == 0) status = AcquireArchive(engine, file.Get(), acquired.Out());
    if (status == 0) status = VerifyArchivePassword(engine, acquired.Get(), secret.Get());
    if (status == kNoEncryption) {
        archive_->password.clear();
        return true;
    }
    if (status && status != kWrongPassword)
        LogFailure(kFunction, __LINE__, status, L"VerifyArchivePassword()");
    return status == 0;
}

bool CArchiveEncrypt::Encrypt(const wchar_t *password) {
    static constexpr const wchar_t *kFunction = L"CArchiveEncrypt::Encrypt";
    OpaqueEngineObject *engine = object_->Engine();
    archive::ScopedFSObject file;
    EngineFormatId formatId = {};
    if (!IdentifyArchive(engine, *archive_, file, formatId, kFunction)) return false;
    const CFormatOptionsRepository *options = archive_->formatOptions;
    format::type type = GetFormatType(formatId);
    if (type == format::zip && options) {
        SetInteger(engine, formatId, kFormatPropEncryptMethod,
                   static_cast<int32_t>(options->ZipEncryptionMethod), kFunction);
    } else if (type == format::vnkx && options) {
        SetInteger(engine, formatId, kFormatPropEncryptMethod,
                   static_cast<int32_t>(options->VnkxEncryptionMethod), kFunction);
        // Each item is enciphered, so that the listing stays readable.
        EngineResult status =
            SetFormatBooleanProperty(engine, formatId, kFormatPropEncryptArchive, false);
        if (status) LogFailure(kFunction, __LINE__, status, L"SetFormatBooleanProperty()");
    }
    std::wstring secret = password ? password : L"";
    archive::ScopedFSObject transformed;
    if (!Transform(file.Get(), formatId, nullptr, secret.c_str(), kFunction, transformed.Out()))
        return false;
    // The archive takes the new password once the engine has written the new
    // file, so a replacement that fails below leaves it set.
    archive_->password = secret;
    archive_->encrypted = true;
    return ReplaceWithTransformed(transformed.Get(), kFunction);
}

bool CArchiveEncrypt::RemoveEncryption(const wchar_t *password) {
    static constexpr const wchar_t *kFunction = L"CArchiveEncrypt::RemoveEncryption";
    OpaqueEngineObject *engine = object_->Engine();
    archive::ScopedFSObject file;
    EngineFormatId formatId = {};
    if (!IdentifyArchive(engine, *archive_, file, formatId, kFunction)) return false;
    format::type type = GetFormatType(formatId);
    if (type == format::zip || type == format::vnkx)
        SetInteger(engine, formatId, kFormatPropEncryptMethod, 0, kFunction);
    archive::ScopedFSObject transformed;
    if (!Transform(file.Get(), formatId, password ? password : L"", L"", kFunction,
                   transformed.Out()) ||
        !ReplaceWithTransformed(transformed.Get(), kFunction))
        return false;
    archive_->password.clear();
    archive_->encrypted = false;
    return true;
}

bool CArchiveEncrypt::Transform(FSObject file, const char *formatId, const wchar_t *oldPassword,
                                const wchar_t *newPassword, const wchar_t *function,
                                FSObject *transformed) {
    archive::ScopedStringRef oldSecret;
    archive::ScopedStringRef newSecret;
    EngineResult status = 0;
    if (oldPassword) status = NewStringRefFromUnicodeString(oldPassword, oldSecret.Out());
    if (status == 0) status = NewStringRefFromUnicodeString(newPassword, newSecret.Out());
    if (status == 0) {
        status = TransformArchive(object_->Engine(), file, nullptr, transformed, formatId,
                                  oldSecret.Get(), newSecret.Get(), 1, 0);
    }
    archive_->lastResult = status;
    if (status) {
        if (status != kEngineCancelled)
            LogFailure(function, __LINE__, status, L"TransformArchive()");
        return false;
    }
    return true;
}

bool CArchiveEncrypt::ReplaceWithTransformed(FSObject transformed, const wchar_t *function) {
    // Removed for good: a copy without the new encryption must not linger
    // in the trash.
    if (!CFSUtils::DeleteFileW(archive_->name.c_str(), true)) {
        CLogging::Err(function, __LINE__, kUnit, GetLastError(), false, L"DeleteFileW()");
        return false;
    }
    archive::ScopedStringRef path;
    EngineResult status = AcquirePathFromFSObject(transformed, path.Out());
    if (status) {
        LogFailure(function, __LINE__, status, L"AcquirePathFromFSObject()");
        archive_->lastResult = status;
        return false;
    }
    if (!MoveFileW(GetUnicodeStringFromStringRef(path.Get()), archive_->name.c_str())) {
        CLogging::Err(function, __LINE__, kUnit, GetLastError(), false, L"MoveFileW()");
        return false;
    }
    return true;
}
