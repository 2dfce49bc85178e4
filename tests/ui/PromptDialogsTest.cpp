// The prompt dialogs ask through the installed host and give back what the
// dialog would. A prompt of a run stands on the worker thread, modal to the
// progress window, while the window's thread goes on pumping.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>

#include "CAppUtils.h"
#include "CCommonDlgs.h"
#include "CExpandConflictAction.h"
#include "CPassword.h"
#include "CProgressDialog.h"
#include "platform/Win32.h"
#include "support/DialogDriving.h"
#include "support/LoadedResources.h"

namespace {

class PromptDialogsTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(dialog.Run(nullptr)); }

    // Runs `prompt` on a worker while this thread, the window's, pumps;
    // false when the worker never finished.
    static bool OnWorker(const std::function<void()> &prompt) {
        std::atomic<bool> done{false};
        std::thread worker([&] {
            prompt();
            done = true;
        });
        bool finished = testsupport::PumpUntil([&] { return done.load(); });
        worker.join();
        return finished;
    }

    template <class Prompt>
    Prompt Asked(std::size_t index) {
        std::vector<platform::PromptRecord> prompts = host.Prompts();
        const Prompt *prompt = index < prompts.size() ? prompts[index].As<Prompt>() : nullptr;
        EXPECT_NE(prompt, nullptr) << index;
        return prompt ? *prompt : Prompt{};
    }

    testsupport::LoadedResources resources;
    platform::HeadlessUiHost host;
    platform::ScopedUiHost installed{&host};
    CProgressDialog dialog;
};

}  // namespace

TEST_F(PromptDialogsTest,
       PasswordOnAWorkerDisablesTheOwnerWhileItsThreadPumpsAndARefusalKeepsTheText) {
    HWND owner = dialog.window;
    std::atomic<bool> ownerDisabledMeanwhile{false};
    std::atomic<bool> ownerServedMeanwhile{false};
    host.QueuePassword(L"secret");
    host.WhileShown([&] {
        ownerDisabledMeanwhile = !IsWindowEnabled(owner);
        dialog.SetFileName(L"while asking");
        PostMessageW(owner, WM_PROGRESS_EVENT, PROGRESS_EVENT_FILE_NAME, 0);
        ownerServedMeanwhile = testsupport::WaitFor([&] {
            return platform::ReadControl(owner, CProgressDialog::IDC_FILE_NAME).text ==
                   L"while asking";
        });
    });
    CPassword prompt(owner, L"a.zip", false, true);
    bool given = false;
    ASSERT_TRUE(OnWorker([&] { given = prompt.Run(); }));
    EXPECT_TRUE(given);
    EXPECT_EQ(prompt.password, L"secret");
    EXPECT_TRUE(Asked<platform::PasswordPrompt>(0).passwordWrong);
    EXPECT_TRUE(ownerDisabledMeanwhile);
    EXPECT_TRUE(ownerServedMeanwhile);
    EXPECT_TRUE(IsWindowEnabled(owner)) << "the owner is enabled again after the prompt";

    host.WhileShown(nullptr);
    EXPECT_FALSE(prompt.Run());
    EXPECT_EQ(prompt.password, L"secret") << "a refusal keeps the text";
}

TEST_F(PromptDialogsTest, ConflictGivesTheActionOrStopAndLeavesAnOwnerDisabledBeforeIt) {
    // A run disables its parent for as long as it lasts; a prompt in
    // between must not enable it.
    HWND owner = dialog.window;
    EnableWindow(owner, FALSE);
    CExpandConflictAction conflict(owner, L"/x/docs", true);
    host.QueueConflictAction(CExpandConflictAction::KeepBoth);
    bool given = false;
    ASSERT_TRUE(OnWorker([&] { given = conflict.Run(); }));
    EXPECT_TRUE(given);
    EXPECT_EQ(conflict.action, 5);
    EXPECT_TRUE(Asked<platform::ConflictPrompt>(0).folder);
    EXPECT_FALSE(IsWindowEnabled(owner));

    host.QueueConflictAction(9);  // no such action
    EXPECT_FALSE(conflict.Run());
    EXPECT_EQ(conflict.action, CExpandConflictAction::Stop);
    conflict.action = CExpandConflictAction::Replace;
    EXPECT_FALSE(conflict.Run());  // refused
    EXPECT_EQ(conflict.action, CExpandConflictAction::Stop);
}

TEST_F(PromptDialogsTest, CommonDialogsShowTheirResourceTextsAndGiveNothingWhenCancelled) {
    HWND owner = dialog.window;
    host.QueueDirectory(L"/data/out");
    EXPECT_EQ(CCommonDlgs::RunChooseDirectory(owner, 904), L"/data/out");
    EXPECT_EQ(Asked<platform::DirectoryPrompt>(0).text, CAppUtils::GetResString(nullptr, 904));
    EXPECT_EQ(CCommonDlgs::RunChooseDirectory(owner, L"Where is a.part02.vnkx?", L"/x"), L"");

    std::wstring chosen = L"unchanged";
    host.QueueSaveFile(L"/x/Contents of a.txt");
    ASSERT_TRUE(CCommonDlgs::RunSaveFile(owner, 775, 776, SAVEFILE_OVERWRITEPROMPT,
                                         L"Contents of a.txt", chosen));
    EXPECT_EQ(chosen, L"/x/Contents of a.txt");
    EXPECT_EQ(Asked<platform::SaveFilePrompt>(2).filter, CAppUtils::GetResString(nullptr, 776));
    chosen = L"unchanged";
    EXPECT_FALSE(CCommonDlgs::RunSaveFile(owner, 775, 776, 1, nullptr, chosen));
    EXPECT_EQ(chosen, L"unchanged");

    std::wstring archive;
    host.QueueArchiveLocation(L"/x/a.vnkx");
    ASSERT_TRUE(CCommonDlgs::GetIndexArchiveRealArchiveLocation(owner, L"*.vnkx", archive));
    EXPECT_EQ(archive, L"/x/a.vnkx");
    EXPECT_FALSE(CCommonDlgs::GetIndexArchiveRealArchiveLocation(owner, L"*.vnkx", archive));
}
