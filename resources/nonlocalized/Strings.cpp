// Texts that are never translated: product and service names, file-name
// prefixes and extensions.
#include "StringTable.h"

namespace {
constexpr VarnickStringEntry kStrings[] = {
    {230, L"Varnick"},
    {365, L".zip"},
    {368, L".vnkx"},
    {373, L".vnk"},
    {375, L".tar"},
    {377, L".7z"},
    {379, L".arc"},
    {381, L".bz2"},
    {383, L".cab"},
    {385, L".lha"},
    {387, L".gz"},
    {389, L".rar"},
    {391, L".z"},
    {393, L".b64"},
    {395, L".hqx"},
    {399, L".uu"},
    {401, L".bin"},
    {402, L".as"},
    {404, L".yenc"},
    {510, L".cbz"},
    {758, L".tz"},
    {763, L"Index of "},
    {766, L"Varnick Archive Name Service"},
    {942, L".arj"},
    {943, L".lzh"},
    {944, L".mime"},
    {945, L".mim"},
    {946, L".mme"},
    {947, L".uue"},
    {948, L".ync"},
    {949, L".ntx"},
    {956, L".tbz2"},
    {957, L".tgz"},
    {1121, L".sea"},
    {1133, L".cbr"},
    {1134, L".cbt"},
    {1135, L".gtar"},
    {1136, L".gnutar"},
    {1137, L".ustar"},
    {1181, L"Pando"},
    {1182, L"VarnickConnect"},
    {1184, L".vidx"},
    {1532, L".lzma"},
    {1534, L".tlzma"},
};
static_assert(IsSortedById(kStrings));
}  // namespace

extern "C" const VarnickStringEntry *VarnickStringTable(std::size_t *count) {
    *count = sizeof(kStrings) / sizeof(kStrings[0]);
    return kStrings;
}
