// The fixed values of the zip format, shared by its directory reader, its
// writer, its repair and the decoder of the items libarchive cannot give.
#pragma once

#include <cstdint>

namespace engine::zipformat {

inline constexpr std::uint32_t kLocalSignature = 0x04034b50;
inline constexpr std::uint32_t kCentralSignature = 0x02014b50;
inline constexpr std::uint32_t kEndSignature = 0x06054b50;
inline constexpr std::uint32_t kEnd64Signature = 0x06064b50;
inline constexpr std::uint32_t kLocator64Signature = 0x07064b50;
inline constexpr std::uint32_t kDescriptorSignature = 0x08074b50;

inline constexpr std::uint16_t kMethodStore = 0, kMethodDeflate = 8, kMethodDeflate64 = 9,
                               kMethodBzip2 = 12, kMethodLzma = 14, kMethodZstd = 93,
                               kMethodXz = 95, kMethodAes = 99;

inline constexpr std::uint16_t kFlagEncrypted = 0x0001, kFlagDescriptor = 0x0008,
                               kFlagUtf8 = 0x0800;
// The method's own option bits (deflate's level, LZMA's end marker).
inline constexpr std::uint16_t kFlagMethodOptions = 0x0006, kFlagLzmaEndMarker = 0x0002;

}  // namespace engine::zipformat
