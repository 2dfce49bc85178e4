// Passwords enciphered to hexadecimal text: the cipher against libcrypto's
// own RC4 under the Base provider's key, the capacity rules, and the texts
// that stored settings depend on.
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/provider.h>

#include <cwchar>
#include <memory>
#include <string>
#include <vector>

#include "CCrypto.h"
#include "platform/Win32.h"
#include "support/TempHome.h"

namespace {

struct LibraryContextFree {
    void operator()(OSSL_LIB_CTX *context) const { OSSL_LIB_CTX_free(context); }
};
struct ProviderUnload {
    void operator()(OSSL_PROVIDER *provider) const { OSSL_PROVIDER_unload(provider); }
};
struct CipherFree {
    void operator()(EVP_CIPHER *cipher) const { EVP_CIPHER_free(cipher); }
};
struct CipherContextFree {
    void operator()(EVP_CIPHER_CTX *context) const { EVP_CIPHER_CTX_free(context); }
};

// What the Base provider makes of a passphrase and a password: RC4 from
// libcrypto's legacy provider, keyed by the first five bytes of the MD5 of
// the passphrase and eleven zero bytes, over the UTF-16LE password, as
// upper-case hexadecimal.
std::wstring BaseProviderCipherText(const std::string &passphrase, const std::wstring &password) {
    unsigned char md5[EVP_MAX_MD_SIZE];
    unsigned int md5Length = 0;
    EVP_Digest(passphrase.data(), passphrase.size(), md5, &md5Length, EVP_md5(), nullptr);
    unsigned char key[16] = {};
    std::copy(md5, md5 + 5, key);

    std::unique_ptr<OSSL_LIB_CTX, LibraryContextFree> library(OSSL_LIB_CTX_new());
    std::unique_ptr<OSSL_PROVIDER, ProviderUnload> legacy(
        OSSL_PROVIDER_load(library.get(), "legacy"));
    if (!legacy) ADD_FAILURE() << "libcrypto's legacy provider (RC4) is not available";
    std::unique_ptr<EVP_CIPHER, CipherFree> rc4(EVP_CIPHER_fetch(library.get(), "RC4", nullptr));
    std::unique_ptr<EVP_CIPHER_CTX, CipherContextFree> context(EVP_CIPHER_CTX_new());
    if (!rc4 || !context) return L"";

    std::vector<BYTE> plain = platform::ToUtf16Bytes(password);
    std::vector<unsigned char> cipher(plain.size() + 16);
    int length = 0;
    int finalLength = 0;
    EXPECT_EQ(EVP_EncryptInit_ex2(context.get(), rc4.get(), key, nullptr, nullptr), 1);
    EXPECT_EQ(EVP_EncryptUpdate(context.get(), cipher.data(), &length, plain.data(),
                                static_cast<int>(plain.size())),
              1);
    EXPECT_EQ(EVP_EncryptFinal_ex(context.get(), cipher.data() + length, &finalLength), 1);

    std::wstring hex;
    for (int n = 0; n < length + finalLength; ++n) hex += FormatW(L"%02X", cipher[n]);
    return hex;
}

TEST(CCryptoTest, CipherTextIsRc4UnderTheBaseProviderKey) {
    const std::string passphrase = "{0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0}";
    for (const std::wstring password : {L"secret", L"Pässwörd 1", L"\U0001F511 key", L"x"}) {
        CCrypto crypto(passphrase.c_str());
        wchar_t out[256] = L"untouched";
        ASSERT_TRUE(crypto.EncryptString(password.c_str(), out, 256));
        EXPECT_EQ(out, BaseProviderCipherText(passphrase, password));
        // Four digits a UTF-16 unit; the key pictogram is a surrogate pair.
        EXPECT_EQ(std::wcslen(out), 4 * platform::ToUtf16(password).size());

        wchar_t back[256] = {};
        ASSERT_TRUE(crypto.DecryptString(out, back, 256));
        EXPECT_EQ(back, password);
    }
}

TEST(CCryptoTest, PlainEncryptStringStopsAt63CharactersAndEncryptReportsSuccessWhenDigitsDoNotFit) {
    const std::wstring longest(63, L'k');
    const std::wstring hex = EncryptString(longest.c_str());
    EXPECT_EQ(hex.size(), 252u);
    EXPECT_EQ(DecryptString(hex.c_str()), longest);

    // 256 digits do not fit the capacity of 254.
    EXPECT_STREQ(EncryptString(std::wstring(64, L'k').c_str()), L"");
    EXPECT_STREQ(EncryptString(std::wstring(300, L'k').c_str()), L"");
    EXPECT_STREQ(EncryptString(nullptr), L"");

    // The class reports success when the digits do not fit: "abc" gives 12
    // digits, and a capacity of 12 has no room for the terminator.
    CCrypto crypto("passphrase");
    wchar_t out[16] = L"untouched";
    EXPECT_TRUE(crypto.EncryptString(L"abc", out, 12));
    EXPECT_STREQ(out, L"untouched");
    EXPECT_TRUE(crypto.EncryptString(L"abc", out, 13));
    EXPECT_EQ(std::wcslen(out), 12u);
}

TEST(CCryptoTest,
     DecryptRefusesTooFewDigitsAndTooSmallCapacityButLowerCaseDigitsDecipherToGarbage) {
    CCrypto crypto("passphrase");
    wchar_t hex[64] = {};
    ASSERT_TRUE(crypto.EncryptString(L"abcd", hex, 64));  // 8 bytes, 16 digits
    wchar_t out[64] = {};
    EXPECT_FALSE(crypto.DecryptString(L"", out, 64));
    EXPECT_FALSE(crypto.DecryptString(L"A", out, 64));
    EXPECT_FALSE(crypto.DecryptString(hex, out, 8));
    EXPECT_TRUE(crypto.DecryptString(hex, out, 9));
    EXPECT_STREQ(out, L"abcd");

    std::wstring tooLong(508, L'A');
    EXPECT_STREQ(DecryptString(tooLong.c_str()), L"");

    // Lower-case digits decipher to garbage, not to a failure.
    std::wstring lower = hex;
    for (wchar_t &c : lower) c = platform::FoldLower(c);
    EXPECT_TRUE(crypto.DecryptString(lower.c_str(), out, 64));
    EXPECT_STRNE(out, L"abcd");
}

}  // namespace
