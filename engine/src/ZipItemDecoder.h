// The data of a zip item that libarchive cannot give, or not safely:
// Deflate64 (which it does not decode) and every enciphered item (it
// deciphers only stored and deflated ones, does not check the
// authentication code of AES items, and takes a wrong password that passes
// the traditional cipher's check byte, one in 256). The engine reads such an
// item's bytes itself, deciphers them (asking for passwords) and decodes
// them: stored data as it is, Deflate64 with its own decoder, every other
// method (deflate, bzip2, LZMA, PPMd, xz, zstd) with libarchive's, handed
// the deciphered stream as an unenciphered zip of one item.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Deflate64Decoder.h"
#include "Driver.h"
#include "LibarchiveCoderDecoder.h"
#include "ZipAesCipher.h"
#include "ZipDirectory.h"
#include "ZipTraditionalCipher.h"

namespace engine {

class ZipItemDecoder {
public:
    // Whether `item` is one that libarchive leaves to the engine.
    static bool Needed(const ZipStoredItem &item);

    // `index` is the item's stored index, for the password questions;
    // `item` must outlive the decoder.
    ZipItemDecoder(int fd, const ZipStoredItem &item, PasswordSource *passwords, std::size_t index);

    // Decodes up to `size` bytes; `got` 0 at the end. kEnginePasswordNeeded
    // (or the answer that ended the questions) without a fitting password,
    // kEngineItemDataDamaged for data that does not decode or whose
    // authentication code does not match.
    Result Read(std::uint8_t *out, std::size_t size, std::size_t &got);

private:
    static constexpr std::size_t kProbeSize = 1 << 20;

    Result Start();
    Result StartAes();
    Result StartTraditional();
    void MakeDecoder();
    // Whether the start of the item decodes (all of it to its CRC, when small).
    bool Probe();
    Result Decode(std::uint8_t *out, std::size_t size, std::size_t &got);
    // Up to `size` deciphered bytes of the compressed data.
    Result Payload(std::uint8_t *out, std::size_t size, std::size_t &got);
    // Reads the rest of the payload, for the authentication code at its end.
    Result DrainPayload();
    Result ReadRaw(std::uint8_t *out, std::size_t size);

    int fd_;
    const ZipStoredItem &item_;
    PasswordSource *passwords_;
    std::size_t index_;
    std::uint16_t method_;
    bool started_ = false;
    Result startFailure_ = kEngineOK;
    std::uint64_t at_ = 0;           // in the file
    std::uint64_t payloadLeft_ = 0;  // compressed bytes still to read
    std::unique_ptr<ZipAesCipher> aes_;
    std::unique_ptr<ZipTraditionalCipher> traditional_;
    std::unique_ptr<Deflate64Decoder> deflate64_;
    Result decodeFailure_ = kEngineOK;  // of the source under deflate64_
    std::unique_ptr<LibarchiveCoderDecoder> other_;
    std::uint64_t decoded_ = 0;        // bytes libarchive gave
    std::vector<std::uint8_t> probe_;  // decoded while the password was tried
    std::size_t probeAt_ = 0;
};

}  // namespace engine
