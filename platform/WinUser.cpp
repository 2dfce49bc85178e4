#include "platform/WinUser.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/WideText.h"

namespace {

std::atomic<HCURSOR> currentCursor{nullptr};

// Windows primary language ids of ISO 639-1 codes.
struct LanguageId {
    const char *code;
    WORD primary;
};
constexpr LanguageId kLanguages[] = {
    {"ar", 0x01}, {"bg", 0x02},          {"ca", 0x03}, {"zh", LANG_CHINESE}, {"cs", 0x05},
    {"da", 0x06}, {"de", LANG_GERMAN},   {"el", 0x08}, {"en", LANG_ENGLISH}, {"es", 0x0A},
    {"fi", 0x0B}, {"fr", LANG_FRENCH},   {"he", 0x0D}, {"hu", 0x0E},         {"is", 0x0F},
    {"it", 0x10}, {"ja", LANG_JAPANESE}, {"ko", 0x12}, {"nl", 0x13},         {"nb", 0x14},
    {"no", 0x14}, {"pl", 0x15},          {"pt", 0x16}, {"ro", 0x18},         {"ru", 0x19},
    {"hr", 0x1A}, {"sk", 0x1B},          {"sv", 0x1D}, {"th", 0x1E},         {"tr", 0x1F},
    {"uk", 0x22},
};

std::string EnvironmentLocale() {
    for (const char *name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char *value = std::getenv(name);
        if (value && *value) return value;
    }
    return {};
}

bool IsSystemCursorName(LPCWSTR name) {
    auto id = reinterpret_cast<ULONG_PTR>(name);
    return id >= 0x7F00 && id <= 0x7FFF;
}

}  // namespace

int MessageBoxW(HWND owner, LPCWSTR text, LPCWSTR caption, UINT flags) {
    return platform::CurrentUiHost()->MessageBox(owner, text ? text : L"",
                                                 caption ? caption : L"Error", flags);
}

HCURSOR LoadCursorW(HINSTANCE instance, LPCWSTR name) {
    if (instance || !IsSystemCursorName(name)) return nullptr;
    // The handle of a system cursor is its id, so it stays the same for
    // every load and tells which cursor is set.
    return reinterpret_cast<HCURSOR>(const_cast<wchar_t *>(name));
}

HCURSOR SetCursor(HCURSOR cursor) { return currentCursor.exchange(cursor); }

HCURSOR GetCursor() { return currentCursor.load(); }

int GetSystemMetrics(int index) { return platform::CurrentUiHost()->SystemMetric(index); }

void OutputDebugStringW(LPCWSTR text) {
    if (!text || !std::getenv("VARNICK_DEBUG")) return;
    std::string narrow = platform::ToUtf8(text);
    std::fputs(narrow.c_str(), stderr);
    std::fflush(stderr);
}

LANGID GetUserDefaultUILanguage() {
    const LANGID english = MAKELANGID(LANG_ENGLISH, SUBLANG_DEFAULT);
    // "ll_CC.codeset@modifier"
    std::string locale = EnvironmentLocale();
    std::string language = locale.substr(0, locale.find_first_of("_.@"));
    std::string country;
    if (std::size_t underscore = locale.find('_'); underscore != std::string::npos) {
        country = locale.substr(underscore + 1, 2);
    }
    for (const LanguageId &entry : kLanguages) {
        if (language != entry.code) continue;
        bool simplified =
            entry.primary == LANG_CHINESE && country != "TW" && country != "HK" && country != "MO";
        return MAKELANGID(entry.primary, simplified ? SUBLANG_CHINESE_SIMPLIFIED : SUBLANG_DEFAULT);
    }
    return english;
}
