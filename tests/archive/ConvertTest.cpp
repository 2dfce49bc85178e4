// Conversion into Zip and vnkx: which sources are taken, where the result
// goes, the password carried from the source to the result, and a
// self-extracting vnkx that expands itself.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "CArchiveConvert.h"
#include "SDKUtils.h"
#include "archive/FacadeTest.h"

namespace {

namespace fs = std::filesystem;
using archivetest::EndLog;

class ConvertTest : public archivetest::SampleTreeTest {
protected:
    CArchiveConvert Converter() {
        return CArchiveConvert(parent, engine.GetEngine(), formatOptions.get());
    }

    // Expands `archive` through the library and checks the sample came back
    // whole.
    void ExpectSample(const fs::path &archive, const std::wstring &password = L"") {
        const fs::path out = work / ("out-" + archive.filename().string());
        auto opened = MakeArchive(archive);
        opened->password = password;
        RunToEnd(*opened, [&] { return opened->ExpandTo(Wide(out).c_str()); });
        EXPECT_EQ(opened->lastResult, 0) << archive;
        ExpectSampleIn(out);
    }
};

TEST_F(ConvertTest, ZipBecomesVnkxAtTheDestinationWhichTellsTheResultsPath) {
    const fs::path zip = SampleZip("in.zip");
    wchar_t destination[MAX_PATH] = {};
    wcsncpy_s(destination, MAX_PATH, Wide(work / "made" / "result").c_str(), _TRUNCATE);
    fs::create_directories(work / "made");

    ASSERT_TRUE(Converter().ConvertArchiveToVnkx(Wide(zip).c_str(), nullptr, destination, false));
    const fs::path made = work / "made" / "result.vnkx";
    EXPECT_EQ(std::wstring(destination), Wide(made)) << "the engine added the extension";
    ASSERT_TRUE(fs::exists(made));
    EXPECT_TRUE(fs::exists(zip)) << "the source stays";
    EXPECT_TRUE(host.Prompts().empty()) << "an open source needs no password";
}

TEST_F(ConvertTest, WithoutDestinationTheResultLiesBesideTheSourceUnderAFreeName) {
    const fs::path vnkx = Sample("in.vnkx", "vnkx");
    testsupport::WriteBytes(work / "in.zip", "taken");
    wchar_t password[MAX_PATH] = L"untouched";

    ASSERT_TRUE(Converter().ConvertArchiveToZip(Wide(vnkx).c_str(), password));
    EXPECT_EQ(testsupport::ReadBytes(work / "in.zip"), "taken");
    ASSERT_TRUE(fs::exists(work / "in_1.zip"));
    EXPECT_TRUE(RunIn(work, "unzip -tq in_1.zip"));
    EXPECT_STREQ(password, L"untouched") << "no prompt, nothing copied";
    ExpectSample(work / "in_1.zip");

    // A vnkx made beside the zip it came from.
    ASSERT_TRUE(
        Converter().ConvertArchiveToVnkx(Wide(work / "in_1.zip").c_str(), nullptr, nullptr, false));
    ExpectSample(work / "in_1.vnkx");
}

TEST_F(ConvertTest, TheTypedPasswordOpensTheSourceAndProtectsTheResult) {
    const fs::path vnkx = Sample("secret.vnkx", "vnkx", L"open sesame");

    // Refused: nothing is made and nothing is said.
    host.QueuePassword(std::nullopt);
    EXPECT_FALSE(Converter().ConvertArchiveToZip(Wide(vnkx).c_str(), nullptr));
    EXPECT_FALSE(fs::exists(work / "secret.zip"));
    EXPECT_TRUE(host.Recorded().empty());

    host.QueuePassword(L"open sesame");
    wchar_t password[MAX_PATH] = {};
    ASSERT_TRUE(Converter().ConvertArchiveToZip(Wide(vnkx).c_str(), password));
    EXPECT_STREQ(password, L"open sesame");
    ASSERT_EQ(host.Prompts().size(), 2u);
    bool encrypted = false;
    ASSERT_EQ(CheckForEncrypted(engine.GetEngine(), Wide(work / "secret.zip").c_str(), &encrypted),
              0);
    EXPECT_TRUE(encrypted);
    ExpectSample(work / "secret.zip", L"open sesame");

    // And back into vnkx with the same password.
    host.QueuePassword(L"open sesame");
    wchar_t destination[MAX_PATH] = {};
    wcsncpy_s(destination, MAX_PATH, Wide(work / "again.vnkx").c_str(), _TRUNCATE);
    ASSERT_TRUE(Converter().ConvertArchiveToVnkx(Wide(work / "secret.zip").c_str(), password,
                                                 destination, false));
    ExpectSample(work / "again.vnkx", L"open sesame");
}

TEST_F(ConvertTest, ASelfExtractingVnkxExpandsItselfIntoTheFolderItIsGiven) {
    const fs::path zip = Sample("in.zip", "zip");
    wchar_t destination[MAX_PATH] = {};
    wcsncpy_s(destination, MAX_PATH, Wide(work / "self.vnkx").c_str(), _TRUNCATE);
    ASSERT_TRUE(Converter().ConvertArchiveToVnkx(Wide(zip).c_str(), nullptr, destination, true));

    ExpectExpandsItself(platform::ToUtf8(destination), work / "expanded");
}

}  // namespace
