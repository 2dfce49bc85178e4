// Which block an item's bytes go into: every block holds one kind of
// content, so machine code and text get coders made for them and are not
// mixed, and data stored as it is stays apart from all of them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "VnkxMethods.h"

namespace engine::vnkx {

enum class BlockKind : std::uint8_t { General, Code, Stored, Text };

// Tells the kind from an item's first bytes. Text is a kind where the run
// codes text blocks (MethodChoice::textOrder or wordText); an executable image or a
// dense run of x86 near calls is code. Code is a kind of its own only where
// it gets a coder of its own; elsewhere it stays among its neighbours, whose
// long matches it shares.
BlockKind KindOfContent(const MethodChoice &requested, const std::uint8_t *data, std::size_t size,
                        bool storeOnly);

// True when the first 64 KiB hold no NUL and at least 95% of their bytes
// are printable ASCII, tab, CR, LF or parts of valid UTF-8 sequences.
bool LooksLikeText(const std::uint8_t *data, std::size_t size);

// How a block of a kind is coded under the method asked for. zstd runs
// code their code blocks as LZMA2 with its branch filter, which packs
// machine code far tighter for its time; text blocks of a run that has them
// get the text method or word text; the other methods code every kind alike.
MethodChoice ChoiceForBlock(const MethodChoice &requested, BlockKind kind);

// What one worker needs at most for any kind of block of the run.
std::uint64_t WorkerMemoryOfRun(const MethodChoice &requested);

// A run holds its workers and one block filling beside them. Light runs,
// whose worker and filling block take at most kLightRunMemory (the defaults
// are one), keep to that in all however many cores there are; heavier
// settings may take up to `allowed`. So memory, not only cores, sets how
// many work at once: at least one, at most `cores`.
constexpr std::uint64_t kLightRunMemory = 256ULL << 20;

constexpr bool RunFits(std::uint64_t perWorker, std::uint64_t allowed) {
    return perWorker <= allowed / 2;
}

constexpr unsigned WorkersFor(std::uint64_t perWorker, unsigned cores, std::uint64_t allowed) {
    perWorker = std::max<std::uint64_t>(perWorker, 1);
    std::uint64_t budget = RunFits(perWorker, kLightRunMemory) ? kLightRunMemory : allowed;
    std::uint64_t fit = budget / perWorker;  // the filling block takes one worker's share
    return static_cast<unsigned>(
        std::min<std::uint64_t>(fit > 1 ? fit - 1 : 1, std::max(cores, 1u)));
}

}  // namespace engine::vnkx
