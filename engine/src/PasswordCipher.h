// Password-based encryption for the own formats: a key derived from the
// password (Argon2id, or PBKDF2-HMAC-SHA256) with a per-archive salt, a check
// value that tells a wrong password without touching data, and authenticated
// encryption of buffers (AES-256-GCM or ChaCha20-Poly1305) with a nonce made
// from a block counter.
//
// Typical use:
//   writer: KeyParameters params = KeyParameters::Fresh();
//           DerivedKey key; DeriveKey(password, params, key);
//           store params.Serialise() and key.check in the archive;
//           BlockCipher cipher(AeadKind::Aes256Gcm, key);
//           cipher.Seal(blockIndex, plain, associated, sealed);
//   reader: KeyParameters::Parse(...); DeriveKey(...);
//           if (!key.Matches(storedCheck)) -> wrong password;
//           cipher.Open(blockIndex, sealed, associated, plain);
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace engine::cipher {

constexpr std::size_t kKeySize = 32;
constexpr std::size_t kNonceSize = 12;
constexpr std::size_t kTagSize = 16;  // appended to every sealed buffer
constexpr std::size_t kSaltSize = 16;
constexpr std::size_t kCheckSize = 16;

enum class KeyDerivationKind : std::uint8_t { Argon2id = 1, Pbkdf2Sha256 = 2 };
enum class AeadKind : std::uint8_t { Aes256Gcm = 1, ChaCha20Poly1305 = 2 };

// How a key is derived from a password; stored in the archive so the costs
// can change between versions without breaking old archives.
struct KeyParameters {
    KeyDerivationKind kind = KeyDerivationKind::Argon2id;
    std::uint32_t timeCost = 0;     // Argon2id passes, or PBKDF2 iterations
    std::uint32_t memoryKiB = 0;    // Argon2id only (0 for PBKDF2)
    std::uint32_t parallelism = 0;  // Argon2id lanes (0 for PBKDF2)
    std::array<std::uint8_t, kSaltSize> salt{};

    // The default costs of the kind with a fresh random salt.
    static KeyParameters Fresh(KeyDerivationKind kind = KeyDerivationKind::Argon2id);

    // Fixed-size little-endian form: kind (1), reserved (3), timeCost (4),
    // memoryKiB (4), parallelism (4), salt (16).
    static constexpr std::size_t kSerialisedSize = 32;
    std::array<std::uint8_t, kSerialisedSize> Serialise() const;
    // False for an unknown kind or costs outside what this engine accepts
    // (a damaged or hostile archive must not make it allocate gigabytes).
    static bool Parse(std::span<const std::uint8_t> bytes, KeyParameters &parameters);
};

// Key material derived from a password. The key and the check value come
// from separate parts of one derivation, so the stored check says nothing
// about the key. Wiped when destroyed.
class DerivedKey {
public:
    DerivedKey() = default;
    ~DerivedKey();
    DerivedKey(const DerivedKey &other);
    DerivedKey &operator=(const DerivedKey &other);

    std::array<std::uint8_t, kKeySize> key{};
    std::array<std::uint8_t, kCheckSize> check{};

    // Constant-time comparison with a stored check value.
    bool Matches(std::span<const std::uint8_t> storedCheck) const;
};

// False when the derivation failed (out of memory, bad parameters).
bool DeriveKey(std::string_view password, const KeyParameters &parameters, DerivedKey &out);

// One AEAD operation with an explicit nonce. `out` receives the ciphertext
// followed by the tag (Seal) or the plaintext (Open). Open is false when the
// key, nonce, associated data or sealed bytes do not fit together.
bool AeadSeal(AeadKind kind, std::span<const std::uint8_t, kKeySize> key,
              std::span<const std::uint8_t, kNonceSize> nonce,
              std::span<const std::uint8_t> associated, std::span<const std::uint8_t> plain,
              std::vector<std::uint8_t> &out);
bool AeadOpen(AeadKind kind, std::span<const std::uint8_t, kKeySize> key,
              std::span<const std::uint8_t, kNonceSize> nonce,
              std::span<const std::uint8_t> associated, std::span<const std::uint8_t> sealed,
              std::vector<std::uint8_t> &out);

// Seals and opens numbered blocks under one key. The nonce is the block
// number (8 bytes little-endian) after 4 zero bytes, so every number gives a
// different nonce; the caller gives each block of one key its own number
// (blocks 0, 1, 2, ... and, say, UINT64_MAX for a catalogue). Holds a copy of
// the key, wiped when destroyed.
class BlockCipher {
public:
    BlockCipher(AeadKind kind, const DerivedKey &key);

    AeadKind kind() const { return kind_; }
    bool Seal(std::uint64_t block, std::span<const std::uint8_t> plain,
              std::span<const std::uint8_t> associated, std::vector<std::uint8_t> &sealed) const;
    bool Open(std::uint64_t block, std::span<const std::uint8_t> sealed,
              std::span<const std::uint8_t> associated, std::vector<std::uint8_t> &plain) const;

    static std::array<std::uint8_t, kNonceSize> NonceFor(std::uint64_t block);

private:
    AeadKind kind_;
    DerivedKey key_;
};

// Cryptographically random bytes; false if the generator failed.
bool RandomBytes(std::span<std::uint8_t> out);

}  // namespace engine::cipher
