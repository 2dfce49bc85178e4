// The engine session, and engine results as text and as an error box.
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "CEngine.h"
#include "SDKUtils.h"
#include "archive/ArchiveTest.h"

namespace {

using archivetest::ArchiveTest;

constexpr unsigned kUnknownEngineCodeFormat = 305;
constexpr unsigned kRecoveryHint = 1296;
constexpr unsigned kArchiveErrorFormat = 306;
constexpr unsigned kArchiveErrorTitle = 307;

std::wstring Translated(EngineResult code) { return TranslateEngineError(code); }

// One row a branch: the ends of each run of ids, the two index codes that
// stand crossed, the damage codes that get the recovery hint directly behind
// (and the next call starts afresh), other engine codes through the format,
// and Windows codes with the system's text.
TEST_F(ArchiveTest, TranslateEngineErrorTakesTheTextOfEachRangeOfCodes) {
    const std::wstring hint = Text(kRecoveryHint);
    const std::wstring unknown = Text(kUnknownEngineCodeFormat);
    ASSERT_FALSE(hint.empty());
    const std::pair<EngineResult, std::wstring> rows[] = {
        {0, Text(261)},
        {17502, Text(263)},
        {17507, Text(268)},
        {17541, Text(302)},
        {17544, Text(973)},
        {17562, Text(991)},
        {17563, Text(1078)},
        {17565, Text(1304)},
        {kEngineIndexReadFailed, Text(972)},
        {kEngineIndexWriteFailed, Text(971)},
        {17508, Text(269) + hint},
        {17538, Text(299) + hint},
        {kEngineArchiveDamaged, Text(267)},
        {17500, FormatW(unknown.c_str(), 17500)},
        {17566, FormatW(unknown.c_str(), 17566)},
        {INT_MAX, FormatW(unknown.c_str(), INT_MAX)},
        {5, L"(5) - " + platform::SystemMessageText(5)},
        {16999, L"(16999) - " + platform::SystemMessageText(16999)},
        {-1, L"(-1) - " + platform::SystemMessageText(static_cast<DWORD>(-1))},
    };
    for (const auto &[code, text] : rows) EXPECT_EQ(Translated(code), text) << code;
}

TEST_F(ArchiveTest, EngineErrorDialogShowsTheArchiveAndTheResultTextUnlessSilent) {
    EngineErrorDialog(L"/data/photos.zip", kEngineItemDataDamaged, false);
    auto boxes = host.Recorded();
    ASSERT_EQ(boxes.size(), 1u);
    EXPECT_EQ(boxes[0].caption, Text(kArchiveErrorTitle));
    EXPECT_EQ(boxes[0].text, FormatW(Text(kArchiveErrorFormat).c_str(), L"/data/photos.zip",
                                     (Text(298) + Text(kRecoveryHint)).c_str()));

    // The silent form shows nothing.
    for (EngineResult code : {0, 17501, 17508, 5, 17999, -7}) {
        EngineErrorDialog(L"a.zip", code, true);
    }
    EXPECT_EQ(host.Recorded().size(), 1u);
}

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
