// Index files (".vidx") of vnkx archives: the archive's catalogue region as
// it is stored, without the blocks, and a reference that identifies the
// archive (its name, length and the hash of its catalogue), so an archive
// kept elsewhere can be listed and, once found again, expanded.
#pragma once

#include <string>

#include "VnkxSegments.h"

namespace engine::vnkx {

Bytes EncodeReference(const IndexReference &reference);
bool DecodeReference(const std::uint8_t *data, std::size_t size, IndexReference &reference);

// ".vidx" appended when the index's name has no extension.
std::string IndexPathFor(const std::string &requested);

// Writes an index of the archive at `archive` (a single file or any part of
// a set) to `index`, through a temporary file beside it.
Result WriteIndex(Operation &operation, const std::string &archive, const std::string &index);

}  // namespace engine::vnkx
