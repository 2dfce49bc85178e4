// varnick formats: the kinds of archive the library knows, which of them
// the engine reads and which `create` writes.
#include <string>
#include <vector>

#include "CEngine.h"
#include "CliCommon.h"
#include "Commands.h"
#include "FormatCatalogue.h"
#include "platform/Win32.h"

namespace cli {

namespace {

// The catalogue's values run from 0 to 69; the gaps give no extension.
constexpr int kLastCatalogueValue = 69;

// The names `create --format` takes for a format, or "no".
std::wstring WriteText(format::type type) {
    const WritableFormat *writable = WritableFormatOf(type);
    if (!writable) return L"no";
    std::wstring names = writable->name;
    for (const wchar_t *alias : writable->aliases) names += std::wstring(L", ") + alias;
    return L"yes (" + names + L")";
}

// How the engine reads a kind: by its own id, or by what it finds in the
// file when the catalogue gives the kind no id of its own.
std::wstring ReadText(format::type type) {
    FormatId id = {};
    GetFormatID(type, id);
    return id[0] ? FormatW(L"yes (%S)", id) : std::wstring(L"by content");
}

}  // namespace

int FormatsCommand(const std::vector<std::wstring> &words) {
    if (!words.empty()) return UsageError();
    Print(FormatW(L"engine %s\n\n", GetEngineVersion()));
    Print(FormatW(L"%-11s %-28s %-16s %s\n", L"EXTENSION", L"FORMAT", L"READ", L"WRITE"));
    for (int value = 0; value <= kLastCatalogueValue; ++value) {
        const auto type = static_cast<format::type>(value);
        // Each catalogue function returns a static text: copy before the next.
        const std::wstring extension = GetFormatExtension(type);
        if (extension.empty()) continue;
        const std::wstring name = GetFormatName(type);
        Print(FormatW(L"%-11s %-28s %-16s %s\n", extension.c_str(), name.c_str(),
                      ReadText(type).c_str(), WriteText(type).c_str()));
    }
    return kExitSuccess;
}

}  // namespace cli
