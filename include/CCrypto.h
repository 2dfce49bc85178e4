// Passwords as hexadecimal text for settings files, and MD5 and SHA-1
// digests of files and strings.
//
// A password is enciphered with RC4 under a key that depends only on the
// passphrase (the key the Base cryptographic provider derives from its MD5),
// so a text enciphered on one machine reads on any other. The plaintext is
// the UTF-16LE form of the password without a terminator; the result has two
// upper-case digits a byte, so n UTF-16 units give 4n digits.
//
// Digest texts: MD5 is 32 lower-case digits, SHA-1 40 upper-case digits.
// Functions that return `const wchar_t *` return a static result of the
// function, good until its next call: copy it at once, and use them from one
// thread at a time. Failures give false or an empty text, never a message.
#pragma once

#include "platform/WinTypes.h"

// Messages posted to the window given to ComputeMD5 and ComputeSHA1: a
// progress message per block with the bytes of the block in wParam, and a
// done message.
inline constexpr UINT WM_MD5_PROGRESS = 0x8321;
inline constexpr UINT WM_MD5_DONE = 0x8322;
inline constexpr UINT WM_SHA1_PROGRESS = 0x8323;
inline constexpr UINT WM_SHA1_DONE = 0x8324;

class CCrypto {
public:
    // A null passphrase selects the built-in one.
    explicit CCrypto(const char *passphrase = nullptr);
    virtual ~CCrypto();
    CCrypto(const CCrypto &) = delete;
    CCrypto &operator=(const CCrypto &) = delete;

    // The hexadecimal ciphertext of `plain` into `out` of `capacity`
    // characters. True whenever the cipher ran, also when the digits did not
    // fit (capacity not above 4 * the UTF-16 length), which leaves `out`
    // untouched.
    bool EncryptString(const wchar_t *plain, wchar_t *out, unsigned long capacity);
    // The plain text of hexadecimal ciphertext into `out` of `capacity`
    // characters. False for fewer than two digits, or when half the digits
    // reach `capacity`. Digits are read as upper case: lower-case ones give
    // wrong text, not a failure.
    bool DecryptString(const wchar_t *hex, wchar_t *out, unsigned long capacity);

    // The digest of a file, read in blocks of 512 bytes. A file that cannot
    // be opened gives the digest of nothing.
    static const wchar_t *ComputeMD5(const wchar_t *path, HWND window = nullptr);
    // The digest of a file, read in blocks of 8,000 bytes. A file that cannot
    // be opened gives the digest of nothing; a null path changes nothing and
    // returns the result as it stands.
    static const wchar_t *ComputeSHA1(const wchar_t *path, HWND window = nullptr);
    // The MD5 of the whole UTF-16LE form of the text.
    static const wchar_t *MakeMD5HashKey(const wchar_t *text);
    // The SHA-1 of the first half of the UTF-16LE form of the text (as many
    // bytes as the text has UTF-16 units). Stored keys depend on exactly this.
    static const wchar_t *MakeSHA1HashKey(const wchar_t *text);
    // A text file of one line, the digest and a line end. A file that cannot
    // be opened is left alone.
    static void WriteMD5ToFile(const wchar_t *path, const wchar_t *digest);
    static void WriteSHA1ToFile(const wchar_t *path, const wchar_t *digest);

private:
    unsigned HexStringToBin(const wchar_t *hex, unsigned char *bin, unsigned size);
    bool BinToHexString(unsigned char *bin, unsigned length, wchar_t *out, unsigned capacity);

    unsigned char key_[16] = {};
    bool ready_ = false;
};

// The built-in passphrase, the enciphering used for passwords in settings
// files. Each returns a static buffer: the hexadecimal text (empty for an
// empty text, one of more than 63 UTF-16 units, or a failure), or the plain
// text (empty for a text of 508 or more characters, or a failure).
extern "C" const wchar_t *EncryptString(const wchar_t *text);
extern "C" const wchar_t *DecryptString(const wchar_t *text);
// CCrypto::ComputeMD5 without a window.
extern "C" const wchar_t *GetFileMD5(const wchar_t *path);
