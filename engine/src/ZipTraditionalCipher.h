// The traditional PKWARE cipher of the zip format: three keys stirred by
// every plain byte. Twelve enciphered bytes precede an item's data; the
// last of them, once deciphered, is a check byte (the high byte of the
// CRC, or of the time when the sizes follow the data), which tells most
// wrong passwords.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace engine {

class ZipTraditionalCipher {
public:
    static constexpr std::size_t kHeaderSize = 12;

    // For writing: `header` gets the twelve enciphered bytes.
    bool StartEncrypting(const std::string &password, std::uint8_t check,
                         std::vector<std::uint8_t> &header);
    // For reading: deciphers the twelve bytes; false when their check byte
    // is not `check`.
    bool StartDecrypting(const std::string &password, std::uint8_t check,
                         const std::uint8_t header[kHeaderSize]);

    void Encrypt(std::uint8_t *data, std::size_t size);
    void Decrypt(std::uint8_t *data, std::size_t size);

private:
    void Stir(std::uint8_t plain);
    std::uint8_t KeyByte() const;
    void Reset(const std::string &password);

    std::uint32_t keys_[3] = {};
};

}  // namespace engine
