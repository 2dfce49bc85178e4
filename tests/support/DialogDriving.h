// Driving a dialog from a test's second thread: waiting for a state and
// pressing its buttons the way a user's click arrives.
#pragma once

#include <functional>

#include "platform/WinUser.h"

namespace testsupport {

// Polls `done` for up to ten seconds; false when it never came true.
bool WaitFor(const std::function<bool()> &done);

// Posts the WM_COMMAND of a click on button `id`.
void Click(HWND dialog, int id);

}  // namespace testsupport
