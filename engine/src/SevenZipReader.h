// The engine's own 7z reader. libarchive lists enciphered 7z archives but
// cannot decipher them, and cannot open one whose catalogue is enciphered;
// this reader parses the catalogue itself, derives the AES-256 key from the
// password (SHA-256 stretching), deciphers with AES-256-CBC and decodes the
// coders 7-Zip writes (copy, LZMA, LZMA2, the branch filters and BCJ2,
// delta, bzip2, deflate, deflate64, PPMd through libarchive, AES).
#pragma once

#include <memory>

#include "Driver.h"

namespace engine {

// kEngineMethodUnsupported when the archive uses a coder this reader does
// not take and nothing in it is enciphered; the caller then reads it
// another way.
Result OpenSevenZipCursor(const ReadRequest &request, std::unique_ptr<ReadCursor> &cursor);

}  // namespace engine
