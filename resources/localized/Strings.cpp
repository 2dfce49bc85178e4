// Texts of the localized resource library, in English. Formats use the
// Windows specifiers and go through the library's format helper.
#include "StringTable.h"

namespace {
constexpr VarnickStringEntry kStrings[] = {
    {230, L"Varnick"},
};
}  // namespace

extern "C" const VarnickStringEntry *VarnickStringTable(std::size_t *count) {
    *count = sizeof(kStrings) / sizeof(kStrings[0]);
    return kStrings;
}
