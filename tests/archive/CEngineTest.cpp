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

TEST_F(ArchiveTest, EngineOpensInTheConstructorWithTheSessionDefaults) {
    CEngine engine;
    EXPECT_TRUE(engine.IsOpen());
    ASSERT_NE(engine.GetEngine(), nullptr);
    // A session that opened logs nothing.
    EXPECT_EQ(ErrorFileText().find("OpenVarnickEngine"), std::string::npos);
}

TEST_F(ArchiveTest, EngineCloseTwiceClosesOnce) {
    CEngine engine;
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

TEST_F(ArchiveTest, SessionsAreIndependent) {
    CEngine first;
    CEngine second;
    EXPECT_NE(first.GetEngine(), second.GetEngine());
    first.Close();
    // The other session still answers.
    EXPECT_TRUE(IsVersionText(second.GetEngineVersion()));
}

TEST_F(ArchiveTest, EngineVersionWithAndWithoutASession) {
    const std::wstring free = GetEngineVersion();
    EXPECT_TRUE(IsVersionText(free)) << free;
    CEngine engine;
    const std::wstring member = engine.GetEngineVersion();
    EXPECT_EQ(member, free);
    // The member of a closed engine asks without a session.
    engine.Close();
    EXPECT_EQ(std::wstring(engine.GetEngineVersion()), free);
}

}  // namespace
