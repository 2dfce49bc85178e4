// The fixed values of the 7z format, shared by its reader, its driver and
// the archive of one item that hands a coder's stream to libarchive.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace engine::sevenzip {

// The first six bytes of the signature header.
inline constexpr std::string_view kSignature{"7z\xBC\xAF\x27\x1C", 6};
// Signature, version, its own CRC, and where the catalogue lies.
inline constexpr std::size_t kSignatureHeaderSize = 32;

// The properties that mark the parts of a catalogue.
enum Property : std::uint8_t {
    kEnd = 0x00,
    kHeader = 0x01,
    kArchiveProperties = 0x02,
    kAdditionalStreamsInfo = 0x03,
    kMainStreamsInfo = 0x04,
    kFilesInfo = 0x05,
    kPackInfo = 0x06,
    kUnPackInfo = 0x07,
    kSubStreamsInfo = 0x08,
    kSize = 0x09,
    kCRC = 0x0A,
    kFolder = 0x0B,
    kCodersUnPackSize = 0x0C,
    kNumUnPackStream = 0x0D,
    kEmptyStream = 0x0E,
    kEmptyFile = 0x0F,
    kAnti = 0x10,
    kName = 0x11,
    kMTime = 0x14,
    kWinAttributes = 0x15,
    kEncodedHeader = 0x17,
    kDummy = 0x19,
};

}  // namespace engine::sevenzip
