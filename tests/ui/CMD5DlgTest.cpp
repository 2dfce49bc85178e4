// The digest dialog run modally while a "user" on another thread watches
// its controls and presses its buttons: digests on worker threads, options
// kept in the registry, copy and save.
#include <gtest/gtest.h>

#include <functional>
#include <thread>

#include "CCommonDlgs.h"
#include "CCrypto.h"
#include "CMD5Dlg.h"
#include "CRegistry.h"
#include "platform/Win32.h"
#include "support/DialogDriving.h"
#include "support/LoadedResources.h"
#include "support/TempHome.h"
#include "support/TerminalCapture.h"

namespace fs = std::filesystem;

namespace {

constexpr const wchar_t *kOptionsKey = L"Software\\Orvane Labs\\Varnick\\CommonDlgs";

using testsupport::Click;
using testsupport::WaitFor;

class MD5DlgTest : public testsupport::HomeTest {
protected:
    void SetUp() override {
        file = home.Scratch() / "data.bin";
        std::string bytes(100000, '\0');
        for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 7);
        testsupport::WriteBytes(file, bytes);
        path = platform::FromUtf8(file.string());
        md5 = CCrypto::ComputeMD5(path.c_str());
        sha1 = CCrypto::ComputeSHA1(path.c_str());
    }

    void SetOptions(DWORD computeMD5, DWORD computeSHA1) {
        CRegistry registry;
        registry.SetMajorKey(0);
        registry.CreateAppKey(kOptionsKey);
        registry.WriteRegSetting(L"ComputeMD5", &computeMD5);
        registry.WriteRegSetting(L"ComputeSHA1", &computeSHA1);
    }

    DWORD Option(const wchar_t *name) {
        CRegistry registry;
        registry.SetMajorKey(0);
        registry.SetAppKey(kOptionsKey);
        DWORD value = 99;
        registry.GetRegSetting(name, &value);
        return value;
    }

    // Runs the dialog on this thread while `user` acts on its window from
    // another one; `user` ends it.
    INT_PTR RunWith(CMD5Dlg &dialog, const std::function<void(HWND)> &user) {
        std::thread person([&] {
            if (WaitFor([&] { return dialog.window.load() != nullptr; })) user(dialog.window);
        });
        INT_PTR result = dialog.Run(path.c_str());
        person.join();
        return result;
    }

    static std::wstring Text(HWND dialog, int id) { return platform::ReadControl(dialog, id).text; }
    static bool Enabled(HWND dialog, int id) { return platform::ReadControl(dialog, id).enabled; }

    testsupport::LoadedResources resources;
    platform::HeadlessUiHost host;
    platform::ScopedUiHost installed{&host};
    fs::path file;
    std::wstring path;
    std::wstring md5;
    std::wstring sha1;
};

}  // namespace

TEST_F(MD5DlgTest, ByDefaultComputesMD5AloneAndCopiesIt) {
    CMD5Dlg dialog;
    bool copyWaited = false;
    INT_PTR result = RunWith(dialog, [&](HWND window) {
        copyWaited = !Enabled(window, CMD5Dlg::IDC_MD5_COPY);
        EXPECT_TRUE(WaitFor([&] {
            return Text(window, CMD5Dlg::IDC_MD5_TEXT) == md5 &&
                   Enabled(window, CMD5Dlg::IDC_MD5_COPY);
        }));
        EXPECT_TRUE(Text(window, CMD5Dlg::IDC_SHA1_TEXT).empty());
        EXPECT_FALSE(Enabled(window, CMD5Dlg::IDC_SHA1_COPY));
        EXPECT_EQ(Text(window, CMD5Dlg::IDC_SIZE), L"100,000");
        Click(window, CMD5Dlg::IDC_MD5_COPY);
        Click(window, IDOK);
    });
    EXPECT_EQ(result, IDOK);
    EXPECT_TRUE(copyWaited) << "copy waits for the digest";
    ASSERT_TRUE(OpenClipboard(nullptr));
    HANDLE data = GetClipboardData(CF_UNICODETEXT);
    EXPECT_EQ(std::wstring(data ? static_cast<const wchar_t *>(GlobalLock(data)) : L""), md5);
    GlobalUnlock(data);
    CloseClipboard();
    EXPECT_EQ(Option(L"ComputeMD5"), 1u);
    EXPECT_EQ(Option(L"ComputeSHA1"), 0u);
}

TEST_F(MD5DlgTest, StoredOptionsChooseTheDigestsTickingStartsOneAndSaveWritesADigestFile) {
    SetOptions(0, 1);
    fs::path saved = home.Scratch() / "out.sha1";
    host.QueueSaveFile(platform::FromUtf8(saved.string()));
    CMD5Dlg dialog;
    RunWith(dialog, [&](HWND window) {
        EXPECT_TRUE(WaitFor([&] {
            return Text(window, CMD5Dlg::IDC_SHA1_TEXT) == sha1 &&
                   Enabled(window, CMD5Dlg::IDC_SHA1_SAVE);
        }));
        EXPECT_FALSE(Enabled(window, CMD5Dlg::IDC_MD5_TEXT));
        SendDlgItemMessageW(window, CMD5Dlg::IDC_MD5_CHECK, BM_SETCHECK, BST_CHECKED, 0);
        Click(window, CMD5Dlg::IDC_MD5_CHECK);
        EXPECT_TRUE(WaitFor([&] { return Text(window, CMD5Dlg::IDC_MD5_TEXT) == md5; }));
        Click(window, CMD5Dlg::IDC_SHA1_SAVE);
        WaitFor([&] { return fs::exists(saved); });
        SendDlgItemMessageW(window, CMD5Dlg::IDC_SHA1_CHECK, BM_SETCHECK, BST_UNCHECKED, 0);
        Click(window, CMD5Dlg::IDC_SHA1_CHECK);
        EXPECT_TRUE(WaitFor([&] { return !Enabled(window, CMD5Dlg::IDC_SHA1_COPY); }));
        Click(window, IDCANCEL);
    });
    std::vector<platform::PromptRecord> prompts = host.Prompts();
    ASSERT_EQ(prompts.size(), 1u);
    const auto *asked = prompts[0].As<platform::SaveFilePrompt>();
    ASSERT_NE(asked, nullptr);
    EXPECT_EQ(asked->suggestedName, path + L".sha1");
    EXPECT_EQ(asked->flags, SAVEFILE_OVERWRITEPROMPT);
    EXPECT_EQ(testsupport::ReadBytes(saved), platform::ToUtf8(sha1) + "\r\n") << "a text file";
    EXPECT_EQ(Option(L"ComputeMD5"), 1u);
    EXPECT_EQ(Option(L"ComputeSHA1"), 0u);
}

TEST_F(MD5DlgTest, TerminalHostPrintsTheDigestsAndTheDialogClosesItself) {
    testsupport::TerminalCapture terminal(home.Scratch() / "out.txt");
    ASSERT_TRUE(terminal.Ready());
    CMD5Dlg dialog;
    EXPECT_EQ(dialog.Run(path.c_str()), IDOK);
    EXPECT_EQ(terminal.Written(), file.string() + "\nMD5   " + platform::ToUtf8(md5) + "\n");
}
