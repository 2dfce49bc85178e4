#include "CArchiveInfo.h"

#include <string>

#include "CAppUtils.h"
#include "CArchive.h"
#include "CArchiveObject.h"
#include "CEngine.h"
#include "CFSUtils.h"
#include "CLogging.h"
#include "CPassword.h"
#include "CProgressDialog.h"
#include "EngineHandles.h"
#include "SDKUtils.h"
#include "platform/Win32.h"

namespace {

constexpr const wchar_t *kUnit = L".\\CArchiveInfo";
constexpr unsigned kFileNotFoundText = 2200;
constexpr unsigned kOneItemText = 2201;
constexpr EngineResult kFormatLacksProperty = 17998;
constexpr EngineResult kAccessDenied = 5;
// An encrypted archive asks again through (200,9) at each open; a bound
// keeps a notification that never answers from turning it into a loop.
constexpr int kMostOpenAttempts = 64;

void LogFailure(const wchar_t *function, unsigned line, EngineResult code, const wchar_t *call) {
    CLogging::Err(function, line, kUnit, static_cast<unsigned>(code), true, call);
}

bool MeansZero(EngineResult status) {
    return status == kEnginePropertyAbsent || status == kFormatLacksProperty;
}

bool ModeRefused(EngineResult status) {
    return status == kEngineReadOnlyMedium || status == kFormatLacksProperty ||
           status == kAccessDenied;
}

std::wstring TextOf(StringRef text) {
    const wchar_t *chars = GetUnicodeStringFromStringRef(text);
    return chars ? chars : L"";
}

// A 64-bit property; absent counts as 0.
EngineResult ReadSize(ArchiveObject item, const char *property, std::uint64_t &value) {
    int64_t read = 0;
    EngineResult status = GetArchiveObjectIntegerProperty(item, property, &read);
    value = status == 0 ? static_cast<std::uint64_t>(read) : 0;
    return MeansZero(status) ? 0 : status;
}

// The handles of one archive, released in reverse order of acquisition:
// the root, the open state (closing commits a change), the password, the
// archive, the file.
struct ArchiveHandles {
    archive::ScopedFSObject file;
    archive::ScopedArchive archive;
    archive::ScopedStringRef password;
    archive::OpenedArchive open;
    archive::ScopedArchiveObject root;

    // The file object and the archive bound to it.
    EngineResult Acquire(OpaqueEngineObject *engine, const std::wstring &path) {
        EngineResult status = NewFSObjectFromUnicodePath(path.c_str(), file.Out());
        if (status == 0) status = AcquireArchive(engine, file.Get(), archive.Out());
        return status;
    }
};

// The archive opened for a change in place: with the known password, in
// mode 255.
EngineResult OpenForChange(OpaqueEngineObject *engine, const CArchive &owner,
                           ArchiveHandles &opened, const wchar_t *function) {
    EngineResult status = opened.Acquire(engine, owner.name);
    if (status) {
        LogFailure(function, __LINE__, status, L"AcquireArchive()");
        return status;
    }
    if (!owner.password.empty()) {
        NewStringRefFromUnicodeString(owner.password.c_str(), opened.password.Out());
    }
    status = OpenEncryptedArchive(engine, opened.archive.Get(), kEngineAccessChange,
                                  opened.password.Get());
    if (status) {
        LogFailure(function, __LINE__, status, L"OpenEncryptedArchive()");
        return status;
    }
    opened.open.Opened(opened.archive.Get());
    return 0;
}

}  // namespace

CArchiveInfo::CArchiveInfo(CArchiveObject *object, CArchive *archive)
    : object_(object), archive_(archive) {
    object_->items.clear();
    archive_->itemTree = nullptr;
}

CArchiveInfo::~CArchiveInfo() = default;

namespace {

OpaqueEngineObject *EngineOf(const CArchive &archive) {
    return archive.engine ? archive.engine->GetEngine() : nullptr;
}

}  // namespace

bool CArchiveInfo::GetInfo() {
    static constexpr const wchar_t *kFunction = L"CArchiveInfo::GetInfo";
    CArchive &archive = *archive_;
    OpaqueEngineObject *engine = EngineOf(archive);
    object_->stop = false;
    if (!engine || archive.name.empty()) {
        CLogging::Err(kFunction, __LINE__, kUnit, 0, false, L"No engine or no archive");
        return false;
    }
    WIN32_FIND_DATAW found = {};
    HANDLE find = FindFirstFileW(archive.name.c_str(), &found);
    if (find == INVALID_HANDLE_VALUE) {
        archive.lastResult = ERROR_FILE_NOT_FOUND;
        if (!archive.silent) {
            std::wstring text =
                FormatW(CAppUtils::LoadString(kFileNotFoundText).c_str(), archive.name.c_str());
            CAppUtils::MsgBox(text.c_str(), 230, MB_OK | MB_ICONEXCLAMATION, archive.parentWindow);
        }
        return false;
    }
    FindClose(find);
    object_->archiveDate = found.ftLastWriteTime;
    const std::uint64_t fileSize =
        (static_cast<std::uint64_t>(found.nFileSizeHigh) << 32) | found.nFileSizeLow;
    archive.archiveSize = fileSize;

    ArchiveHandles handles;
    EngineResult status = handles.Acquire(engine, archive.name);
    if (status) {
        LogFailure(kFunction, __LINE__, status, L"AcquireArchive()");
        archive.lastResult = status;
        object_->stop = true;
        return false;
    }
    status = DetermineFileFormat(engine, handles.file.Get(), archive.formatId);
    if (status) {
        LogFailure(kFunction, __LINE__, status, L"DetermineFileFormat()");
        GetFormatID(archive.formatType, archive.formatId);
    }
    archive.formatType = GetFormatType(static_cast<const char *>(archive.formatId));
    uint16_t mode = kEngineAccessRead;
    status = GetArchiveFormatMaximumAccessMode(engine, archive.formatId, &mode);
    if (status) LogFailure(kFunction, __LINE__, status, L"GetArchiveFormatMaximumAccessMode()");

    if (!Viewable(archive.formatType)) {
        if (archive.formatType == format::exe) {
            archive.lastResult = kEngineNotAnArchive;
            object_->stop = true;
            return false;
        }
        if (!(GetFormatCapabilities(archive.formatType) & kFormatHoldsManyItems)) {
            archive.fileCount = 1;
        }
        archive.compressedSize = fileSize;
        archive.modeText = CAppUtils::LoadString(kOneItemText);
        archive.accessMode = kEngineAccessRead;
        archive.lastResult = 0;
        return true;
    }

    for (int attempt = 0;; ++attempt) {
        status = OpenArchive(engine, handles.archive.Get(), mode);
        if (status == 0) break;
        if (ModeRefused(status) && mode == kEngineAccessChange) {
            mode = kEngineAccessRead;
            continue;
        }
        if (status == kEnginePasswordNeeded && attempt < kMostOpenAttempts) continue;
        if (status == kEngineCancelled) {
            status = 0;
        } else {
            CLogging::Err(kFunction, __LINE__, kUnit, static_cast<unsigned>(status), true,
                          FormatW(L"OpenArchive %s", archive.name.c_str()).c_str());
        }
        object_->stop = true;
        archive.lastResult = status;
        return false;
    }
    handles.open.Opened(handles.archive.Get());
    status = AcquireRootArchiveObject(handles.archive.Get(), handles.root.Out());
    if (status) {
        LogFailure(kFunction, __LINE__, status, L"AcquireRootArchiveObject()");
        archive.lastResult = status;
        return false;
    }
    archive.modeText = GetArchiveModeString(mode);
    archive.accessMode = mode;
    // A self-extracting file is never changed in place.
    if (CFSUtils::CheckFileExtension(archive.name.c_str(), L".exe") ||
        CFSUtils::CheckFileExtension(archive.name.c_str(), L".sea")) {
        archive.accessMode = kEngineAccessRead;
    }
    archive.readOnly = (found.dwFileAttributes & FILE_ATTRIBUTE_READONLY) != 0;

    archive.compressedSize = fileSize;
    if (ArchiveObjectHasProperty(handles.root.Get(), kItemPropCompressedSize)) {
        status = ReadSize(handles.root.Get(), kItemPropCompressedSize, archive.compressedSize);
        if (status) LogFailure(kFunction, __LINE__, status, L"GetArchiveObjectIntegerProperty()");
    }
    status = ReadSize(handles.root.Get(), kItemPropExpandedSize, archive.expandedSize);
    if (status) LogFailure(kFunction, __LINE__, status, L"GetArchiveObjectIntegerProperty()");

    if (archive.formatType == format::vnkx) archive.encrypted = !archive.password.empty();
    archive.comment.clear();
    if (ArchiveObjectHasProperty(handles.root.Get(), kItemPropComments)) {
        archive::ScopedStringRef comment;
        status = AcquireArchiveObjectStringProperty(handles.root.Get(), kItemPropComments,
                                                    comment.Out());
        if (status == 0) {
            archive.comment = TextOf(comment.Get());
        } else if (status != kEnginePropertyAbsent) {
            LogFailure(kFunction, __LINE__, status, L"AcquireArchiveObjectStringProperty()");
        }
    }

    archive.fileCount = 0;
    archive.folderCount = 1;
    status = TraverseDirectory(handles.root.Get(), L"", true);
    archive.itemTree = object_->items.empty() ? nullptr : object_->items.data();
    archive.lastResult = status;
    return status == 0;
}

EngineResult CArchiveInfo::TraverseDirectory(ArchiveObject folder, const std::wstring &prefix,
                                             bool checkEncrypted) {
    static constexpr const wchar_t *kFunction = L"CArchiveInfo::TraverseDirectory";
    CArchive &archive = *archive_;
    archive::ScopedArchiveIterator iterator;
    EngineResult status = NewArchiveIterator(folder, iterator.Out());
    if (status) {
        LogFailure(kFunction, __LINE__, status, L"NewArchiveIterator()");
        EngineErrorDialog(archive.name.c_str(), status, archive.silent);
        return status;
    }
    while (!object_->cancel) {
        archive::ScopedArchiveObject item;
        status = AcquireNextArchiveObject(iterator.Get(), item.Out());
        if (status) break;

        archive::ScopedStringRef nameRef;
        status = AcquireArchiveObjectStringProperty(item.Get(), kItemPropName, nameRef.Out());
        if (status)
            LogFailure(kFunction, __LINE__, status, L"AcquireArchiveObjectStringProperty()");
        std::wstring itemName = TextOf(nameRef.Get());
        bool isFolder = false;
        status = GetArchiveObjectBooleanProperty(item.Get(), kItemPropFolder, &isFolder);
        if (status) LogFailure(kFunction, __LINE__, status, L"GetArchiveObjectBooleanProperty()");

        std::wstring path = prefix;
        if (!path.empty() && path.back() != kPathSep) path += kPathSep;
        path += itemName;

        if (isFolder) {
            archive.folderCount++;
            object_->items.emplace_back(L"", path + kPathSep);
            status = TraverseDirectory(item.Get(), path, checkEncrypted);
            if (status) return status;
            continue;
        }

        CArchiveItem row(itemName, path);
        archive.fileCount++;
        status = 0;
        if (ArchiveObjectHasProperty(item.Get(), kItemPropCompressedSize)) {
            status = ReadSize(item.Get(), kItemPropCompressedSize, row.compressedSize);
        }
        if (status == 0) status = ReadSize(item.Get(), kItemPropExpandedSize, row.expandedSize);
        if (status == 0) {
            status = GetArchiveObjectDateTimeProperty(item.Get(), kItemPropModificationDate,
                                                      &row.modificationDate);
            if (MeansZero(status)) status = 0;
        }
        if (status == kEngineCancelled) break;
        if (status) LogFailure(kFunction, __LINE__, status, L"GetArchiveObjectIntegerProperty()");

        if (checkEncrypted && ArchiveObjectHasProperty(item.Get(), kItemPropEncrypted)) {
            GetArchiveObjectBooleanProperty(item.Get(), kItemPropEncrypted, &row.encrypted);
            if (row.encrypted) {
                archive.encrypted = true;
                if (archive.formatType == format::zip && archive.password.empty() &&
                    !object_->passwordPromptCancelled) {
                    CPassword prompt(archive.parentWindow, archive.name.c_str(), false, false);
                    if (prompt.Run()) {
                        archive.password = prompt.password;
                    } else {
                        object_->passwordPromptCancelled = true;
                        object_->stop = true;
                    }
                }
            }
        }
        object_->items.push_back(row);
    }
    if (status == kEngineNoMoreObjects) status = 0;
    if (status && status != kEngineCancelled) {
        if (object_->progressDialog) object_->progressDialog->StopTimer();
        EngineErrorDialog(archive.name.c_str(), status, archive.silent);
    }
    return status;
}

bool CArchiveInfo::TraverseDirectoryForEncryption(ArchiveObject folder,
                                                  const std::wstring &prefix) {
    archive::ScopedArchiveIterator iterator;
    if (NewArchiveIterator(folder, iterator.Out())) return false;
    while (!object_->cancel) {
        archive::ScopedArchiveObject item;
        if (AcquireNextArchiveObject(iterator.Get(), item.Out())) return false;
        bool encrypted = false;
        if (ArchiveObjectHasProperty(item.Get(), kItemPropEncrypted) &&
            GetArchiveObjectBooleanProperty(item.Get(), kItemPropEncrypted, &encrypted) == 0 &&
            encrypted) {
            return true;
        }
        bool isFolder = false;
        GetArchiveObjectBooleanProperty(item.Get(), kItemPropFolder, &isFolder);
        if (isFolder && TraverseDirectoryForEncryption(item.Get(), prefix)) return true;
    }
    return false;
}

bool CArchiveInfo::Viewable(format::type type) const {
    switch (type) {
        // One compressed stream: the file itself is the only item.
        case format::lzma:
        case format::z:
        case format::gz:
        case format::bz2:
        // Told by their content, but the engine cannot list them.
        case format::freeze:
        case format::sco:
        case format::cpt:
        case format::compact:
        case format::exe:
        case format::vidx:
            return false;
        default:
            return type >= format::zip && type <= format::vidx;
    }
}

bool CArchiveInfo::IsEncrypted() {
    static constexpr const wchar_t *kFunction = L"CArchiveInfo::IsEncrypted";
    CArchive &archive = *archive_;
    OpaqueEngineObject *engine = EngineOf(archive);
    if (!engine || archive.name.empty()) {
        CLogging::Err(kFunction, __LINE__, kUnit, 0, false, L"No engine or no archive");
        return false;
    }
    ArchiveHandles handles;
    EngineResult status = handles.Acquire(engine, archive.name);
    if (status == 0) status = OpenArchive(engine, handles.archive.Get(), kEngineAccessRead);
    if (status == kEnginePasswordNeeded) {
        archive.encrypted = true;
        archive.lastResult = 0;
        return true;
    }
    if (status) {
        LogFailure(kFunction, __LINE__, status, L"OpenArchive()");
        archive.lastResult = status;
        return false;
    }
    handles.open.Opened(handles.archive.Get());
    // Only the items of a vnkx archive are looked at; for the others an open
    // that needs no password is the answer.
    if (GetFormatType(archive.name.c_str()) != format::vnkx) return archive.encrypted = false;
    status = AcquireRootArchiveObject(handles.archive.Get(), handles.root.Out());
    if (status) {
        LogFailure(kFunction, __LINE__, status, L"AcquireRootArchiveObject()");
        return false;
    }
    archive.encrypted = TraverseDirectoryForEncryption(handles.root.Get(), L"");
    return archive.encrypted;
}

bool CArchiveInfo::IsArchiveSelfExtracting(const wchar_t *path) { return IsExeASea(path); }

bool CArchiveInfo::RenameArchiveItem(const wchar_t *oldPath, const wchar_t *newName) {
    static constexpr const wchar_t *kFunction = L"CArchiveInfo::RenameArchiveItem";
    ArchiveHandles opened;
    EngineResult status = OpenForChange(EngineOf(*archive_), *archive_, opened, kFunction);
    if (status) {
        archive_->lastResult = status;
        return false;
    }
    archive::ScopedStringRef oldRef;
    archive::ScopedStringRef newRef;
    archive::ScopedArchiveObject item;
    status = NewStringRefFromUnicodeString(CFSUtils::ConvertToSlashes(oldPath), oldRef.Out());
    if (status == 0) status = NewStringRefFromUnicodeString(newName, newRef.Out());
    if (status == 0)
        status = AcquireArchiveObjectFromPath(opened.archive.Get(), oldRef.Get(), item.Out());
    if (status == 0)
        status = SetArchiveObjectStringProperty(item.Get(), kItemPropName, newRef.Get());
    if (status) LogFailure(kFunction, __LINE__, status, L"SetArchiveObjectStringProperty()");
    archive_->lastResult = status;
    return status == 0;
}

bool CArchiveInfo::GetVnkxComment() {
    static constexpr const wchar_t *kFunction = L"CArchiveInfo::GetVnkxComment";
    ArchiveHandles opened;
    EngineResult status = OpenForChange(EngineOf(*archive_), *archive_, opened, kFunction);
    if (status == 0) status = AcquireRootArchiveObject(opened.archive.Get(), opened.root.Out());
    archive::ScopedStringRef comment;
    if (status == 0) {
        status =
            AcquireArchiveObjectStringProperty(opened.root.Get(), kItemPropComments, comment.Out());
    }
    if (status == kEnginePropertyAbsent) status = 0;
    if (status) LogFailure(kFunction, __LINE__, status, L"AcquireArchiveObjectStringProperty()");
    if (status == 0) archive_->comment = TextOf(comment.Get());
    archive_->lastResult = status;
    return status == 0;
}

bool CArchiveInfo::SetVnkxComment(const wchar_t *text) {
    static constexpr const wchar_t *kFunction = L"CArchiveInfo::SetVnkxComment";
    ArchiveHandles opened;
    EngineResult status = OpenForChange(EngineOf(*archive_), *archive_, opened, kFunction);
    if (status == 0) status = AcquireRootArchiveObject(opened.archive.Get(), opened.root.Out());
    archive::ScopedStringRef comment;
    if (status == 0) status = NewStringRefFromUnicodeString(text ? text : L"", comment.Out());
    if (status == 0) {
        status =
            SetArchiveObjectStringProperty(opened.root.Get(), kItemPropComments, comment.Get());
    }
    if (status) LogFailure(kFunction, __LINE__, status, L"SetArchiveObjectStringProperty()");
    archive_->lastResult = status;
    return status == 0;
}

bool CArchiveInfo::IsFirstVnkxSegment() {
    archive::ScopedFSObject file;
    if (NewFSObjectFromUnicodePath(archive_->name.c_str(), file.Out())) return false;
    return IsFirstSegmentFSObject(EngineOf(*archive_), file.Get());
}
