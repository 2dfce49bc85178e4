// Encoders of the text encodings: uuencode, plain base64, btoa, yEnc and
// MIME messages with the files as attachments.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "EncoderSupport.h"

namespace engine {

// "begin <mode> <name>", lines of 45 bytes, "`" and "end".
void EncodeUu(const EncodedFile &file, EncodedOutput &out);
// Base64 in lines of `lineLength` characters, each ended by `lineEnd`.
void EncodeBase64(const std::vector<std::uint8_t> &data, EncodedOutput &out,
                  std::size_t lineLength = 76, std::string_view lineEnd = "\n");
// A file's data as plain base64 in lines of 76, with no name.
void EncodeBase64File(const EncodedFile &file, EncodedOutput &out);
// "xbtoa Begin", lines of 78 characters, and the trailer with the count and
// the three sums; no name.
void EncodeBtoa(const EncodedFile &file, EncodedOutput &out);
// One single-part yEnc file in lines of 128 characters with its CRC-32.
void EncodeYenc(const EncodedFile &file, EncodedOutput &out);

// A multipart MIME message: the headers, then one base64 attachment per
// file, then the closing boundary.
inline constexpr std::string_view kMimeBoundary = "=_VarnickParts_0";
void BeginMimeMessage(EncodedOutput &out);
void AddMimeAttachment(const EncodedFile &file, EncodedOutput &out);
void EndMimeMessage(EncodedOutput &out);

}  // namespace engine
