// The two profile dialogs run modally on the test's thread while a "user"
// on another thread fills their fields and presses their buttons.
#include <gtest/gtest.h>

#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "CAppUtils.h"
#include "CFSUtils.h"
#include "CIniFile.h"
#include "CNewFtpProfile.h"
#include "CNewUploadProfile.h"
#include "ProfileSamples.h"
#include "platform/HeadlessUiHost.h"
#include "platform/SpecialFolders.h"
#include "platform/Win32.h"
#include "support/DialogDriving.h"
#include "support/LoadedResources.h"
#include "support/TempHome.h"

namespace {

using testsupport::WaitFor;

constexpr WORD kEditChanged = 0x0300;
constexpr WORD kSelectionChanged = 1;

class ProfileDialogTest : public testsupport::HomeTest {
protected:
    void SetUp() override {
        ASSERT_TRUE(resources.Loaded());
        // Runs on the dialog's thread while a box stands: where the focus is
        // then is where the previous failed check left it.
        host.WhileShown([this] {
            std::lock_guard lock(mutex);
            focusAtBox.push_back(GetDlgCtrlID(GetFocus()));
        });
    }

    // Runs `run` on this thread; `user` acts on the dialog once it stands.
    template <class Dialog, class Run>
    auto RunWith(Dialog &dialog, Run run, const std::function<void(HWND)> &user) {
        std::thread person([&] {
            if (!WaitFor([&] { return dialog.window.load() != nullptr; })) return;
            HWND window = dialog.window;
            // Answered only once WM_INITDIALOG is through.
            SendMessageW(window, WM_NULL, 0, 0);
            user(window);
        });
        auto result = run();
        person.join();
        return result;
    }

    // A click, answered before the call returns.
    static void Press(HWND dialog, int id) {
        SendMessageW(dialog, WM_COMMAND, MAKEWPARAM(static_cast<WORD>(id), BN_CLICKED), 0);
    }
    static void Type(HWND dialog, int id, const wchar_t *text) {
        SetDlgItemTextW(dialog, id, text);
        SendMessageW(dialog, WM_COMMAND, MAKEWPARAM(static_cast<WORD>(id), kEditChanged),
                     reinterpret_cast<LPARAM>(GetDlgItem(dialog, id)));
    }
    static std::wstring Text(HWND dialog, int id) { return platform::ReadControl(dialog, id).text; }
    static bool Enabled(HWND dialog, int id) { return platform::ReadControl(dialog, id).enabled; }

    std::vector<std::wstring> BoxTexts() const {
        std::vector<std::wstring> texts;
        for (const auto &box : host.Recorded()) texts.push_back(box.text);
        return texts;
    }
    static std::wstring Str(unsigned id) { return CAppUtils::LoadString(id); }

    static void StoreFtp(const wchar_t *name, const wchar_t *password) {
        FtpProfileRecord record = profilesamples::Ftp(name, password);
        AddFTPProfile(&record);
    }

    testsupport::LoadedResources resources;
    platform::HeadlessUiHost host;
    platform::ScopedUiHost installed{&host};
    std::mutex mutex;
    std::vector<int> focusAtBox;
};

using Ftp = CNewFtpProfile;

TEST_F(ProfileDialogTest, NewFtpProfileChecksRunInOrderWithTheirMessagesAndFocus) {
    StoreFtp(L"Office", L"");
    CNewFtpProfile dialog(nullptr);
    INT_PTR result = RunWith(
        dialog, [&] { return dialog.RunNew(); },
        [&](HWND d) {
            EXPECT_EQ(Text(d, Ftp::IDC_PORT), L"21");
            Press(d, IDOK);
            Type(d, Ftp::IDC_NAME, L"OFFICE");  // taken, whatever the case
            Press(d, IDOK);
            Type(d, Ftp::IDC_NAME, L"Home");
            Press(d, IDOK);
            Type(d, Ftp::IDC_SERVER, L"ftp.home.net");
            Press(d, IDOK);
            Type(d, Ftp::IDC_USER, L"dave");
            Type(d, Ftp::IDC_PASSWORD, L"Secret");
            Type(d, Ftp::IDC_CONFIRM, L"secret");  // differs in case only
            Press(d, IDOK);
            EXPECT_EQ(Text(d, Ftp::IDC_PASSWORD), L"");
            EXPECT_EQ(Text(d, Ftp::IDC_CONFIRM), L"");
            // One more failure, to see where the mismatch left the focus.
            Type(d, Ftp::IDC_USER, L"");
            Press(d, IDOK);
            Type(d, Ftp::IDC_USER, L"dave");
            Type(d, Ftp::IDC_PASSWORD, L"pw");
            Type(d, Ftp::IDC_CONFIRM, L"pw");
            CheckDlgButton(d, Ftp::IDC_PASSIVE, BST_CHECKED);
            Press(d, IDOK);
        });

    EXPECT_EQ(result, 1);
    EXPECT_EQ(BoxTexts(), (std::vector<std::wstring>{Str(1076), Str(1075), Str(492), Str(494),
                                                     Str(488), Str(494)}));
    ASSERT_EQ(focusAtBox.size(), 6u);
    EXPECT_EQ(std::vector<int>(focusAtBox.begin() + 1, focusAtBox.end()),
              (std::vector<int>{Ftp::IDC_NAME, Ftp::IDC_NAME, Ftp::IDC_SERVER, Ftp::IDC_USER,
                                Ftp::IDC_PASSWORD}));
    const FtpProfileRecord *stored = GetFTPProfile(L"Home");
    EXPECT_STREQ(stored->server, L"ftp.home.net");
    EXPECT_STREQ(stored->password, L"pw");
    EXPECT_TRUE(stored->passive);
}

TEST_F(ProfileDialogTest, EditFtpProfileShowsTheStoredOneAndReplacesItsFileWhole) {
    StoreFtp(L"Site", L"hidden");
    wchar_t base[1024] = {};
    CFSUtils::ShellGetFolderPath(CSIDL_LOCAL_APPDATA, base);
    std::wstring file = platform::JoinPath(base, L"Orvane Labs/FTPProfiles/Site");
    {
        CIniFile ini(file.c_str());
        ini.SetString(L"FTP", L"Left over", L"x");
        ini.Save();
    }

    CNewFtpProfile dialog(nullptr);
    INT_PTR result = RunWith(
        dialog, [&] { return dialog.RunEdit(L"Site"); },
        [&](HWND d) {
            EXPECT_EQ(Text(d, Ftp::IDC_NAME), L"Site");
            EXPECT_FALSE(Enabled(d, Ftp::IDC_NAME));
            EXPECT_EQ(Text(d, Ftp::IDC_PORT), L"2121");
            EXPECT_EQ(Text(d, Ftp::IDC_CONFIRM), L"hidden");
            Type(d, Ftp::IDC_SERVER, L"new.example.org");
            Press(d, IDOK);  // its own name is no collision
        });

    EXPECT_EQ(result, 1);
    EXPECT_TRUE(host.Recorded().empty());
    EXPECT_STREQ(GetFTPProfile(L"Site")->server, L"new.example.org");
    EXPECT_STREQ(GetFTPProfile(L"Site")->password, L"hidden");
    CIniFile ini(file.c_str());
    wchar_t value[16] = {};
    EXPECT_FALSE(ini.GetString(L"FTP", L"Left over", value, 16));
}

using Upload = CNewUploadProfile;

TEST_F(ProfileDialogTest, NewUploadProfileRefusesSilentlyAndSwapsPanelsByService) {
    profilesamples::AddUpload(L"Backup", kUploadServicePando);
    CNewUploadProfile dialog(nullptr);
    std::wstring result = RunWith(
        dialog, [&] { return std::wstring(dialog.RunNew()); },
        [&](HWND d) {
            HWND combo = GetDlgItem(d, Upload::IDC_SERVICE);
            ASSERT_EQ(SendMessageW(combo, CB_GETCOUNT, 0, 0), 2);
            EXPECT_EQ(SendMessageW(combo, CB_GETCURSEL, 0, 0), 0);
            EXPECT_FALSE(Enabled(d, IDOK));
            ASSERT_TRUE(dialog.pandoPanel);
            EXPECT_FALSE(dialog.sharingPanel);
            HWND pando = dialog.pandoPanel->window;

            Type(d, Upload::IDC_PROFILE_NAME, L"BACKUP");
            EXPECT_TRUE(Enabled(d, IDOK));
            Press(d, IDOK);  // taken: stays open, no message
            EXPECT_TRUE(IsWindow(d));
            Type(d, Upload::IDC_PROFILE_NAME, L"");
            EXPECT_FALSE(Enabled(d, IDOK));
            Press(d, IDOK);  // empty: stays open, no message
            EXPECT_TRUE(IsWindow(d));

            SendMessageW(combo, CB_SETCURSEL, 1, 0);
            SendMessageW(d, WM_COMMAND, MAKEWPARAM(Upload::IDC_SERVICE, kSelectionChanged),
                         reinterpret_cast<LPARAM>(combo));
            EXPECT_FALSE(dialog.pandoPanel);
            EXPECT_FALSE(IsWindow(pando));
            ASSERT_TRUE(dialog.sharingPanel);
            Type(d, Upload::IDC_PROFILE_NAME, L"Photos");
            testsupport::Click(d, IDOK);
        });

    EXPECT_EQ(result, L"Photos");
    EXPECT_TRUE(host.Recorded().empty());
    EXPECT_EQ(GetUploadProfile(L"Photos")->service, kUploadServiceSharing);
}

}  // namespace
