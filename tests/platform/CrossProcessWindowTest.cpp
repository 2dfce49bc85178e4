#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "WindowTestSupport.h"
#include "platform/SpecialFolders.h"
#include "platform/WideText.h"
#include "platform/WinUser.h"
#include "support/TempHome.h"

using windowtest::TestWindow;

namespace {

constexpr wchar_t kPeerClass[] = L"VarnickPeerWindow";
constexpr wchar_t kCallerClass[] = L"VarnickPeerCaller";

// The helper program (tests/platform/helpers/WindowPeer.cpp) in a process
// of its own, killed if the test leaves it running.
class Peer {
public:
    explicit Peer(const std::wstring &title) {
        std::wstring program = platform::FromUtf8(VARNICK_BIN_DIR "/window-peer");
        std::wstring commandLine = L"\"" + program + L"\" \"" + title + L"\"";
        STARTUPINFOW startup{};
        startup.cb = sizeof(startup);
        started_ = CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, FALSE, 0,
                                  nullptr, nullptr, &startup, &info_) != FALSE;
    }
    ~Peer() {
        if (!started_) return;
        if (WaitForSingleObject(info_.hProcess, 0) == WAIT_TIMEOUT) Kill();
        CloseHandle(info_.hProcess);
        CloseHandle(info_.hThread);
    }
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

    bool Started() const { return started_; }
    DWORD ProcessId() const { return info_.dwProcessId; }
    void Kill() {
        TerminateProcess(info_.hProcess, 9);
        WaitForSingleObject(info_.hProcess, 5000);
    }
    // The exit code, or STILL_ACTIVE when it did not end in time.
    DWORD WaitForExit() {
        WaitForSingleObject(info_.hProcess, 10000);
        DWORD code = STILL_ACTIVE;
        GetExitCodeProcess(info_.hProcess, &code);
        return code;
    }

private:
    PROCESS_INFORMATION info_{};
    bool started_ = false;
};

// Looks until the window is announced; null after a while.
HWND FindPeer(const wchar_t *title) {
    for (int attempt = 0; attempt < 500; ++attempt) {
        if (HWND found = FindWindowW(kPeerClass, title)) return found;
        Sleep(20);
    }
    return nullptr;
}

std::filesystem::path WindowsFolder() {
    return std::filesystem::path(platform::ToUtf8(platform::UserRuntimeFolder())) / "windows";
}

std::vector<std::string> SocketsOf(DWORD processId) {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator(WindowsFolder(), error)) {
        std::string name = entry.path().filename().string();
        if (name.find("." + std::to_string(processId) + ".") != std::string::npos) {
            names.push_back(name);
        }
    }
    return names;
}

LRESULT SendBytes(HWND window, ULONG_PTR kind, const std::string &bytes) {
    COPYDATASTRUCT data{kind, static_cast<DWORD>(bytes.size()), const_cast<char *>(bytes.data())};
    return SendMessageW(window, WM_COPYDATA, 0, reinterpret_cast<LPARAM>(&data));
}

class CallerWindow {
public:
    CallerWindow() {
        static const ATOM atom = [] {
            WNDCLASSEXW windowClass{};
            windowClass.cbSize = sizeof(windowClass);
            windowClass.lpfnWndProc = Procedure;
            windowClass.lpszClassName = kCallerClass;
            return RegisterClassExW(&windowClass);
        }();
        EXPECT_NE(atom, 0);
        handle_ = CreateWindowExW(0, kCallerClass, L"caller", 0, 0, 0, 0, 0, nullptr, nullptr,
                                  nullptr, nullptr);
    }
    ~CallerWindow() { DestroyWindow(handle_); }

    static std::string received;
    static DWORD receivedOn;

private:
    static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
        if (message != WM_COPYDATA) return DefWindowProcW(window, message, wParam, lParam);
        const auto &data = *reinterpret_cast<const COPYDATASTRUCT *>(lParam);
        received.assign(static_cast<const char *>(data.lpData), data.cbData);
        receivedOn = GetCurrentThreadId();
        return 500 + static_cast<LRESULT>(data.dwData);
    }

    HWND handle_ = nullptr;
};

std::string CallerWindow::received;
DWORD CallerWindow::receivedOn = 0;

}  // namespace

class CrossProcessWindow : public testsupport::HomeTest {};

TEST_F(CrossProcessWindow, FindWindowAndCopyDataMakeTheRoundTripBetweenTwoProcesses) {
    CallerWindow caller;
    Peer peer(L"Peer One");
    ASSERT_TRUE(peer.Started());
    HWND proxy = FindPeer(L"peer one");
    ASSERT_NE(proxy, nullptr);
    EXPECT_TRUE(IsWindow(proxy));
    EXPECT_EQ(FindWindowW(kPeerClass, L"peer one"), proxy);
    EXPECT_EQ(FindWindowW(kPeerClass, L"Another title"), nullptr);
    DWORD processId = 0;
    GetWindowThreadProcessId(proxy, &processId);
    EXPECT_EQ(processId, peer.ProcessId());
    wchar_t title[32];
    EXPECT_EQ(GetWindowTextW(proxy, title, 32), 8);
    EXPECT_STREQ(title, L"Peer One");

    EXPECT_EQ(SendBytes(proxy, 1, "hello"), 'h' + 'e' + 'l' + 'l' + 'o');
    std::string large(1 << 20, '\x01');
    EXPECT_EQ(SendBytes(proxy, 1, large), 1 << 20);

    // The peer sends back to this process while this thread waits for its
    // answer; the nested message is served on this thread.
    EXPECT_EQ(SendBytes(proxy, 2, "abc"), 500 + 7 + 1);
    EXPECT_EQ(CallerWindow::received, "cba");
    EXPECT_EQ(CallerWindow::receivedOn, GetCurrentThreadId());

    // Pointers other than WM_COPYDATA's cannot travel.
    EXPECT_EQ(SendMessageW(proxy, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(L"x")), 0);
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);

    ASSERT_TRUE(PostMessageW(proxy, WM_CLOSE, 0, 0));
    EXPECT_EQ(peer.WaitForExit(), 0u);
    EXPECT_FALSE(IsWindow(proxy));
    EXPECT_EQ(SendBytes(proxy, 1, "late"), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
    EXPECT_EQ(FindWindowW(kPeerClass, nullptr), nullptr);
    EXPECT_TRUE(SocketsOf(peer.ProcessId()).empty());
}

TEST_F(CrossProcessWindow, SocketsOfProcessesThatAreGoneAreIgnoredAndRemoved) {
    Peer peer(L"Doomed");
    ASSERT_TRUE(peer.Started());
    HWND proxy = FindPeer(L"Doomed");
    ASSERT_NE(proxy, nullptr);
    peer.Kill();
    // A killed process leaves its socket behind.
    ASSERT_EQ(SocketsOf(peer.ProcessId()).size(), 1u);
    EXPECT_FALSE(IsWindow(proxy));
    EXPECT_EQ(FindWindowW(kPeerClass, nullptr), nullptr);
    EXPECT_TRUE(SocketsOf(peer.ProcessId()).empty());

    // A socket nobody listens on, under the number of a live process that
    // is not this one.
    const std::string stale = (WindowsFolder() / "varnickpeerwindow.1.10010").string();
    int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(stale.size(), sizeof(address.sun_path));
    std::strcpy(address.sun_path, stale.c_str());
    ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    close(fd);
    EXPECT_EQ(FindWindowW(kPeerClass, nullptr), nullptr);
    EXPECT_FALSE(std::filesystem::exists(stale));
}

TEST_F(CrossProcessWindow, WindowsOfThisProcessAnnounceAndWithdrawTheirSockets) {
    auto window = std::make_unique<TestWindow>();
    TestWindow child({}, window->Handle(), WS_CHILD);
    HWND messageOnly = CreateWindowExW(0, TestWindow::ClassName(), L"", 0, 0, 0, 0, 0, HWND_MESSAGE,
                                       nullptr, nullptr, nullptr);
    // Only the top-level window is announced.
    EXPECT_EQ(SocketsOf(GetCurrentProcessId()).size(), 1u);
    window.reset();
    DestroyWindow(messageOnly);
    EXPECT_TRUE(SocketsOf(GetCurrentProcessId()).empty());
}
