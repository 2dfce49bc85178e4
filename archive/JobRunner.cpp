#include "JobRunner.h"

#include "CAppUtils.h"
#include "CArchive.h"
#include "CArchiveConvert.h"
#include "CArchiveRunLoop.h"
#include "CFSUtils.h"
#include "CIniFile.h"
#include "CLogging.h"
#include "CNewArchiveContentList.h"
#include "SDKUtils.h"
#include "platform/Win32.h"

namespace {

constexpr const wchar_t *kCmdLineSection = L"CmdLine";
constexpr const wchar_t *kLogFileKey = L"LogFile";
constexpr const wchar_t *kLogName = L"CmdLine";

INT_PTR CALLBACK SilentDialogProc(HWND, UINT, WPARAM, LPARAM) { return FALSE; }

}  // namespace

JobRunner::JobRunner(const char *program) : program_(program ? program : "") {
    parent_ = CreateDialogParamW(nullptr, MAKEINTRESOURCEW(1), nullptr, SilentDialogProc, 0);
}

JobRunner::~JobRunner() {
    // The job owns the archive; its worker must be over before it goes.
    if (archive_) CArchiveRunLoop::WaitUntilIdle(*archive_);
    job_.reset();
    CloseSessionLog();
    if (parent_) DestroyWindow(parent_);
}

int JobRunner::Run(const std::wstring &path) {
    job_ = std::make_unique<CArchiveINI>();
    if (!job_->Read(path)) {
        PrintError(
            FormatW(L"%s: %s", path.c_str(), CAppUtils::WinErrorToString(ERROR_FILE_NOT_FOUND)));
        return kJobFailed;
    }
    archive_ = job_->GetArchive();
    if (!archive_) {
        PrintError(FormatW(L"%s: the job could not be set up", path.c_str()));
        return kJobFailed;
    }
    OpenSessionLog(path);
    archive_->engine = &engine_;
    archive_->parentWindow = parent_;
    archive_->hasWindow = parent_ != nullptr;
    const int result = Dispatch();
    if (result == kJobSucceeded) job_->SaveNewArcNames();
    Note(FormatW(L"job ended with %d", result));
    return result;
}

// The job names its log in CmdLine/LogFile; without one the runner keeps
// its own in the log folder and writes where it went, for GetLogFile.
bool JobRunner::OpenSessionLog(const std::wstring &path) {
    CIniFile ini(path.c_str());
    wchar_t named[1024] = {};
    if (ini.GetString(kCmdLineSection, kLogFileKey, named, 1024) && named[0]) {
        log_ = CLogging::OpenExternalLog(named, true);
    } else {
        log_ = CLogging::OpenLog(kLogName, false);
        if (log_) {
            ini.SetString(kCmdLineSection, kLogFileKey, CLogging::LastLogPath().c_str());
            ini.Save();
        }
    }
    if (!log_) return false;
    CLogging::SetSessionErrorHandle(log_);
    Note(FormatW(L"job %s", path.c_str()));
    return true;
}

void JobRunner::CloseSessionLog() {
    if (log_) CLogging::CloseLog(log_);
    log_ = nullptr;
}

void JobRunner::PrintError(const std::wstring &text) const {
    std::fputs((program_ + ": " + platform::ToUtf8(text) + "\n").c_str(), stderr);
}

void JobRunner::Note(const std::wstring &text) {
    if (log_) CLogging::Msg(log_, 0, L"%s", text.c_str());
}

int JobRunner::Dispatch() {
    switch (job_->RequestedActionCmd) {
        case kJobCompress:
        case kJobCompressExplicit:
            return Compress();
        case kJobExpandToFolder:
            return ExpandToFolder();
        case kJobExpandHere:
            return ExpandHere();
        case kJobVerify:
            return Verify();
        case kJobConvertToZip:
            return ConvertTo(format::zip);
        case kJobConvertToVnkx:
            return ConvertTo(format::vnkx);
        case kJobMakeSelfExtracting:
            return MakeSelfExtracting();
        case kJobCompressAndMail:
            return CompressAndMail();
        default:
            PrintError(FormatW(L"unknown action %u in the job", job_->RequestedActionCmd));
            return kJobFailed;
    }
}

int JobRunner::RunOperation(const wchar_t *what, const std::function<bool()> &start) {
    Note(FormatW(L"%s %s", what, archive_->name.c_str()));
    switch (loop_.Run(*archive_, start)) {
        case kArchiveRunSucceeded:
            return kJobSucceeded;
        case kArchiveRunInterrupted:
        case kArchiveRunCancelled:
            PrintError(FormatW(L"%s: cancelled", what));
            Note(FormatW(L"%s cancelled", what));
            return kJobCancelled;
        default:
            return ReportFailure(what, archive_->lastResult);
    }
}

int JobRunner::ReportFailure(const wchar_t *what, EngineResult code) {
    const std::wstring text = TranslateEngineError(code);
    PrintError(FormatW(L"%s %s: %s (%d)", what, archive_->name.c_str(), text.c_str(), code));
    Note(FormatW(L"%s failed: %s (%d)", what, text.c_str(), code));
    return kJobFailed;
}

int JobRunner::Compress() {
    CNewArchiveContentList *content = job_->GetArchiveContent();
    const int result = RunOperation(L"compress", [&] { return archive_->CreateFromList(content); });
    if (result != kJobSucceeded) return result;
    job_->NewArcNames.push_back(archive_->name);
    AnnounceDelivery();
    return result;
}

// Delivery by FTP, mail, disc or upload is not part of this runner yet: the
// archive stays where it was made.
void JobRunner::AnnounceDelivery() {
    const wchar_t *kinds[] = {nullptr, L"FTP", L"e-mail", L"disc burning", L"upload"};
    const DWORD type = job_->WizardType;
    if (type < 1 || type > 4) return;
    PrintError(FormatW(L"delivery by %s is not available yet; the archive is kept at %s",
                       kinds[type], archive_->name.c_str()));
    Note(FormatW(L"delivery %u skipped", type));
}

int JobRunner::ExpandToFolder() {
    if (job_->ExtractTo.empty()) {
        PrintError(L"the job asks to expand but names no folder (ContextMenu/ExtractTo)");
        return kJobFailed;
    }
    CFSUtils::ForceDirectories(job_->ExtractTo.c_str());
    return RunOperation(L"expand", [&] { return archive_->ExpandTo(job_->ExtractTo.c_str()); });
}

int JobRunner::ExpandHere() {
    const std::wstring here = platform::ParentPath(archive_->name);
    return RunOperation(L"expand", [&] { return archive_->ExpandTo(here.c_str()); });
}

int JobRunner::Verify() {
    return RunOperation(L"verify", [&] { return archive_->Verify(); });
}

// The engine rewrites the archive in one pass into a new one beside it; the
// old archive stays. The converter blocks, so it runs beside the pump that
// watches for an interrupt. It asks for a password itself when the archive
// has one, and says nothing about why it gave up: the reasons are in the
// session log.
int JobRunner::ConvertTo(format::type target) {
    const std::wstring source = archive_->name;
    const wchar_t *extension = target == format::zip ? L".zip" : L".vnkx";
    Note(FormatW(L"convert %s", source.c_str()));
    CArchiveConvert converter(parent_, engine_.GetEngine(), archive_->formatOptions);
    wchar_t password[MAX_PATH] = {};
    wchar_t made[MAX_PATH] = {};
    // The engine takes the first free name beside the source, as this does.
    wcsncpy_s(made, MAX_PATH, MakeUniqueArchiveName(source.c_str(), extension, nullptr), _TRUNCATE);
    const ARCHIVE_RUN_OUTCOME outcome = loop_.RunBlocking(*archive_, [&] {
        return target == format::zip
                   ? converter.ConvertArchiveToZip(source.c_str(), password)
                   : converter.ConvertArchiveToVnkx(source.c_str(), password, made, false);
    });
    if (outcome == kArchiveRunInterrupted) {
        PrintError(L"convert: cancelled");
        Note(L"convert cancelled");
        return kJobCancelled;
    }
    if (outcome != kArchiveRunSucceeded || !CFSUtils::FileExists(made)) {
        PrintError(FormatW(
            L"convert %s: the archive was not converted (%s convert to %s; the "
            L"session log holds any other reason)",
            source.c_str(),
            target == format::zip ? L"vnk, vnkx and tar archives" : L"vnk, zip and tar archives",
            extension + 1));
        Note(L"convert failed");
        return kJobFailed;
    }
    archive_->name = made;
    job_->NewArcNames.push_back(made);
    return kJobSucceeded;
}

// The transforms write the program into the temporary folder, where it
// stays for no one: it takes the archive's place. The stub route writes it
// beside the archive, which is then kept.
int JobRunner::MakeSelfExtracting() {
    int result = Compress();
    if (result != kJobSucceeded) return result;
    const std::wstring archived = archive_->name;
    result = RunOperation(L"self-extracting", [&] {
        switch (archive_->formatType) {
            case format::vnkx:
                return archive_->MakeSeaVnkx();
            case format::zip:
                return archive_->MakeSeaZip();
            default:
                return archive_->MakeSDKSea();
        }
    });
    if (result != kJobSucceeded) return result;
    const std::wstring folder = platform::ParentPath(archived);
    if (platform::ParentPath(archive_->name) != folder) {
        const std::wstring placed =
            platform::JoinPath(folder, CFSUtils::ExtractFileName(archive_->name.c_str()));
        if (placed == archived) CFSUtils::DeleteFileW(archived.c_str(), true);
        if (!MoveFileW(archive_->name.c_str(), placed.c_str())) {
            PrintError(FormatW(L"self-extracting: %s could not be moved to %s",
                               archive_->name.c_str(), placed.c_str()));
            return kJobFailed;
        }
        archive_->name = placed;
    }
    job_->NewArcNames.back() = archive_->name;
    return kJobSucceeded;
}

int JobRunner::CompressAndMail() {
    const int result = Compress();
    if (result == kJobSucceeded) CFSUtils::MailFile(archive_->name.c_str());
    return result;
}
