#include "CPando.h"

#include <cstdarg>
#include <string>

#include "CLogging.h"
#include "platform/Win32.h"

namespace {

constexpr const wchar_t *kUrlPrefix = L"pando:send?&files_to_send=";
constexpr DWORD kShortCommandLimit = 2047;
constexpr DWORD kLongCommandLimit = 8191;
constexpr DWORD kLongCommandVersion = 0x501;
// Room kept below the limit for what the launch adds to the command.
constexpr std::size_t kCommandReserve = 10;
constexpr unsigned kLaunchedText = 1174;
constexpr unsigned kLaunchFailedFormat = 1175;
constexpr unsigned kProductTitle = 230;

struct LaunchReason {
    INT_PTR result;
    unsigned stringId;
};

constexpr LaunchReason kLaunchReasons[] = {
    {0, 921},  {2, 922},  {3, 923},  {5, 925},  {8, 932},  {11, 924}, {26, 933},
    {27, 926}, {28, 929}, {29, 928}, {30, 927}, {31, 931}, {32, 930},
};

// The reason of a failed launch; a result outside the table has none.
std::wstring LaunchFailureReason(INT_PTR result) {
    for (const LaunchReason &reason : kLaunchReasons) {
        if (reason.result == result) return CAppUtils::LoadString(reason.stringId);
    }
    return {};
}

DWORD CommandLimitOfSystem() {
    return CAppUtils::GetWINVER() >= kLongCommandVersion ? kLongCommandLimit : kShortCommandLimit;
}

}  // namespace

CPando::CPando() : CPando(nullptr) {}

CPando::CPando(FILE *logTarget) : commandLimit(CommandLimitOfSystem()), log(logTarget) {}

CPando::~CPando() = default;

void CPando::Send(STDStringList *paths) {
    std::wstring command = kUrlPrefix;
    bool first = true;
    if (paths) {
        for (const std::wstring &path : *paths) {
            if (command.size() + path.size() + kCommandReserve >= commandLimit) {
                LaunchPando(command.c_str());
                command = kUrlPrefix;
            } else if (!first) {
                command += L',';
            }
            command += path;
            first = false;
        }
    }
    LaunchPando(command.c_str());
}

void CPando::LaunchPando(const wchar_t *command) {
    INT_PTR result = reinterpret_cast<INT_PTR>(
        ShellExecuteW(nullptr, L"open", command, nullptr, nullptr, SW_SHOWNORMAL));
    if (result >= 33) {
        if (log) DebugPrint(L"%s\n", CAppUtils::LoadString(kLaunchedText).c_str());
        return;
    }
    std::wstring text = FormatW(CAppUtils::LoadString(kLaunchFailedFormat).c_str(),
                                LaunchFailureReason(result).c_str());
    if (log) {
        DebugPrint(L"%s\n", text.c_str());
    } else {
        CAppUtils::MsgBox(text.c_str(), kProductTitle);
    }
}

void CPando::DebugPrint(const wchar_t *format, ...) {
    va_list args;
    va_start(args, format);
    std::wstring line = VFormatW(format, args);
    va_end(args);
    CLogging::Msg(log, 0, L"%s", line.c_str());
}
