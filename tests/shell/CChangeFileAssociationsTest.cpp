// The association dialog run modally while a "user" on another thread reads
// its rows and presses its buttons.
#include <gtest/gtest.h>

#include <functional>
#include <thread>

#include "AssociationTestSupport.h"
#include "CAppOptionsRepository.h"
#include "CAppUtils.h"
#include "CChangeFileAssociations.h"
#include "CRegistry.h"
#include "FileAssociations.h"
#include "platform/Win32.h"
#include "support/DialogDriving.h"
#include "support/LoadedResources.h"
#include "support/TempHome.h"

using platform::ListRow;
using shelltest::ClassesText;
using shelltest::SetClassesText;
using testsupport::Click;
using testsupport::WaitFor;

namespace {

constexpr std::size_t kZipRow = 3;
constexpr std::size_t kRarRow = 14;

class ChangeFileAssociationsTest : public testsupport::HomeTest {
protected:
    // Runs the dialog on this thread while `user` acts on it from another
    // one; `user` ends it.
    bool RunWith(CChangeFileAssociations &dialog, const std::function<void(HWND)> &user) {
        std::thread person([&] {
            if (!WaitFor([&] { return dialog.window.load() != nullptr; })) return;
            // Answered only once the dialog's loop runs, after its set-up.
            SendMessageW(dialog.window, WM_NULL, 0, 0);
            user(dialog.window);
        });
        const bool ok = dialog.Run();
        person.join();
        return ok;
    }

    static std::vector<ListRow> Rows(HWND dialog) {
        return platform::ReadControl(dialog, CChangeFileAssociations::IDC_ASSOCIATION_LIST)
            .state.rows;
    }
    static std::vector<bool> Checks(HWND dialog) {
        std::vector<bool> checks;
        for (const ListRow &row : Rows(dialog)) {
            checks.push_back((row.state & LVIS_STATEIMAGEMASK) ==
                             CChangeFileAssociations::kCheckedState);
        }
        return checks;
    }
    static std::vector<bool> OnlyChecked(std::initializer_list<std::size_t> rows) {
        std::vector<bool> checks(kFileAssociationCount, false);
        for (std::size_t row : rows) checks[row] = true;
        return checks;
    }
    static void RequestInversion(DWORD row) {
        HKEY key = nullptr;
        ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, CChangeFileAssociations::kRequestKey, 0,
                                  nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr),
                  ERROR_SUCCESS);
        RegCloseKey(key);
        CRegistry request;
        request.SetAppKey(CChangeFileAssociations::kRequestKey);
        request.WriteRegSetting(CChangeFileAssociations::kRequestValue, &row);
    }
    static bool RequestKeyExists() {
        HKEY key = nullptr;
        if (RegOpenKeyExW(HKEY_CURRENT_USER, CChangeFileAssociations::kRequestKey, 0, KEY_READ,
                          &key) != ERROR_SUCCESS) {
            return false;
        }
        RegCloseKey(key);
        return true;
    }

    testsupport::LoadedResources resources;
    platform::HeadlessUiHost host;
    platform::ScopedUiHost installed{&host};
};

}  // namespace

TEST_F(ChangeFileAssociationsTest, RequestedRowIsOfferedInvertedOnceAndCancelChangesNothing) {
    SetClassesText(L".rar", nullptr, L"Varnick.Archive.Open.Rar");
    RequestInversion(kRarRow);
    {
        CChangeFileAssociations dialog(nullptr);
        std::vector<bool> checks;
        EXPECT_FALSE(RunWith(dialog, [&](HWND window) {
            checks = Checks(window);
            Click(window, IDCANCEL);
        }));
        EXPECT_EQ(checks, OnlyChecked({}));
    }
    EXPECT_FALSE(RequestKeyExists()) << "the request is used once";
    EXPECT_TRUE(IsAssociatedWithVarnick(format::rar)) << "cancel keeps the registry";

    RequestInversion(kZipRow);
    CChangeFileAssociations dialog(nullptr);
    std::vector<bool> checks;
    RunWith(dialog, [&](HWND window) {
        checks = Checks(window);
        Click(window, IDCANCEL);
    });
    EXPECT_EQ(checks, OnlyChecked({kZipRow, kRarRow}));

    RequestInversion(kFileAssociationCount);  // names no row
    CChangeFileAssociations outOfRange(nullptr);
    RunWith(outOfRange, [&](HWND window) {
        checks = Checks(window);
        Click(window, IDCANCEL);
    });
    EXPECT_EQ(checks, OnlyChecked({kRarRow}));
}

TEST_F(ChangeFileAssociationsTest, OkAppliesTheChecksToTheRegistryAndTheOptionsTable) {
    SetClassesText(L".rar", nullptr, L"Varnick.Archive.Open.Rar");
    CChangeFileAssociations dialog(nullptr);
    std::vector<bool> allChecked;
    const bool ok = RunWith(dialog, [&](HWND window) {
        Click(window, CChangeFileAssociations::IDC_CHECK_ALL);
        WaitFor([&] { return Checks(window) == std::vector<bool>(kFileAssociationCount, true); });
        allChecked = Checks(window);
        Click(window, CChangeFileAssociations::IDC_UNCHECK_ALL);
        WaitFor([&] { return Checks(window) == OnlyChecked({}); });
        ListView_SetCheckState(GetDlgItem(window, CChangeFileAssociations::IDC_ASSOCIATION_LIST),
                               static_cast<int>(kZipRow), TRUE);
        Click(window, IDOK);
    });
    ASSERT_TRUE(ok);
    EXPECT_EQ(allChecked, std::vector<bool>(kFileAssociationCount, true));
    EXPECT_TRUE(IsAssociatedWithVarnick(format::zip));
    EXPECT_FALSE(IsAssociatedWithVarnick(format::rar));
    EXPECT_EQ(ClassesText(L".zip"), L"Varnick.Archive.Open.Zip");
    for (std::size_t row = 0; row < kFileAssociationCount; ++row) {
        const FILEASSOCIATION &entry = dialog.options->FileAssociations.entries[row];
        EXPECT_EQ(entry.type, kFileAssociationTypes[row]);
        EXPECT_EQ(entry.associated, row == kZipRow ? TRUE : FALSE) << "row " << row;
    }
}
