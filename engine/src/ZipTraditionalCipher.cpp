#include "ZipTraditionalCipher.h"

#include <openssl/rand.h>
#include <zlib.h>

namespace engine {
namespace {

std::uint32_t Crc(std::uint32_t crc, std::uint8_t byte) {
    return (crc >> 8) ^ static_cast<std::uint32_t>(get_crc_table()[(crc ^ byte) & 0xFF]);
}

}  // namespace

void ZipTraditionalCipher::Reset(const std::string &password) {
    keys_[0] = 0x12345678u;
    keys_[1] = 0x23456789u;
    keys_[2] = 0x34567890u;
    for (char c : password) Stir(static_cast<std::uint8_t>(c));
}

void ZipTraditionalCipher::Stir(std::uint8_t plain) {
    keys_[0] = Crc(keys_[0], plain);
    keys_[1] = (keys_[1] + (keys_[0] & 0xFF)) * 134775813u + 1;
    keys_[2] = Crc(keys_[2], static_cast<std::uint8_t>(keys_[1] >> 24));
}

std::uint8_t ZipTraditionalCipher::KeyByte() const {
    std::uint32_t temp = (keys_[2] | 2) & 0xFFFF;
    return static_cast<std::uint8_t>((temp * (temp ^ 1)) >> 8);
}

bool ZipTraditionalCipher::StartEncrypting(const std::string &password, std::uint8_t check,
                                           std::vector<std::uint8_t> &header) {
    Reset(password);
    header.resize(kHeaderSize);
    if (RAND_bytes(header.data(), kHeaderSize - 1) != 1) return false;
    header[kHeaderSize - 1] = check;
    Encrypt(header.data(), header.size());
    return true;
}

bool ZipTraditionalCipher::StartDecrypting(const std::string &password, std::uint8_t check,
                                           const std::uint8_t header[kHeaderSize]) {
    Reset(password);
    std::uint8_t plain[kHeaderSize];
    for (std::size_t i = 0; i < kHeaderSize; ++i) plain[i] = header[i];
    Decrypt(plain, kHeaderSize);
    return plain[kHeaderSize - 1] == check;
}

void ZipTraditionalCipher::Encrypt(std::uint8_t *data, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) {
        std::uint8_t plain = data[i];
        data[i] = static_cast<std::uint8_t>(plain ^ KeyByte());
        Stir(plain);
    }
}

void ZipTraditionalCipher::Decrypt(std::uint8_t *data, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) {
        data[i] = static_cast<std::uint8_t>(data[i] ^ KeyByte());
        Stir(data[i]);
    }
}

}  // namespace engine
