#include "support/DialogDriving.h"

#include <chrono>
#include <thread>

namespace testsupport {

bool WaitFor(const std::function<bool()> &done) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

void Click(HWND dialog, int id) {
    PostMessageW(dialog, WM_COMMAND, MAKEWPARAM(static_cast<WORD>(id), BN_CLICKED), 0);
}

}  // namespace testsupport
