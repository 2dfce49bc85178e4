#include "PasswordCipher.h"

#include <argon2.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <memory>

namespace engine::cipher {

namespace {

// About 0.15 s on a current core, 64 MiB: costly enough for a guesser, quick
// enough for a person.
constexpr std::uint32_t kArgonTimeCost = 2;
constexpr std::uint32_t kArgonMemoryKiB = 64 * 1024;
constexpr std::uint32_t kArgonLanes = 1;
constexpr std::uint32_t kPbkdf2Iterations = 600'000;

// What a stored parameter block may ask for; beyond it the archive is taken
// as damaged rather than followed. The work of one try is held to sixteen
// times the defaults' (a couple of seconds), so that a made-up archive
// cannot keep the reader busy for minutes a password.
constexpr std::uint32_t kMostArgonTimeCost = 64;
constexpr std::uint32_t kMostArgonMemoryKiB = 256 * 1024;
constexpr std::uint64_t kMostArgonWork = 16ULL * kArgonTimeCost * kArgonMemoryKiB;
constexpr std::uint32_t kMostArgonLanes = 16;
constexpr std::uint32_t kMostPbkdf2Iterations = 16 * kPbkdf2Iterations;

void PutLe32(std::uint8_t *out, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) out[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

std::uint32_t GetLe32(const std::uint8_t *in) {
    std::uint32_t value = 0;
    for (int i = 0; i < 4; ++i) value |= static_cast<std::uint32_t>(in[i]) << (8 * i);
    return value;
}

bool ParametersAcceptable(const KeyParameters &p) {
    switch (p.kind) {
        case KeyDerivationKind::Argon2id:
            return p.timeCost >= 1 && p.timeCost <= kMostArgonTimeCost && p.parallelism >= 1 &&
                   p.parallelism <= kMostArgonLanes && p.memoryKiB >= 8 * p.parallelism &&
                   p.memoryKiB <= kMostArgonMemoryKiB &&
                   std::uint64_t{p.timeCost} * p.memoryKiB <= kMostArgonWork;
        case KeyDerivationKind::Pbkdf2Sha256:
            return p.timeCost >= 1 && p.timeCost <= kMostPbkdf2Iterations;
    }
    return false;
}

struct ContextFree {
    void operator()(EVP_CIPHER_CTX *context) const { EVP_CIPHER_CTX_free(context); }
};
using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, ContextFree>;

const EVP_CIPHER *CipherOf(AeadKind kind) {
    return kind == AeadKind::Aes256Gcm ? EVP_aes_256_gcm() : EVP_chacha20_poly1305();
}

// Sets up a context for `kind` with key and nonce; null on failure.
CipherContext StartAead(AeadKind kind, bool encrypt, std::span<const std::uint8_t, kKeySize> key,
                        std::span<const std::uint8_t, kNonceSize> nonce) {
    CipherContext context(EVP_CIPHER_CTX_new());
    if (!context) return nullptr;
    const EVP_CIPHER *cipher = CipherOf(kind);
    if (EVP_CipherInit_ex(context.get(), cipher, nullptr, nullptr, nullptr, encrypt ? 1 : 0) != 1 ||
        EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_SET_IVLEN, static_cast<int>(kNonceSize),
                            nullptr) != 1 ||
        EVP_CipherInit_ex(context.get(), nullptr, nullptr, key.data(), nonce.data(),
                          encrypt ? 1 : 0) != 1)
        return nullptr;
    return context;
}

// EVP takes int lengths; buffers are fed in slices below that limit.
constexpr std::size_t kSlice = 1u << 30;

bool FeedAssociated(EVP_CIPHER_CTX *context, std::span<const std::uint8_t> associated) {
    int ignored = 0;
    for (std::size_t done = 0; done < associated.size(); done += kSlice) {
        int count = static_cast<int>(std::min(kSlice, associated.size() - done));
        if (EVP_CipherUpdate(context, nullptr, &ignored, associated.data() + done, count) != 1)
            return false;
    }
    return true;
}

bool Transform(EVP_CIPHER_CTX *context, std::span<const std::uint8_t> in, std::uint8_t *out) {
    for (std::size_t done = 0; done < in.size(); done += kSlice) {
        int count = static_cast<int>(std::min(kSlice, in.size() - done));
        int written = 0;
        if (EVP_CipherUpdate(context, out + done, &written, in.data() + done, count) != 1 ||
            written != count)
            return false;
    }
    return true;
}

}  // namespace

bool RandomBytes(std::span<std::uint8_t> out) {
    for (std::size_t done = 0; done < out.size(); done += kSlice) {
        int count = static_cast<int>(std::min(kSlice, out.size() - done));
        if (RAND_bytes(out.data() + done, count) != 1) return false;
    }
    return true;
}

KeyParameters KeyParameters::Fresh(KeyDerivationKind kind) {
    KeyParameters parameters;
    parameters.kind = kind;
    if (kind == KeyDerivationKind::Argon2id) {
        parameters.timeCost = kArgonTimeCost;
        parameters.memoryKiB = kArgonMemoryKiB;
        parameters.parallelism = kArgonLanes;
    } else {
        parameters.timeCost = kPbkdf2Iterations;
    }
    RandomBytes(parameters.salt);
    return parameters;
}

std::array<std::uint8_t, KeyParameters::kSerialisedSize> KeyParameters::Serialise() const {
    std::array<std::uint8_t, kSerialisedSize> bytes{};
    bytes[0] = static_cast<std::uint8_t>(kind);
    PutLe32(&bytes[4], timeCost);
    PutLe32(&bytes[8], memoryKiB);
    PutLe32(&bytes[12], parallelism);
    std::copy(salt.begin(), salt.end(), bytes.begin() + 16);
    return bytes;
}

bool KeyParameters::Parse(std::span<const std::uint8_t> bytes, KeyParameters &parameters) {
    if (bytes.size() < kSerialisedSize) return false;
    KeyParameters parsed;
    parsed.kind = static_cast<KeyDerivationKind>(bytes[0]);
    parsed.timeCost = GetLe32(&bytes[4]);
    parsed.memoryKiB = GetLe32(&bytes[8]);
    parsed.parallelism = GetLe32(&bytes[12]);
    std::copy(bytes.begin() + 16, bytes.begin() + 32, parsed.salt.begin());
    if (!ParametersAcceptable(parsed)) return false;
    parameters = parsed;
    return true;
}

DerivedKey::~DerivedKey() {
    OPENSSL_cleanse(key.data(), key.size());
    OPENSSL_cleanse(check.data(), check.size());
}

DerivedKey::DerivedKey(const DerivedKey &other) : key(other.key), check(other.check) {}

DerivedKey &DerivedKey::operator=(const DerivedKey &other) {
    key = other.key;
    check = other.check;
    return *this;
}

bool DerivedKey::Matches(std::span<const std::uint8_t> storedCheck) const {
    return storedCheck.size() == check.size() &&
           CRYPTO_memcmp(storedCheck.data(), check.data(), check.size()) == 0;
}

bool DeriveKey(std::string_view password, const KeyParameters &parameters, DerivedKey &out) {
    if (!ParametersAcceptable(parameters)) return false;
    // One derivation of key and check value together: the first 32 bytes are
    // the key, the rest the check, so knowing the check does not shorten a
    // search for the key beyond trying passwords at full cost.
    std::array<std::uint8_t, kKeySize + kCheckSize> material{};
    bool derived = false;
    if (parameters.kind == KeyDerivationKind::Argon2id) {
        derived = argon2id_hash_raw(parameters.timeCost, parameters.memoryKiB,
                                    parameters.parallelism, password.data(), password.size(),
                                    parameters.salt.data(), parameters.salt.size(), material.data(),
                                    material.size()) == ARGON2_OK;
    } else {
        derived =
            PKCS5_PBKDF2_HMAC(password.data(), static_cast<int>(password.size()),
                              parameters.salt.data(), static_cast<int>(parameters.salt.size()),
                              static_cast<int>(parameters.timeCost), EVP_sha256(),
                              static_cast<int>(material.size()), material.data()) == 1;
    }
    if (derived) {
        std::copy_n(material.begin(), kKeySize, out.key.begin());
        std::copy_n(material.begin() + kKeySize, kCheckSize, out.check.begin());
    }
    OPENSSL_cleanse(material.data(), material.size());
    return derived;
}

bool AeadSeal(AeadKind kind, std::span<const std::uint8_t, kKeySize> key,
              std::span<const std::uint8_t, kNonceSize> nonce,
              std::span<const std::uint8_t> associated, std::span<const std::uint8_t> plain,
              std::vector<std::uint8_t> &out) {
    CipherContext context = StartAead(kind, true, key, nonce);
    if (!context) return false;
    out.resize(plain.size() + kTagSize);
    int ignored = 0;
    if (!FeedAssociated(context.get(), associated) ||
        !Transform(context.get(), plain, out.data()) ||
        EVP_CipherFinal_ex(context.get(), out.data() + plain.size(), &ignored) != 1 ||
        EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_GET_TAG, static_cast<int>(kTagSize),
                            out.data() + plain.size()) != 1) {
        out.clear();
        return false;
    }
    return true;
}

bool AeadOpen(AeadKind kind, std::span<const std::uint8_t, kKeySize> key,
              std::span<const std::uint8_t, kNonceSize> nonce,
              std::span<const std::uint8_t> associated, std::span<const std::uint8_t> sealed,
              std::vector<std::uint8_t> &out) {
    if (sealed.size() < kTagSize) return false;
    std::size_t plainSize = sealed.size() - kTagSize;
    CipherContext context = StartAead(kind, false, key, nonce);
    if (!context) return false;
    std::array<std::uint8_t, kTagSize> tag{};
    std::copy_n(sealed.begin() + plainSize, kTagSize, tag.begin());
    out.resize(plainSize);
    int ignored = 0;
    if (EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_SET_TAG, static_cast<int>(kTagSize),
                            tag.data()) != 1 ||
        !FeedAssociated(context.get(), associated) ||
        !Transform(context.get(), sealed.first(plainSize), out.data()) ||
        EVP_CipherFinal_ex(context.get(), out.data() + plainSize, &ignored) != 1) {
        // Unauthenticated plaintext is never handed out.
        OPENSSL_cleanse(out.data(), out.size());
        out.clear();
        return false;
    }
    return true;
}

BlockCipher::BlockCipher(AeadKind kind, const DerivedKey &key) : kind_(kind), key_(key) {}

std::array<std::uint8_t, kNonceSize> BlockCipher::NonceFor(std::uint64_t block) {
    std::array<std::uint8_t, kNonceSize> nonce{};
    for (int i = 0; i < 8; ++i) nonce[4 + i] = static_cast<std::uint8_t>(block >> (8 * i));
    return nonce;
}

bool BlockCipher::Seal(std::uint64_t block, std::span<const std::uint8_t> plain,
                       std::span<const std::uint8_t> associated,
                       std::vector<std::uint8_t> &sealed) const {
    auto nonce = NonceFor(block);
    return AeadSeal(kind_, key_.key, nonce, associated, plain, sealed);
}

bool BlockCipher::Open(std::uint64_t block, std::span<const std::uint8_t> sealed,
                       std::span<const std::uint8_t> associated,
                       std::vector<std::uint8_t> &plain) const {
    auto nonce = NonceFor(block);
    return AeadOpen(kind_, key_.key, nonce, associated, sealed, plain);
}

}  // namespace engine::cipher
