// The digest dialog: the MD5 and SHA-1 digests of a file, each computed on
// a worker thread of its own with a progress bar, copied to the clipboard or
// saved to a ".md5" or ".sha1" file. Which digests are wanted is kept under
// "Software\Orvane Labs\Varnick\CommonDlgs" ("ComputeMD5", "ComputeSHA1").
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "platform/WinTypes.h"
#include "platform/Window.h"

class CMD5Dlg {
public:
    enum Digest { MD5 = 0, SHA1 = 1 };

    // The dialog's template and its controls.
    static constexpr UINT kTemplateId = 2240;
    enum : int {
        IDC_PATH = 2241,
        IDC_SIZE = 2242,
        IDC_MD5_CHECK = 2243,
        IDC_MD5_BAR = 2244,
        IDC_MD5_TEXT = 2245,
        IDC_MD5_COPY = 2246,
        IDC_MD5_SAVE = 2247,
        IDC_SHA1_CHECK = 2248,
        IDC_SHA1_BAR = 2249,
        IDC_SHA1_TEXT = 2250,
        IDC_SHA1_COPY = 2251,
        IDC_SHA1_SAVE = 2252,
    };
    static constexpr UINT_PTR kStartTimer = 1;
    static constexpr UINT kStartDelay = 200;
    // Characters the path label shows.
    static constexpr int kPathLabelChars = 60;

    explicit CMD5Dlg(HWND owner = nullptr);
    virtual ~CMD5Dlg();
    CMD5Dlg(const CMD5Dlg &) = delete;
    CMD5Dlg &operator=(const CMD5Dlg &) = delete;

    // Shows the digests of a file in a modal dialog on the calling thread;
    // the dialog's result (IDOK or IDCANCEL), -1 when it could not be made.
    INT_PTR Run(const wchar_t *path);

    // Handlers of the dialog procedure.
    BOOL OnInitDialog();
    void OnTimer(UINT_PTR id);
    void OnCommand(WORD id, WORD code);
    void OnProgress(Digest digest, WPARAM bytes);
    void OnDone(Digest digest);
    void OnStored(Digest digest);

    HWND owner;
    std::atomic<HWND> window{nullptr};
    std::wstring path;
    ULONGLONG fileSize = 0;

private:
    struct Result;
    struct Job;
    struct State {
        bool wanted = false;
        bool running = false;
        ULONGLONG count = 0;
        std::shared_ptr<Result> result;
    };

    // Computes one digest and hands the text back; never touches the dialog.
    static DWORD Worker(LPVOID parameter);
    static INT_PTR DialogProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam);
    void ReadOptions();
    void WriteOptions();
    void EnableDigest(Digest digest, bool enable);
    void StartDigest(Digest digest);
    void ShowIfComplete(Digest digest);
    void EndWaiting();
    void AllDone();
    void Copy(Digest digest);
    void Save(Digest digest);
    void Close(WORD result);

    State states_[2];
    bool waiting_ = false;
};
