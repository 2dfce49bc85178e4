// The project's own formats (vnkx, the classic vnk5, and the private-file
// envelope pf). Their readers and writers arrive with the format itself; the
// property ranges of vnkx are here already, since the options of the library
// read them.
#include "Driver.h"
#include "FormatProfile.h"

namespace engine {
namespace {

// vnkx methods: 1 deflate, 2 bzip2, 3 LZMA2, 4 PPMd, 5 zstd (the default),
// 6 store, 7 LZ4, 8 brotli, 9 LZMA2 with the largest dictionaries.
const FormatProfile kVnkxProfile = {
    5,
    {
        {1, 1, 9, 6, 15, 15, 15},
        {2, 1, 9, 9, 17, 20, 20},
        {3, 0, 9, 5, 16, 28, 24},
        {4, 2, 16, 6, 20, 30, 24},
        {5, 1, 22, 1, 10, 27, 22},
        {6, -1, -1, -1, -1, -1, -1},
        {7, -1, -1, -1, 16, 16, 16},
        {8, 0, 11, 9, 10, 24, 22},
        {9, 0, 9, 9, 24, 30, 27},
    },
    {0, 256, 256},
};

class OwnFormats final : public Driver {
public:
    std::vector<std::string> Ids() const override { return {"vnkx", "vnk5", "vnk", "pf"}; }

    std::optional<std::string> Sniff(SniffInput &) const override { return std::nullopt; }

    Result FormatValue(std::string_view id, const PropertyMap &properties, std::string_view name,
                       std::int32_t &value) const override {
        if (id != "vnkx") return kEnginePropertyNotApplicable;
        return ProfileValue(kVnkxProfile, properties, name, value);
    }
};

}  // namespace

const Driver &OwnFormatsDriver() {
    static const OwnFormats driver;
    return driver;
}

}  // namespace engine
