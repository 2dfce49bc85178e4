// The runner of one job file: reads the request, runs it through CArchive on
// this thread's message pump (so the terminal host can draw the progress
// window), and tells the outcome as an exit code. Both command-line
// programs run jobs through it; the host installs its UI host and the
// resource libraries first. SIGINT cancels the running operation for as
// long as a runner lives.
#pragma once

#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "CArchiveINI.h"
#include "CArchiveRunLoop.h"
#include "CEngine.h"
#include "FormatCatalogue.h"
#include "platform/WinTypes.h"

class CArchive;
class CNewArchiveContentList;

// The actions a job may ask for in ContextMenu/RequestedActionCmd.
enum JOB_ACTION : DWORD {
    kJobCompress = 0,
    kJobCompressExplicit = 1,
    kJobExpandToFolder = 2,
    kJobExpandHere = 3,
    kJobVerify = 4,
    kJobConvertToZip = 5,
    kJobConvertToVnkx = 6,
    kJobMakeSelfExtracting = 7,
    kJobCompressAndMail = 8,
};

enum JOB_EXIT : int {
    kJobSucceeded = 0,
    kJobFailed = 1,
    kJobUsage = 2,
    kJobCancelled = 3,
};

class JobRunner {
public:
    // `program` begins every line the runner writes on stderr.
    explicit JobRunner(const char *program);
    ~JobRunner();
    JobRunner(const JobRunner &) = delete;
    JobRunner &operator=(const JobRunner &) = delete;

    // Runs the job (or scheduled task) file at `path`; a JOB_EXIT.
    int Run(const std::wstring &path);

private:
    bool OpenSessionLog(const std::wstring &path);
    void CloseSessionLog();
    int Dispatch();

    int Compress();
    int ExpandToFolder();
    int ExpandHere();
    int Verify();
    int ConvertTo(format::type target);
    int MakeSelfExtracting();
    int CompressAndMail();

    // Starts an operation with `start` and pumps messages until its end;
    // kJobSucceeded, kJobFailed (text already reported) or kJobCancelled.
    int RunOperation(const wchar_t *what, const std::function<bool()> &start);
    int ReportFailure(const wchar_t *what, EngineResult code);
    void Note(const std::wstring &text);
    void PrintError(const std::wstring &text) const;
    void AnnounceDelivery();

    std::string program_;
    CEngine engine_;
    HWND parent_ = nullptr;
    std::unique_ptr<CArchiveINI> job_;
    CArchive *archive_ = nullptr;  // the job's
    FILE *log_ = nullptr;
    // SIGINT cancels the running operation for as long as the runner lives.
    CArchiveRunLoop loop_;
};
