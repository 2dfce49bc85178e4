#include "CCrypto.h"

#include <openssl/evp.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <memory>
#include <string>
#include <vector>

#include "common/HexText.h"
#include "platform/Win32.h"

namespace {

// Fixed for good: every password stored by the product is enciphered under
// it, and a new value would make them all unreadable.
constexpr char kBuiltInPassphrase[] = "{52D2C01A-6724-46F4-AF61-50819226ADC8}";

// The Base provider's default RC4 key is 40 bits: the first five bytes of
// the passphrase's MD5, followed by eleven zero bytes of salt.
constexpr std::size_t kRc4KeyBytes = 16;
constexpr std::size_t kEffectiveKeyBytes = 5;

constexpr std::size_t kMd5BlockBytes = 512;
constexpr std::size_t kSha1BlockBytes = 8000;

constexpr unsigned long kPlainEncryptCapacity = 254;
constexpr unsigned long kPlainDecryptCapacity = 256;
constexpr std::size_t kPlainEncryptLimit = 255;
constexpr std::size_t kPlainDecryptLimit = 508;

// RC4, kept here rather than taken from libcrypto, where it is a legacy
// algorithm that needs a provider loaded at run time. A fresh state per
// message: each call of the cipher starts its key stream anew, as a final
// block does with the Windows key.
class Rc4 {
public:
    Rc4(const unsigned char *key, std::size_t length) {
        for (int n = 0; n < 256; ++n) state_[n] = static_cast<unsigned char>(n);
        unsigned j = 0;
        for (unsigned n = 0; n < 256; ++n) {
            j = (j + state_[n] + key[n % length]) & 0xFF;
            std::swap(state_[n], state_[j]);
        }
    }

    void Apply(unsigned char *data, std::size_t length) {
        for (std::size_t n = 0; n < length; ++n) {
            i_ = (i_ + 1) & 0xFF;
            j_ = (j_ + state_[i_]) & 0xFF;
            std::swap(state_[i_], state_[j_]);
            data[n] ^= state_[(state_[i_] + state_[j_]) & 0xFF];
        }
    }

private:
    std::array<unsigned char, 256> state_{};
    unsigned i_ = 0;
    unsigned j_ = 0;
};

struct DigestContextFree {
    void operator()(EVP_MD_CTX *context) const { EVP_MD_CTX_free(context); }
};

// One running digest. A failure of libcrypto leaves the digest of what it
// took so far; with MD5 and SHA-1 in the default provider it does not fail.
class Digest {
public:
    explicit Digest(const EVP_MD *type) : context_(EVP_MD_CTX_new()) {
        if (context_) EVP_DigestInit_ex(context_.get(), type, nullptr);
    }

    void Add(const void *data, std::size_t length) {
        if (context_ && length > 0) EVP_DigestUpdate(context_.get(), data, length);
    }

    std::wstring Text(bool upperCase) {
        unsigned char value[EVP_MAX_MD_SIZE];
        unsigned int length = 0;
        if (!context_ || EVP_DigestFinal_ex(context_.get(), value, &length) != 1) return L"";
        return hextext::Encode(value, length, upperCase);
    }

private:
    std::unique_ptr<EVP_MD_CTX, DigestContextFree> context_;
};

struct FileClose {
    void operator()(FILE *file) const { std::fclose(file); }
};
using File = std::unique_ptr<FILE, FileClose>;

// Progress goes to the window layer's message queue, which is not part of
// the library yet; until it is, no window can be given that would receive
// the message, and nothing is sent.
void Notify(HWND window, UINT message, WPARAM wParam) {
    if (window) PostMessageW(window, message, wParam, 0);
}

std::wstring Md5Text(Digest &digest) { return digest.Text(false); }
std::wstring Sha1Text(Digest &digest) { return digest.Text(true); }

// A static result buffer of a digest function.
template <std::size_t N>
const wchar_t *Keep(wchar_t (&buffer)[N], const std::wstring &text) {
    wcscpy_s(buffer, N, text.c_str());
    return buffer;
}

void WriteDigestFile(const wchar_t *path, const wchar_t *digest) {
    File file(_wfopen(path, L"wt"));
    if (!file) return;
    TextFilePrintf(file.get(), L"%s\n", digest ? digest : L"");
}

}  // namespace

CCrypto::CCrypto(const char *passphrase) {
    const char *text = passphrase ? passphrase : kBuiltInPassphrase;
    unsigned char md5[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_Digest(text, std::strlen(text), md5, &length, EVP_md5(), nullptr) != 1) return;
    std::memcpy(key_, md5, kEffectiveKeyBytes);
    ready_ = true;
}

CCrypto::~CCrypto() { OPENSSL_cleanse(key_, sizeof key_); }

bool CCrypto::EncryptString(const wchar_t *plain, wchar_t *out, unsigned long capacity) {
    if (!ready_ || !plain) return false;
    const std::vector<BYTE> text = platform::ToUtf16Bytes(plain);
    const std::size_t bytes = text.size();
    // Room for the cipher to grow the text, as the Windows call is given.
    std::vector<unsigned char> buffer(2 * bytes + 2, 0);
    std::copy(text.begin(), text.end(), buffer.begin());
    Rc4(key_, kRc4KeyBytes).Apply(buffer.data(), bytes);
    BinToHexString(buffer.data(), static_cast<unsigned>(bytes), out,
                   static_cast<unsigned>(capacity));
    OPENSSL_cleanse(buffer.data(), buffer.size());
    return true;
}

bool CCrypto::DecryptString(const wchar_t *hex, wchar_t *out, unsigned long capacity) {
    if (!ready_ || !hex || !out) return false;
    // HexStringToBin writes its count and two zero bytes.
    std::vector<unsigned char> bin(capacity + 2, 0);
    const unsigned length = HexStringToBin(hex, bin.data(), static_cast<unsigned>(capacity));
    if (length == 0) return false;
    Rc4(key_, kRc4KeyBytes).Apply(bin.data(), length);
    // The bytes read as a wide string: UTF-16LE units up to the first zero
    // one; an odd last byte stands with a zero high byte.
    std::u16string units;
    for (std::size_t n = 0; n + 1 < bin.size(); n += 2) {
        const auto unit = static_cast<char16_t>(bin[n] | (bin[n + 1] << 8));
        if (unit == 0) break;
        units += unit;
    }
    const std::wstring text = platform::FromUtf16(units);
    wcsncpy_s(out, capacity, text.c_str(), _TRUNCATE);
    OPENSSL_cleanse(bin.data(), bin.size());
    return true;
}

unsigned CCrypto::HexStringToBin(const wchar_t *hex, unsigned char *bin, unsigned size) {
    const std::size_t count = std::wcslen(hex) / 2;
    if (count >= size) return 0;
    for (std::size_t n = 0; n < count; ++n)
        bin[n] = hextext::DecodePair(hex[2 * n], hex[2 * n + 1]);
    bin[count] = 0;
    bin[count + 1] = 0;
    return static_cast<unsigned>(count);
}

bool CCrypto::BinToHexString(unsigned char *bin, unsigned length, wchar_t *out, unsigned capacity) {
    return hextext::EncodeInto(bin, length, out, capacity);
}

const wchar_t *CCrypto::ComputeMD5(const wchar_t *path, HWND window) {
    static wchar_t result[33];
    result[0] = L'\0';
    Digest digest(EVP_md5());
    if (File file{_wfopen(path, L"rb")}) {
        unsigned char block[kMd5BlockBytes];
        std::size_t read;
        while ((read = std::fread(block, 1, sizeof block, file.get())) > 0) {
            digest.Add(block, read);
            Notify(window, WM_MD5_PROGRESS, read);
        }
    }
    Keep(result, Md5Text(digest));
    if (window) Notify(window, WM_MD5_DONE, 0);
    return result;
}

const wchar_t *CCrypto::ComputeSHA1(const wchar_t *path, HWND window) {
    static std::wstring result;
    if (!path) return result.c_str();
    Digest digest(EVP_sha1());
    File file(_wfopen(path, L"rb"));
    if (file) {
        std::fseek(file.get(), 0, SEEK_END);
        const long size = std::ftell(file.get());
        std::fseek(file.get(), 0, SEEK_SET);
        const long rest = size > 0 ? size % static_cast<long>(kSha1BlockBytes) : 0;
        const long wholeBlocks = size > 0 ? size / static_cast<long>(kSha1BlockBytes) : 0;
        std::vector<unsigned char> block(kSha1BlockBytes);
        auto digestBlock = [&](std::size_t length) {
            const std::size_t read = std::fread(block.data(), 1, length, file.get());
            Notify(window, WM_SHA1_PROGRESS, read);
            digest.Add(block.data(), read);
        };
        for (long n = 0; n < wholeBlocks; ++n) digestBlock(kSha1BlockBytes);
        if (rest > 0) digestBlock(static_cast<std::size_t>(rest));
    }
    result = Sha1Text(digest);
    if (file && window) Notify(window, WM_SHA1_DONE, 0);
    return result.c_str();
}

const wchar_t *CCrypto::MakeMD5HashKey(const wchar_t *text) {
    static wchar_t result[33];
    const std::vector<BYTE> bytes = platform::ToUtf16Bytes(text ? text : L"");
    Digest digest(EVP_md5());
    digest.Add(bytes.data(), bytes.size());
    return Keep(result, Md5Text(digest));
}

const wchar_t *CCrypto::MakeSHA1HashKey(const wchar_t *text) {
    static std::wstring result;
    const std::vector<BYTE> bytes = platform::ToUtf16Bytes(text ? text : L"");
    Digest digest(EVP_sha1());
    // As many bytes as the text has characters: the first half of it.
    digest.Add(bytes.data(), bytes.size() / 2);
    result = Sha1Text(digest);
    return result.c_str();
}

void CCrypto::WriteMD5ToFile(const wchar_t *path, const wchar_t *digest) {
    WriteDigestFile(path, digest);
}

void CCrypto::WriteSHA1ToFile(const wchar_t *path, const wchar_t *digest) {
    WriteDigestFile(path, digest);
}

extern "C" const wchar_t *EncryptString(const wchar_t *text) {
    static wchar_t result[kPlainEncryptCapacity + 2];
    result[0] = L'\0';
    if (!text || !*text || std::wcslen(text) >= kPlainEncryptLimit) return result;
    CCrypto(nullptr).EncryptString(text, result, kPlainEncryptCapacity);
    return result;
}

extern "C" const wchar_t *DecryptString(const wchar_t *text) {
    static wchar_t result[kPlainDecryptCapacity];
    result[0] = L'\0';
    if (!text || !*text || std::wcslen(text) >= kPlainDecryptLimit) return result;
    CCrypto(nullptr).DecryptString(text, result, kPlainDecryptCapacity);
    return result;
}

extern "C" const wchar_t *GetFileMD5(const wchar_t *path) {
    return CCrypto::ComputeMD5(path, nullptr);
}
