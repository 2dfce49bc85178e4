// Kernel objects behind HANDLE: files, processes, threads, events, mutexes.
// Each kind derives from KernelObject; CloseHandle destroys any of them and
// the waits dispatch to the kind's own Wait. A HANDLE is a KernelObject*.
#pragma once

#include "platform/WinTypes.h"

inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_ABANDONED = 0x80;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFFu;

namespace platform {

class KernelObject {
public:
    KernelObject();
    virtual ~KernelObject();
    KernelObject(const KernelObject &) = delete;
    KernelObject &operator=(const KernelObject &) = delete;

    // Waits up to `milliseconds` (INFINITE for ever) for the object to be
    // signalled. Returns WAIT_OBJECT_0, WAIT_ABANDONED, WAIT_TIMEOUT or
    // WAIT_FAILED. Objects that cannot be waited on fail.
    virtual DWORD Wait(DWORD milliseconds);
};

// The object behind a handle, or null for null, INVALID_HANDLE_VALUE and
// handles that are not live kernel objects. Every object registers itself
// while it lives, so a handle that was closed, or never made by this layer,
// is refused without being read.
KernelObject *ObjectFromHandle(HANDLE handle);

template <typename T>
T *ObjectAs(HANDLE handle) {
    return dynamic_cast<T *>(ObjectFromHandle(handle));
}

}  // namespace platform

BOOL CloseHandle(HANDLE handle);
DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);
// Waits for one (waitAll false) or all of the objects; polls, since kernel
// objects of different kinds have no common wait primitive here.
DWORD WaitForMultipleObjects(DWORD count, const HANDLE *handles, BOOL waitAll, DWORD milliseconds);
