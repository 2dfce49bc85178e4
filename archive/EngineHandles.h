// Scoped engine handles for the archive code: each releases what it holds
// when it goes, so that every path out of a function gives back what was
// acquired, in reverse order of acquisition (declare them in the order of
// acquiring).
#pragma once

#include "VarnickEngine.h"

namespace archive {

template <typename Handle, auto Release>
class EngineHandle {
public:
    EngineHandle() = default;
    ~EngineHandle() { Reset(); }
    EngineHandle(const EngineHandle &) = delete;
    EngineHandle &operator=(const EngineHandle &) = delete;

    // For the engine's "out" argument.
    Handle *Out() { return &handle_; }
    Handle Get() const { return handle_; }
    explicit operator bool() const { return handle_ != nullptr; }
    // Releases the handle now.
    void Reset() {
        if (handle_) Release(handle_);
        handle_ = nullptr;
    }

private:
    Handle handle_ = nullptr;
};

using ScopedFSObject = EngineHandle<FSObject, DisposeFSObject>;
using ScopedFSObjectList = EngineHandle<FSObjectList, DisposeFSObjectList>;
using ScopedStringRef = EngineHandle<StringRef, DisposeStringRef>;
using ScopedArchive = EngineHandle<EngineArchive, ReleaseArchive>;
using ScopedArchiveObject = EngineHandle<ArchiveObject, ReleaseArchiveObject>;
using ScopedArchiveObjectList = EngineHandle<ArchiveObjectList, DisposeArchiveObjectList>;
using ScopedArchiveIterator = EngineHandle<ArchiveIterator, DisposeArchiveIterator>;

// An archive opened for the length of a scope: closed when it goes, before
// the ScopedArchive declared ahead of it releases it.
class OpenedArchive {
public:
    OpenedArchive() = default;
    ~OpenedArchive() {
        if (archive_) CloseArchive(archive_);
    }
    OpenedArchive(const OpenedArchive &) = delete;
    OpenedArchive &operator=(const OpenedArchive &) = delete;

    // Marks `archive` as open, once its open call succeeded.
    void Opened(EngineArchive archive) { archive_ = archive; }

private:
    EngineArchive archive_ = nullptr;
};

}  // namespace archive
