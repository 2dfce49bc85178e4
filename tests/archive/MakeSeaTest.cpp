// Self-extracting output through the facade: the engine's stub beside the
// archive and the two transforms into the temporary folder. Every result is
// run and must expand itself into the folder on its command line.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>

#include "CArchiveMakeSeaVnkx.h"
#include "CFSUtils.h"
#include "archive/FacadeTest.h"
#include "platform/ScopedEnv.h"

namespace {

namespace fs = std::filesystem;
using archivetest::EndLog;

class MakeSeaTest : public archivetest::SampleTreeTest {
protected:
    void SetUp() override {
        SampleTreeTest::SetUp();
        temp = home.Scratch("tmp");
    }

    void Run(CArchive &archive, const std::function<bool()> &start) { RunToEnd(archive, start); }

    fs::path temp;
    testsupport::ScopedEnv tmpdir{"TMPDIR", nullptr};
};

TEST_F(MakeSeaTest, EachRouteMakesAProgramThatExpandsItself) {
    setenv("TMPDIR", temp.c_str(), 1);
    struct Route {
        const char *name;
        const char *formatId;
        bool (CArchive::*start)();
        bool intoTemp;
        const char *expected;
    };
    const Route routes[] = {
        {"stub.zip", "zip", &CArchive::MakeSDKSea, false, "stub.sea"},
        {"stub.vnkx", "vnkx", &CArchive::MakeSDKSea, false, "stub_1.sea"},
        {"zipped.zip", "zip", &CArchive::MakeSeaZip, true, "zipped.zip"},
        {"packed.vnkx", "vnkx", &CArchive::MakeSeaVnkx, true, "packed.vnkx"},
    };
    // An earlier file of the transform's name gives way.
    testsupport::WriteBytes(temp / "packed.vnkx", "left over");
    for (const Route &route : routes) {
        SCOPED_TRACE(route.name);
        const fs::path source = Sample(route.name, route.formatId);
        const std::string before = testsupport::ReadBytes(source);
        auto archive = MakeArchive(source);
        Run(*archive, [&] { return ((*archive).*route.start)(); });
        EXPECT_EQ(archive->lastResult, 0);
        const fs::path made = (route.intoTemp ? temp : work) / route.expected;
        EXPECT_EQ(archive->name, Wide(made));
        EXPECT_EQ(testsupport::ReadBytes(source), before) << "the source stays as it was";
        ExpectExpandsItself(made, work / "out" / route.name);
    }
}

TEST_F(MakeSeaTest, AnEncryptedVnkxStaysEncryptedWithItsPassword) {
    setenv("TMPDIR", temp.c_str(), 1);
    auto archive = MakeArchive(Sample("secret.vnkx", "vnkx", L"pass word"));
    archive->password = L"pass word";
    Run(*archive, [&] { return archive->MakeSeaVnkx(); });
    ASSERT_EQ(archive->lastResult, 0);
    const fs::path program = temp / "secret.vnkx";
    testsupport::WriteBytes(work / "pw", "pass word\n");
    ExpectExpandsItself(program, work / "out", "--password-file '" + (work / "pw").string() + "'");
    testsupport::WriteBytes(work / "bad", "wrong\n");
    EXPECT_FALSE(RunIn(work, "'" + program.string() + "' --password-file '" +
                                 (work / "bad").string() + "' '" + (work / "no").string() +
                                 "' </dev/null"));
}

TEST_F(MakeSeaTest, TransformVnkxRefusesOtherArchivesAndLeavesSelfExtractingOff) {
    setenv("TMPDIR", temp.c_str(), 1);
    auto zip = MakeArchive(Sample("plain.zip", "zip"));
    Run(*zip, [&] { return zip->MakeSeaVnkx(); });
    EXPECT_NE(zip->lastResult, 0);
    EXPECT_EQ(zip->name, Wide(work / "plain.zip"));
    EXPECT_NE(ErrorFileText().find("Archive is not vnkx"), std::string::npos);
    EXPECT_TRUE(fs::is_empty(temp)) << "nothing was written";

    auto missing = MakeArchive(work / "gone.vnkx");
    Run(*missing, [&] { return missing->MakeSeaVnkx(); });
    EXPECT_NE(missing->lastResult, 0);
    EXPECT_NE(ErrorFileText().find("Archive doesn't exist"), std::string::npos);

    // After a transform that worked, the same engine session makes ordinary
    // archives again.
    auto vnkx = MakeArchive(Sample("fine.vnkx", "vnkx"));
    Run(*vnkx, [&] { return vnkx->MakeSeaVnkx(); });
    ASSERT_EQ(vnkx->lastResult, 0);
    EXPECT_FALSE(IsProgram(Sample("later.vnkx", "vnkx")));
    EXPECT_FALSE(IsProgram(Sample("later.zip", "zip")));
}

TEST_F(MakeSeaTest, AFailingStubRouteShowsTheErrorBoxOnce) {
    ASSERT_TRUE(RunIn(work / "src", "tar -cf ../t.tar a.txt docs"));
    auto archive = MakeArchive(work / "t.tar");
    Run(*archive, [&] { return archive->MakeSDKSea(); });
    EXPECT_EQ(archive->lastResult, kEngineSfxUnsupported);
    EXPECT_EQ(host.Recorded().size(), 1u);
    EXPECT_EQ(archive->name, Wide(work / "t.tar"));
}

}  // namespace
