// Texts that are never translated: product names, keys, addresses.
#include "StringTable.h"

namespace {
constexpr VarnickStringEntry kStrings[] = {
    {1, L"Varnick"},
};
}  // namespace

extern "C" const VarnickStringEntry *VarnickStringTable(std::size_t *count) {
    *count = sizeof(kStrings) / sizeof(kStrings[0]);
    return kStrings;
}
