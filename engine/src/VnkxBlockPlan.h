// Which block an item's bytes go into: every block holds one kind of
// content, so machine code gets a coder made for it and text is not mixed
// with it, and data stored as it is stays apart from both.
#pragma once

#include <cstddef>
#include <cstdint>

#include "VnkxMethods.h"

namespace engine::vnkx {

enum class BlockKind : std::uint8_t { General, Code, Stored };

// Tells the kind from an item's first bytes: an executable image or a
// dense run of x86 near calls is code. Code is a kind of its own only where
// it gets a coder of its own; elsewhere it stays among its neighbours, whose
// long matches it shares.
BlockKind KindOfContent(const MethodChoice &requested, const std::uint8_t *data, std::size_t size,
                        bool storeOnly);

// How a block of a kind is coded under the method asked for. zstd runs
// code their code blocks as LZMA2 with its branch filter, which packs
// machine code far tighter for its time; the other methods code every
// kind alike.
MethodChoice ChoiceForBlock(const MethodChoice &requested, BlockKind kind);

}  // namespace engine::vnkx
