// ARC archives (the DOS archiver and its later ports): a run of entries,
// each a header with the item's DOS name, sizes, time and CRC-16, and its
// data stored, packed (runs of a byte), squeezed (Huffman over the packed
// bytes), crunched (LZW of 9 to 12 bits over the packed bytes) or squashed
// (LZW of 9 to 13 bits). The crunching of ARC before version 5 and the
// methods of other programs that borrowed the format are listed but not
// expanded.
#pragma once

#include <memory>

#include "Driver.h"

namespace engine {

Result OpenArcReader(const ReadRequest &request, std::unique_ptr<ReadCursor> &cursor);

}  // namespace engine
