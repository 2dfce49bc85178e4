// A prompt of a run stands on the worker thread, modal to the progress
// window, while the window's thread goes on pumping.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>

#include "CExpandConflictAction.h"
#include "CPassword.h"
#include "CProgressDialog.h"
#include "platform/Win32.h"
#include "support/DialogDriving.h"
#include "support/LoadedResources.h"

namespace {

class ModalPromptTest : public ::testing::Test {
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

    testsupport::LoadedResources resources;
    platform::HeadlessUiHost host;
    platform::ScopedUiHost installed{&host};
    CProgressDialog dialog;
};

}  // namespace

TEST_F(ModalPromptTest, PromptOnAWorkerDisablesTheOwnerWhileItsThreadPumps) {
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
    std::wstring password;
    ASSERT_TRUE(OnWorker([&] {
        CPassword prompt(owner, L"a.zip", false, false);
        if (prompt.Run()) password = prompt.password;
    }));
    EXPECT_EQ(password, L"secret");
    EXPECT_TRUE(ownerDisabledMeanwhile);
    EXPECT_TRUE(ownerServedMeanwhile);
    EXPECT_TRUE(IsWindowEnabled(owner)) << "the owner is enabled again after the prompt";
}

TEST_F(ModalPromptTest, OwnerDisabledBeforeThePromptStaysDisabled) {
    // A run disables its parent for as long as it lasts; a prompt in
    // between must not enable it.
    HWND owner = dialog.window;
    EnableWindow(owner, FALSE);
    ASSERT_TRUE(OnWorker([&] { CExpandConflictAction(owner, L"/x/a.txt", false).Run(); }));
    EXPECT_FALSE(IsWindowEnabled(owner));
    EXPECT_EQ(host.Prompts().size(), 1u);
}
