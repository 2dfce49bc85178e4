// Engine results as text and as an error box.
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "SDKUtils.h"
#include "archive/ArchiveTest.h"

namespace {

using archivetest::ArchiveTest;

constexpr unsigned kUnknownEngineCodeFormat = 305;
constexpr unsigned kRecoveryHint = 1296;
constexpr unsigned kArchiveErrorFormat = 306;
constexpr unsigned kArchiveErrorTitle = 307;

std::wstring Translated(EngineResult code) { return TranslateEngineError(code); }

TEST_F(ArchiveTest, TranslateEngineErrorEngineCodesInStep) {
    // The ends of each run of ids.
    EXPECT_EQ(Translated(17502), Text(263));
    EXPECT_EQ(Translated(17507), Text(268));
    EXPECT_EQ(Translated(17541), Text(302));
    EXPECT_EQ(Translated(17544), Text(973));
    EXPECT_EQ(Translated(17551), Text(980));
    EXPECT_EQ(Translated(17562), Text(991));
    EXPECT_EQ(Translated(17563), Text(1078));
    EXPECT_EQ(Translated(17564), Text(1303));
    EXPECT_EQ(Translated(17565), Text(1304));
}

TEST_F(ArchiveTest, TranslateEngineErrorIndexCodesStandCrossed) {
    EXPECT_EQ(Translated(kEngineIndexReadFailed), Text(972));
    EXPECT_EQ(Translated(kEngineIndexWriteFailed), Text(971));
    EXPECT_NE(Text(971), Text(972));
}

TEST_F(ArchiveTest, TranslateEngineErrorDamagedDataGetsTheRecoveryHintDirectlyBehind) {
    const std::wstring hint = Text(kRecoveryHint);
    ASSERT_FALSE(hint.empty());
    EXPECT_EQ(Translated(17508), Text(269) + hint);
    EXPECT_EQ(Translated(17537), Text(298) + hint);
    EXPECT_EQ(Translated(17538), Text(299) + hint);
    // Other damage codes get no hint, and the next call starts afresh.
    EXPECT_EQ(Translated(kEngineArchiveDamaged), Text(267));
    Translated(17508);
    EXPECT_EQ(Translated(0), Text(261));
}

TEST_F(ArchiveTest, TranslateEngineErrorOtherEngineCodesPrintThroughTheFormat) {
    const std::wstring format = Text(kUnknownEngineCodeFormat);
    ASSERT_NE(format.find(L"%d"), std::wstring::npos);
    for (EngineResult code : {17000, 17500, 17566, 17997, 18000, INT_MAX}) {
        EXPECT_EQ(Translated(code), FormatW(format.c_str(), code)) << code;
        EXPECT_NE(Translated(code).find(std::to_wstring(code)), std::wstring::npos) << code;
    }
}

TEST_F(ArchiveTest, TranslateEngineErrorWindowsCodesTakeTheSystemText) {
    EXPECT_EQ(Translated(5), L"(5) - " + platform::SystemMessageText(5));
    EXPECT_EQ(Translated(32), L"(32) - " + platform::SystemMessageText(32));
    EXPECT_EQ(Translated(16999), L"(16999) - " + platform::SystemMessageText(16999));
    EXPECT_EQ(Translated(-1), L"(-1) - " + platform::SystemMessageText(static_cast<DWORD>(-1)));
    EXPECT_EQ(Translated(INT_MIN).rfind(L"(-2147483648) - ", 0), 0u);
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

}  // namespace
