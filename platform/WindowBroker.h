// Windows of the user's other processes: FindWindowW and WM_COPYDATA across
// processes.
//
// Every top-level window of a class the program registered is announced by
// a Unix socket in the folder "windows" of the user's runtime folder, named
// "<class>.<pid>.<handle>" (the class folded to lower case and
// percent-encoded). One thread per process serves the sockets. A request
// names the window and a message; a sent message is delivered on the
// window's own thread through its queue, and the answer goes back over the
// connection. FindWindowW in another process reads the folder, asks the
// announced window for its title, and returns a proxy handle; sockets of
// processes that are gone are removed on the way.
//
// Over the connection go WM_COPYDATA (its bytes travel and come back to the
// receiver as a COPYDATASTRUCT) and messages whose parameters are plain
// numbers (WM_NULL, WM_CLOSE, WM_QUERYENDSESSION, WM_ENDSESSION, WM_USER and
// above); others are refused with ERROR_ACCESS_DENIED.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/WinTypes.h"

namespace platform {

// A window of another process as a proxy handle knows it.
struct RemoteWindow {
    std::wstring socketPath;
    std::wstring className;
    DWORD processId = 0;
    DWORD threadId = 0;
    std::uint64_t handle = 0;  // the window's handle in its own process
};

class WindowBroker {
public:
    static WindowBroker &Instance();

    // Publishes a window of this process; false when the runtime folder or
    // the socket cannot be had (the window then stays local).
    bool Announce(HWND window, const std::wstring &className);
    // Removes the window's socket; nothing when it was not announced.
    void Withdraw(HWND window);

    // The newest announced window of another process whose class and title
    // match (null matches any, without case), as a proxy handle; null when
    // there is none.
    HWND Find(const wchar_t *className, const wchar_t *title);

    // Sends a message and waits for the answer, serving messages sent to the
    // calling thread meanwhile. False, with the last error set, when the
    // window is gone, the message cannot travel, or the time is up.
    bool Send(const RemoteWindow &window, UINT message, WPARAM wParam, LPARAM lParam,
              DWORD milliseconds, LRESULT &result);
    // Delivers without waiting for the answer.
    bool Post(const RemoteWindow &window, UINT message, WPARAM wParam, LPARAM lParam);
    // The window's current title; false when it cannot be asked.
    bool QueryTitle(const RemoteWindow &window, std::wstring &title);
    // The process is alive and its socket is there.
    static bool IsAlive(const RemoteWindow &window);

private:
    WindowBroker() = default;
};

}  // namespace platform
