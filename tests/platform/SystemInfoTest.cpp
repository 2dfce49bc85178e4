// Facts about the machine in their Windows form.
#include <gtest/gtest.h>
#include <sys/utsname.h>

#include <cstdio>
#include <string>

#include "platform/SystemInfo.h"
#include "platform/WinError.h"
#include "support/TempHome.h"

TEST(SystemInfo, VersionIsTheKernelReleaseAndBothRecordSizesAreAccepted) {
    utsname names{};
    ASSERT_EQ(uname(&names), 0);
    unsigned major = 0, minor = 0;
    std::sscanf(names.release, "%u.%u", &major, &minor);

    OSVERSIONINFOEXW extended{};
    extended.dwOSVersionInfoSize = sizeof extended;
    ASSERT_TRUE(GetVersionExW(reinterpret_cast<OSVERSIONINFOW *>(&extended)));
    EXPECT_EQ(extended.dwMajorVersion, major);
    EXPECT_EQ(extended.dwMinorVersion, minor);

    OSVERSIONINFOW plain{};
    plain.dwOSVersionInfoSize = sizeof plain;
    EXPECT_TRUE(GetVersionExW(&plain));

    OSVERSIONINFOW wrong{};
    wrong.dwOSVersionInfoSize = 3;
    EXPECT_FALSE(GetVersionExW(&wrong));
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_FALSE(GetVersionExW(nullptr));
}

class SystemFolders : public testsupport::HomeTest {};

TEST_F(SystemFolders, WindowsAndSystemFoldersLieBelowTheHomeAndReportNeededSize) {
    wchar_t buffer[1024];
    UINT length = GetWindowsDirectoryW(buffer, 1024);
    ASSERT_GT(length, 0u);
    std::wstring windows(buffer, length);
    EXPECT_EQ(windows.rfind(std::wstring(home.Path().wstring()), 0), 0u) << windows.c_str();

    length = GetSystemDirectoryW(buffer, 1024);
    EXPECT_EQ(std::wstring(buffer, length), windows + L"/lib");

    wchar_t small[4];
    EXPECT_EQ(GetSystemDirectoryW(small, 4), windows.size() + 5);
    EXPECT_EQ(GetWindowsDirectoryW(nullptr, 0), windows.size() + 1);
}
