#include "VnkxBlockPlan.h"

#include <algorithm>
#include <cstring>

namespace engine::vnkx {
namespace {

// Enough of an item to judge it by; the rest of a large one is alike.
constexpr std::size_t kSample = 1 << 20;
constexpr std::size_t kTextSample = 64 << 10;
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

// The length of the valid UTF-8 sequence (2 to 4 bytes) at `data`, 0 when
// there is none. A sequence cut by the end of the sample counts as valid.
std::size_t Utf8Sequence(const std::uint8_t *data, std::size_t size) {
    std::uint8_t lead = data[0];
    std::size_t length = lead >= 0xC2 && lead <= 0xDF   ? 2
                         : lead >= 0xE0 && lead <= 0xEF ? 3
                         : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                        : 0;
    if (length == 0) return 0;
    std::size_t present = std::min(length, size);
    for (std::size_t i = 1; i < present; ++i)
        if ((data[i] & 0xC0) != 0x80) return 0;
    return present;
}

}  // namespace

bool LooksLikeText(const std::uint8_t *data, std::size_t size) {
    size = std::min(size, kTextSample);
    std::size_t plain = 0;
    for (std::size_t i = 0; i < size;) {
        std::uint8_t byte = data[i];
        if (byte == 0) return false;
        if ((byte >= 0x20 && byte < 0x7F) || byte == '\t' || byte == '\n' || byte == '\r') {
            ++plain;
            ++i;
        } else if (std::size_t sequence = byte >= 0x80 ? Utf8Sequence(data + i, size - i) : 0) {
            plain += sequence;
            i += sequence;
        } else {
            ++i;
        }
    }
    return plain * 100 >= size * 95;
}

BlockKind KindOfContent(const MethodChoice &requested, const std::uint8_t *data, std::size_t size,
                        bool storeOnly) {
    if (storeOnly) return BlockKind::Stored;
    bool textBlocks = requested.textOrder > 0 || requested.wordText;
    if (textBlocks && size > 0 && LooksLikeText(data, size)) return BlockKind::Text;
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
    } else if (kind == BlockKind::Text && requested.textOrder > 0) {
        choice.method = kMethodText;
        choice.level = requested.textOrder;
        choice.extent = requested.textModelLog;
    } else if (kind == BlockKind::Text && requested.wordText) {
        // LZMA2 after the word transform, with a short search at the run's
        // first level (most of what the usual one finds, in a third of the
        // time); higher levels search longer.
        int deeper = std::clamp(requested.level, 1, 22) - 1;
        choice.method = kMethodWordText;
        choice.niceLength = 24 + 4 * deeper;
        choice.searchDepth = 4 + 2 * deeper;
        choice.extent = std::clamp(requested.extent, 20, 23);
    } else if (kind == BlockKind::Code && choice.method == kMethodZstd) {
        // Normal (optimal) parsing with a short search: most of what the
        // slower settings find in code, at a fraction of their time.
        choice.method = kMethodLzma2;
        choice.level = 6;
        choice.niceLength = 24;
        choice.searchDepth = 8;
        choice.extent = std::clamp(requested.extent, 20, 23);
    } else if (requested.method == kMethodPpmd) {
        // PPMd's level and extent are the text model's order and memory;
        // what is not text is coded as LZMA2 usually is.
        choice.level = 6;
        choice.extent = std::clamp(requested.extent, 20, 24);
    }
    return choice;
}

std::uint64_t WorkerMemoryOfRun(const MethodChoice &requested) {
    std::uint64_t most = 0;
    for (BlockKind kind : {BlockKind::General, BlockKind::Code, BlockKind::Text})
        most = std::max(most, WorkerMemory(ChoiceForBlock(requested, kind)));
    return most;
}

}  // namespace engine::vnkx
