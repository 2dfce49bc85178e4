#include "CArchiveConvert.h"

#include <initializer_list>
#include <string>

#include "CFSUtils.h"
#include "CFormatOptionsRepository.h"
#include "CLogging.h"
#include "CPassword.h"
#include "EngineHandles.h"
#include "SDKUtils.h"
#include "platform/Win32.h"

namespace {

constexpr const wchar_t *kUnit = L".\\CArchiveConvert";
constexpr const char *kZipId = "zip";
constexpr const char *kVnkxId = "vnkx";
// The one result the user is shown rather than only logged.
constexpr EngineResult kShownResult = 6;

void LogFailure(const wchar_t *function, unsigned line, EngineResult code, const wchar_t *call) {
    CLogging::Err(function, line, kUnit, static_cast<unsigned>(code), true, call);
}

void SetInteger(OpaqueEngineObject *engine, const char *formatId, const char *name, DWORD value,
                const wchar_t *function) {
    EngineResult status =
        SetFormatIntegerProperty(engine, formatId, name, static_cast<int32_t>(value));
    if (status) LogFailure(function, __LINE__, status, L"SetFormatIntegerProperty()");
}

void SetBoolean(OpaqueEngineObject *engine, const char *formatId, const char *name, bool value,
                const wchar_t *function) {
    EngineResult status = SetFormatBooleanProperty(engine, formatId, name, value);
    if (status) LogFailure(function, __LINE__, status, L"SetFormatBooleanProperty()");
}

bool HasOneOfExtensions(const wchar_t *path, std::initializer_list<const wchar_t *> extensions) {
    const wchar_t *extension = CFSUtils::Extension(path);
    for (const wchar_t *candidate : extensions) {
        if (platform::EqualsNoCase(extension, candidate)) return true;
    }
    return false;
}

// The source of a conversion as the engine needs it: its file object and,
// for an encrypted source, the password that opens it and protects the
// result.
struct ConvertSource {
    archive::ScopedFSObject file;
    archive::ScopedStringRef secret;
};

// How the encryption of the result is set for the target format.
struct TargetEncryption {
    const char *formatId;
    DWORD method;
    // vnkx enciphers item by item, so the listing stays readable.
    bool itemsOnly;
};

// Checks the source, opens it and settles its password. False ends the run
// without a result: the source is missing or of another kind, the engine
// could not take the path, or the prompt was refused.
bool PrepareSource(HWND parent, OpaqueEngineObject *engine, const wchar_t *source,
                   std::initializer_list<const wchar_t *> accepted, const TargetEncryption &target,
                   wchar_t *password, ConvertSource &prepared, const wchar_t *function) {
    if (!CFSUtils::FileExists(source) || !HasOneOfExtensions(source, accepted)) return false;
    EngineResult status = NewFSObjectFromUnicodePath(source, prepared.file.Out());
    if (status) {
        LogFailure(function, __LINE__, status, L"NewFSObjectFromUnicodePath()");
        return false;
    }
    bool encrypted = false;
    CheckForEncrypted(engine, source, &encrypted);
    if (!encrypted) {
        SetInteger(engine, target.formatId, kFormatPropEncryptMethod, 0, function);
        return true;
    }
    CPassword prompt(parent, source, false, false);
    if (!prompt.Run()) return false;
    if (password) wcsncpy_s(password, MAX_PATH, prompt.password.c_str(), _TRUNCATE);
    status = NewStringRefFromUnicodeString(prompt.password.c_str(), prepared.secret.Out());
    if (status) {
        LogFailure(function, __LINE__, status, L"NewStringRefFromUnicodeString()");
        return false;
    }
    SetInteger(engine, target.formatId, kFormatPropEncryptMethod, target.method, function);
    if (target.itemsOnly)
        SetBoolean(engine, target.formatId, kFormatPropEncryptArchive, false, function);
    int32_t keySize = 0;
    status = GetFormatIntegerProperty(engine, target.formatId, kFormatPropKeySizeDefault, &keySize);
    if (status) LogFailure(function, __LINE__, status, L"GetFormatIntegerProperty()");
    SetInteger(engine, target.formatId, kFormatPropKeySize, static_cast<DWORD>(keySize), function);
    return true;
}

// The engine's outcome as the user sees it: a message box for the one
// shown result, a log record for the others, nothing for a cancel.
void ReportOutcome(const wchar_t *source, EngineResult status, const wchar_t *function) {
    if (status == kEngineOK || status == kEngineCancelled) return;
    if (status == kShownResult) {
        EngineErrorDialog(source, status, false);
        return;
    }
    LogFailure(function, __LINE__, status, L"TransformArchive()");
}

}  // namespace

CArchiveConvert::CArchiveConvert(HWND parent, OpaqueEngineObject *engine,
                                 CFormatOptionsRepository *options)
    : parent_(parent), engine_(engine), options_(options) {}

CArchiveConvert::~CArchiveConvert() = default;

bool CArchiveConvert::ConvertArchiveToZip(const wchar_t *source, wchar_t *password) {
    static constexpr const wchar_t *kFunction = L"CArchiveConvert::ConvertArchiveToZip";
    if (!engine_ || !source) return false;
    CFormatOptionsRepository defaults;
    const CFormatOptionsRepository &options = options_ ? *options_ : defaults;
    SetInteger(engine_, kZipId, kFormatPropCompMethod, options.ZipCompressionMethod, kFunction);
    SetInteger(engine_, kZipId, kFormatPropCompressionLevel, options.ZipCompressionLevel,
               kFunction);
    ConvertSource prepared;
    const TargetEncryption target{kZipId, options.ZipEncryptionMethod, false};
    if (!PrepareSource(parent_, engine_, source, {L".vnk", L".vnkx", L".tar"}, target, password,
                       prepared, kFunction))
        return false;
    archive::ScopedFSObject result;
    EngineResult status =
        TransformArchive(engine_, prepared.file.Get(), nullptr, result.Out(), kZipId,
                         prepared.secret.Get(), prepared.secret.Get(), 1, 0);
    ReportOutcome(source, status, kFunction);
    return status == kEngineOK;
}

bool CArchiveConvert::ConvertArchiveToVnkx(const wchar_t *source, wchar_t *password,
                                           wchar_t *destination, bool selfExtracting) {
    static constexpr const wchar_t *kFunction = L"CArchiveConvert::ConvertArchiveToVnkx";
    if (!engine_ || !source) return false;
    CFormatOptionsRepository defaults;
    const CFormatOptionsRepository &options = options_ ? *options_ : defaults;
    SetInteger(engine_, kVnkxId, kFormatPropCompMethod, options.VnkxCompressionMethod, kFunction);
    SetInteger(engine_, kVnkxId, kFormatPropCompressionLevel, options.VnkxCompressionLevel,
               kFunction);
    SetInteger(engine_, kVnkxId, kFormatPropCompExtent, options.CompressionMemory, kFunction);
    SetInteger(engine_, kVnkxId, kFormatPropEncodeLevel, options.TextEncoding, kFunction);
    SetBoolean(engine_, kVnkxId, kFormatPropThumbNails, options.EmbedJPGThumbnails, kFunction);
    SetBoolean(engine_, kVnkxId, kFormatPropRecompressArchives, options.ZipRecompression,
               kFunction);
    SetBoolean(engine_, kVnkxId, kFormatPropBlockMode, options.UseBlockMode, kFunction);
    SetInteger(engine_, kVnkxId, kFormatPropRecompression, options.RecompressionMask, kFunction);
    SetInteger(engine_, kVnkxId, kFormatPropRecompressionLevel, options.RecompressionLevel,
               kFunction);
    SetInteger(engine_, kVnkxId, kFormatPropRedundancyLevel, options.RedundancyLevel, kFunction);
    SetBoolean(engine_, kVnkxId, kFormatPropSelfExtracting, selfExtracting, kFunction);
    ConvertSource prepared;
    const TargetEncryption target{kVnkxId, options.VnkxEncryptionMethod, true};
    if (!PrepareSource(parent_, engine_, source, {L".vnk", L".zip", L".tar"}, target, password,
                       prepared, kFunction))
        return false;
    archive::ScopedFSObject wanted;
    if (destination) {
        EngineResult status = NewFSObjectFromUnicodePath(destination, wanted.Out());
        if (status) LogFailure(kFunction, __LINE__, status, L"NewFSObjectFromUnicodePath()");
    }
    archive::ScopedFSObject result;
    EngineResult status =
        TransformArchive(engine_, prepared.file.Get(), wanted.Get(), result.Out(), kVnkxId,
                         prepared.secret.Get(), prepared.secret.Get(), 1, 0);
    if (status == kEngineOK && destination) {
        archive::ScopedStringRef name;
        status = AcquireFSObjectName(result.Get(), name.Out());
        if (status == kEngineOK) {
            const std::wstring folder = CFSUtils::ExtractFilePath(destination);
            const std::wstring full = folder + kPathSep + GetUnicodeStringFromStringRef(name.Get());
            wcsncpy_s(destination, MAX_PATH, full.c_str(), _TRUNCATE);
        } else {
            LogFailure(kFunction, __LINE__, status, L"AcquireFSObjectName()");
        }
    }
    ReportOutcome(source, status, kFunction);
    return status == kEngineOK;
}
