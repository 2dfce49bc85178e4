// The engine session: open in the constructor, close once, the version
// with and without a session.
#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "CEngine.h"
#include "archive/ArchiveTest.h"

namespace {

using archivetest::ArchiveTest;

bool IsVersionText(const std::wstring &text) {
    return std::regex_match(platform::ToUtf8(text), std::regex(R"(\d+\.\d+\.\d+\.\d+)"));
}

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

TEST_F(ArchiveTest, SessionsAreIndependentAndTheVersionNeedsNone) {
    CEngine first;
    CEngine second;
    EXPECT_NE(first.GetEngine(), second.GetEngine());
    first.Close();
    // The other session still answers.
    const std::wstring free = GetEngineVersion();
    EXPECT_TRUE(IsVersionText(free)) << free;
    EXPECT_EQ(second.GetEngineVersion(), free);
    // The member of a closed engine asks without a session.
    EXPECT_EQ(std::wstring(first.GetEngineVersion()), free);
}

}  // namespace
