// varnick expand and varnick verify: the archive's worker runs the
// operation while this thread pumps the progress on the terminal.
#include <memory>
#include <string>
#include <vector>

#include "CAppOptionsRepository.h"
#include "CliCommon.h"
#include "Commands.h"
#include "platform/Win32.h"

namespace cli {

int ExpandCommand(const std::vector<std::wstring> &words) {
    const Arguments arguments =
        ParseArguments(words, kConflictFlags, {L"-d", L"--password", L"--password-file"});
    CAppOptionsRepository options;
    if (!ApplyConflictFlags(arguments, options)) return kExitUsage;
    int exitCode = kExitSuccess;
    std::unique_ptr<ArchiveSession> session = OpenListed(arguments, exitCode);
    if (!session) return exitCode;
    std::wstring folder;
    exitCode = PrepareDestination(arguments.Value(L"-d"), folder);
    if (exitCode != kExitSuccess) return exitCode;
    // "Delete the archive after expanding" is never taken from the stored
    // options here.
    options.DeleteArcAfterExpand = false;
    CArchive &archive = session->Archive();
    archive.appOptions = &options;
    exitCode = session->Run(L"expand", [&] { return archive.ExpandTo(folder.c_str()); });
    archive.appOptions = nullptr;
    return exitCode;
}

int VerifyCommand(const std::vector<std::wstring> &words) {
    const Arguments arguments = ParseArguments(words, {}, {L"--password", L"--password-file"});
    int exitCode = kExitSuccess;
    std::unique_ptr<ArchiveSession> session = OpenListed(arguments, exitCode);
    if (!session) return exitCode;
    CArchive &archive = session->Archive();
    exitCode = session->Run(L"verify", [&] { return archive.Verify(); });
    if (exitCode == kExitSuccess) Say(FormatW(L"%s: no errors\n", archive.name.c_str()));
    return exitCode;
}

}  // namespace cli
