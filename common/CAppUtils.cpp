#include "CAppUtils.h"

#include <atomic>
#include <cmath>
#include <cstring>
#include <cwchar>
#include <random>
#include <string>

#include "CFSUtils.h"
#include "CHighTime.h"
#include "CRegistry.h"
#include "platform/Win32.h"

namespace {

// The product's version: the "ProductVersion" of its version block.
constexpr DWORD kVersionMajor = VARNICK_VERSION_MAJOR;
constexpr DWORD kVersionMinor = VARNICK_VERSION_MINOR;
constexpr DWORD kVersionBuild = VARNICK_VERSION_PATCH;

constexpr std::size_t kPathChars = platform::kPathBufferSize;
constexpr int kDialogTextChars = 256;
constexpr std::size_t kFileSizeTextChars = 32;
constexpr int kDateTimeTextChars = 64;
constexpr UINT kErrorBoxFlags = 48;  // exclamation icon, one OK button
constexpr wchar_t kMainWindowClass[] = L"VARNICK";
constexpr wchar_t kSupportEndpoint[] = L"https://support.orvanelabs.com/redirect";
constexpr wchar_t kProductKey[] = L"Software\\Orvane Labs\\Varnick";
constexpr std::size_t kSettingTextChars = 256;

std::atomic<HINSTANCE> commonInstance{nullptr};
std::atomic<HINSTANCE> commonNLInstance{nullptr};

std::wstring Text(const wchar_t *text) { return text ? text : L""; }

std::wstring ThousandSeparator() {
    wchar_t separator[4] = L"";
    GetProfileStringW(L"Intl", L"sThousand", L",", separator, 4);
    return separator;
}

std::wstring DecimalSeparator() {
    wchar_t separator[4] = L"";
    GetProfileStringW(L"Intl", L"sDecimal", L".", separator, 4);
    return separator;
}

// Inserts the separator between groups of three in the first run of digits.
std::wstring GroupDigits(const std::wstring &number, const std::wstring &separator) {
    std::size_t begin = number.find_first_of(L"0123456789");
    if (begin == std::wstring::npos) return number;
    std::size_t end = number.find_first_not_of(L"0123456789", begin);
    if (end == std::wstring::npos) end = number.size();
    std::wstring result = number.substr(0, begin);
    for (std::size_t i = begin; i < end; ++i) {
        if (i > begin && (end - i) % 3 == 0) result += separator;
        result += number[i];
    }
    return result + number.substr(end);
}

std::wstring FileSizeText(std::int64_t size) {
    std::wstring separator = ThousandSeparator();
    std::wstring text;
    bool grouped = false;
    for (std::int64_t unit : {1000000000LL, 1000000LL, 1000LL}) {
        if (grouped || size > unit - 1) {
            text += FormatW(grouped ? L"%03ld%s" : L"%ld%s", static_cast<LONG>(size / unit),
                            separator.c_str());
            size %= unit;
            grouped = true;
        }
    }
    return text + FormatW(grouped ? L"%03ld" : L"%ld", static_cast<LONG>(size));
}

// Width of a text on the device: characters, which is also what a window
// layer without text metrics measures.
int TextWidth(const std::wstring &text, HDC) { return static_cast<int>(text.size()); }

struct LanguageEntry {
    WORD primary;
    const wchar_t *designator;
    const wchar_t *name;
};
constexpr LanguageEntry kLanguages[] = {
    {LANG_ENGLISH, L"EN", L"English"}, {LANG_FRENCH, L"FR", L"French"},
    {LANG_GERMAN, L"DE", L"German"},   {LANG_JAPANESE, L"JA", L"Japanese"},
    {LANG_CHINESE, L"CH", L"Chinese"},
};

const LanguageEntry &UserLanguage() {
    WORD primary = PRIMARYLANGID(GetUserDefaultUILanguage());
    for (const LanguageEntry &entry : kLanguages) {
        if (entry.primary == primary) return entry;
    }
    return kLanguages[0];
}

constexpr const wchar_t *kSupportPages[] = {
    L"tw",   L"iShelp", L"iShome",   L"iSupdt", L"stor",     L"info",
    L"vchk", L"msg",    L"feedback", L"splash", L"register", L"purchase",
};

}  // namespace

// The library's version for hosts that ask it through DllGetVersion.
extern "C" HRESULT DllGetVersion(DLLVERSIONINFO *info) {
    if (!info || info->cbSize < sizeof(DLLVERSIONINFO)) return E_INVALIDARG;
    info->dwMajorVersion = kVersionMajor;
    info->dwMinorVersion = kVersionMinor;
    info->dwBuildNumber = kVersionBuild;
    info->dwPlatformID = 2;
    return S_OK;
}

// ---------------------------------------------------------- message boxes

int CAppUtils::MsgBox(unsigned textId, unsigned titleId, UINT flags, HWND parent) {
    std::wstring text = CAppUtils::LoadString(textId, static_cast<int>(kPathChars));
    return MsgBox(text.c_str(), titleId, flags, parent);
}

int CAppUtils::MsgBox(const wchar_t *text, unsigned titleId, UINT flags, HWND parent) {
    std::wstring title = CAppUtils::LoadString(titleId, kDialogTextChars);
    return MessageBoxW(parent, Text(text).c_str(), title.c_str(), flags);
}

void CAppUtils::ErrorMsgBox(unsigned textId, unsigned titleId, const wchar_t *a, const wchar_t *b) {
    HWND owner = GetFocus();
    if (!owner) {
        owner = FindWindowW(kMainWindowClass, nullptr);
        if (owner) SetForegroundWindow(owner);
    }
    std::wstring title = CAppUtils::LoadString(titleId, kDialogTextChars);
    std::wstring text = CAppUtils::LoadString(textId, kDialogTextChars);
    std::wstring message = text;
    if (a && b) {
        message = FormatW(text.c_str(), a, b);
    } else if (a) {
        message = FormatW(text.c_str(), a);
    }
    MessageBoxW(owner, message.c_str(), title.c_str(), kErrorBoxFlags);
}

const wchar_t *CAppUtils::ErrorFormat(unsigned id, const wchar_t *text) {
    static std::wstring result;
    std::wstring format = CAppUtils::LoadString(id, static_cast<int>(kPathChars));
    result = FormatW(format.c_str(), Text(text).c_str());
    return result.c_str();
}

// --------------------------------------------------------- numbers as text

const wchar_t *CAppUtils::GetNumberFormatW(int value) {
    static std::wstring result;
    result = GroupDigits(FormatW(L"%d", value), ThousandSeparator());
    return result.c_str();
}

const wchar_t *CAppUtils::GetNumberFormat64(std::int64_t value) {
    static std::wstring result;
    result = GroupDigits(FormatW(L"%I64d", value), ThousandSeparator());
    return result.c_str();
}

const wchar_t *CAppUtils::GetDoubleFormat(double value, int decimals) {
    static std::wstring result;
    std::wstring number = FormatW(L"%.*f", decimals < 0 ? 0 : decimals, value);
    if (!std::isfinite(value)) return (result = number).c_str();
    std::size_t point = number.find(L'.');
    std::wstring whole = number.substr(0, point);
    result = GroupDigits(whole, ThousandSeparator());
    if (point != std::wstring::npos) result += DecimalSeparator() + number.substr(point + 1);
    return result.c_str();
}

const wchar_t *CAppUtils::FormatFileSize(DWORD high, DWORD low, wchar_t *out) {
    auto size = static_cast<std::int64_t>((static_cast<std::uint64_t>(high) << 32) | low);
    return FormatFileSize(size, out);
}

const wchar_t *CAppUtils::FormatFileSize(std::int64_t size, wchar_t *out) {
    if (!out) return nullptr;
    wcscpy_s(out, kFileSizeTextChars, FileSizeText(size).c_str());
    return out;
}

void CAppUtils::FormatDateTime(const FILETIME *fileTime, wchar_t *date, wchar_t *time) {
    if (date) date[0] = L'\0';
    if (time) time[0] = L'\0';
    FILETIME local;
    SYSTEMTIME when;
    if (!fileTime || !FileTimeToLocalFileTime(fileTime, &local) ||
        !FileTimeToSystemTime(&local, &when)) {
        return;
    }
    if (date)
        GetDateFormatW(LOCALE_USER_DEFAULT, DATE_SHORTDATE, &when, nullptr, date,
                       kDateTimeTextChars);
    if (time) GetTimeFormatW(LOCALE_USER_DEFAULT, 0, &when, nullptr, time, kDateTimeTextChars);
}

const wchar_t *CAppUtils::GetDateTimeFormat(const CHighTime &time, bool longDate) {
    static std::wstring result;
    result.clear();
    SYSTEMTIME when;
    if (!time.GetAsSystemTime(when)) return result.c_str();
    wchar_t date[kDateTimeTextChars];
    wchar_t clock[kDateTimeTextChars];
    if (!GetDateFormatW(LOCALE_USER_DEFAULT, longDate ? DATE_LONGDATE : DATE_SHORTDATE, &when,
                        nullptr, date, kDateTimeTextChars) ||
        !GetTimeFormatW(LOCALE_USER_DEFAULT, 0, &when, nullptr, clock, kDateTimeTextChars)) {
        return result.c_str();
    }
    result = FormatW(L"%s %s", date, clock);
    return result.c_str();
}

// ------------------------------------------------------ versions, system

const wchar_t *CAppUtils::AppVersion() {
    static const std::wstring version =
        FormatW(L"%u.%u.%u", kVersionMajor, kVersionMinor, kVersionBuild);
    return version.c_str();
}

const wchar_t *CAppUtils::DllVersion(const wchar_t *path) {
    static std::wstring result;
    result.clear();
    if (!path || !*path) return result.c_str();
    HMODULE module = LoadLibraryW(path);
    if (!module) return result.c_str();
    using GetVersionProc = HRESULT (*)(DLLVERSIONINFO *);
    auto getVersion = reinterpret_cast<GetVersionProc>(GetProcAddress(module, "DllGetVersion"));
    DLLVERSIONINFO info{};
    info.cbSize = sizeof info;
    if (getVersion && getVersion(&info) == S_OK) {
        result = FormatW(L"%d.%d.%d", info.dwMajorVersion, info.dwMinorVersion, info.dwBuildNumber);
    }
    FreeLibrary(module);
    return result.c_str();
}

const wchar_t *CAppUtils::GetWindowsVersion() {
#if defined(__linux__)
    return L"LX";
#else
    return L"";
#endif
}

DWORD CAppUtils::GetWINVER() { return 0x0A00; }

namespace {

// A text value of the product's key in the current user's hive; false when
// it is not stored.
bool ReadProductSetting(const wchar_t *name, std::wstring &text) {
    CRegistry registry;
    registry.SetAppKey(kProductKey);
    // Cleared first: stored text carries no terminator.
    wchar_t buffer[kSettingTextChars] = {};
    if (!registry.GetRegSetting(name, buffer, (kSettingTextChars - 1) * 2)) return false;
    text = buffer;
    return true;
}

// An installation's class: a number from 1 to 100 drawn once.
std::wstring NewVersionCode() {
    std::random_device random;
    return FormatW(L"%u", random() % 100 + 1);
}

}  // namespace

const wchar_t *CAppUtils::GetOrCreateVersionCode() {
    static wchar_t result[kSettingTextChars];
    std::wstring code;
    if (!ReadProductSetting(L"UIClass", code) || code.empty()) {
        code = NewVersionCode();
        CRegistry registry;
        registry.CreateAppKey(kProductKey);
        if (!registry.WriteRegSetting(L"UIClass", code.c_str())) code.clear();
    }
    wcscpy_s(result, kSettingTextChars, code.c_str());
    return result;
}

WORD CAppUtils::GetLanguageCode() {
    LANGID user = GetUserDefaultUILanguage();
    return PRIMARYLANGID(user) == UserLanguage().primary
               ? user
               : MAKELANGID(LANG_ENGLISH, SUBLANG_DEFAULT);
}

const wchar_t *CAppUtils::GetLanguageDesignator() { return UserLanguage().designator; }

const wchar_t *CAppUtils::GetLanguageString() { return UserLanguage().name; }

// ------------------------------------------------------------------ paths

const wchar_t *CAppUtils::GetExeName() {
    static wchar_t result[kPathChars];
    DWORD length = GetModuleFileNameW(platform::LibraryModule(), result, kPathChars);
    if (length == 0 || length >= kPathChars) result[0] = L'\0';
    return result;
}

const wchar_t *CAppUtils::GetExePath() {
    static wchar_t result[kPathChars];
    wcscpy_s(result, kPathChars, CFSUtils::ExtractFilePath(GetExeName()));
    return result;
}

namespace {
const wchar_t *InProgramFolder(wchar_t (&result)[kPathChars], const wchar_t *name) {
    std::wstring path = CAppUtils::GetExePath();
    if (path.empty()) {
        result[0] = L'\0';
    } else {
        wcscpy_s(result, kPathChars, (path + kPathSep + name).c_str());
    }
    return result;
}
}  // namespace

const wchar_t *CAppUtils::GetCmdLineExeName() {
    static wchar_t result[kPathChars];
    return InProgramFolder(result, L"CmdLine.exe");
}

const wchar_t *CAppUtils::GetInstResPath() {
    static wchar_t result[kPathChars];
    return InProgramFolder(result, L"Resources.dll");
}

const wchar_t *CAppUtils::GetInstResNLPath() {
    static wchar_t result[kPathChars];
    return InProgramFolder(result, L"NonLocalizedResources.dll");
}

// ------------------------------------------------------------------ texts

std::uint64_t CAppUtils::GetPhysicalMemorySize() {
    MEMORYSTATUSEX status{};
    status.dwLength = sizeof status;
    return GlobalMemoryStatusEx(&status) ? status.ullTotalPhys : 0;
}

std::uint64_t CAppUtils::GetMemoryLimit() {
    MEMORYSTATUSEX status{};
    status.dwLength = sizeof status;
    if (!GlobalMemoryStatusEx(&status)) return 0;
    return status.ullAvailPhys < status.ullAvailVirtual ? status.ullAvailPhys
                                                        : status.ullAvailVirtual;
}

const wchar_t *CAppUtils::CreateGUID() {
    static std::wstring result;
    std::random_device random;
    BYTE bytes[16];
    for (std::size_t i = 0; i < sizeof bytes; i += 4) {
        unsigned value = random();
        for (std::size_t j = 0; j < 4; ++j) bytes[i + j] = static_cast<BYTE>(value >> (8 * j));
    }
    bytes[6] = static_cast<BYTE>((bytes[6] & 0x0F) | 0x40);  // version 4: random
    bytes[8] = static_cast<BYTE>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
    result = L"{";
    for (std::size_t i = 0; i < sizeof bytes; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) result += L'-';
        result += FormatW(L"%02X", bytes[i]);
    }
    result += L"}";
    return result.c_str();
}

wchar_t *CAppUtils::TrimLeadingSpaces(wchar_t *text) {
    if (!text) return text;
    std::size_t skip = std::wcsspn(text, L" \t");
    if (skip > 0) std::wmemmove(text, text + skip, std::wcslen(text + skip) + 1);
    return text;
}

wchar_t *CAppUtils::TrimTrailingSpaces(wchar_t *text) {
    if (!text) return text;
    std::size_t length = std::wcslen(text);
    while (length > 0 && (text[length - 1] == L' ' || text[length - 1] == L'\t')) --length;
    text[length] = L'\0';
    return text;
}

bool CAppUtils::STDStringListLookup(const STDStringList &list, const wchar_t *text) {
    if (!text) return false;
    for (const std::wstring &entry : list) {
        if (platform::EqualsNoCase(entry, text)) return true;
    }
    return false;
}

void CAppUtils::CenterDlgOverParent(HWND dialog, HWND parent) {
    RECT box{};
    if (!GetWindowRect(dialog, &box)) return;
    const LONG screenWidth = GetSystemMetrics(SM_CXSCREEN);
    const LONG screenHeight = GetSystemMetrics(SM_CYSCREEN);
    RECT over{0, 0, screenWidth, screenHeight};
    if (parent) GetWindowRect(parent, &over);
    const LONG width = box.right - box.left;
    const LONG height = box.bottom - box.top;
    LONG x = over.left + ((over.right - over.left) - width) / 2;
    LONG y = over.top + ((over.bottom - over.top) - height) / 2;
    // Keep the whole dialog on the screen, its top left corner first.
    if (x + width > screenWidth) x = screenWidth - width;
    if (y + height > screenHeight) y = screenHeight - height;
    if (x < 0) x = 0;
    if (y < 0) y = 0;
    MoveWindow(dialog, x, y, width, height, FALSE);
}

void CAppUtils::ProcessMessages() {
    MSG message{};
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        if (message.message == WM_QUIT) {
            PostQuitMessage(static_cast<int>(message.wParam));
            return;
        }
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
}

bool CAppUtils::FilesAvailableOnClipboardToPaste() {
    return IsClipboardFormatAvailable(CF_HDROP) != FALSE;
}

bool CAppUtils::CopyTextToClipboard(HWND owner, const std::wstring &text) {
    std::size_t bytes = (text.size() + 1) * sizeof(wchar_t);
    if (!OpenClipboard(owner)) return false;
    EmptyClipboard();
    bool placed = false;
    HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE, bytes);
    if (void *data = block ? GlobalLock(block) : nullptr) {
        std::memcpy(data, text.c_str(), bytes);
        GlobalUnlock(block);
        placed = SetClipboardData(CF_UNICODETEXT, block) != nullptr;
        if (!placed) GlobalFree(block);
    }
    CloseClipboard();
    return placed;
}

const wchar_t *CAppUtils::GetISupportURL(SUPPORT_PAGE_TYPE page, bool solution) {
    static std::wstring result;
    result.clear();
    if (page < SUPPORT_PAGE_TW || page > SUPPORT_PAGE_PURCHASE) return result.c_str();
    SYSTEMTIME now;
    GetLocalTime(&now);
    std::wstring date = FormatW(L"%02i-%02i-%04i", now.wMonth, now.wDay, now.wYear);
    std::wstring versionCode = GetOrCreateVersionCode();
    std::wstring engineVersion;
    ReadProductSetting(L"EngineVersion", engineVersion);
    result = FormatW(L"%s?f=%s&date=%s%s&v=14&e=%s&l=%s&vc=%s", kSupportEndpoint,
                     kSupportPages[page], date.c_str(), solution ? L"&p=SOL&o=W" : L"&p=STD&o=W",
                     engineVersion.c_str(), GetLanguageDesignator(), versionCode.c_str());
    std::wstring oem;
    if (ReadProductSetting(L"OEM", oem) && !oem.empty()) result += L"&xoem=" + oem;
    return result.c_str();
}

const wchar_t *CAppUtils::FitPath(const wchar_t *path, int width, HDC dc) {
    static std::wstring result;
    result = Text(path);
    if (TextWidth(result, dc) <= width) return result.c_str();
    // "<first>/.../<last parts>": the first part names the root or drive
    // folder; as many trailing parts are kept as fit, at least the last.
    std::size_t firstEnd = result.find(kPathSep, 1);
    std::size_t lastStart = result.rfind(kPathSep);
    if (firstEnd == std::wstring::npos || lastStart <= firstEnd) return result.c_str();
    const std::wstring head = result.substr(0, firstEnd) + kPathSep + L"..." + kPathSep;
    std::size_t tailStart = lastStart + 1;
    while (true) {
        std::size_t previous = result.rfind(kPathSep, tailStart - 2);
        if (previous == std::wstring::npos || previous <= firstEnd) break;
        if (TextWidth(head + result.substr(previous + 1), dc) > width) break;
        tailStart = previous + 1;
    }
    result = head + result.substr(tailStart);
    return result.c_str();
}

const wchar_t *CAppUtils::WinErrorToString(DWORD code) {
    static std::wstring result;
    result = FormatW(L"(%d) - %s", code, platform::SystemMessageText(code).c_str());
    return result.c_str();
}

std::wstring CAppUtils::LoadString(unsigned id, int max) {
    if (max <= 0) return {};
    std::wstring buffer(static_cast<std::size_t>(max), L'\0');
    int length = LoadStringW(commonInstance.load(), id, buffer.data(), max);
    if (length == 0) length = LoadStringW(commonNLInstance.load(), id, buffer.data(), max);
    buffer.resize(static_cast<std::size_t>(length > 0 ? length : 0));
    return buffer;
}

const wchar_t *CAppUtils::GetResString(HINSTANCE instance, unsigned id) {
    static wchar_t result[kPathChars];
    if (instance) {
        LoadStringW(instance, id, result, static_cast<int>(kPathChars));
    } else {
        wcscpy_s(result, kPathChars,
                 CAppUtils::LoadString(id, static_cast<int>(kPathChars)).c_str());
    }
    return result;
}

void CAppUtils::SetCommonHINST(HINSTANCE localized, HINSTANCE nonLocalized) {
    commonInstance.store(localized);
    commonNLInstance.store(nonLocalized);
}

HINSTANCE CAppUtils::GetCommonHINST() { return commonInstance.load(); }

HINSTANCE CAppUtils::GetCommonNLHINST() { return commonNLInstance.load(); }
