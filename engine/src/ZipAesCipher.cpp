#include "ZipAesCipher.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <cstring>

namespace engine {

struct ZipAesCipher::Contexts {
    std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> cipher{nullptr,
                                                                           EVP_CIPHER_CTX_free};
    std::unique_ptr<EVP_MAC, decltype(&EVP_MAC_free)> macKind{nullptr, EVP_MAC_free};
    std::unique_ptr<EVP_MAC_CTX, decltype(&EVP_MAC_CTX_free)> mac{nullptr, EVP_MAC_CTX_free};
};

std::size_t ZipAesCipher::SaltSize(int strength) {
    return strength >= 1 && strength <= 3 ? 4 + 4 * static_cast<std::size_t>(strength) : 0;
}

ZipAesCipher::ZipAesCipher() : contexts_(std::make_unique<Contexts>()) {}
ZipAesCipher::~ZipAesCipher() = default;

bool ZipAesCipher::Start(const std::string &password, int strength,
                         const std::vector<std::uint8_t> &salt, std::uint8_t verifier[2]) {
    const std::size_t keyLength = 8 + 8 * static_cast<std::size_t>(strength);
    const EVP_CIPHER *kind = strength == 1   ? EVP_aes_128_ecb()
                             : strength == 2 ? EVP_aes_192_ecb()
                             : strength == 3 ? EVP_aes_256_ecb()
                                             : nullptr;
    if (!kind || salt.size() != SaltSize(strength)) return false;
    std::vector<std::uint8_t> material(2 * keyLength + 2);
    if (PKCS5_PBKDF2_HMAC_SHA1(password.data(), static_cast<int>(password.size()), salt.data(),
                               static_cast<int>(salt.size()), 1000,
                               static_cast<int>(material.size()), material.data()) != 1)
        return false;
    Contexts &c = *contexts_;
    c.cipher.reset(EVP_CIPHER_CTX_new());
    if (!c.cipher ||
        EVP_EncryptInit_ex(c.cipher.get(), kind, nullptr, material.data(), nullptr) != 1)
        return false;
    EVP_CIPHER_CTX_set_padding(c.cipher.get(), 0);
    c.macKind.reset(EVP_MAC_fetch(nullptr, "HMAC", nullptr));
    c.mac.reset(c.macKind ? EVP_MAC_CTX_new(c.macKind.get()) : nullptr);
    char digest[] = "SHA1";
    OSSL_PARAM parameters[] = {OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest, 0),
                               OSSL_PARAM_construct_end()};
    if (!c.mac ||
        EVP_MAC_init(c.mac.get(), material.data() + keyLength, keyLength, parameters) != 1)
        return false;
    verifier[0] = material[2 * keyLength];
    verifier[1] = material[2 * keyLength + 1];
    counter_ = 0;
    used_ = 16;
    return true;
}

bool ZipAesCipher::StartEncrypting(const std::string &password, int strength,
                                   std::vector<std::uint8_t> &header) {
    std::vector<std::uint8_t> salt(SaltSize(strength));
    if (salt.empty() || RAND_bytes(salt.data(), static_cast<int>(salt.size())) != 1) return false;
    std::uint8_t verifier[2];
    if (!Start(password, strength, salt, verifier)) return false;
    header = salt;
    header.insert(header.end(), verifier, verifier + 2);
    return true;
}

bool ZipAesCipher::StartDecrypting(const std::string &password, int strength,
                                   const std::vector<std::uint8_t> &salt,
                                   const std::uint8_t verifier[2]) {
    std::uint8_t made[2];
    return Start(password, strength, salt, made) && made[0] == verifier[0] &&
           made[1] == verifier[1];
}

// The MAC covers the enciphered bytes: after ciphering when writing,
// before deciphering when reading.
bool ZipAesCipher::Encrypt(std::uint8_t *data, std::size_t size) {
    return Crypt(data, size) && EVP_MAC_update(contexts_->mac.get(), data, size) == 1;
}

bool ZipAesCipher::Decrypt(std::uint8_t *data, std::size_t size) {
    return EVP_MAC_update(contexts_->mac.get(), data, size) == 1 && Crypt(data, size);
}

bool ZipAesCipher::Code(std::vector<std::uint8_t> &code) {
    std::uint8_t full[EVP_MAX_MD_SIZE];
    std::size_t length = 0;
    if (EVP_MAC_final(contexts_->mac.get(), full, &length, sizeof full) != 1 || length < kCodeSize)
        return false;
    code.assign(full, full + kCodeSize);
    return true;
}

bool ZipAesCipher::Crypt(std::uint8_t *data, std::size_t size) {
    std::size_t at = 0;
    while (at < size) {
        if (used_ == 16 && !NextBlock()) return false;
        std::size_t run = std::min<std::size_t>(16 - used_, size - at);
        for (std::size_t i = 0; i < run; ++i) data[at + i] ^= stream_[used_ + i];
        used_ += run;
        at += run;
    }
    return true;
}

bool ZipAesCipher::NextBlock() {
    ++counter_;
    std::uint8_t block[16] = {};
    for (int i = 0; i < 8; ++i) block[i] = static_cast<std::uint8_t>(counter_ >> (8 * i));
    int produced = 0;
    if (EVP_EncryptUpdate(contexts_->cipher.get(), stream_, &produced, block, 16) != 1 ||
        produced != 16)
        return false;
    used_ = 0;
    return true;
}

}  // namespace engine
