// The own formats' password cipher: the AEAD ciphers against published
// vectors, and what a wrong key, a wrong block number or a changed byte do.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "PasswordCipher.h"

namespace {

using namespace engine::cipher;

std::vector<std::uint8_t> Hex(const std::string &text) {
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2)
        bytes.push_back(static_cast<std::uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
    return bytes;
}

std::vector<std::uint8_t> Bytes(const std::string &text) { return {text.begin(), text.end()}; }

struct Vector {
    AeadKind kind;
    std::string key, nonce, associated;
    std::vector<std::uint8_t> plain;
    std::string sealed;  // ciphertext and tag
};

TEST(PasswordCipherTest, AeadCiphersMatchPublishedVectors) {
    // Test case 16 of the GCM submission (AES-256, 96-bit IV), and the AEAD
    // example of RFC 8439, section 2.8.2.
    const Vector vectors[] = {
        {AeadKind::Aes256Gcm, "feffe9928665731c6d6a8f9467308308feffe9928665731c6d6a8f9467308308",
         "cafebabefacedbaddecaf888", "feedfacedeadbeeffeedfacedeadbeefabaddad2",
         Hex("d9313225f88406e5a55909c5aff5269a86a7a9531534f7da2e4c303d8a318a721c3c0c95956809532fcf"
             "0e2449a6b525b16aedf5aa0de657ba637b39"),
         "522dc1f099567d07f47f37a32a84427d643a8cdcbfe5c0c97598a2bd2555d1aa8cb08e48590dbb3da7b08b10"
         "56828838c5f61e6393ba7a0abcc9f662"
         "76fc6ece0f4e1768cddf8853bb2d551b"},
        {AeadKind::ChaCha20Poly1305,
         "808182838485868788898a8b8c8d8e8f909192939495969798999a9b9c9d9e9f",
         "070000004041424344454647", "50515253c0c1c2c3c4c5c6c7",
         Bytes("Ladies and Gentlemen of the class of '99: If I could offer you only one tip for "
               "the future, sunscreen would be it."),
         "d31a8d34648e60db7b86afbc53ef7ec2a4aded51296e08fea9e2b5a736ee62d63dbea45e8ca9671282fafb69"
         "da92728b1a71de0a9e060b2905d6a5b67ecd3b3692ddbd7f2d778b8c9803aee328091b58fab324e4fad67594"
         "5585808b4831d7bc3ff4def08e4b7a9de576d26586cec64b6116"
         "1ae10b594f09e26a7e902ecbd0600691"},
    };
    for (const Vector &v : vectors) {
        auto key = Hex(v.key), nonce = Hex(v.nonce), associated = Hex(v.associated);
        std::span<const std::uint8_t, kKeySize> keySpan(key.data(), kKeySize);
        std::span<const std::uint8_t, kNonceSize> nonceSpan(nonce.data(), kNonceSize);
        std::vector<std::uint8_t> sealed, opened;
        ASSERT_TRUE(AeadSeal(v.kind, keySpan, nonceSpan, associated, v.plain, sealed));
        EXPECT_EQ(sealed, Hex(v.sealed));
        ASSERT_TRUE(AeadOpen(v.kind, keySpan, nonceSpan, associated, sealed, opened));
        EXPECT_EQ(opened, v.plain);
    }
}

class BlockCipherTest : public ::testing::TestWithParam<AeadKind> {
protected:
    static DerivedKey Key(const std::string &password, const KeyParameters &parameters) {
        DerivedKey key;
        EXPECT_TRUE(DeriveKey(password, parameters, key));
        return key;
    }
};

TEST_P(BlockCipherTest, SealedBlocksOpenOnlyUnderTheirKeyNumberAndAssociatedData) {
    KeyParameters parameters = KeyParameters::Fresh(KeyDerivationKind::Pbkdf2Sha256);
    parameters.timeCost = 1000;  // the kind, not its cost, is under test here
    BlockCipher cipher(GetParam(), Key("secret", parameters));
    BlockCipher other(GetParam(), Key("Secret", parameters));
    auto plain = Bytes("the data of one block"), header = Bytes("header");
    std::vector<std::uint8_t> sealed, opened;
    ASSERT_TRUE(cipher.Seal(7, plain, header, sealed));
    EXPECT_EQ(sealed.size(), plain.size() + kTagSize);

    ASSERT_TRUE(cipher.Open(7, sealed, header, opened));
    EXPECT_EQ(opened, plain);
    EXPECT_FALSE(other.Open(7, sealed, header, opened));
    EXPECT_TRUE(opened.empty());
    EXPECT_FALSE(cipher.Open(8, sealed, header, opened));  // a block moved elsewhere
    EXPECT_FALSE(cipher.Open(7, sealed, Bytes("Header"), opened));
    for (std::size_t at : {std::size_t{0}, plain.size(), sealed.size() - 1}) {
        auto tampered = sealed;
        tampered[at] ^= 1;
        EXPECT_FALSE(cipher.Open(7, tampered, header, opened)) << "byte " << at;
    }
    EXPECT_FALSE(cipher.Open(7, std::span(sealed).first(kTagSize - 1), header, opened));

    // The same block under another number must not give the same bytes.
    std::vector<std::uint8_t> again;
    ASSERT_TRUE(cipher.Seal(8, plain, header, again));
    EXPECT_NE(again, sealed);
    // An empty block is still authenticated.
    ASSERT_TRUE(cipher.Seal(9, {}, header, sealed));
    EXPECT_TRUE(cipher.Open(9, sealed, header, opened));
    EXPECT_TRUE(opened.empty());
}

INSTANTIATE_TEST_SUITE_P(Kinds, BlockCipherTest,
                         ::testing::Values(AeadKind::Aes256Gcm, AeadKind::ChaCha20Poly1305));

TEST(PasswordCipherTest, CheckValueTellsAWrongPasswordAndIsNotTheKey) {
    // Small costs: what is under test is the derivation, not its price.
    auto cheap = [](KeyDerivationKind kind) {
        KeyParameters parameters = KeyParameters::Fresh(kind);
        parameters.timeCost = kind == KeyDerivationKind::Argon2id ? 1 : 1000;
        if (kind == KeyDerivationKind::Argon2id) parameters.memoryKiB = 1024;
        return parameters;
    };
    for (auto kind : {KeyDerivationKind::Argon2id, KeyDerivationKind::Pbkdf2Sha256}) {
        KeyParameters parameters = cheap(kind);
        DerivedKey right, again, wrong;
        ASSERT_TRUE(DeriveKey("pässword", parameters, right));
        ASSERT_TRUE(DeriveKey("pässword", parameters, again));
        ASSERT_TRUE(DeriveKey("password", parameters, wrong));
        EXPECT_TRUE(again.Matches(right.check));
        EXPECT_EQ(again.key, right.key);
        EXPECT_FALSE(wrong.Matches(right.check));
        EXPECT_FALSE(std::equal(right.check.begin(), right.check.end(), right.key.begin()));

        // Another salt gives another key for the same password.
        KeyParameters salted = cheap(kind);
        EXPECT_NE(salted.salt, parameters.salt);
        DerivedKey other;
        ASSERT_TRUE(DeriveKey("pässword", salted, other));
        EXPECT_NE(other.key, right.key);
    }
}

TEST(PasswordCipherTest, StoredParametersRoundTripAndHostileCostsAreRefused) {
    KeyParameters fresh = KeyParameters::Fresh();
    KeyParameters parsed;
    ASSERT_TRUE(KeyParameters::Parse(fresh.Serialise(), parsed));
    EXPECT_EQ(parsed.Serialise(), fresh.Serialise());
    EXPECT_LE(fresh.memoryKiB, 64u * 1024);

    auto bytes = fresh.Serialise();
    auto refused = [&](std::size_t at, std::uint8_t value) {
        auto changed = bytes;
        changed[at] = value;
        KeyParameters out;
        return !KeyParameters::Parse(changed, out);
    };
    EXPECT_TRUE(refused(0, 9));      // unknown kind
    EXPECT_TRUE(refused(11, 0x40));  // memory of gigabytes
    EXPECT_TRUE(refused(7, 0x01));   // a time cost of millions of passes
    EXPECT_TRUE(refused(4, 40));     // 40 passes over the default's 64 MiB: too much work
    EXPECT_TRUE(refused(12, 0));     // no lanes
    EXPECT_FALSE(KeyParameters::Parse(std::span(bytes).first(31), parsed));
}

}  // namespace
