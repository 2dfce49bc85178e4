// varnick extract: chosen items of an archive into a folder, with the
// conflict options of expand.
#include <memory>
#include <string>
#include <vector>

#include "CAppOptionsRepository.h"
#include "CliCommon.h"
#include "Commands.h"
#include "platform/Win32.h"

namespace cli {

int ExtractCommand(const std::vector<std::wstring> &words) {
    const Arguments arguments =
        ParseArguments(words, kConflictFlags, {L"-d", L"--password", L"--password-file"});
    CAppOptionsRepository options;
    if (!ApplyConflictFlags(arguments, options)) return kExitUsage;
    options.DeleteArcAfterExpand = false;
    int exitCode = kExitSuccess;
    std::vector<std::wstring> items;
    std::unique_ptr<ArchiveSession> session = OpenSelected(arguments, items, exitCode);
    if (!session) return exitCode;
    CArchive &archive = session->Archive();
    std::wstring folder;
    exitCode = PrepareDestination(arguments.Value(L"-d"), folder);
    if (exitCode != kExitSuccess) return exitCode;
    archive.appOptions = &options;
    exitCode = session->Run(L"extract", [&] { return archive.Extract(&items, folder.c_str()); });
    archive.appOptions = nullptr;
    return exitCode;
}

}  // namespace cli
