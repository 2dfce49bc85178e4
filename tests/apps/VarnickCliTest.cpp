// The command-line program end to end, as a user runs it.
#include <gtest/gtest.h>
#include <string>

#include "support/ProgramRun.h"
#include "support/TempHome.h"

namespace {

testsupport::ProgramRun Varnick(const std::string &arguments) {
    return testsupport::RunProgram("varnick", arguments);
}

class VarnickCli : public testsupport::HomeTest {};

}  // namespace

TEST_F(VarnickCli, ListsAFolderWithWindowsAttributesAndGroupedSizes) {
    auto folder = home.Scratch("sample");
    testsupport::WriteBytes(folder / "big.bin", std::string(1234567, 'x'));
    testsupport::WriteBytes(folder / ".hidden", "h");
    std::filesystem::create_directory(folder / "sub");

    testsupport::ProgramRun run = Varnick("ls '" + folder.string() + "'");
    ASSERT_EQ(run.exitCode, 0) << run.output;
    EXPECT_NE(run.output.find("1,234,567  big.bin"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("--h-a  "), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("d---"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("2 files, 1,234,568 bytes"), std::string::npos) << run.output;
}

TEST_F(VarnickCli, FoldersLieBelowTheHome) {
    testsupport::ProgramRun run = Varnick("folders");
    ASSERT_EQ(run.exitCode, 0) << run.output;
    EXPECT_NE(run.output.find(home.Path().string() + "/user/.local/share"), std::string::npos)
        << run.output;
}

TEST_F(VarnickCli, BadInputGivesClearMessagesAndExitCodes) {
    testsupport::ProgramRun missing = Varnick("ls '" + (home.Path() / "nowhere").string() + "'");
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.output.find("no such folder"), std::string::npos) << missing.output;

    testsupport::ProgramRun unknown = Varnick("frobnicate");
    EXPECT_EQ(unknown.exitCode, 2);
    EXPECT_NE(unknown.output.find("unknown command 'frobnicate'"), std::string::npos);

    EXPECT_EQ(Varnick("").exitCode, 2);
    testsupport::ProgramRun help = Varnick("--help");
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_NE(help.output.find("usage: varnick"), std::string::npos);
}
