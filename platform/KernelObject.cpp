#include "platform/KernelObject.h"

#include <chrono>
#include <mutex>
#include <thread>
#include <unordered_set>
#include <vector>

#include "platform/WinError.h"

namespace platform {

namespace {

struct LiveObjects {
    std::mutex lock;
    std::unordered_set<const KernelObject *> objects;
};

// Never destroyed: objects may outlive static destruction at process exit.
LiveObjects &Live() {
    static auto *live = new LiveObjects;
    return *live;
}

}  // namespace

KernelObject::KernelObject() {
    std::lock_guard guard(Live().lock);
    Live().objects.insert(this);
}

KernelObject::~KernelObject() {
    std::lock_guard guard(Live().lock);
    Live().objects.erase(this);
}

DWORD KernelObject::Wait(DWORD) {
    SetLastError(ERROR_INVALID_HANDLE);
    return WAIT_FAILED;
}

KernelObject *ObjectFromHandle(HANDLE handle) {
    if (!handle || handle == INVALID_HANDLE_VALUE) return nullptr;
    auto *object = static_cast<KernelObject *>(handle);
    std::lock_guard guard(Live().lock);
    return Live().objects.count(object) ? object : nullptr;
}

}  // namespace platform

BOOL CloseHandle(HANDLE handle) {
    platform::KernelObject *object = platform::ObjectFromHandle(handle);
    if (!object) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    delete object;
    return TRUE;
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
    platform::KernelObject *object = platform::ObjectFromHandle(handle);
    if (!object) {
        SetLastError(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    return object->Wait(milliseconds);
}

DWORD WaitForMultipleObjects(DWORD count, const HANDLE *handles, BOOL waitAll, DWORD milliseconds) {
    if (count == 0 || !handles) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
    std::vector<bool> done(count, false);
    for (;;) {
        DWORD signalled = 0;
        for (DWORD i = 0; i < count; ++i) {
            if (done[i]) {
                ++signalled;
                continue;
            }
            DWORD result = WaitForSingleObject(handles[i], 0);
            if (result == WAIT_FAILED) return WAIT_FAILED;
            if (result == WAIT_OBJECT_0 || result == WAIT_ABANDONED) {
                if (!waitAll) return result + i;
                done[i] = true;
                ++signalled;
            }
        }
        if (signalled == count) return WAIT_OBJECT_0;
        if (milliseconds != INFINITE && Clock::now() >= deadline) return WAIT_TIMEOUT;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}
