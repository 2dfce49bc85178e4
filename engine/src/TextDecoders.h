// Decoders of the text encodings read whole: uu, btoa, yEnc, MIME and base64.
#pragma once

#include <string_view>

#include "DecodedItems.h"

namespace engine {

std::vector<std::uint8_t> Base64Decode(std::string_view text);

// btoa keeps no name: the file is named after the encoded one.
Result DecodeBtoa(const std::vector<std::uint8_t> &file, const std::wstring &archiveName,
                  std::vector<DecodedItem> &items);
// One yEnc part; its CRC is checked when the trailer gives one.
Result DecodeYenc(const std::vector<std::uint8_t> &file, std::vector<DecodedItem> &items);
// The attachments of a MIME message (named parts, parts sent as
// attachments, and any part that is not text); kEngineArchiveEmpty when it
// has none.
Result DecodeMime(const std::vector<std::uint8_t> &file, std::vector<DecodedItem> &items);
// A "begin" file from its begin line at `beginAt`: uuencoded lines, or
// base64 lines after "begin-base64", up to "end" (or "===="), under the name
// of its begin line.
Result DecodeUu(const std::vector<std::uint8_t> &file, std::size_t beginAt,
                const std::wstring &name, std::vector<DecodedItem> &items);
Result DecodePlainBase64(const std::vector<std::uint8_t> &file, const std::wstring &archiveName,
                         std::vector<DecodedItem> &items);

}  // namespace engine
