// What the UI tests share: the resource libraries loaded as a host program
// loads them, and a message pump with a deadline.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>

#include "platform/Win32.h"
#include "support/LoadedResources.h"

namespace uitest {

// Loads the two resource libraries and hands them to the library.
struct ResourceLibraries : testsupport::LoadedResources {
    ResourceLibraries() { EXPECT_TRUE(Loaded()); }
};

// Pumps the calling thread's messages until `done` holds; false when it
// still does not after `timeout`.
bool PumpUntil(const std::function<bool()> &done,
               std::chrono::milliseconds timeout = std::chrono::seconds(10));
// Pumps whatever is queued now.
void PumpPending();

}  // namespace uitest
