// ARJ archives: a main header, then a header for each file (its name,
// sizes, time, CRC-32, each header checked by a CRC-32 of its own) followed
// by its data: stored, coded with static Huffman codes over LZ77 matches in
// a 26 KiB window (methods 1 to 3, which differ only in how hard the
// archiver searched), or with the simpler codes of method 4. Multi-volume
// parts and enciphered ("garbled") files are listed but not expanded.
#pragma once

#include <memory>

#include "Driver.h"

namespace engine {

Result OpenArjReader(const ReadRequest &request, std::unique_ptr<ReadCursor> &cursor);

}  // namespace engine
