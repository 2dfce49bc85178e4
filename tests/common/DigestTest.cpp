// MD5 and SHA-1 of files and strings: the block edges of the two file
// readers, the digest files and the string keys.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "CCrypto.h"
#include "platform/Win32.h"
#include "support/DialogDriving.h"
#include "support/TempHome.h"

namespace fs = std::filesystem;

namespace {

std::string Hex(const unsigned char *bytes, unsigned length, bool upperCase) {
    static const char *const kDigits[] = {"0123456789abcdef", "0123456789ABCDEF"};
    std::string text;
    for (unsigned n = 0; n < length; ++n) {
        text += kDigits[upperCase][bytes[n] >> 4];
        text += kDigits[upperCase][bytes[n] & 0x0F];
    }
    return text;
}

// libcrypto's one-shot digest of the bytes, in the form the library gives.
std::wstring Expected(const EVP_MD *type, const std::string &bytes, bool upperCase) {
    unsigned char value[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(bytes.data(), bytes.size(), value, &length, type, nullptr);
    return platform::FromUtf8(Hex(value, length, upperCase));
}

std::wstring ExpectedMd5(const std::string &bytes) { return Expected(EVP_md5(), bytes, false); }
std::wstring ExpectedSha1(const std::string &bytes) { return Expected(EVP_sha1(), bytes, true); }

const auto Utf16 = testsupport::Utf16Bytes;

class DigestTest : public testsupport::HomeTest {
protected:
    fs::path scratch = home.Scratch();

    std::wstring File(const std::string &name, const std::string &content) const {
        testsupport::WriteBytes(scratch / name, content);
        return platform::FromUtf8((scratch / name).string());
    }
};

// The digests themselves are libcrypto's: what is the library's own is the
// reading of the file in blocks (512 bytes for MD5, 8,000 for SHA-1) and the
// digits' case.
TEST_F(DigestTest, FileDigestsAreWholeAcrossBlockEdges) {
    std::string content;
    for (int n = 0; content.size() < 8000 + 513; ++n) content += static_cast<char>(n * 7 + 3);
    for (std::size_t size : {0u, 1u, 511u, 512u, 513u, 1024u, 7999u, 8000u, 8001u, 8513u}) {
        const std::string bytes = content.substr(0, size);
        const std::wstring path = File("edge", bytes);
        EXPECT_EQ(CCrypto::ComputeMD5(path.c_str(), nullptr), ExpectedMd5(bytes)) << size;
        EXPECT_EQ(CCrypto::ComputeSHA1(path.c_str(), nullptr), ExpectedSha1(bytes)) << size;
    }
}

TEST_F(DigestTest, UnreadableFileGivesDigestOfNothingAndSha1OfNullPathLeavesTheLastResult) {
    const std::wstring missing = platform::FromUtf8((scratch / "missing").string());
    EXPECT_STREQ(CCrypto::ComputeMD5(missing.c_str(), nullptr),
                 L"d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_STREQ(GetFileMD5(missing.c_str()), L"d41d8cd98f00b204e9800998ecf8427e");
    const std::wstring last = CCrypto::ComputeSHA1(File("abc", "abc").c_str(), nullptr);
    EXPECT_EQ(CCrypto::ComputeSHA1(nullptr, nullptr), last);
    EXPECT_STREQ(CCrypto::ComputeSHA1(missing.c_str(), nullptr),
                 L"DA39A3EE5E6B4B0D3255BFEF95601890AFD80709");
}

TEST_F(DigestTest, KeysDigestTheUtf16TextMd5WholeAndSha1OnlyItsFirstHalf) {
    EXPECT_EQ(CCrypto::MakeMD5HashKey(L"abc"), ExpectedMd5(std::string("a\0b\0c\0", 6)));
    // A character beyond the 16-bit plane is a surrogate pair of four bytes.
    EXPECT_EQ(CCrypto::MakeMD5HashKey(L"x\U0001F600"), ExpectedMd5(Utf16(L"x\U0001F600")));
    EXPECT_EQ(CCrypto::MakeSHA1HashKey(L"abc"), ExpectedSha1(std::string("a\0b", 3)));
    const std::wstring az = CCrypto::MakeSHA1HashKey(L"az");
    EXPECT_EQ(az, CCrypto::MakeSHA1HashKey(L"ab"));
}

TEST_F(DigestTest, DigestFileHoldsTheDigestAndOneLineEnd) {
    const fs::path md5 = scratch / "a.md5";
    const fs::path sha1 = scratch / "a.sha1";
    CCrypto::WriteMD5ToFile(platform::FromUtf8(md5.string()).c_str(),
                            L"900150983cd24fb0d6963f7d28e17f72");
    CCrypto::WriteSHA1ToFile(platform::FromUtf8(sha1.string()).c_str(),
                             L"A9993E364706816ABA3E25717850C26C9CD0D89D");
    EXPECT_EQ(testsupport::ReadBytes(md5), "900150983cd24fb0d6963f7d28e17f72\r\n");
    EXPECT_EQ(testsupport::ReadBytes(sha1), "A9993E364706816ABA3E25717850C26C9CD0D89D\r\n");

    const fs::path unwritable = scratch / "no such folder" / "a.md5";
    CCrypto::WriteMD5ToFile(platform::FromUtf8(unwritable.string()).c_str(), L"0");
    EXPECT_FALSE(fs::exists(unwritable.parent_path()));
}

// Messages a digest posted to a message-only window, in order.
std::vector<std::pair<UINT, WPARAM>> PostedTo(HWND window) {
    std::vector<std::pair<UINT, WPARAM>> posted;
    MSG message{};
    while (PeekMessageW(&message, window, 0, 0, PM_REMOVE)) {
        posted.emplace_back(message.message, message.wParam);
    }
    return posted;
}

HWND MessageWindow() { return testsupport::PlainWindow(HWND_MESSAGE); }

}  // namespace

TEST_F(DigestTest, ProgressIsPostedPerBlockAndDoneAtTheEnd) {
    HWND window = MessageWindow();
    ASSERT_NE(window, nullptr);
    const std::wstring path = File("blocks", std::string(1000, 'x'));

    CCrypto::ComputeMD5(path.c_str(), window);
    using Posted = std::vector<std::pair<UINT, WPARAM>>;
    EXPECT_EQ(PostedTo(window), (Posted{{0x8321, 512}, {0x8321, 488}, {0x8322, 0}}));

    CCrypto::ComputeSHA1(path.c_str(), window);
    EXPECT_EQ(PostedTo(window), (Posted{{0x8323, 1000}, {0x8324, 0}}));

    // A file that cannot be opened: MD5 still says done, SHA-1 says nothing.
    const std::wstring missing = platform::FromUtf8((scratch / "missing").string());
    CCrypto::ComputeMD5(missing.c_str(), window);
    EXPECT_EQ(PostedTo(window), (Posted{{0x8322, 0}}));
    CCrypto::ComputeSHA1(missing.c_str(), window);
    EXPECT_TRUE(PostedTo(window).empty());
    DestroyWindow(window);
}
