// WinZip's AES for zip items (AE-1, AE-2): keys from PBKDF2-HMAC-SHA1 over
// the password and a salt (1000 rounds), AES in counter mode with a
// little-endian counter from 1, and an HMAC-SHA1 of the enciphered bytes
// whose first ten bytes follow the data. A two-byte value derived with the
// keys tells a wrong password before any data is read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace engine {

class ZipAesCipher {
public:
    static constexpr std::size_t kCodeSize = 10;
    // The salt's size for a strength of the extra field (1: AES-128, 2:
    // AES-192, 3: AES-256), 0 for another value.
    static std::size_t SaltSize(int strength);

    ZipAesCipher();
    ~ZipAesCipher();
    ZipAesCipher(const ZipAesCipher &) = delete;
    ZipAesCipher &operator=(const ZipAesCipher &) = delete;

    // For writing: a fresh salt; `header` gets the salt and the password
    // verifier that precede the data.
    bool StartEncrypting(const std::string &password, int strength,
                         std::vector<std::uint8_t> &header);
    // For reading: false when the keys cannot be made or `verifier` (the
    // two bytes after the salt) shows the password is not the one.
    bool StartDecrypting(const std::string &password, int strength,
                         const std::vector<std::uint8_t> &salt, const std::uint8_t verifier[2]);

    bool Encrypt(std::uint8_t *data, std::size_t size);
    bool Decrypt(std::uint8_t *data, std::size_t size);
    // The first kCodeSize bytes of the HMAC of everything enciphered so far.
    bool Code(std::vector<std::uint8_t> &code);

private:
    bool Start(const std::string &password, int strength, const std::vector<std::uint8_t> &salt,
               std::uint8_t verifier[2]);
    bool Crypt(std::uint8_t *data, std::size_t size);
    bool NextBlock();

    struct Contexts;  // OpenSSL's cipher and MAC
    std::unique_ptr<Contexts> contexts_;
    std::uint64_t counter_ = 0;
    std::uint8_t stream_[16] = {};
    std::size_t used_ = 16;
};

}  // namespace engine
