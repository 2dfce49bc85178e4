#include "CVirusScanHandling.h"

#include "CAppOptionsRepository.h"
#include "CFSUtils.h"
#include "CRegistry.h"
#include "platform/Win32.h"

namespace {

enum ScannerChoice : DWORD {
    kNorton = 1,
    kMcAfee = 2,
    kETrust = 3,
    kCustom = 4,
};

constexpr std::size_t kArgumentLineLimit = 2000;
constexpr DWORD kLocalMachine = 1;  // CRegistry's number for HKEY_LOCAL_MACHINE
constexpr DWORD kPathChars = 1024;

// The default value of a program's App Paths key, or "".
std::wstring AppPathOf(const wchar_t *executable) {
    CRegistry registry;
    registry.SetMajorKey(kLocalMachine);
    std::wstring key = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\App Paths\\";
    key += executable;
    registry.SetAppKey(key.c_str());
    wchar_t buffer[kPathChars] = {};
    if (!registry.GetRegSetting(L"", buffer, sizeof buffer - sizeof(wchar_t))) return {};
    return buffer;
}

}  // namespace

CVirusScanHandling::CVirusScanHandling(CAppOptionsRepository *appOptions)
    : options(appOptions), files(nullptr) {}

CVirusScanHandling::~CVirusScanHandling() = default;

void CVirusScanHandling::Scan(STDStringList *fileList) {
    files = fileList;
    if (!options) return;
    switch (options->AVOption) {
        case kNorton:
            ScanWithNorton();
            break;
        case kMcAfee:
            ScanWithMcAfee();
            break;
        case kETrust:
            ScanWithETrust();
            break;
        case kCustom:
            ScanWithCustom();
            break;
        default:
            break;
    }
}

void CVirusScanHandling::ScanWithNorton() { ScanWithAppPath(L"NAVW32.EXE"); }

void CVirusScanHandling::ScanWithMcAfee() { ScanWithAppPath(L"SCAN32.EXE"); }

void CVirusScanHandling::ScanWithETrust() { ScanWithAppPath(L"VET32.EXE"); }

void CVirusScanHandling::ScanWithAppPath(const wchar_t *executable) {
    std::wstring path = AppPathOf(executable);
    if (path.empty()) return;
    scannerPath = path;
    DoScan();
}

void CVirusScanHandling::ScanWithCustom() {
    if (options->AVPath.empty()) return;
    scannerPath = options->AVPath;
    DoScan();
}

void CVirusScanHandling::DoScan() {
    if (!CFSUtils::FileExists(scannerPath.c_str()) || !files || files->empty()) return;
    std::wstring arguments;
    for (const std::wstring &file : *files) {
        std::wstring piece = FormatW(L" \"%s\"", file.c_str());
        if (arguments.size() + piece.size() >= kArgumentLineLimit) {
            // Too long for one command: the folder of the first file instead,
            // which may hold more than the list.
            arguments = FormatW(L"\"%s\"", CFSUtils::ExtractFilePath(files->front().c_str()));
            break;
        }
        arguments += piece;
    }
    ShellExecuteW(nullptr, nullptr, scannerPath.c_str(), arguments.c_str(), nullptr, SW_SHOWNORMAL);
}
