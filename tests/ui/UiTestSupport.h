// What the UI tests share: the resource libraries loaded as a host program
// loads them, and the message pump of the support library.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>

#include "platform/Win32.h"
#include "support/DialogDriving.h"
#include "support/LoadedResources.h"

namespace uitest {

// Loads the two resource libraries and hands them to the library.
struct ResourceLibraries : testsupport::LoadedResources {
    ResourceLibraries() { EXPECT_TRUE(Loaded()); }
};

using testsupport::PumpPending;
using testsupport::PumpUntil;

}  // namespace uitest
