#include "CArchiveExtract.h"

#include <cstdlib>

#include "CAppOptionsRepository.h"
#include "CArchive.h"
#include "CArchiveExpand.h"
#include "CArchiveObject.h"
#include "CFSUtils.h"
#include "CLogging.h"
#include "CProgressDialog.h"
#include "EngineHandles.h"
#include "FormatCatalogue.h"
#include "SDKUtils.h"
#include "platform/Win32.h"

namespace {

constexpr const wchar_t *kUnit = L".\\CArchiveExtract";
constexpr const char *kThumbPrefix = "thumb";

void LogFailure(const wchar_t *function, unsigned line, EngineResult code, const wchar_t *call) {
    CLogging::Err(function, line, kUnit, static_cast<unsigned>(code), true, call);
}

bool IsThumbFork(const char *fork) {
    return fork && std::string_view(fork).starts_with(kThumbPrefix);
}

// A thumbnail buffer is reused while it holds the fork and its spare byte;
// every other fork gets a buffer of its own.
BYTE *ForkBuffer(const char *fork, BYTE *buffer, std::uint64_t capacity, std::uint64_t size) {
    std::uint64_t needed = size + 1;
    if (!IsThumbFork(fork)) return static_cast<BYTE *>(std::malloc(needed));
    if (!buffer) return static_cast<BYTE *>(std::malloc(needed));
    if (capacity < needed) return static_cast<BYTE *>(std::realloc(buffer, needed));
    return buffer;
}

// The item at `item`, or null with 0 when the archive no longer holds it.
EngineResult AcquireItem(EngineArchive archive, const wchar_t *item, ArchiveObject *object) {
    archive::ScopedStringRef path;
    EngineResult status =
        NewStringRefFromUnicodeString(expanding::EnginePath(item).c_str(), path.Out());
    if (status == 0) status = AcquireArchiveObjectFromPath(archive, path.Get(), object);
    return status == kEngineNoMoreObjects ? 0 : status;
}

template <typename Handle>
void Dispose(Handle &handle, EngineResult (*release)(Handle)) {
    if (handle) release(handle);
    handle = nullptr;
}

}  // namespace

CArchiveExtract::CArchiveExtract(CArchiveObject *object, CArchive *archive)
    : object_(object), archive_(archive) {}

CArchiveExtract::~CArchiveExtract() { CloseExtract(); }

void CArchiveExtract::Extract(std::vector<std::wstring> *items, const wchar_t *destination) {
    static constexpr const wchar_t *kFunction = L"CArchiveExtract::Extract";
    itemSelection_ = items;
    destination_ = destination ? destination : L"";
    OpaqueEngineObject *engine = object_->Engine();
    expanding::SetExpandProperties(engine, archive_->appOptions, kFunction);

    archive::ScopedStringRef password;
    archive::ScopedFSObject file;
    archive::ScopedFSObject target;
    archive::ScopedArchive acquired;
    archive::OpenedArchive opened;
    archive::ScopedArchiveObject root;
    archive::ScopedArchiveObjectList list;
    EngineResult status = 0;
    if (!archive_->password.empty())
        status = NewStringRefFromUnicodeString(archive_->password.c_str(), password.Out());
    if (status == 0) status = NewFSObjectFromUnicodePath(archive_->name.c_str(), file.Out());
    if (status == 0 && !destination_.empty())
        status = NewFSObjectFromUnicodePath(destination_.c_str(), target.Out());
    if (status == 0) status = AcquireArchive(engine, file.Get(), acquired.Out());
    if (status == 0) {
        GetFormatID(archive_->formatType, archive_->formatId);
        uint16_t mode = 0;
        GetArchiveFormatMaximumAccessMode(engine, archive_->formatId, &mode);
        status = OpenEncryptedArchive(engine, acquired.Get(), kEngineAccessRead, password.Get());
        if (status == 0) opened.Opened(acquired.Get());
    }
    if (status == 0) status = AcquireRootArchiveObject(acquired.Get(), root.Out());
    if (status == 0) status = NewArchiveObjectList(engine, list.Out());
    if (status) LogFailure(kFunction, __LINE__, status, L"OpenEncryptedArchive()");
    if (status == 0) status = CollectItems(acquired.Get(), list.Get());
    if (status == 0 && CountArchiveObjectList(list.Get()) > 0)
        status = ExpandList(list.Get(), target.Get(), password.Get());
    if (status && status != kEngineCancelled)
        LogFailure(kFunction, __LINE__, status, L"ExpandArchiveObjects()");
    if (status && archive_->showProgress) ShowFailure(status);
}

EngineResult CArchiveExtract::CollectItems(EngineArchive archive, ArchiveObjectList list) {
    if (!itemSelection_) return 0;
    for (const std::wstring &item : *itemSelection_) {
        EngineResult status = AddItem(archive, item.c_str(), list);
        if (status) return status;
    }
    return 0;
}

EngineResult CArchiveExtract::AddItem(EngineArchive archive, const wchar_t *item,
                                      ArchiveObjectList list) {
    archive::ScopedArchiveObject object;
    EngineResult status = AcquireItem(archive, item, object.Out());
    if (status == 0 && object) status = AddToArchiveObjectList(object.Get(), list);
    return status;
}

EngineResult CArchiveExtract::ExpandList(ArchiveObjectList list, FSObject destination,
                                         StringRef password) {
    archive::ScopedFSObjectList expanded;
    EngineResult status =
        ExpandArchiveObjects(object_->Engine(), list, destination, expanded.Out(), password);
    if (status == 0) expanding::ScanExpanded(expanded.Get(), archive_->appOptions);
    return status;
}

bool CArchiveExtract::OpenForExtract() {
    static constexpr const wchar_t *kFunction = L"CArchiveExtract::OpenForExtract";
    OpaqueEngineObject *engine = object_->Engine();
    if (!engine || archive_->name.empty()) {
        CLogging::Err(kFunction, __LINE__, kUnit, 0, false, L"No engien or no archive");
        openResult_ = kEngineInvalidParameter;
        return false;
    }
    EngineResult status = 0;
    if (!archive_->password.empty())
        status = NewStringRefFromUnicodeString(archive_->password.c_str(), &password_);
    if (status == 0) status = NewFSObjectFromUnicodePath(archive_->name.c_str(), &archiveFile_);
    if (status == 0) status = AcquireArchive(engine, archiveFile_, &openArchive_);
    if (status == 0) {
        uint16_t mode = 0;
        GetArchiveFormatMaximumAccessMode(engine, archive_->formatId, &mode);
        status = OpenEncryptedArchive(engine, openArchive_, kEngineAccessRead, password_);
    }
    if (status == 0) status = AcquireRootArchiveObject(openArchive_, &root_);
    openResult_ = status;
    archive_->lastResult = status;
    if (status) {
        LogFailure(kFunction, __LINE__, status, L"OpenEncryptedArchive()");
        if (archive_->showProgress) ShowFailure(status);
    }
    return status == 0;
}

void CArchiveExtract::CloseExtract() {
    Dispose(tempDestination_, DisposeFSObject);
    Dispose(root_, ReleaseArchiveObject);
    Dispose(openArchive_, CloseArchive);
    Dispose(archiveFile_, DisposeFSObject);
    Dispose(password_, DisposeStringRef);
}

bool CArchiveExtract::ExtractToTemp(const wchar_t *item) {
    static constexpr const wchar_t *kFunction = L"CArchiveExtract::ExtractToTemp";
    const std::wstring &folder = archive_->tempFolder;
    CFSUtils::ForceDirectories(folder.c_str());
    OpaqueEngineObject *engine = object_->Engine();
    expanding::SetExpandProperties(engine, archive_->appOptions, kFunction);
    if (!IsOpen()) OpenForExtract();
    EngineResult status = openResult_;
    bool extracted = false;
    if (IsOpen()) {
        status = 0;
        if (!tempDestination_ && !folder.empty())
            status = NewFSObjectFromUnicodePath(folder.c_str(), &tempDestination_);
        archive::ScopedArchiveObjectList list;
        if (status == 0) status = NewArchiveObjectList(engine, list.Out());
        if (status == 0) status = AddItem(openArchive_, item, list.Get());
        if (status == 0 && CountArchiveObjectList(list.Get()) > 0) {
            status = ExpandList(list.Get(), tempDestination_, password_);
            extracted = status == 0;
        }
        if (status) LogFailure(kFunction, __LINE__, status, L"ExpandArchiveObjects()");
    }
    archive_->lastResult = status;
    if (status) ShowFailure(status);
    return extracted;
}

std::uint64_t CArchiveExtract::ExtractForkObjectData(const wchar_t *item, const char *fork,
                                                     BYTE **buffer, std::uint64_t capacity) {
    static constexpr const wchar_t *kFunction = L"CArchiveExtract::ExtractForkObjectData";
    if (!IsOpen()) OpenForExtract();
    EngineResult status = 0;
    std::uint64_t count = 0;
    if (!IsOpen()) {
        status = openResult_;
        CLogging::Err(kFunction, __LINE__, kUnit, static_cast<unsigned>(status), true,
                      L"OpenForExtract");
    } else {
        archive::ScopedArchiveObject object;
        status = AcquireItem(openArchive_, item, object.Out());
        if (status == 0 && object) status = ReadFork(object.Get(), fork, buffer, capacity, &count);
        if (status) LogFailure(kFunction, __LINE__, status, L"GetArchiveObjectForkData()");
    }
    archive_->lastResult = status;
    if (status && archive_->showProgress) ShowFailure(status);
    return status == 0 ? count : 0;
}

EngineResult CArchiveExtract::ReadFork(ArchiveObject object, const char *fork, BYTE **buffer,
                                       std::uint64_t capacity, std::uint64_t *count) {
    ArchiveObjectFork handle = nullptr;
    EngineResult status = GetArchiveObjectFork(object, fork, &handle);
    if (status == kEngineNoSuchFork) return 0;
    std::uint64_t size = 0;
    if (status == 0) status = GetArchiveObjectForkSize(handle, &size);
    if (status || size == 0 || !buffer) return status;
    BYTE *data = ForkBuffer(fork, *buffer, capacity, size);
    if (!data) return kEngineOutOfMemory;
    *buffer = data;
    status = GetArchiveObjectForkData(object_->Engine(), handle, data,
                                      static_cast<uint32_t>(size & 0xFFFFFFFFu),
                                      static_cast<uint32_t>(size >> 32), count, password_);
    if (status == 0) *count = size;
    return status;
}

bool CArchiveExtract::Remove(std::vector<std::wstring> *items) {
    static constexpr const wchar_t *kFunction = L"CArchiveExtract::Remove";
    OpaqueEngineObject *engine = object_->Engine();
    archive::ScopedFSObject file;
    archive::ScopedArchive acquired;
    archive::ScopedStringRef password;
    EngineResult status = NewFSObjectFromUnicodePath(archive_->name.c_str(), file.Out());
    if (status == 0) status = AcquireArchive(engine, file.Get(), acquired.Out());
    if (status == 0 && !archive_->password.empty()) {
        status = NewStringRefFromUnicodeString(archive_->password.c_str(), password.Out());
        EngineFormatId formatId = {};
        if (status == 0 && DetermineFileFormat(engine, file.Get(), formatId) == 0)
            archive_->formatType = GetFormatType(formatId);
    }
    if (status) LogFailure(kFunction, __LINE__, status, L"AcquireArchive()");
    if (status == 0) status = OpenForChange(acquired.Get());
    bool removed = false;
    if (status == kEngineCancelled)
        status = 0;  // the user's choice; nothing to show
    else if (status == 0) {
        archive::OpenedArchive opened;
        opened.Opened(acquired.Get());
        archive::ScopedArchiveObjectList list;
        status = NewArchiveObjectList(engine, list.Out());
        for (size_t index = 0; status == 0 && items && index < items->size(); ++index) {
            EngineResult added = AddItem(acquired.Get(), (*items)[index].c_str(), list.Get());
            if (added) LogFailure(kFunction, __LINE__, added, L"AcquireArchiveObjectFromPath()");
        }
        if (status == 0) status = DeleteArchiveObjects(engine, list.Get(), password.Get());
        if (status) LogFailure(kFunction, __LINE__, status, L"DeleteArchiveObjects()");
        removed = status == 0;
    }
    if (archive_->refreshAfterChange) archive_->GetArchiveInfo(false);
    if (status) ShowFailure(status);
    return removed;
}

EngineResult CArchiveExtract::OpenForChange(EngineArchive archive) {
    for (;;) {
        EngineResult status = OpenArchive(object_->Engine(), archive, kEngineAccessChange);
        if (status == 0) return 0;
        // The password notification asked the user; a refusal ends as a cancel.
        if (status == kEnginePasswordNeeded) continue;
        archive_->cancelled = true;
        if (status != kEngineCancelled)
            LogFailure(L"CArchiveExtract::Remove", __LINE__, status, L"OpenArchive()");
        return status;
    }
}

void CArchiveExtract::ShowFailure(EngineResult code) const {
    if (object_->progressDialog) object_->progressDialog->StopTimer();
    EngineErrorDialog(archive_->name.c_str(), code, false);
}
