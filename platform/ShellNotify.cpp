#include "platform/ShellNotify.h"

#include <atomic>

namespace {

std::atomic<platform::ShellChangeListener> gListener{nullptr};

}  // namespace

void SHChangeNotify(LONG eventId, UINT flags, const void *item1, const void *item2) {
    if (const auto listener = gListener.load()) listener(eventId, flags, item1, item2);
}

namespace platform {

ShellChangeListener SetShellChangeListener(ShellChangeListener listener) {
    return gListener.exchange(listener);
}

}  // namespace platform
