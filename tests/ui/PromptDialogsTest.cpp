// The prompt dialogs ask through the installed host and give back what the
// dialog would: scripted answers, refusals, and what each one was shown.
#include <gtest/gtest.h>

#include "CAppUtils.h"
#include "CCommonDlgs.h"
#include "CExpandConflictAction.h"
#include "CPassword.h"
#include "platform/Win32.h"
#include "support/DialogDriving.h"
#include "support/LoadedResources.h"

namespace {

const HWND kOwner = reinterpret_cast<HWND>(static_cast<ULONG_PTR>(0x77));

class PromptDialogsTest : public ::testing::Test {
protected:
    template <class Prompt>
    Prompt Asked(std::size_t index) {
        std::vector<platform::PromptRecord> prompts = host.Prompts();
        EXPECT_LT(index, prompts.size());
        const Prompt *prompt = index < prompts.size() ? prompts[index].As<Prompt>() : nullptr;
        EXPECT_NE(prompt, nullptr);
        return prompt ? *prompt : Prompt{};
    }

    testsupport::LoadedResources resources;
    platform::HeadlessUiHost host;
    platform::ScopedUiHost installed{&host};
};

}  // namespace

TEST_F(PromptDialogsTest, PasswordAndConflictGiveTheAnswerOrTheirRefusalValue) {
    host.QueuePassword(L"secret");
    CPassword prompt(kOwner, L"/x/a.zip", false, true);
    ASSERT_TRUE(prompt.Run());
    EXPECT_EQ(prompt.password, L"secret");
    EXPECT_TRUE(Asked<platform::PasswordPrompt>(0).passwordWrong);
    EXPECT_FALSE(prompt.Run());
    EXPECT_EQ(prompt.password, L"secret") << "a refusal keeps the text";

    CExpandConflictAction conflict(kOwner, L"/x/docs", true);
    host.QueueConflictAction(CExpandConflictAction::KeepBoth);
    ASSERT_TRUE(conflict.Run());
    EXPECT_EQ(conflict.action, 5);
    EXPECT_TRUE(Asked<platform::ConflictPrompt>(2).folder);
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

    std::wstring chosen = L"unchanged";
    host.QueueSaveFile(L"/x/Contents of a.txt");
    ASSERT_TRUE(CCommonDlgs::RunSaveFile(kOwner, 775, 776, SAVEFILE_OVERWRITEPROMPT,
                                         L"Contents of a.txt", chosen));
    EXPECT_EQ(chosen, L"/x/Contents of a.txt");
    EXPECT_EQ(Asked<platform::SaveFilePrompt>(2).filter, CAppUtils::GetResString(nullptr, 776));
    chosen = L"unchanged";
    EXPECT_FALSE(CCommonDlgs::RunSaveFile(kOwner, 775, 776, 1, nullptr, chosen));
    EXPECT_EQ(chosen, L"unchanged");

    std::wstring archive;
    host.QueueArchiveLocation(L"/x/a.vnkx");
    ASSERT_TRUE(CCommonDlgs::GetIndexArchiveRealArchiveLocation(kOwner, L"*.vnkx", archive));
    EXPECT_EQ(archive, L"/x/a.vnkx");
    EXPECT_FALSE(CCommonDlgs::GetIndexArchiveRealArchiveLocation(kOwner, L"*.vnkx", archive));
}
