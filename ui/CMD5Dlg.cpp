#include "CMD5Dlg.h"

#include <mutex>

#include "CAppUtils.h"
#include "CCommonDlgs.h"
#include "CCrypto.h"
#include "CRegistry.h"
#include "platform/Dialog.h"
#include "platform/UiHost.h"
#include "platform/Win32.h"

namespace {

constexpr const wchar_t *kOptionsKey = L"Software\\Orvane Labs\\Varnick\\CommonDlgs";
constexpr const wchar_t *kOptionNames[] = {L"ComputeMD5", L"ComputeSHA1"};
constexpr const wchar_t *kExtensions[] = {L".md5", L".sha1"};
constexpr const wchar_t *kDigestNames[] = {L"MD5", L"SHA-1"};
// Save dialog titles and filters.
constexpr unsigned kSaveTitles[] = {2220, 2222};
constexpr unsigned kSaveFilters[] = {2221, 2223};
// Posted by a worker once its text is in place; the done message of the
// digest functions comes before that.
constexpr UINT WM_DIGEST_STORED = WM_APP + 0x330;

struct DigestControls {
    int check, bar, text, copy, save;
};
constexpr DigestControls kControls[] = {
    {CMD5Dlg::IDC_MD5_CHECK, CMD5Dlg::IDC_MD5_BAR, CMD5Dlg::IDC_MD5_TEXT, CMD5Dlg::IDC_MD5_COPY,
     CMD5Dlg::IDC_MD5_SAVE},
    {CMD5Dlg::IDC_SHA1_CHECK, CMD5Dlg::IDC_SHA1_BAR, CMD5Dlg::IDC_SHA1_TEXT, CMD5Dlg::IDC_SHA1_COPY,
     CMD5Dlg::IDC_SHA1_SAVE},
};

void EnableItem(HWND dialog, int id, bool enable) {
    EnableWindow(GetDlgItem(dialog, id), enable ? TRUE : FALSE);
}

}  // namespace

// What a worker hands back. Shared with the worker, so that a dialog closed
// before its worker ends is not written to.
struct CMD5Dlg::Result {
    std::mutex lock;
    std::wstring text;
    bool stored = false;
};

struct CMD5Dlg::Job {
    Digest digest;
    std::wstring path;
    HWND window;
    std::shared_ptr<Result> result;
};

DWORD CMD5Dlg::Worker(LPVOID parameter) {
    std::unique_ptr<Job> job(static_cast<Job *>(parameter));
    const wchar_t *digest = job->digest == MD5
                                ? CCrypto::ComputeMD5(job->path.c_str(), job->window)
                                : CCrypto::ComputeSHA1(job->path.c_str(), job->window);
    {
        std::lock_guard lock(job->result->lock);
        job->result->text = digest;
        job->result->stored = true;
    }
    PostMessageW(job->window, WM_DIGEST_STORED, job->digest, 0);
    return 0;
}

CMD5Dlg::CMD5Dlg(HWND owner) : owner(owner) {}

CMD5Dlg::~CMD5Dlg() = default;

INT_PTR CMD5Dlg::Run(const wchar_t *file) {
    path = file ? file : L"";
    return DialogBoxParamW(CAppUtils::GetCommonHINST(), MAKEINTRESOURCEW(kTemplateId), owner,
                           DialogProc, reinterpret_cast<LPARAM>(this));
}

INT_PTR CMD5Dlg::DialogProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam) {
    auto *self = platform::DialogObject(dialog, message, lParam, &CMD5Dlg::window);
    if (!self) return FALSE;
    switch (message) {
        case WM_INITDIALOG:
            return self->OnInitDialog();
        case WM_TIMER:
            self->OnTimer(wParam);
            return TRUE;
        case WM_COMMAND:
            self->OnCommand(LOWORD(wParam), HIWORD(wParam));
            return TRUE;
        case WM_MD5_PROGRESS:
            self->OnProgress(MD5, wParam);
            return TRUE;
        case WM_SHA1_PROGRESS:
            self->OnProgress(SHA1, wParam);
            return TRUE;
        case WM_MD5_DONE:
            self->OnDone(MD5);
            return TRUE;
        case WM_SHA1_DONE:
            self->OnDone(SHA1);
            return TRUE;
        case WM_DIGEST_STORED:
            self->OnStored(wParam == SHA1 ? SHA1 : MD5);
            return TRUE;
        default:
            return FALSE;
    }
}

BOOL CMD5Dlg::OnInitDialog() {
    HWND dialog = window;
    SetDlgItemTextW(dialog, IDC_PATH, CAppUtils::FitPath(path.c_str(), kPathLabelChars, nullptr));
    CAppUtils::CenterDlgOverParent(dialog, owner);
    WIN32_FIND_DATAW found{};
    HANDLE find = FindFirstFileW(path.c_str(), &found);
    if (find != INVALID_HANDLE_VALUE) {
        fileSize = (static_cast<ULONGLONG>(found.nFileSizeHigh) << 32) | found.nFileSizeLow;
        FindClose(find);
    }
    SetDlgItemTextW(dialog, IDC_SIZE,
                    CAppUtils::GetNumberFormat64(static_cast<LONGLONG>(fileSize)));
    ReadOptions();
    for (Digest digest : {MD5, SHA1}) {
        const DigestControls &ids = kControls[digest];
        CheckDlgButton(dialog, ids.check, states_[digest].wanted ? BST_CHECKED : BST_UNCHECKED);
        SendDlgItemMessageW(dialog, ids.bar, PBM_SETRANGE, 0, MAKELPARAM(0, 100));
        EnableDigest(digest, states_[digest].wanted);
    }
    SetTimer(dialog, kStartTimer, kStartDelay, nullptr);
    SetCursor(LoadCursorW(nullptr, IDC_WAIT));
    SetCapture(dialog);
    waiting_ = true;
    return TRUE;
}

void CMD5Dlg::ReadOptions() {
    CRegistry registry;
    registry.SetMajorKey(0);
    registry.SetAppKey(kOptionsKey);
    for (Digest digest : {MD5, SHA1}) {
        DWORD value = digest == MD5 ? 1 : 0;
        registry.GetRegSetting(kOptionNames[digest], &value);
        states_[digest].wanted = value == 1;
    }
}

void CMD5Dlg::WriteOptions() {
    CRegistry registry;
    registry.SetMajorKey(0);
    registry.CreateAppKey(kOptionsKey);
    for (Digest digest : {MD5, SHA1}) {
        DWORD value = states_[digest].wanted ? 1 : 0;
        registry.WriteRegSetting(kOptionNames[digest], &value);
    }
}

// The bar and the text follow the box; copy and save wait for the result.
void CMD5Dlg::EnableDigest(Digest digest, bool enable) {
    HWND dialog = window;
    const DigestControls &ids = kControls[digest];
    EnableItem(dialog, ids.bar, enable);
    EnableItem(dialog, ids.text, enable);
    bool ready = false;
    if (enable && states_[digest].result) {
        std::lock_guard lock(states_[digest].result->lock);
        ready = states_[digest].result->stored;
    }
    EnableItem(dialog, ids.copy, ready);
    EnableItem(dialog, ids.save, ready);
}

void CMD5Dlg::OnTimer(UINT_PTR id) {
    KillTimer(window, id);
    for (Digest digest : {MD5, SHA1}) {
        bool computed = states_[digest].result != nullptr;
        if (states_[digest].wanted && !computed) StartDigest(digest);
    }
    if (!states_[MD5].running && !states_[SHA1].running) AllDone();
}

void CMD5Dlg::StartDigest(Digest digest) {
    State &state = states_[digest];
    // One worker a digest at a time: the digest functions keep their result
    // in one buffer each.
    if (state.running) return;
    state.count = 0;
    state.result = std::make_shared<Result>();
    SendDlgItemMessageW(window, kControls[digest].bar, PBM_SETPOS, 0, 0);
    SetDlgItemTextW(window, kControls[digest].text, L"");
    auto *job = new Job{digest, path, window, state.result};
    HANDLE thread = CreateThread(nullptr, 0, Worker, job, 0, nullptr);
    if (!thread) {
        delete job;
        state.result.reset();
        return;
    }
    CloseHandle(thread);
    state.running = true;
}

void CMD5Dlg::OnProgress(Digest digest, WPARAM bytes) {
    State &state = states_[digest];
    state.count += bytes;
    if (fileSize == 0) return;
    auto percent = static_cast<WPARAM>(state.count * 100 / fileSize);
    SendDlgItemMessageW(window, kControls[digest].bar, PBM_SETPOS, percent, 0);
}

// The worker posts its own message after the digest function's done
// message, so whichever comes with the text in place shows it.
void CMD5Dlg::OnDone(Digest digest) { ShowIfComplete(digest); }

void CMD5Dlg::OnStored(Digest digest) { ShowIfComplete(digest); }

void CMD5Dlg::ShowIfComplete(Digest digest) {
    State &state = states_[digest];
    // The second of the two messages finds the digest shown already.
    if (!state.result || !state.running) return;
    std::wstring text;
    {
        std::lock_guard lock(state.result->lock);
        if (!state.result->stored) return;
        text = state.result->text;
    }
    state.running = false;
    SetDlgItemTextW(window, kControls[digest].text, text.c_str());
    SendDlgItemMessageW(window, kControls[digest].bar, PBM_SETPOS, 100, 0);
    EnableDigest(digest, state.wanted);
    if (!states_[MD5].running && !states_[SHA1].running) AllDone();
}

// A host that shows the digests without the window (the terminal) takes
// them as lines, and the dialog has nothing left to do.
void CMD5Dlg::AllDone() {
    EndWaiting();
    std::wstring lines;
    for (Digest digest : {MD5, SHA1}) {
        if (!states_[digest].wanted) continue;
        wchar_t text[64] = {};
        GetDlgItemTextW(window, kControls[digest].text, text, 64);
        lines += FormatW(L"%-6s%s\n", kDigestNames[digest], text);
    }
    if (platform::CurrentUiHost()->ShowText(window, path, lines)) Close(IDOK);
}

void CMD5Dlg::EndWaiting() {
    if (!waiting_) return;
    waiting_ = false;
    if (GetCapture() == window) ReleaseCapture();
    SetCursor(LoadCursorW(nullptr, IDC_ARROW));
}

void CMD5Dlg::OnCommand(WORD id, WORD code) {
    switch (id) {
        case IDOK:
        case IDCANCEL:
            Close(id);
            return;
        case IDC_MD5_COPY:
            Copy(MD5);
            return;
        case IDC_SHA1_COPY:
            Copy(SHA1);
            return;
        case IDC_MD5_SAVE:
            Save(MD5);
            return;
        case IDC_SHA1_SAVE:
            Save(SHA1);
            return;
        default:
            break;
    }
    if (code != BN_CLICKED) return;
    for (Digest digest : {MD5, SHA1}) {
        if (id != kControls[digest].check) continue;
        bool ticked = IsDlgButtonChecked(window, id) == BST_CHECKED;
        states_[digest].wanted = ticked;
        if (ticked) StartDigest(digest);
        EnableDigest(digest, ticked);
    }
}

void CMD5Dlg::Copy(Digest digest) {
    wchar_t text[64] = {};
    GetDlgItemTextW(window, kControls[digest].text, text, 64);
    CAppUtils::CopyTextToClipboard(window, text);
}

void CMD5Dlg::Save(Digest digest) {
    wchar_t text[64] = {};
    GetDlgItemTextW(window, kControls[digest].text, text, 64);
    std::wstring suggested = path + kExtensions[digest];
    std::wstring chosen;
    if (!CCommonDlgs::RunSaveFile(window, kSaveTitles[digest], kSaveFilters[digest],
                                  SAVEFILE_OVERWRITEPROMPT, suggested.c_str(), chosen)) {
        return;
    }
    // One form for both digests.
    CCrypto::WriteMD5ToFile(chosen.c_str(), text);
}

void CMD5Dlg::Close(WORD result) {
    KillTimer(window, kStartTimer);
    EndWaiting();
    WriteOptions();
    EndDialog(window, result);
}
