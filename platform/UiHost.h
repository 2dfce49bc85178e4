// Presentation belongs to a host that the program installs: the headless
// host (the default, with scripted answers for tests), a terminal host for
// the command-line programs, a graphical one. Library code never talks to a
// host directly; it calls MessageBoxW and kin, which ask the current host.
//
// A host answers as the dialog would: a message box returns the id of the
// button pressed (IDOK, IDYES, ...). Where nobody can answer, a message box
// gives its default button.
#pragma once

#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "platform/WinTypes.h"

namespace platform {

class UiHost {
public:
    UiHost() = default;
    virtual ~UiHost() = default;
    UiHost(const UiHost &) = delete;
    UiHost &operator=(const UiHost &) = delete;

    // Shows a message box and returns the id of the chosen button.
    virtual int MessageBox(HWND owner, const std::wstring &text, const std::wstring &caption,
                           UINT flags) = 0;

    // GetSystemMetrics values of the display the host presents on. The
    // default is the headless display: one virtual monitor of 1024 by 768.
    virtual int SystemMetric(int index);
};

// The button a message box of these flags (MB_OKCANCEL, MB_DEFBUTTON2, ...)
// gives when nobody presses one. A default beyond the last button falls
// back on the first, as Windows does.
int DefaultMessageBoxAnswer(UINT flags);

// One message box as a host was asked to show it, and what it answered.
struct MessageBoxRecord {
    HWND owner = nullptr;
    std::wstring text;
    std::wstring caption;
    UINT flags = 0;
    int answer = 0;
};

// Shows nothing. Records every box and answers from a queue of scripted
// answers; when the queue is empty, with the box's default button. Safe to
// use from several threads, as worker threads show prompts too.
class HeadlessUiHost : public UiHost {
public:
    int MessageBox(HWND owner, const std::wstring &text, const std::wstring &caption,
                   UINT flags) override;

    // The answer for the next box that is shown; answers are used in order.
    void QueueAnswer(int answer);
    // Every box shown so far, oldest first.
    std::vector<MessageBoxRecord> Recorded() const;
    // Forgets the recorded boxes and any answers still queued.
    void Reset();

private:
    mutable std::mutex mutex_;
    std::deque<int> answers_;
    std::vector<MessageBoxRecord> recorded_;
};

// Installs a host (not owned; it must outlive its use) and returns the one
// it replaces. A null host reinstalls the default headless host.
UiHost *SetUiHost(UiHost *host);
// The installed host; never null.
UiHost *CurrentUiHost();
// The process's default host, the one in charge when nothing else is
// installed.
HeadlessUiHost &DefaultHeadlessUiHost();

// Installs a host for the life of a scope, then puts the previous one back.
class ScopedUiHost {
public:
    explicit ScopedUiHost(UiHost *host) : previous_(SetUiHost(host)) {}
    ~ScopedUiHost() { SetUiHost(previous_); }
    ScopedUiHost(const ScopedUiHost &) = delete;
    ScopedUiHost &operator=(const ScopedUiHost &) = delete;

private:
    UiHost *previous_;
};

}  // namespace platform
