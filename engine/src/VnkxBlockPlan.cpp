#include "VnkxBlockPlan.h"

#include <algorithm>
#include <cstring>

namespace engine::vnkx {
namespace {

// Enough of an item to judge it by; the rest of a large one is alike.
constexpr std::size_t kSample = 1 << 20;
// Smaller files gain nothing from a coder of their own.
constexpr std::size_t kSmallestCode = 4096;

bool ExecutableImage(const std::uint8_t *data, std::size_t size) {
    if (size < 4) return false;
    static const std::uint8_t kElf[] = {0x7F, 'E', 'L', 'F'};
    static const std::uint8_t kMachO64[] = {0xCF, 0xFA, 0xED, 0xFE};
    static const std::uint8_t kMachO32[] = {0xCE, 0xFA, 0xED, 0xFE};
    return std::memcmp(data, kElf, 4) == 0 || std::memcmp(data, kMachO64, 4) == 0 ||
           std::memcmp(data, kMachO32, 4) == 0 || (data[0] == 'M' && data[1] == 'Z');
}

}  // namespace

BlockKind KindOfContent(const MethodChoice &requested, const std::uint8_t *data, std::size_t size,
                        bool storeOnly) {
    if (storeOnly) return BlockKind::Stored;
    if (CodedMethod(requested.method) != kMethodZstd || size < kSmallestCode)
        return BlockKind::General;
    std::size_t sample = std::min(size, kSample);
    if (ExecutableImage(data, sample) || DenseInCalls(data, sample)) return BlockKind::Code;
    return BlockKind::General;
}

MethodChoice ChoiceForBlock(const MethodChoice &requested, BlockKind kind) {
    MethodChoice choice = requested;
    choice.method = CodedMethod(requested.method);
    if (kind == BlockKind::Stored) {
        choice.method = kMethodStore;
    } else if (kind == BlockKind::Code && choice.method == kMethodZstd) {
        // Normal (optimal) parsing with a short search: most of what the
        // slower settings find in code, at about a third of their time.
        choice.method = kMethodLzma2;
        choice.level = 6;
        choice.niceLength = 32;
        choice.searchDepth = 16;
        choice.extent = std::clamp(requested.extent, 20, 23);
    }
    return choice;
}

}  // namespace engine::vnkx
