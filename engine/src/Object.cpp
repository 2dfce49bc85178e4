#include "Object.h"

#include <mutex>
#include <unordered_map>

namespace engine {
namespace {

struct Registry {
    std::mutex mutex;
    std::unordered_map<const void *, Kind> live;
};

Registry &TheRegistry() {
    // Never destroyed: objects may be released from static destructors of
    // the host.
    static Registry *registry = new Registry;
    return *registry;
}

}  // namespace

Object::Object(Kind kind) : kind_(kind) {
    Registry &registry = TheRegistry();
    std::lock_guard lock(registry.mutex);
    registry.live[this] = kind;
}

Object::~Object() {
    Registry &registry = TheRegistry();
    std::lock_guard lock(registry.mutex);
    registry.live.erase(this);
}

void Object::Release() {
    if (refs_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

bool IsLive(const void *address, Kind kind) {
    if (!address) return false;
    Registry &registry = TheRegistry();
    std::lock_guard lock(registry.mutex);
    auto found = registry.live.find(address);
    return found != registry.live.end() && found->second == kind;
}

}  // namespace engine
