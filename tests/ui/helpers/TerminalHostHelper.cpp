// A command-line program in miniature for the terminal host's test: under
// the terminal host it runs a progress dialog that a worker thread drives,
// asks for a password and shows a message box from the worker, and prints
// what came back. Argument: the password the test will type.
#include <cstdio>
#include <cstring>
#include <thread>

#include "CAppUtils.h"
#include "CPassword.h"
#include "CProgressDialog.h"
#include "platform/TerminalUiHost.h"
#include "platform/Win32.h"

namespace {

constexpr int kSteps = 40;

void OnEnd(void *context, bool) { *static_cast<bool *>(context) = true; }

void DriveRun(CProgressDialog &dialog) {
    dialog.filesTotal = kSteps;
    dialog.bytesTotal = kSteps * 1000;
    for (int step = 1; step <= kSteps; ++step) {
        dialog.SetFileName(FormatW(L"docs/file%02d.txt", step).c_str());
        PostMessageW(dialog.window, WM_PROGRESS_EVENT, PROGRESS_EVENT_FILE_NAME, 0);
        dialog.filesDone = step;
        dialog.bytesDone = 2 * step * 1000;
        PostMessageW(dialog.window, WM_PROGRESS_EVENT, PROGRESS_EVENT_COUNTERS, 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

}  // namespace

int main(int argc, char **argv) {
    const char *expected = argc > 1 ? argv[1] : "";
    HINSTANCE localized = LoadLibraryW(CAppUtils::GetInstResPath());
    HINSTANCE nonLocalized = LoadLibraryW(CAppUtils::GetInstResNLPath());
    CAppUtils::SetCommonHINST(localized, nonLocalized);
    platform::TerminalUiHost host;
    platform::ScopedUiHost installed(&host);

    bool ended = false;
    bool passwordGiven = false;
    bool passwordMatches = false;
    int box = 0;
    CProgressDialog dialog;
    dialog.endCallback = OnEnd;
    dialog.endContext = &ended;
    dialog.SetDlgString(PROGRESSDLG_TITLE, L"Compressing");
    dialog.SetDlgString(PROGRESSDLG_OPERATION, L"Adding files to the archive");
    dialog.SetDlgString(PROGRESSDLG_DETAIL, L"/x/a.zip");
    if (!dialog.Run(nullptr)) return 1;

    std::thread worker([&] {
        DriveRun(dialog);
        CPassword prompt(dialog.window, L"a.zip", false, false);
        passwordGiven = prompt.Run();
        passwordMatches = platform::ToUtf8(prompt.password) == expected;
        box =
            MessageBoxW(dialog.window, L"Keep the archive?", L"Varnick", MB_YESNO | MB_DEFBUTTON2);
        PostMessageW(dialog.window, WM_PROGRESS_EVENT, PROGRESS_EVENT_END, 0);
    });
    MSG message;
    while (!ended && GetMessageW(&message, nullptr, 0, 0) > 0) DispatchMessageW(&message);
    worker.join();

    std::printf("RESULT password=%s matches=%d\n", passwordGiven ? "given" : "refused",
                passwordMatches ? 1 : 0);
    std::printf("RESULT box=%d\n", box);
    std::fflush(stdout);
    return 0;
}
