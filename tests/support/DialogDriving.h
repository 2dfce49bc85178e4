// Driving a dialog from a test's second thread: waiting for a state and
// pressing its buttons the way a user's click arrives.
#pragma once

#include <chrono>
#include <functional>

#include "platform/WinUser.h"

namespace testsupport {

// Polls `done` for up to ten seconds; false when it never came true.
bool WaitFor(const std::function<bool()> &done);

// Pumps the calling thread's messages until `done` holds; false when it
// still does not after `timeout`.
bool PumpUntil(const std::function<bool()> &done,
               std::chrono::milliseconds timeout = std::chrono::seconds(10));
// Pumps whatever is queued now.
void PumpPending();

// Posts the WM_COMMAND of a click on button `id`.
void Click(HWND dialog, int id);

// A window of a class that does nothing of its own (DefWindowProcW): an
// owner, a parent or a message target for the code under test.
HWND PlainWindow(HWND parent, int x = 0, int y = 0, int width = 0, int height = 0);

}  // namespace testsupport
