#include "CArchiveCompress.h"

#include <cstring>
#include <string>

#include "CAppOptionsRepository.h"
#include "CAppUtils.h"
#include "CArchive.h"
#include "CArchiveObject.h"
#include "CEngine.h"
#include "CFSUtils.h"
#include "CFormatOptionsRepository.h"
#include "CLogging.h"
#include "CNewArchiveContentList.h"
#include "CProgressDialog.h"
#include "EngineHandles.h"
#include "FormatCatalogue.h"
#include "SDKUtils.h"
#include "platform/SpecialFolders.h"
#include "platform/Win32.h"
#include "platform/WinPath.h"
#include "platform/WinTime.h"

namespace {

constexpr const wchar_t *kUnit = L".\\CArchiveCompress";
// The log of the application in the log folder, which the debug lines of a
// run and the size of the new archive go to.
constexpr const wchar_t *kApplicationLog = L"Varnick";
constexpr EngineResult kSharingViolation = 32;
constexpr DWORD kConflictAskDuplicate = 7;
constexpr DWORD kMergeFolders = 32768;
constexpr DWORD kFirstVersionWithShellRefresh = 1535;
constexpr DWORD kShellRefreshPause = 2000;
constexpr std::size_t kMaskBufferChars = 300;
constexpr DWORD kHiddenOrSystem = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;

std::wstring TextOf(StringRef text) {
    const wchar_t *chars = GetUnicodeStringFromStringRef(text);
    return chars ? chars : L"";
}

// Folder and name joined with the platform's separator.
std::wstring InFolderOf(const std::wstring &path, const std::wstring &name) {
    return platform::ParentPath(path) + kPathSepString + name;
}

std::wstring Trimmed(const std::wstring &text) {
    const wchar_t *space = L" \t\r\n";
    std::size_t first = text.find_first_not_of(space);
    if (first == std::wstring::npos) return L"";
    return text.substr(first, text.find_last_not_of(space) - first + 1);
}

// A destination inside an archive as the walk compares it: without one
// leading separator, with "\" between its parts.
std::wstring ArchiveFolderPath(std::wstring path) {
    if (!path.empty() && (path[0] == L'\\' || path[0] == kPathSep)) path.erase(0, 1);
    for (wchar_t &c : path) {
        if (c == kPathSep) c = L'\\';
    }
    return path;
}

bool NotApplicableOrFine(EngineResult code) {
    return code == 0 || code == kEnginePropertyNotApplicable;
}

// An installed compression filter, removed when it goes.
class ScopedFilter {
public:
    explicit ScopedFilter(OpaqueEngineObject *engine) : engine_(engine) {}
    ~ScopedFilter() { Remove(); }
    ScopedFilter(const ScopedFilter &) = delete;
    ScopedFilter &operator=(const ScopedFilter &) = delete;
    CompressionFilter *Out() { return &filter_; }
    EngineResult Remove() {
        if (!filter_) return 0;
        EngineResult code = RemoveCompressionFilter(engine_, filter_);
        filter_ = nullptr;
        return code;
    }
    explicit operator bool() const { return filter_ != nullptr; }

private:
    OpaqueEngineObject *engine_;
    CompressionFilter filter_ = nullptr;
};

// The application's log, open for the length of a run.
class RunLog {
public:
    explicit RunLog(FILE *&log) : log_(log) { log_ = CLogging::OpenLog(kApplicationLog, true); }
    ~RunLog() {
        CLogging::CloseLog(log_);
        log_ = nullptr;
    }
    RunLog(const RunLog &) = delete;
    RunLog &operator=(const RunLog &) = delete;

private:
    FILE *&log_;
};

}  // namespace

CArchiveCompress::CArchiveCompress(CArchiveObject *object, CArchive *archive)
    : object_(object), archive_(archive) {}

CArchiveCompress::~CArchiveCompress() = default;

OpaqueEngineObject *CArchiveCompress::Engine() const {
    return archive_->engine ? archive_->engine->GetEngine() : nullptr;
}

void CArchiveCompress::LogFailure(const wchar_t *function, unsigned line, EngineResult code,
                                  const wchar_t *call) const {
    CLogging::Err(function, line, kUnit, static_cast<unsigned>(code), true, call);
    if (archive_->silent)
        CLogging::LogErr(archive_->silentLog, function, line, kUnit, static_cast<unsigned>(code),
                         true, call);
}

void CArchiveCompress::DebugLine(const wchar_t *format, long value) const {
    CLogging::Msg(log_, 0, format, static_cast<int>(value));
}

EngineResult CArchiveCompress::SetInteger(const char *formatId, const char *name, long value) {
    EngineResult code =
        SetFormatIntegerProperty(Engine(), formatId, name, static_cast<int32_t>(value));
    if (code) {
        std::wstring call = L"SetFormatIntegerProperty(" + platform::FromUtf8(name) + L")";
        LogFailure(L"CArchiveCompress::SetInteger", __LINE__, code, call.c_str());
    }
    return code;
}

EngineResult CArchiveCompress::SetBoolean(const char *formatId, const char *name, bool value) {
    EngineResult code = SetFormatBooleanProperty(Engine(), formatId, name, value);
    if (code) {
        std::wstring call = L"SetFormatBooleanProperty(" + platform::FromUtf8(name) + L")";
        LogFailure(L"CArchiveCompress::SetBoolean", __LINE__, code, call.c_str());
    }
    return code;
}

EngineResult CArchiveCompress::SetEncryption(int formatType, const char *formatId) {
    const CFormatOptionsRepository &options = *archive_->formatOptions;
    if (formatType != format::zip && formatType != format::vnkx) return 0;
    if (archive_->password.empty()) return SetInteger(formatId, kFormatPropEncryptMethod, 0);
    EngineResult code = 0;
    if (formatType == format::zip) {
        code = SetInteger(formatId, kFormatPropEncryptMethod, options.ZipEncryptionMethod);
    } else {
        code = SetInteger(formatId, kFormatPropEncryptMethod, options.VnkxEncryptionMethod);
        code = SetBoolean(formatId, kFormatPropEncryptArchive, false);
    }
    int32_t keySize = 0;
    code = GetFormatIntegerProperty(Engine(), formatId, kFormatPropKeySizeDefault, &keySize);
    if (code)
        LogFailure(L"CArchiveCompress::SetEncryption", __LINE__, code,
                   L"GetFormatIntegerProperty(keySizeDefault)");
    return SetInteger(formatId, kFormatPropKeySize, keySize);
}

EngineResult CArchiveCompress::SetFormatProperties(int formatType, bool adding) {
    const CFormatOptionsRepository &options = *archive_->formatOptions;
    switch (formatType) {
        case format::zip:
            SetInteger("zip", kFormatPropCompMethod, options.ZipCompressionMethod);
            return SetInteger("zip", kFormatPropCompressionLevel, options.ZipCompressionLevel);
        case format::gz:
            return SetInteger("gz", kFormatPropCompressionLevel, options.GZipCompressionLevel);
        case format::bz2:
            return SetInteger("bz2", kFormatPropCompressionLevel, options.BZipCompressionLevel);
        case format::vnkx:
            if (options.VnkxUseSimple && options.SimpleVnkxMethod != 6)
                return SetVnkxSimple(adding);
            return adding ? SetVnkxDetailedForAdding() : SetVnkxDetailed();
        default:
            return 0;
    }
}

EngineResult CArchiveCompress::SetVnkxDetailed() {
    const CFormatOptionsRepository &options = *archive_->formatOptions;
    struct Step {
        const char *name;
        bool boolean;
        long value;
        const wchar_t *line;
    };
    const Step steps[] = {
        {kFormatPropMaxVersion, false, options.VnkxBackwardCompatible ? 0 : 7,
         L"kFormatPropertyIDMaxVersion = %i\n"},
        {kFormatPropCompMethod, false, static_cast<long>(options.VnkxCompressionMethod),
         L"kFormatPropertyIDCurrentCompressionMethod = %i\n"},
        {kFormatPropCompressionLevel, false, static_cast<long>(options.VnkxCompressionLevel),
         L"kFormatPropertyIDCurrentCompressionLevel = %i\n"},
        {kFormatPropCompExtent, false, static_cast<long>(options.CompressionMemory),
         L"kFormatPropertyIDCurrentCompressionExtent = %i\n"},
        {kFormatPropEncodeLevel, false, static_cast<long>(options.TextEncoding),
         L"kFormatPropertyIDCurrentEncodingLevel = %i\n"},
        {kFormatPropRedundancyLevel, false, static_cast<long>(options.RedundancyLevel),
         L"kFormatPropertyIDCurrentRedundancyLevel = %i\n"},
        {kFormatPropThumbNails, true, options.EmbedJPGThumbnails,
         L"kFormatPropertyIDThumbnails = %i\n"},
        {kFormatPropFoldDuplicates, true, options.VnkxDuplicateFolding,
         L"kFormatPropertyIDFoldDuplicates = %i\n"},
        {kFormatPropFilters, true, options.VnkxOptimize,
         L"kFormatPropertyIDCompressionOptimizers = %i\n"},
        {kFormatPropRecompressArchives, true, options.ZipRecompression,
         L"kFormatPropertyIDRecompress = 0x%08x\n"},
        {kFormatPropBlockMode, true, options.UseBlockMode, L"kFormatPropertyIDBlockMode = %i\n"},
        {kFormatPropRecompression, false, static_cast<long>(options.RecompressionMask),
         L"kFormatPropertyIDRecompression = 0x%08x\n"},
        {kFormatPropRecompressionLevel, false, static_cast<long>(options.RecompressionLevel),
         L"kFormatPropertyIDRecompressionLevel = 0x%i\n"},
        {kFormatPropSelfExtracting, true, archive_->selfExtracting,
         L"kFormatPropertyIDSelfExtracting = %i\n"},
    };
    EngineResult code = 0;
    for (const Step &step : steps) {
        DebugLine(step.line, step.value);
        code = step.boolean ? SetBoolean("vnkx", step.name, step.value != 0)
                            : SetInteger("vnkx", step.name, step.value);
    }
    return code;
}

EngineResult CArchiveCompress::SetVnkxDetailedForAdding() {
    const CFormatOptionsRepository &options = *archive_->formatOptions;
    SetInteger("vnkx", kFormatPropMaxVersion, options.VnkxBackwardCompatible ? 0 : 7);
    // Adding takes the classic format's method, unlike making a new archive.
    SetInteger("vnkx", kFormatPropCompMethod, options.VnkCompressionMethod);
    SetInteger("vnkx", kFormatPropCompressionLevel, options.VnkxCompressionLevel);
    SetInteger("vnkx", kFormatPropCompExtent, options.CompressionMemory);
    SetInteger("vnkx", kFormatPropEncodeLevel, options.TextEncoding);
    SetBoolean("vnkx", kFormatPropFoldDuplicates, options.VnkxDuplicateFolding);
    SetBoolean("vnkx", kFormatPropFilters, options.VnkxOptimize);
    SetBoolean("vnkx", kFormatPropThumbNails, options.EmbedJPGThumbnails);
    SetBoolean("vnkx", kFormatPropRecompressArchives, options.ZipRecompression);
    SetBoolean("vnkx", kFormatPropBlockMode, options.UseBlockMode);
    SetInteger("vnkx", kFormatPropRecompression, options.RecompressionMask);
    return SetInteger("vnkx", kFormatPropRecompressionLevel, options.RecompressionLevel);
}

EngineResult CArchiveCompress::SetVnkxSimple(bool adding) {
    DWORD method = archive_->formatOptions->SimpleVnkxMethod;
    EngineResult code = 0;
    if (method >= 1 && method <= 5) code = SetInteger("vnkx", kFormatPropCompressionDegree, method);
    if (adding) return code;
    DebugLine(L"kFormatPropertyIDMaxVersion = %i\n", 7);
    SetInteger("vnkx", kFormatPropMaxVersion, 7);
    DebugLine(L"kFormatPropertyIDCurrentEncodingLevel = %i\n", 0);
    SetInteger("vnkx", kFormatPropEncodeLevel, 0);
    DebugLine(L"kFormatPropertyIDCurrentRedundancyLevel = %i\n", 0);
    SetInteger("vnkx", kFormatPropRedundancyLevel, 0);
    // Never self-extracting, whatever the archive asks.
    DebugLine(L"kFormatPropertyIDSelfExtracting = %i\n", 0);
    return SetBoolean("vnkx", kFormatPropSelfExtracting, false);
}

EngineResult CArchiveCompress::SetSourceHandling(bool adding) {
    static constexpr const wchar_t *kFunction = L"CArchiveCompress::SetSourceHandling";
    const CAppOptionsRepository &options = *archive_->appOptions;
    DWORD duplicates = options.AddConflictMethod;
    if (!adding && duplicates == kConflictAskDuplicate) duplicates = kResolutionKeepBoth;
    if (options.AddMergeContents) duplicates |= kMergeFolders;
    EngineResult code = SetEngineIntegerProperty(Engine(), kEnginePropDuplicateResolution,
                                                 static_cast<int32_t>(duplicates));
    if (code && (adding || code != kEnginePropertyNotApplicable))
        LogFailure(kFunction, __LINE__, code, L"SetEngineIntegerProperty(duplicateResolution)");
    code = SetEngineIntegerProperty(Engine(), kEnginePropDeleteAction, options.DeleteSrc ? 1 : 0);
    if (!NotApplicableOrFine(code))
        LogFailure(kFunction, __LINE__, code, L"SetEngineIntegerProperty(deleteAction)");
    code = SetEngineBooleanProperty(Engine(), kEnginePropNoRecompression, options.CompressArcs);
    if (code) LogFailure(kFunction, __LINE__, code, L"SetEngineBooleanProperty(noRecompression)");
    return code;
}

bool CArchiveCompress::Compress(CNewArchiveContentList *list) {
    static constexpr const wchar_t *kFunction = L"CArchiveCompress::Compress";
    RunLog runLog(log_);
    list_ = list;
    const int type = archive_->formatType;
    FormatId formatId = {};
    const char *postEncoding = "";
    if (type == format::tgz || type == format::tbz2 || type == format::tz) {
        std::strcpy(formatId, "tar");
        postEncoding = type == format::tgz ? "gz" : type == format::tbz2 ? "bz2" : "compress";
    } else {
        GetFormatID(archive_->formatType, formatId);
    }
    EngineResult status =
        SetEngineFormatIDProperty(Engine(), kEnginePropPostEncodingFormat, postEncoding);
    if (status) LogFailure(kFunction, __LINE__, status, L"SetEngineFormatIDProperty()");

    status = SetEncryption(type, formatId);
    archive::ScopedStringRef password;
    if (!archive_->password.empty()) {
        status = NewStringRefFromUnicodeString(archive_->password.c_str(), password.Out());
        if (status) LogFailure(kFunction, __LINE__, status, L"NewStringRefFromUnicodeString()");
    }
    status = SetFormatProperties(type, false);
    status = SetSourceHandling(false);

    bool made = false;
    if (!list_) {
        status = MakeEmptyArchive(formatId);
        made = status == 0;
    } else {
        ScopedFilter filter(Engine());
        if (list_->Filter) {
            BuildMaskList(*list_->Filter);
            status = AddCompressionFilter(Engine(), FilterProc, this, filter.Out());
            if (status) LogFailure(kFunction, __LINE__, status, L"AddCompressionFilter()");
        }
        if (list_->Files.empty() && list_->Folders.empty())
            status = kEngineCancelled;  // an empty list ends like a cancelled run
        else if (list_->OneArchivePerItem)
            status = CompressEach(formatId, password.Get(), made);
        else
            status = CompressAll(formatId, password.Get(), made);
        // As it stands: the removal's code replaces the run's.
        if (filter) status = filter.Remove();
    }

    password.Reset();
    if (status == 0) {
        dateLimit_ = {};
        if (archive_->refreshAfterChange) archive_->GetArchiveInfo(false);
    }
    list_ = nullptr;
    archive_->lastResult = status;
    if (status == 0) LogArchiveSize();
    if (status != 0 && !archive_->silent) {
        if (object_->progressDialog) object_->progressDialog->StopTimer();
        EngineErrorDialog(archive_->name.c_str(), status, false);
    }
    return made;
}

EngineResult CArchiveCompress::MakeEmptyArchive(const char *formatId) {
    static constexpr const wchar_t *kFunction = L"CArchiveCompress::MakeEmptyArchive";
    archive::ScopedFSObject file;
    archive::ScopedArchive made;
    EngineResult status = NewFSObjectFromUnicodePath(archive_->name.c_str(), file.Out());
    if (status) {
        LogFailure(kFunction, __LINE__, status, L"NewFSObjectFromUnicodePath()");
        return status;
    }
    status = AcquireNewArchiveFromFSObject(Engine(), file.Get(), formatId, made.Out());
    if (status) LogFailure(kFunction, __LINE__, status, L"AcquireNewArchiveFromFSObject()");
    return status;
}

EngineResult CArchiveCompress::CompressAll(const char *formatId, StringRef password, bool &made) {
    static constexpr const wchar_t *kFunction = L"CArchiveCompress::CompressAll";
    if (list_->Timestamp) {
        const std::wstring &name = archive_->name;
        archive_->name = TimeStampArchiveName(platform::FileNamePart(name).c_str(),
                                              platform::ExtensionPart(name).c_str(),
                                              platform::ParentPath(name).c_str());
    }
    archive::ScopedFSObject output;
    archive::ScopedFSObjectList sources;
    EngineResult status = NewFSObjectFromUnicodePath(archive_->name.c_str(), output.Out());
    if (status == 0) status = NewFSObjectList(Engine(), sources.Out());
    if (status) {
        LogFailure(kFunction, __LINE__, status, L"NewFSObjectList()");
        return status;
    }
    std::vector<std::wstring> paths = list_->Files;
    paths.insert(paths.end(), list_->Folders.begin(), list_->Folders.end());
    for (const std::wstring &path : paths) {
        if (!PathFileExistsW(path.c_str())) continue;
        archive::ScopedFSObject source;
        status = NewFSObjectFromUnicodePath(path.c_str(), source.Out());
        if (status == 0) status = AddFSObjectToFSObjectList(Engine(), source.Get(), sources.Get());
        if (status) {
            LogFailure(kFunction, __LINE__, status, L"AddFSObjectToFSObjectList()");
            return status;
        }
    }
    status = CompressWithExtentRetry(output.Get(), password, sources.Get(), formatId);
    made = made || status == 0;
    return status;
}

EngineResult CArchiveCompress::CompressEach(const char *formatId, StringRef password, bool &made) {
    static constexpr const wchar_t *kFunction = L"CArchiveCompress::CompressEach";
    const std::wstring extension = GetFormatExtension(archive_->formatType);
    std::vector<std::wstring> paths = list_->Files;
    paths.insert(paths.end(), list_->Folders.begin(), list_->Folders.end());
    EngineResult status = 0;
    for (const std::wstring &item : paths) {
        std::wstring output =
            archive_->appOptions->CompressFolderMethod == 0
                ? item + extension
                : InFolderOf(archive_->name, platform::FileNamePart(item)) + extension;
        if (list_->Timestamp)
            output = TimeStampArchiveName(platform::FileNamePart(output).c_str(), extension.c_str(),
                                          platform::ParentPath(output).c_str());
        archive_->name = output;
        archive::ScopedFSObject target, source;
        archive::ScopedFSObjectList sources;
        status = NewFSObjectFromUnicodePath(output.c_str(), target.Out());
        if (status == 0) status = NewFSObjectList(Engine(), sources.Out());
        if (status == 0) status = NewFSObjectFromUnicodePath(item.c_str(), source.Out());
        if (status == 0) status = AddFSObjectToFSObjectList(Engine(), source.Get(), sources.Get());
        if (status) {
            LogFailure(kFunction, __LINE__, status, L"AddFSObjectToFSObjectList()");
            continue;
        }
        status = CompressWithExtentRetry(target.Get(), password, sources.Get(), formatId);
        made = made || status == 0;
    }
    return status;
}

EngineResult CArchiveCompress::CompressWithExtentRetry(FSObject output, StringRef password,
                                                       FSObjectList sources, const char *formatId) {
    static constexpr const wchar_t *kFunction = L"CArchiveCompress::CompressWithExtentRetry";
    CFormatOptionsRepository &options = *archive_->formatOptions;
    for (;;) {
        EngineResult status = DoCompression(output, password, sources, formatId);
        if (status != kEngineExtentTooHigh || archive_->formatType != format::vnkx) return status;
        int32_t least = 0;
        EngineResult read =
            GetFormatIntegerProperty(Engine(), "vnkx", kFormatPropCompExtentLeast, &least);
        if (read) LogFailure(kFunction, __LINE__, read, L"GetFormatIntegerProperty()");
        // The lowered extent stays in the options for the next run.
        options.CompressionMemory -= 1;
        if (static_cast<LONG>(options.CompressionMemory) <= least) return status;
        DebugLine(L"kFormatPropertyIDCurrentCompressionExtent = %i\n",
                  static_cast<long>(options.CompressionMemory));
        EngineResult set = SetInteger("vnkx", kFormatPropCompExtent, options.CompressionMemory);
        if (set) return set;
    }
}

EngineResult CArchiveCompress::DoCompression(FSObject output, StringRef password,
                                             FSObjectList sources, const char *formatId) {
    EngineResult status = 0;
    if (!list_ || list_->SegmentSize == 0)
        status = CompressWhole(output, password, sources, formatId);
    else if (archive_->formatType == format::vnkx)
        status = CompressSegments(output, password, sources, formatId);
    else
        status = kEngineNotAnArchive;
    if (status == 0 && CAppUtils::GetWINVER() > kFirstVersionWithShellRefresh)
        ShowNewArchiveOnDesktop();
    return status;
}

EngineResult CArchiveCompress::CompressWhole(FSObject output, StringRef password,
                                             FSObjectList sources, const char *formatId) {
    static constexpr const wchar_t *kFunction = L"CArchiveCompress::DoCompression";
    const int type = archive_->formatType;
    archive::ScopedFSObject made, index;
    bool withIndex = type == format::vnkx && list_ && list_->MakeIndex;
    if (withIndex) {
        EngineResult named = NewFSObjectFromUnicodePath(list_->IndexPath.c_str(), index.Out());
        if (named) {
            LogFailure(kFunction, __LINE__, named, L"NewFSObjectFromUnicodePath()");
            withIndex = false;
        }
    }
    EngineResult status = 0;
    if (withIndex) {
        status = ArchiveFSObjectListCreatingIndex(Engine(), formatId, sources, output, made.Out(),
                                                  password, index.Get());
    } else {
        if (type != format::vnkx) {
            EngineResult set = SetEngineIntegerProperty(Engine(), kEnginePropDuplicateResolution,
                                                        kResolutionKeepBoth);
            if (!NotApplicableOrFine(set))
                LogFailure(kFunction, __LINE__, set, L"SetEngineIntegerProperty()");
        }
        bool retried = false;
        for (;;) {
            status = ArchiveFSObjectList(Engine(), formatId, sources, output, made.Out(), password);
            if (status != kSharingViolation || retried || type != format::zip) break;
            retried = true;
            SetEngineBooleanProperty(Engine(), kEnginePropUseThreads, false);
        }
        SetEngineBooleanProperty(Engine(), kEnginePropUseThreads, true);
    }
    if (status == 0) {
        archive::ScopedStringRef name;
        if (AcquireFSObjectName(made.Get(), name.Out()) == 0)
            archive_->name = InFolderOf(archive_->name, TextOf(name.Get()));
    } else if (status == kEngineCancelled) {
        archive_->cancelled = true;
    } else {
        LogFailure(kFunction, __LINE__, status, L"ArchiveFSObjectList()");
    }
    return status;
}

EngineResult CArchiveCompress::CompressSegments(FSObject output, StringRef password,
                                                FSObjectList sources, const char *formatId) {
    static constexpr const wchar_t *kFunction = L"CArchiveCompress::DoCompression";
    auto size = static_cast<std::uint64_t>(list_->SegmentSize);
    auto low = static_cast<uint32_t>(size & 0xFFFFFFFFu);
    auto high = static_cast<uint32_t>(size >> 32);
    archive::ScopedFSObjectList made;
    archive::ScopedFSObject index;
    EngineResult status = 0;
    if (list_->MakeIndex) {
        status = NewFSObjectFromUnicodePath(list_->IndexPath.c_str(), index.Out());
        if (status == 0)
            status = CreateSegmentsWithFormatAndIndex(Engine(), sources, output, made.Out(),
                                                      formatId, low, high, password, index.Get());
    } else {
        status = CreateSegmentsWithFormat(Engine(), sources, output, made.Out(), formatId, low,
                                          high, password);
    }
    if (status == 0) {
        archive::ScopedFSObject first;
        archive::ScopedStringRef path;
        if (GetNthFSObject(made.Get(), 0, first.Out()) == 0 &&
            AcquirePathFromFSObject(first.Get(), path.Out()) == 0)
            archive_->name = TextOf(path.Get());
    } else if (status != kEngineCancelled) {
        LogFailure(kFunction, __LINE__, status, L"CreateSegmentsWithFormat()");
    }
    return status;
}

void CArchiveCompress::ShowNewArchiveOnDesktop() {
    wchar_t desktop[MAX_PATH] = {};
    if (!SHGetSpecialFolderPathW(nullptr, desktop, CSIDL_DESKTOPDIRECTORY, FALSE)) return;
    const std::wstring &name = archive_->name;
    std::size_t length = wcslen(desktop);
    if (length == 0 || _wcsnicmp(name.c_str(), desktop, length) != 0) return;
    // The file manager notices a file that comes and goes; a new one written
    // in place is sometimes not shown until the next refresh.
    std::wstring away = CFSUtils::CreateUniqueFileName(platform::ParentPath(name).c_str(),
                                                       platform::FileNamePart(name).c_str());
    if (!MoveFileW(name.c_str(), away.c_str())) return;
    Sleep(kShellRefreshPause);
    MoveFileW(away.c_str(), name.c_str());
}

void CArchiveCompress::LogArchiveSize() const {
    WIN32_FIND_DATAW found = {};
    HANDLE search = FindFirstFileW(archive_->name.c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return;
    FindClose(search);
    std::uint64_t size =
        (static_cast<std::uint64_t>(found.nFileSizeHigh) << 32) | found.nFileSizeLow;
    CLogging::Msg(log_, 0, L"size = %I64u\n", size);
}

bool CArchiveCompress::Add(CNewArchiveContentList *list) {
    static constexpr const wchar_t *kFunction = L"CArchiveCompress::Add";
    list_ = list;
    EngineResult status = SetSourceHandling(true);
    if (!Engine() || archive_->name.empty()) {
        CLogging::Err(kFunction, __LINE__, kUnit, 0, false, L"No engine or no archive");
    } else {
        archive::ScopedFSObject file;
        status = NewFSObjectFromUnicodePath(archive_->name.c_str(), file.Out());
        FormatId found = {};
        if (status == 0) status = DetermineFileFormat(Engine(), file.Get(), found);
        if (status) LogFailure(kFunction, __LINE__, status, L"DetermineFileFormat()");
        SetEncryption(GetFormatType(found), found);
        SetFormatProperties(archive_->formatType, true);

        archive::ScopedStringRef password;
        status = NewStringRefFromUnicodeString(archive_->password.c_str(), password.Out());
        if (status) LogFailure(kFunction, __LINE__, status, L"NewStringRefFromUnicodeString()");
        ScopedFilter filter(Engine());
        if (list_ && list_->Filter) {
            BuildMaskList(*list_->Filter);
            status = AddCompressionFilter(Engine(), FilterProc, this, filter.Out());
            if (status) LogFailure(kFunction, __LINE__, status, L"AddCompressionFilter()");
        }
        archive::ScopedArchive opened;
        archive::OpenedArchive open;
        archive::ScopedArchiveObject root, target;
        status = AcquireArchive(Engine(), file.Get(), opened.Out());
        if (status == 0) {
            status =
                OpenEncryptedArchive(Engine(), opened.Get(), kEngineAccessChange, password.Get());
            if (status == 0) open.Opened(opened.Get());
        }
        if (status == 0) status = AcquireRootArchiveObject(opened.Get(), root.Out());
        if (status) LogFailure(kFunction, __LINE__, status, L"OpenEncryptedArchive()");
        if (status == 0) status = FindTargetFolder(root.Get(), object_->destination, target.Out());
        if (status == 0) {
            archive::ScopedFSObjectList sources;
            status = NewFSObjectList(Engine(), sources.Out());
            std::vector<std::wstring> paths;
            if (list_) {
                paths = list_->Files;
                paths.insert(paths.end(), list_->Folders.begin(), list_->Folders.end());
            }
            for (const std::wstring &path : paths) {
                archive::ScopedFSObject source;
                EngineResult added = NewFSObjectFromUnicodePath(path.c_str(), source.Out());
                if (added == 0)
                    added = AddFSObjectToFSObjectList(Engine(), source.Get(), sources.Get());
                if (added) LogFailure(kFunction, __LINE__, added, L"AddFSObjectToFSObjectList()");
            }
            archive::ScopedArchiveObjectList added;
            ArchiveObject folder = target ? target.Get() : root.Get();
            status =
                AddItemsToArchive(Engine(), folder, sources.Get(), added.Out(), password.Get());
            if (status && status != kEngineCancelled)
                LogFailure(kFunction, __LINE__, status, L"AddItemsToArchive()");
        }
    }
    dateLimit_ = {};
    if (status == 0 && archive_->refreshAfterChange) archive_->GetArchiveInfo(false);
    list_ = nullptr;
    archive_->lastResult = status;
    if (status != 0) {
        if (object_->progressDialog) object_->progressDialog->StopTimer();
        EngineErrorDialog(archive_->name.c_str(), status, false);
    }
    return status == 0;
}

EngineResult CArchiveCompress::FindTargetFolder(ArchiveObject root, const std::wstring &path,
                                                ArchiveObject *target) {
    std::wstring folder = ArchiveFolderPath(path);
    if (folder.empty()) return 0;
    return GetArchiveObjectFromString(root, folder, L"", target);
}

EngineResult CArchiveCompress::GetArchiveObjectFromString(ArchiveObject parent,
                                                          const std::wstring &target,
                                                          const std::wstring &prefix,
                                                          ArchiveObject *item) {
    std::wstring wanted = target + L"\\";
    archive::ScopedArchiveIterator walk;
    EngineResult status = NewArchiveIterator(parent, walk.Out());
    ArchiveObject current = nullptr;
    if (status == 0) status = AcquireCurrentArchiveObject(walk.Get(), &current);
    while (status == 0) {
        archive::ScopedStringRef nameRef;
        AcquireArchiveObjectName(current, nameRef.Out());
        std::wstring name = TextOf(nameRef.Get());
        std::wstring candidate = prefix.empty() ? name + L"\\" : prefix + L"\\" + name + L"\\";
        if (candidate == wanted) {
            *item = current;
            return 0;
        }
        bool folder = false;
        GetArchiveObjectIsFolder(current, &folder);
        if (folder) {
            // As it stands: the deeper walk gets the target with its "\"
            // already on, and appends one more.
            std::wstring deeper = prefix.empty() ? name : prefix + L"\\" + name;
            if (GetArchiveObjectFromString(current, wanted, deeper, item) == 0) {
                ReleaseArchiveObject(current);
                return 0;
            }
        }
        ReleaseArchiveObject(current);
        current = nullptr;
        status = AcquireNextArchiveObject(walk.Get(), &current);
    }
    if (status != kEngineNoMoreObjects) EngineErrorDialog(archive_->name.c_str(), status, false);
    return status;
}

bool CArchiveCompress::AddFolder(const wchar_t *parent, const wchar_t *name) {
    static constexpr const wchar_t *kFunction = L"CArchiveCompress::AddFolder";
    if (!Engine() || archive_->name.empty() || !name || !*name) {
        CLogging::Err(kFunction, __LINE__, kUnit, 0, false, L"No engine or no archive");
        return false;
    }
    uint16_t mode = 0;
    EngineResult status = GetArchiveFormatMaximumAccessMode(Engine(), archive_->formatId, &mode);
    if (status) LogFailure(kFunction, __LINE__, status, L"GetArchiveFormatMaximumAccessMode()");

    archive::ScopedFSObject file;
    archive::ScopedStringRef password, folderName;
    archive::ScopedArchive opened;
    archive::OpenedArchive open;
    archive::ScopedArchiveObject root, target, made;
    status = NewFSObjectFromUnicodePath(archive_->name.c_str(), file.Out());
    if (status == 0 && !archive_->password.empty())
        status = NewStringRefFromUnicodeString(archive_->password.c_str(), password.Out());
    if (status == 0) status = AcquireArchive(Engine(), file.Get(), opened.Out());
    if (status == 0) {
        status = OpenEncryptedArchive(Engine(), opened.Get(), kEngineAccessChange, password.Get());
        if (status == 0) open.Opened(opened.Get());
    }
    if (status == 0) status = AcquireRootArchiveObject(opened.Get(), root.Out());
    if (status == 0) status = FindTargetFolder(root.Get(), parent ? parent : L"", target.Out());
    if (status == 0) status = NewStringRefFromUnicodeString(name, folderName.Out());
    if (status == 0) {
        ArchiveObject where = target ? target.Get() : root.Get();
        status = AcquireNewFolderInArchive(Engine(), where, folderName.Get(), 0, made.Out());
    }
    made.Reset();
    if (status) LogFailure(kFunction, __LINE__, status, L"AcquireNewFolderInArchive()");
    archive_->lastResult = status;
    if (status) EngineErrorDialog(archive_->name.c_str(), status, false);
    return status == 0;
}

bool CArchiveCompress::MakeIndexFromVnkx(const wchar_t *archivePath, const wchar_t *indexPath) {
    static constexpr const wchar_t *kFunction = L"CArchiveCompress::MakeIndexFromVnkx";
    archive::ScopedFSObject source, index;
    EngineResult status = NewFSObjectFromUnicodePath(archivePath ? archivePath : L"", source.Out());
    if (status == 0) status = NewFSObjectFromUnicodePath(indexPath ? indexPath : L"", index.Out());
    if (status == 0) status = CreateArchiveIndex(Engine(), source.Get(), index.Get());
    source.Reset();
    index.Reset();
    if (status) LogFailure(kFunction, __LINE__, status, L"CreateArchiveIndex()");
    archive_->lastResult = status;
    if (status) EngineErrorDialog(archive_->name.c_str(), status, false);
    return status == 0;
}

void CArchiveCompress::BuildMaskList(const CFilterObject &filter) {
    // An empty mask leaves the list of the previous run in place, as it stands.
    if (filter.Mask.empty()) return;
    masks_.clear();
    wchar_t buffer[kMaskBufferChars] = {};
    wcsncpy_s(buffer, kMaskBufferChars, filter.Mask.c_str(), _TRUNCATE);
    std::wstring text = buffer;
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t end = text.find_first_of(L",;", start);
        if (end == std::wstring::npos) end = text.size();
        std::wstring piece = Trimmed(text.substr(start, end - start));
        if (!piece.empty()) masks_.push_back(platform::ToLower(piece));
        start = end + 1;
    }
}

bool CArchiveCompress::FilterProc(FSObject candidate, void *userData) {
    auto *self = static_cast<CArchiveCompress *>(userData);
    archive::ScopedStringRef path;
    if (!self || !self->list_ || AcquirePathFromFSObject(candidate, path.Out()) != 0) return true;
    return self->Passes(TextOf(path.Get()));
}

bool CArchiveCompress::Passes(const std::wstring &path) {
    // A file named in the list is taken whatever the filter says.
    for (const std::wstring &file : list_->Files) {
        if (file == path) return true;
    }
    if (!list_->Filter) return true;
    DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) attributes = 0;
    if (attributes & FILE_ATTRIBUTE_DIRECTORY)
        return list_->Filter->SystemAndHidden || !(attributes & kHiddenOrSystem);
    return FilePasses(path, attributes);
}

bool CArchiveCompress::FilePasses(const std::wstring &path, DWORD attributes) {
    const CFilterObject &filter = *list_->Filter;
    if (!masks_.empty()) {
        std::wstring name = platform::ToLower(platform::FileNamePart(path));
        bool fits = false;
        for (const std::wstring &mask : masks_) {
            if (PathMatchSpecW(name.c_str(), mask.c_str())) fits = true;
        }
        if (!fits) return false;
    }
    if (!filter.SystemAndHidden && (attributes & kHiddenOrSystem)) return false;
    if (filter.AddArchived) {
        if (!(attributes & FILE_ATTRIBUTE_ARCHIVE)) return false;
        // Cleared now, even when a later test leaves the file out.
        if (filter.ResetArchived)
            SetFileAttributesW(path.c_str(), attributes & ~FILE_ATTRIBUTE_ARCHIVE);
    }
    return !filter.ByDate || DatePasses(path);
}

bool CArchiveCompress::DatePasses(const std::wstring &path) {
    const CFilterObject &filter = *list_->Filter;
    WIN32_FIND_DATAW found = {};
    HANDLE search = FindFirstFileW(path.c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return false;
    FindClose(search);
    FILETIME limit = {};
    if (filter.DateType == kFilterDateSinceDays) {
        if (dateLimit_.wYear == 0) {
            limit = filter.SinceLimit();
            FileTimeToSystemTime(&limit, &dateLimit_);
        }
        SystemTimeToFileTime(&dateLimit_, &limit);
    }
    return filter.DatePasses(found.ftLastWriteTime, limit);
}
