// The plain handle kinds: strings, paths, path lists and notification
// contexts. The archive kinds live in Archive.h.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "Object.h"
#include "VarnickEngine.h"

struct OpaqueStringRef : engine::Object {
    static constexpr engine::Kind kKind = engine::Kind::StringRef;
    explicit OpaqueStringRef(std::wstring text) : Object(kKind), text(std::move(text)) {}
    const std::wstring text;
};

struct OpaqueFSObject : engine::Object {
    static constexpr engine::Kind kKind = engine::Kind::FSObject;
    explicit OpaqueFSObject(std::wstring path) : Object(kKind), path(std::move(path)) {}
    const std::wstring path;  // absolute, without a trailing separator (but "/")
    std::wstring Name() const;
    std::string Native() const;  // the path as the system takes it
};

struct OpaqueFSObjectList : engine::Object {
    static constexpr engine::Kind kKind = engine::Kind::FSObjectList;
    OpaqueFSObjectList() : Object(kKind) {}
    mutable std::mutex mutex;
    std::vector<engine::Ref<OpaqueFSObject>> items;
};

// The data of one notification: handles and counters by key. Keys 11 and 12
// are the ones a procedure may write.
struct OpaqueNotificationContext : engine::Object {
    static constexpr engine::Kind kKind = engine::Kind::Context;
    OpaqueNotificationContext() : Object(kKind) {}
    ~OpaqueNotificationContext() override;

    struct Slot {
        bool counter = false;
        void *handle = nullptr;
        std::uint64_t value = 0;
    };
    std::map<std::int32_t, Slot> slots;
    // What the procedure wrote under keys 11 and 12; the engine owns it.
    engine::Object *written[2] = {nullptr, nullptr};

    void PutHandle(std::int32_t key, void *handle) { slots[key] = Slot{false, handle, 0}; }
    void PutCounter(std::int32_t key, std::uint64_t value) {
        slots[key] = Slot{true, nullptr, value};
    }
    // Takes over what was written under key 11 or 12, if it is of `kind`.
    engine::Object *TakeWritten(std::int32_t key, engine::Kind kind);
};

namespace engine {

// The handle when it is a live object of its kind, else null.
template <class Handle>
Handle *Checked(Handle *handle) {
    return IsLive(handle, Handle::kKind) ? handle : nullptr;
}

Ref<OpaqueStringRef> NewString(std::wstring text);
// An absolute, tidy form of `path` (relative paths are taken from the
// current folder).
Ref<OpaqueFSObject> NewFSObject(const std::wstring &path);
Ref<OpaqueFSObject> NewFSObjectNative(const std::string &path);

// Conversions between the wide text of the surface and UTF-8.
std::string Utf8(const std::wstring &text);
std::wstring Wide(const std::string &text);
// UTF-8 when the bytes are valid UTF-8, else each byte as a Latin-1 character.
std::wstring WideFromStoredName(const std::string &bytes);

}  // namespace engine
