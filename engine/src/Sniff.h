// Small content tests shared by the drivers' sniffers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace engine::sniff {

using Bytes = std::vector<std::uint8_t>;

bool At(const Bytes &data, std::size_t offset, std::initializer_list<std::uint8_t> magic);
bool AtText(const Bytes &data, std::size_t offset, std::string_view text);
// Offset of `pattern` in data at or after `from`, or npos.
std::size_t Find(const Bytes &data, std::string_view pattern, std::size_t from = 0);
std::uint16_t Le16(const Bytes &data, std::size_t offset);
std::uint32_t Le32(const Bytes &data, std::size_t offset);
std::uint64_t Le64(const Bytes &data, std::size_t offset);
std::uint16_t Be16(const Bytes &data, std::size_t offset);
std::uint32_t Be32(const Bytes &data, std::size_t offset);

// A tar header block at `offset`: its checksum adds up.
bool TarHeaderAt(const Bytes &data, std::size_t offset);
// Begins with one of the compressed-stream formats below.
bool CompressedStream(const Bytes &head);
// An executable image (ELF, PE, Mach-O): only an archive when one is
// appended to it.
bool Executable(const Bytes &head);
// A line of the text that begins with `prefix`, within the first bytes.
bool LineStartsWith(const Bytes &data, std::string_view prefix, std::size_t limit = 16 * 1024);

}  // namespace engine::sniff

namespace engine::sniff {

// The id of the compressed-stream format the bytes begin with ("gz", "bz2",
// "xz", "lzma", "zstd", "lz4", "compress"), or empty.
std::string StreamId(const Bytes &head);

}  // namespace engine::sniff
