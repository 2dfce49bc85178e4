// The engine session: open in the constructor, close once.
#include <gtest/gtest.h>

#include <string>

#include "CEngine.h"
#include "archive/ArchiveTest.h"

namespace {

using archivetest::ArchiveTest;

TEST_F(ArchiveTest, EngineOpensInTheConstructorAndClosesOnce) {
    CEngine engine;
    EXPECT_TRUE(engine.IsOpen());
    ASSERT_NE(engine.GetEngine(), nullptr);
    // A session that opened logs nothing.
    EXPECT_EQ(ErrorFileText().find("OpenVarnickEngine"), std::string::npos);

    // Closing twice closes once.
    engine.Close();
    EXPECT_EQ(engine.GetEngine(), nullptr);
    EXPECT_FALSE(engine.IsOpen());
    engine.Close();
    EXPECT_EQ(engine.GetEngine(), nullptr);
    // Open is for a closed engine: it takes a new session.
    engine.Open();
    EXPECT_TRUE(engine.IsOpen());
    EXPECT_NE(engine.GetEngine(), nullptr);
}

}  // namespace
