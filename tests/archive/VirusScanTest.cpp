// The virus-scan hook, run against stand-in scanners that note their
// arguments: found through the App Paths keys of the registry store, or
// named as the custom scanner.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "CAppOptionsRepository.h"
#include "CVirusScanHandling.h"
#include "platform/Win32.h"
#include "support/RecordingTools.h"
#include "support/TempHome.h"

namespace {

using testsupport::RecordedCall;
namespace fs = std::filesystem;

class VirusScanTest : public testsupport::HomeTest {
protected:
    VirusScanTest() : tools(home.Scratch("tools")), options(nullptr) {}

    static void RegisterAppPath(const std::wstring &executable, const fs::path &program) {
        std::wstring key =
            L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\App Paths\\" + executable;
        HKEY handle = nullptr;
        ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                                  nullptr, &handle, nullptr),
                  0);
        std::wstring value = program.wstring();
        RegSetValueExW(handle, L"", 0, REG_SZ, reinterpret_cast<const BYTE *>(value.c_str()),
                       static_cast<DWORD>((value.size() + 1) * 2));  // UTF-16 bytes
        RegCloseKey(handle);
    }

    void Scan(DWORD option, STDStringList *files) {
        options.AVOption = option;
        CVirusScanHandling(&options).Scan(files);
    }

    // Gives any launch that should not have happened time to show up.
    std::vector<RecordedCall> SettledCalls(std::size_t expected) {
        tools.WaitForCalls(expected);
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        return tools.Calls();
    }

    testsupport::RecordingTools tools;
    CAppOptionsRepository options;
};

TEST_F(VirusScanTest, KnownScannersAreFoundThroughTheirAppPathsKeys) {
    STDStringList files = {L"/data/a.txt"};
    Scan(1, &files);  // nothing registered yet: nothing runs
    RegisterAppPath(L"NAVW32.EXE", tools.Add("navw32"));
    RegisterAppPath(L"SCAN32.EXE", tools.Add("scan32"));
    RegisterAppPath(L"VET32.EXE", tools.Add("vet32"));
    RegisterAppPath(L"OTHER.EXE", tools.Add("other"));
    for (DWORD option : {0u, 1u, 2u, 3u, 5u}) Scan(option, &files);

    std::vector<RecordedCall> calls = SettledCalls(3);
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0], (RecordedCall{"navw32", "/data/a.txt"}));
    EXPECT_EQ(calls[1], (RecordedCall{"scan32", "/data/a.txt"}));
    EXPECT_EQ(calls[2], (RecordedCall{"vet32", "/data/a.txt"}));
}

TEST_F(VirusScanTest, CustomScannerGetsEveryFileQuotedUnlessThereIsNothingToRun) {
    STDStringList files = {L"/data/with blank.txt", L"/data/plain.txt"};
    STDStringList none;
    options.AVPath = (tools.Bin() / "missing").wstring();
    Scan(4, &files);
    options.AVPath = tools.Add("custom").wstring();
    Scan(4, &none);
    Scan(4, nullptr);
    Scan(4, &files);

    std::vector<RecordedCall> calls = SettledCalls(1);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0], (RecordedCall{"custom", "/data/with blank.txt", "/data/plain.txt"}));
}

// Each file adds 3 characters to its path (a blank and two quotes); a list
// whose line would reach 2,000 characters scans the first file's folder
// instead, which may hold more than the list.
TEST_F(VirusScanTest, ALineReaching2000CharactersScansTheFirstFilesFolder) {
    options.AVPath = tools.Add("custom").wstring();
    auto listOfLength = [](std::size_t lineLength) {
        STDStringList files = {L"/first/folder/a.txt"};
        std::size_t rest = lineLength - (files.front().size() + 3);
        while (rest > 0) {
            std::size_t piece = rest >= 200 ? 100 : (rest > 100 ? rest / 2 : rest);
            files.push_back(L"/o/" + std::wstring(piece - 6, L'x'));
            rest -= piece;
        }
        return files;
    };
    STDStringList fits = listOfLength(1999);
    STDStringList tooLong = listOfLength(2000);
    Scan(4, &fits);
    std::vector<RecordedCall> calls = tools.WaitForCalls(1);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].size(), fits.size() + 1);
    std::size_t line = 0;
    for (auto it = calls[0].begin() + 1; it != calls[0].end(); ++it) line += it->size() + 3;
    EXPECT_EQ(line, 1999u);

    options.AVPath = tools.Add("custom2").wstring();
    Scan(4, &tooLong);
    calls = tools.WaitForCalls(2);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[1], (RecordedCall{"custom2", "/first/folder"}));
}

}  // namespace
