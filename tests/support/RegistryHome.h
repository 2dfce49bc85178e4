// A fresh home for tests that reach the registry store: the store's
// connections and the log folder belong to this home alone and are closed
// and forgotten at the end, so that the next home opens its own.
#pragma once

#include "CLogging.h"
#include "platform/Registry.h"
#include "support/TempHome.h"

namespace testsupport {

class RegistryHomeTest : public HomeTest {
protected:
    void SetUp() override { CLogging::ResetLogFolder(); }
    void TearDown() override {
        platform::CloseRegistryConnections();
        CLogging::ResetLogFolder();
    }
};

}  // namespace testsupport
