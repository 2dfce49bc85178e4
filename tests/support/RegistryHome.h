// A fresh home for tests that reach the registry store: the store's
// connections belong to this home alone and are closed at the end, so that
// the next home opens its own hives. (The home resets the log folder.)
#pragma once

#include "platform/Registry.h"
#include "support/TempHome.h"

namespace testsupport {

class RegistryHomeTest : public HomeTest {
protected:
    void TearDown() override { platform::CloseRegistryConnections(); }
};

}  // namespace testsupport
