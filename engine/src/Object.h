// Reference-counted objects behind the opaque handles of the C surface.
//
// Every handle is the address of an Object. Objects register themselves while
// alive, so an entry point can refuse a handle that was never given out, was
// given back already, or is of another kind, instead of following it.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

namespace engine {

enum class Kind : std::uint32_t {
    Session = 1,
    ConflictAnswer,
    FSObject,
    FSObjectList,
    Archive,
    ArchiveObject,
    ArchiveObjectList,
    Iterator,
    Fork,
    StringRef,
    Context,
    Filter,
};

class Object {
public:
    explicit Object(Kind kind);
    virtual ~Object();
    Object(const Object &) = delete;
    Object &operator=(const Object &) = delete;

    Kind kind() const { return kind_; }
    void Retain() { refs_.fetch_add(1, std::memory_order_relaxed); }
    // Drops one reference; the last one deletes the object.
    void Release();

private:
    std::atomic<std::uint32_t> refs_{1};
    Kind kind_;
};

// True when `address` is a live object of `kind`. Safe on any pointer value.
bool IsLive(const void *address, Kind kind);

// An owning reference. Adopt takes over the reference a `new` gave; Share
// adds one.
template <class T>
class Ref {
public:
    Ref() = default;
    static Ref Adopt(T *object) { return Ref(object); }
    static Ref Share(T *object) {
        if (object) object->Retain();
        return Ref(object);
    }
    Ref(const Ref &other) : object_(other.object_) {
        if (object_) object_->Retain();
    }
    Ref(Ref &&other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    template <class U>
    Ref(Ref<U> &&other) noexcept : object_(other.Detach()) {}
    Ref &operator=(Ref other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    ~Ref() {
        if (object_) object_->Release();
    }

    T *get() const { return object_; }
    T *operator->() const { return object_; }
    T &operator*() const { return *object_; }
    explicit operator bool() const { return object_ != nullptr; }
    // Hands the reference to the caller (a handle given out through the
    // surface).
    T *Detach() { return std::exchange(object_, nullptr); }

private:
    explicit Ref(T *object) : object_(object) {}
    T *object_ = nullptr;
};

template <class T, class... Args>
Ref<T> MakeRef(Args &&...args) {
    return Ref<T>::Adopt(new T(std::forward<Args>(args)...));
}

}  // namespace engine
