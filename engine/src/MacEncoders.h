// Encoders of the Macintosh encodings (BinHex 4.0, MacBinary II,
// AppleSingle), and what they share with their decoders.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "EncoderSupport.h"

namespace engine {

// Seconds from 1904-01-01 (the Mac's epoch) and from 2000-01-01
// (AppleSingle's) to 1970-01-01.
inline constexpr std::int64_t kMacEpochOffset = 2082844800;
inline constexpr std::int64_t kAppleSingleEpochOffset = 946684800;

// The 64 characters of BinHex 4.0's six-bit text, by value.
inline constexpr char kBinHexAlphabet[] =
    "!\"#$%&'()*+,-012345689@ABCDEFGHIJKLMNPQRSTUVXYZ[`abcdefhijklmpqr";
// The start of the line before the encoded text, which readers look for.
inline constexpr std::string_view kBinHexSignature = "(This file must be converted with BinHex";

// CRC-16/XMODEM (polynomial 0x1021, initial 0), the check value of BinHex
// and of MacBinary II's header; `crc` continues an earlier run.
std::uint16_t CrcXmodem(const std::uint8_t *data, std::size_t count, std::uint16_t crc = 0);

// Both forks, under the file's name; the resource fork is empty when the
// file has none.
void EncodeBinHex(const EncodedFile &file, EncodedOutput &out);
void EncodeMacBinary(const EncodedFile &file, EncodedOutput &out);
// The name, the dates, the resource fork when there is one, and the data.
void EncodeAppleSingle(const EncodedFile &file, EncodedOutput &out);

}  // namespace engine
