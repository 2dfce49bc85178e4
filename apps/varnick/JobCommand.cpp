// varnick job: runs a job file with the same runner as varnick-cmdline,
// writes a new compress job through the plain C layer that other programs
// use to hand a request over, or shows what a run left in a job.
#include <string>
#include <vector>

#include "ArchiveIniInterface.h"
#include "CArchiveINI.h"
#include "CFSUtils.h"
#include "Commands.h"
#include "FormatCatalogue.h"
#include "JobRunner.h"
#include "platform/Win32.h"

namespace cli {

namespace {

// Adds each path to the job, folders as folders; false at the first that
// does not exist (told).
bool AddContent(INIINFO *info, const std::vector<std::wstring> &paths) {
    return VisitSources(
        paths, 0, [&](const std::wstring &folder) { AddFolder(info, folder.c_str()); },
        [&](const std::wstring &file) { AddFile(info, file.c_str()); });
}

int WriteJob(const Arguments &arguments) {
    const std::wstring archive = FullPath(arguments.Value(L"--archive"));
    const format::type type = GetFormatType(archive.c_str());
    if (type == format::unknown) {
        return UsageError(FormatW(L"%s: the extension names no format", archive.c_str()));
    }
    const std::wstring job = FullPath(arguments.Value(L"--new"));
    INIINFO *info = CreateIni(job.c_str());
    if (!info) {
        PrintError(FormatW(L"%s: the job could not be set up", job.c_str()));
        return kExitFailure;
    }
    wcsncpy_s(info->ArchiveName, 1024, archive.c_str(), _TRUNCATE);
    info->Format = type;
    // The record's default is to mail the archive; this job only keeps it.
    info->WizardType = kWizardKeepOnly;
    if (!AddContent(info, arguments.positional)) {
        DeleteINIINFO(info);
        return kExitFailure;
    }
    SaveIni(info);
    if (!CFSUtils::FileExists(job.c_str())) {
        PrintError(FormatW(L"%s: the job could not be written", job.c_str()));
        return kExitFailure;
    }
    Print(job + L"\n");
    return kExitSuccess;
}

// What a run left in the job: the archives it made and where it logged.
int ShowResults(const std::wstring &job) {
    if (!CFSUtils::FileExists(job.c_str())) {
        PrintError(FormatW(L"%s: no such job file", job.c_str()));
        return kExitFailure;
    }
    CArchiveINI results;
    results.ReadNewArcNames(job.c_str());
    for (const std::wstring &name : results.NewArcNames) Print(L"new archive: " + name + L"\n");
    Print(FormatW(L"log: %s\n", GetLogFile(job.c_str())));
    return kExitSuccess;
}

}  // namespace

int JobCommand(const std::vector<std::wstring> &words) {
    const Arguments arguments = ParseArguments(words, {L"--results"}, {L"--new", L"--archive"});
    if (!arguments.bad.empty())
        return UsageError(FormatW(L"unknown option '%s'", arguments.bad.c_str()));
    if (arguments.Has(L"--new")) {
        if (!arguments.Has(L"--archive") || arguments.positional.empty()) return UsageError();
        return WriteJob(arguments);
    }
    if (arguments.Has(L"--archive") || arguments.positional.size() != 1) return UsageError();
    if (arguments.Has(L"--results")) return ShowResults(FullPath(arguments.positional[0]));
    JobRunner runner("varnick");
    return runner.Run(FullPath(arguments.positional[0]));
}

}  // namespace cli
