#include "CViewLog.h"

#include <memory>

#include "CLogging.h"
#include "platform/Win32.h"

namespace {

constexpr int kReadPieceChars = 2048;

struct FileCloser {
    void operator()(FILE *file) const { fclose(file); }
};

// The service writes its log into the machine-wide data folder; every
// other component into the user's log folder.
std::wstring NamedLogPath(const std::wstring &name, unsigned titleId) {
    bool service = titleId == CViewLog::kServiceLogTitle;
    std::wstring base =
        platform::SpecialFolder(service ? CSIDL_COMMON_APPDATA : CSIDL_LOCAL_APPDATA, false);
    if (base.empty()) return base;
    return base + kPathSep + L"Orvane Labs" + kPathSep + (service ? L"Varnick" : L"Logs") +
           kPathSep + name + L".log";
}

}  // namespace

CViewLog::CViewLog(HWND owner) : owner_(owner) {}

void CViewLog::SetLog(const wchar_t *name, unsigned titleId) {
    logName_ = name ? name : L"";
    externalPath_.clear();
    titleId_ = titleId;
}

void CViewLog::SetExternalLog(const wchar_t *path, unsigned titleId) {
    logName_.clear();
    externalPath_ = path ? path : L"";
    titleId_ = titleId;
}

const std::wstring &CViewLog::ChooseFile() {
    fullPath_ = externalPath_.empty() ? NamedLogPath(logName_, titleId_) : externalPath_;
    return fullPath_;
}

std::wstring CViewLog::ReadText() {
    std::wstring text;
    std::unique_ptr<FILE, FileCloser> file(_wfopen(ChooseFile().c_str(), L"rt, ccs=UNICODE"));
    if (!file) return text;
    wchar_t piece[kReadPieceChars];
    while (TextFileGets(piece, kReadPieceChars, file.get())) {
        std::wstring_view read(piece);
        if (!read.empty() && read.back() == L'\n') {
            read.remove_suffix(1);
            text.append(read).append(L"\r\n");
        } else {
            text.append(read);
        }
    }
    return text;
}

void CViewLog::Clear() { CLogging::ClearLog(ChooseFile().c_str()); }
