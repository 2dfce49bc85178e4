// The engine session: open in the constructor, close once.
#include <gtest/gtest.h>

#include <string>

#include "CEngine.h"
#include "archive/ArchiveTest.h"

namespace {

using archivetest::ArchiveTest;

TEST_F(ArchiveTest, EngineOpensInTheConstructorAndClosesOnce) {
    CEngine engine;
    ASSERT_NE(engine.GetEngine(), nullptr);
    // Closing twice closes once; Open then takes a new session.
    engine.Close();
    engine.Close();
    EXPECT_FALSE(engine.IsOpen());
    engine.Open();
    EXPECT_NE(engine.GetEngine(), nullptr);
}

}  // namespace
