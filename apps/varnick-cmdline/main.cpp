// varnick-cmdline: runs one job file (or, with -s, a scheduled task file)
// written by another program of the product.
#include <cstdio>
#include <string>

#include "CAppUtils.h"
#include "JobRunner.h"
#include "platform/TerminalUiHost.h"
#include "platform/UiHost.h"
#include "platform/Win32.h"

namespace {

int Usage() {
    std::fputs("usage: varnick-cmdline JOBFILE\n       varnick-cmdline -s TASKFILE\n", stderr);
    return kJobUsage;
}

bool LoadResources() {
    HINSTANCE localized = LoadLibraryW(CAppUtils::GetInstResPath());
    HINSTANCE nonLocalized = LoadLibraryW(CAppUtils::GetInstResNLPath());
    if (!localized || !nonLocalized) {
        std::fputs("varnick-cmdline: the resource libraries are missing beside the program\n",
                   stderr);
        return false;
    }
    CAppUtils::SetCommonHINST(localized, nonLocalized);
    return true;
}

}  // namespace

int main(int argc, char **argv) {
    std::string path;
    if (argc == 2 && std::string(argv[1]) != "-s") {
        path = argv[1];
    } else if (argc == 3 && std::string(argv[1]) == "-s") {
        path = argv[2];
    } else {
        return Usage();
    }
    platform::TerminalUiHost terminal;
    platform::ScopedUiHost installed(&terminal);
    if (!LoadResources()) return kJobFailed;
    JobRunner runner("varnick-cmdline");
    return runner.Run(platform::FromUtf8(path));
}
