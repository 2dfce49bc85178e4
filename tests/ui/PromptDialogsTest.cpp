// The prompt dialogs ask through the installed host and give back what the
// dialog would: scripted answers, refusals, and what each one was shown.
#include <gtest/gtest.h>

#include "CAppUtils.h"
#include "CArcNameConflictDialog.h"
#include "CCommonDlgs.h"
#include "CConfirmFolderDelete.h"
#include "CExpandConflictAction.h"
#include "CNextDiskDlg.h"
#include "CPassword.h"
#include "UiTestSupport.h"
#include "platform/Win32.h"

namespace {

const HWND kOwner = reinterpret_cast<HWND>(static_cast<ULONG_PTR>(0x77));

class PromptDialogsTest : public ::testing::Test {
protected:
    template <class Prompt>
    const Prompt &Asked(std::size_t index) {
        prompts_ = host.Prompts();
        EXPECT_LT(index, prompts_.size());
        const Prompt *prompt = prompts_.at(index).As<Prompt>();
        EXPECT_NE(prompt, nullptr);
        return *prompt;
    }

    uitest::ResourceLibraries resources;
    platform::HeadlessUiHost host;
    platform::ScopedUiHost installed{&host};

private:
    std::vector<platform::PromptRecord> prompts_;
};

}  // namespace

TEST_F(PromptDialogsTest, PasswordGivesTheTextOrKeepsItWhenRefused) {
    host.QueuePassword(L"secret");
    CPassword prompt(kOwner, L"/x/a.zip", false, true);
    ASSERT_TRUE(prompt.Run());
    EXPECT_EQ(prompt.password, L"secret");
    const auto &asked = Asked<platform::PasswordPrompt>(0);
    EXPECT_EQ(asked.owner, kOwner);
    EXPECT_EQ(asked.archiveName, L"/x/a.zip");
    EXPECT_FALSE(asked.confirm);
    EXPECT_TRUE(asked.passwordWrong);

    EXPECT_FALSE(prompt.Run());
    EXPECT_EQ(prompt.password, L"secret");

    CPassword unnamed(nullptr, nullptr, true, false);
    host.QueuePassword(L"");
    EXPECT_TRUE(unnamed.Run()) << "an empty password is still an answer";
    EXPECT_EQ(Asked<platform::PasswordPrompt>(2).archiveName, L"");
}

TEST_F(PromptDialogsTest, ConflictActionLeavesTheChosenActionOrStop) {
    CExpandConflictAction conflict(kOwner, L"/x/docs", true);
    EXPECT_EQ(conflict.action, CExpandConflictAction::Stop);
    host.QueueConflictAction(CExpandConflictAction::KeepBoth);
    ASSERT_TRUE(conflict.Run());
    EXPECT_EQ(conflict.action, 5);
    EXPECT_TRUE(Asked<platform::ConflictPrompt>(0).folder);
    EXPECT_EQ(Asked<platform::ConflictPrompt>(0).path, L"/x/docs");

    host.QueueConflictAction(9);  // no such action
    EXPECT_FALSE(conflict.Run());
    EXPECT_EQ(conflict.action, CExpandConflictAction::Stop);

    conflict.action = CExpandConflictAction::Replace;
    EXPECT_FALSE(conflict.Run());
    EXPECT_EQ(conflict.action, CExpandConflictAction::Stop);
}

TEST_F(PromptDialogsTest, CommonDialogsShowTheirResourceTextsAndGiveNothingWhenCancelled) {
    host.QueueDirectory(L"/data/out");
    EXPECT_EQ(CCommonDlgs::RunChooseDirectory(kOwner, 904), L"/data/out");
    EXPECT_EQ(Asked<platform::DirectoryPrompt>(0).text, CAppUtils::GetResString(nullptr, 904));
    EXPECT_EQ(CCommonDlgs::RunChooseDirectory(kOwner, L"Where is a.part02.vnkx?", L"/x"), L"");
    EXPECT_EQ(Asked<platform::DirectoryPrompt>(1).initialFolder, L"/x");

    std::wstring chosen = L"unchanged";
    host.QueueSaveFile(L"/x/Contents of a.txt");
    ASSERT_TRUE(CCommonDlgs::RunSaveFile(kOwner, 775, 776, SAVEFILE_OVERWRITEPROMPT,
                                         L"Contents of a.txt", chosen));
    EXPECT_EQ(chosen, L"/x/Contents of a.txt");
    const auto &save = Asked<platform::SaveFilePrompt>(2);
    EXPECT_EQ(save.title, CAppUtils::GetResString(nullptr, 775));
    EXPECT_EQ(save.filter, CAppUtils::GetResString(nullptr, 776));
    EXPECT_EQ(save.flags, SAVEFILE_OVERWRITEPROMPT);
    EXPECT_EQ(save.suggestedName, L"Contents of a.txt");
    chosen = L"unchanged";
    EXPECT_FALSE(CCommonDlgs::RunSaveFile(kOwner, 775, 776, 1, nullptr, chosen));
    EXPECT_EQ(chosen, L"unchanged");

    std::wstring archive;
    host.QueueArchiveLocation(L"/x/a.vnkx");
    ASSERT_TRUE(CCommonDlgs::GetIndexArchiveRealArchiveLocation(kOwner, L"*.vnkx", archive));
    EXPECT_EQ(archive, L"/x/a.vnkx");
    EXPECT_EQ(Asked<platform::ArchiveLocationPrompt>(4).pattern, L"*.vnkx");
    EXPECT_FALSE(CCommonDlgs::GetIndexArchiveRealArchiveLocation(kOwner, L"*.vnkx", archive));
}
