// Text blocks of vnkx: the long-match pass, the payload's framing (round
// trips of every shape of block, damaged and hostile payloads refused
// without a read or write outside the buffers), the word transform of word
// text blocks, and archives that hold text blocks next to other kinds, or
// must not hold them.
#include <zstd.h>

#include <cstring>
#include <set>

#include "EngineFixture.h"
#include "LongMatchFinder.h"
#include "TextBlockCoder.h"
#include "VnkxBlockPlan.h"
#include "VnkxMethods.h"
#include "WordTransform.h"

namespace enginetest {
namespace {

using engine::vnkx::LongMatch;
using engine::vnkx::LongMatchFinder;
using engine::vnkx::TextBlockCoder;
using engine::vnkx::TextSettings;
using engine::vnkx::WordTransform;
using Bytes = std::vector<std::uint8_t>;

// Block methods as the layout numbers them.
constexpr int kMethodPpmd = 4, kMethodText = 10, kMethodWordText = 11;

// Text that never repeats a long stretch: words drawn at random.
std::string Prose(std::size_t size, unsigned seed) {
    static const char *const kWords[] = {"int",    "return", "struct", "const",  "void",
                                         "define", "if",     "else",   "static", "size_t",
                                         "{",      "}",      "(",      ");",     "\n"};
    std::string text;
    for (unsigned x = seed; text.size() < size;) {
        x = x * 1664525u + 1013904223u;
        text += kWords[(x >> 16) % 15];
        text += (x >> 8) % 5 ? " " : "\n";
        if ((x >> 4) % 7 == 0) text += std::to_string(x % 1000);
    }
    text.resize(size);
    return text;
}

Bytes BytesOf(const std::string &text) { return Bytes(text.begin(), text.end()); }

Bytes Encoded(const Bytes &block) {
    Bytes payload;
    EXPECT_TRUE(TextBlockCoder::Encode(block.data(), block.size(), TextSettings{}, payload));
    return payload;
}

engine::Result Decoded(const Bytes &payload, std::size_t size, Bytes &out) {
    out.assign(size, 0xAA);
    return TextBlockCoder::Decode(payload.data(), payload.size(), out.data(), out.size());
}

TEST(LongMatchFinderTest, MatchesDescribeTheBlockAndReachAcrossIt) {
    const std::string passage = Prose(700, 99);
    std::string text = Prose(2 << 20, 1);
    for (std::size_t at : {std::size_t{1000}, std::size_t{1500000}, text.size() - 700})
        text.replace(at, 700, passage);
    const Bytes block = BytesOf(text);
    for (std::uint32_t minimum : {64u, 128u, 256u}) {
        std::vector<LongMatch> matches = LongMatchFinder(minimum).Find(block.data(), block.size());
        std::size_t at = 0, copied = 0;
        for (const LongMatch &match : matches) {
            at += match.literals;
            ASSERT_GE(match.length, minimum);
            ASSERT_GE(at, match.distance);
            ASSERT_LE(at + match.length, block.size());
            ASSERT_EQ(std::memcmp(&block[at], &block[at - match.distance], match.length), 0);
            at += match.length;
            copied += match.length;
        }
        // Both later copies are found whole, the last one up to the block's end.
        EXPECT_GE(copied, 2 * passage.size()) << minimum;
        EXPECT_EQ(at, block.size()) << minimum;
    }
}

TEST(TextBlockCoderTest, BlocksOfEveryShapeRoundTrip) {
    const std::string paragraph = Prose(300, 7);
    std::string repeats;
    while (repeats.size() < 200000) repeats += paragraph;
    const std::string middle = Prose(50000, 3);
    struct Case {
        const char *name;
        std::string block;
        bool shrinks;  // long repeats found, so the payload is far smaller
    } cases[] = {
        {"empty", "", false},
        {"tiny", "x", false},
        {"shorter than a match", Prose(127, 5), false},
        {"no repeats", Prose(100000, 11), false},
        {"all repeats", repeats, true},
        {"one run: matches overlap what they copy", std::string(100000, '='), true},
        {"repeats at both ends", paragraph + middle + paragraph + middle + paragraph, true},
    };
    for (const Case &test : cases) {
        const Bytes block = BytesOf(test.block);
        Bytes payload = Encoded(block), out;
        ASSERT_EQ(Decoded(payload, block.size(), out), kEngineOK) << test.name;
        EXPECT_EQ(out, block) << test.name;
        // A size that cuts a match is refused. (Where its stream should end,
        // the literal coder cannot tell: the block's check value does.)
        if (test.shrinks) {
            EXPECT_LT(payload.size(), block.size() / 2) << test.name;
            EXPECT_EQ(Decoded(payload, block.size() - 1, out), kEngineItemDataDamaged) << test.name;
        }
    }
}

TEST(TextBlockCoderTest, DamagedPayloadsAreRefusedWithoutStrayReadsOrWrites) {
    const std::string middle = Prose(4000, 13);
    std::string text;
    for (int i = 0; i < 20; ++i) text += middle.substr(i * 100, 900) + std::string(300, '-');
    const Bytes block = BytesOf(text);
    const Bytes payload = Encoded(block);
    const std::size_t framing = 16 + (payload[12] | (payload[13] << 8));
    ASSERT_GT(payload.size(), framing);
    Bytes out;

    // Every byte of head and match list changed, and some of the literals:
    // whatever comes out, it stays inside the buffers (the sanitizers see to
    // that) and is either refused or the block's own size.
    for (std::size_t at = 0; at < payload.size(); at += at < framing ? 1 : 97) {
        for (std::uint8_t change : {0x01, 0x80, 0xFF}) {
            Bytes damaged = payload;
            damaged[at] ^= change;
            engine::Result result = Decoded(damaged, block.size(), out);
            EXPECT_TRUE(result == kEngineOK || result == kEngineItemDataDamaged) << at;
        }
    }
    // A cut payload never decodes to the whole block.
    for (std::size_t cut = 0; cut < payload.size(); cut += cut < framing ? 1 : 211) {
        Bytes cutShort(payload.begin(), payload.begin() + static_cast<std::ptrdiff_t>(cut));
        EXPECT_EQ(Decoded(cutShort, block.size(), out), kEngineItemDataDamaged) << cut;
    }

    // Hostile heads: settings no coder takes, a count the list cannot hold.
    struct Hostile {
        std::size_t at;
        std::vector<std::uint8_t> bytes;
    } hostile[] = {
        {0, {2}},                       // a layout this reader does not know
        {1, {1}},                       // order below the least
        {1, {200}},                     // order above the most
        {2, {0, 0}},                    // no model memory
        {2, {0xFF, 0xFF}},              // 64 GiB of model
        {4, {0xFF, 0xFF, 0xFF, 0x0F}},  // matches beyond what the list holds
        {8, {0xFF, 0xFF, 0xFF, 0xFF}},  // a list larger than any count allows
        // 4 GiB of list for more matches than the block has bytes (found by
        // fuzzing: it was allocated before the list was read)
        {4, {0xFF, 0xFF, 0xFF, 0xFF, 0xF9, 0xFF, 0xFF, 0xF5}},
        {8, {0x10, 0x00, 0x00, 0x00}},   // a list size its frame does not declare
        {12, {0xFF, 0xFF, 0xFF, 0x7F}},  // a packed list beyond the payload
    };
    for (const Hostile &change : hostile) {
        Bytes damaged = payload;
        std::copy(change.bytes.begin(), change.bytes.end(), damaged.begin() + change.at);
        EXPECT_EQ(Decoded(damaged, block.size(), out), kEngineItemDataDamaged) << change.at;
    }
}

engine::Result Unwrapped(const Bytes &form, std::size_t size, Bytes &out) {
    out.assign(size, 0xAA);
    return WordTransform::Decode(form.data(), form.size(), out.data(), out.size());
}

TEST(WordTransformTest, RecurringWordsGetCodesAndEveryOtherByteComesBackAsItWas) {
    std::string text = "identifier_at_the_start " + Prose(60000, 3);
    // Bytes that need escapes, digits before letters, words too long for a
    // code, one just used too seldom and one just often enough.
    const std::string kLong(70, 'w');
    for (int i = 0; i < 12; ++i)
        text += " 0x1f2e3d 123abc " + kLong +
                " Gr\xC3\xBC\xC3\x9F"
                "e \xFF\x80";
    for (int i = 0; i < 7; ++i) text += " seldom_used";
    for (int i = 0; i < 8; ++i) text += " just_enough";
    text += " identifier_at_the_end";
    const Bytes block = BytesOf(text);
    Bytes form;
    ASSERT_TRUE(WordTransform::Encode(block.data(), block.size(), form));
    EXPECT_LT(form.size(), block.size() * 3 / 4);
    const std::string list(form.begin(), form.begin() + std::min<std::size_t>(form.size(), 4000));
    EXPECT_NE(list.find("\njust_enough\n"), std::string::npos);
    EXPECT_EQ(list.find("seldom_used"), std::string::npos);
    EXPECT_EQ(list.find(kLong), std::string::npos);
    Bytes out;
    ASSERT_EQ(Unwrapped(form, block.size(), out), kEngineOK);
    EXPECT_EQ(out, block);

    // Text of more distinct words than the transform keeps count of (as
    // a hex dump or a log of identifiers is) still comes back as it was.
    std::string many;
    for (int i = 0; i < 100; ++i) many += "recurring_word ";
    for (int i = 0; i < 300000; ++i) many += "w" + std::to_string(i) + " ";
    const Bytes manyBlock = BytesOf(many);
    ASSERT_TRUE(WordTransform::Encode(manyBlock.data(), manyBlock.size(), form));
    EXPECT_EQ(std::string(form.begin() + 3, form.begin() + 18), "recurring_word\n");
    ASSERT_EQ(Unwrapped(form, manyBlock.size(), out), kEngineOK);
    EXPECT_EQ(out, manyBlock);

    // Text the transform does not suit is left to the coder as it is.
    Bytes foreign(4096, 0xE4);
    EXPECT_FALSE(WordTransform::Encode(foreign.data(), foreign.size(), form));
    const Bytes unique = BytesOf("every word here appears once only, nothing recurs");
    EXPECT_FALSE(WordTransform::Encode(unique.data(), unique.size(), form));
}

TEST(WordTransformTest, DamagedFormsAreRefusedWithoutStrayReadsOrWrites) {
    std::string text = Prose(20000, 5);
    text += " caf\xC3\xA9";
    const Bytes block = BytesOf(text);
    Bytes form;
    ASSERT_TRUE(WordTransform::Encode(block.data(), block.size(), form));
    Bytes out;
    for (std::size_t at = 0; at < form.size(); at += at < 200 ? 1 : 37) {
        for (std::uint8_t change : {0x01, 0x40, 0x80, 0xFF}) {
            Bytes damaged = form;
            damaged[at] ^= change;
            engine::Result result = Unwrapped(damaged, block.size(), out);
            EXPECT_TRUE(result == kEngineOK || result == kEngineItemDataDamaged) << at;
        }
    }
    for (std::size_t cut = 0; cut < form.size(); cut += cut < 200 ? 1 : 97) {
        Bytes cutShort(form.begin(), form.begin() + static_cast<std::ptrdiff_t>(cut));
        EXPECT_EQ(Unwrapped(cutShort, block.size(), out), kEngineItemDataDamaged) << cut;
    }
    EXPECT_EQ(Unwrapped(form, block.size() - 1, out), kEngineItemDataDamaged);
    EXPECT_EQ(Unwrapped(form, block.size() + 1, out), kEngineItemDataDamaged);

    // Forms no writer makes: more words than codes, codes beyond the list,
    // an escape of a plain byte, a code cut by the end, an empty word.
    const Bytes kHostile[] = {
        {65, 0, 0},
        {0, 0x01, 0x3F, 'a', '\n'},
        {1, 0, 0, 'a', 'b', 'c', '\n', 0x81},
        {1, 1, 0, 'a', 'b', 'c', '\n', 'x', 'y', 'z', '\n', 0xC0, 0x01},
        {0, 0, 0, 0xFF, 'a'},
        {1, 1, 0, 'a', 'b', 'c', '\n', 'x', 'y', 'z', '\n', 0xC0},
        {1, 0, 0, '\n', 0x80},
    };
    Bytes tooLong{1, 0, 0};  // a listed word of 65 bytes
    tooLong.insert(tooLong.end(), 65, 'w');
    tooLong.push_back('\n');
    tooLong.push_back(0x80);
    for (const Bytes &hostile : kHostile) {
        SCOPED_TRACE(hostile.size());
        EXPECT_EQ(Unwrapped(hostile, 3, out), kEngineItemDataDamaged);
    }
    EXPECT_EQ(Unwrapped(tooLong, 65, out), kEngineItemDataDamaged);
    tooLong.erase(tooLong.begin() + 3);  // 64 bytes: the longest a word may be
    EXPECT_EQ(Unwrapped(tooLong, 64, out), kEngineOK);
}

// A word text payload as earlier writers made it: the words replaced, then
// a zstd frame.
Bytes ZstdWordText(const Bytes &block) {
    Bytes words;
    EXPECT_TRUE(WordTransform::Encode(block.data(), block.size(), words));
    Bytes payload(9 + ZSTD_compressBound(words.size()));
    payload[0] = 3;
    for (int i = 0; i < 8; ++i) payload[1 + i] = static_cast<std::uint8_t>(words.size() >> (8 * i));
    std::size_t made =
        ZSTD_compress(payload.data() + 9, payload.size() - 9, words.data(), words.size(), 9);
    EXPECT_FALSE(ZSTD_isError(made));
    payload.resize(9 + made);
    return payload;
}

// Word text payloads as a hostile archive could hold them (its blocks' CRCs
// are its own to set): every frame the decoder does not expect is damage.
// The writer makes a zstd frame at the first level and .xz streams above;
// a zstd frame of the engine's zstd blocks' kind, as earlier writers made
// it, is read too.
TEST(WordTextBlockTest, PayloadsOfEitherStreamDecodeAndHostileOnesAreRefused) {
    namespace vnkx = engine::vnkx;
    const Bytes block = BytesOf(Prose(300000, 9));
    Bytes out;
    for (int level : {0, 1, 8}) {
        SCOPED_TRACE(level);
        Bytes payload;
        if (level == 0) {
            payload = ZstdWordText(block);
        } else {
            vnkx::MethodChoice requested{vnkx::kMethodZstd, level, 22};
            requested.wordText = true;
            vnkx::MethodChoice choice = vnkx::ChoiceForBlock(requested, vnkx::BlockKind::Text);
            ASSERT_EQ(choice.method, vnkx::kMethodWordText);
            void *state = nullptr;
            ASSERT_TRUE(vnkx::Compress(choice, block, payload, state));
            vnkx::FreeCoderState(state);
            EXPECT_EQ(payload[0], level == 1 ? 3 : 1)
                << "words replaced, a zstd frame at the first level, else an .xz stream";
        }
        ASSERT_EQ(vnkx::Decompress(vnkx::kMethodWordText, payload.data(), payload.size(),
                                   block.size(), out),
                  kEngineOK);
        EXPECT_EQ(out, block);

        auto refused = [&](Bytes damaged, std::uint64_t size) {
            return vnkx::Decompress(vnkx::kMethodWordText, damaged.data(), damaged.size(), size,
                                    out) == kEngineItemDataDamaged;
        };
        EXPECT_TRUE(refused(payload, block.size() + 1));
        EXPECT_TRUE(refused(Bytes(payload.begin(), payload.end() - 1), block.size()));
        EXPECT_TRUE(refused(Bytes(payload.begin(), payload.begin() + 8), block.size()));
        Bytes changed = payload;
        changed[0] = 4;  // a form this reader does not know
        EXPECT_TRUE(refused(changed, block.size()));
        changed[0] = payload[0] ^ 2;  // the other stream's decoder
        EXPECT_TRUE(refused(changed, block.size()));
        changed[0] = payload[0] & 2;  // words left in as if they were text
        EXPECT_TRUE(refused(changed, block.size()));
        changed = payload;
        changed[8] = 0x40;  // a text far larger than any transform of the block
        EXPECT_TRUE(refused(changed, block.size()));
    }
}

// Text blocks in whole archives, with the engine's own PPM coder.
class VnkxTextBlockTest : public EngineTest {
protected:
    void SetUp() override {
        EngineTest::SetUp();
        tree = MakeSampleTree("src");
        const std::string license = Prose(3000, 17);
        for (int i = 0; i < 40; ++i)
            WriteFile(tree / "include" / ("header" + std::to_string(i) + ".h"),
                      license + Prose(5000 + 300 * i, 100 + i) + "\n/* Grüße */\n");
    }
    void SetVnkx(const char *name, int32_t value) {
        ASSERT_EQ(SetFormatIntegerProperty(engine, "vnkx", name, value), kEngineOK) << name;
    }
    // The methods of the archive's blocks, read from their headers.
    static std::set<int> MethodsOf(const fs::path &archive) {
        std::string bytes = ReadFile(archive);
        std::set<int> methods;
        for (std::size_t at = bytes.find("VBLK"); at != std::string::npos && at + 4 < bytes.size();
             at = bytes.find("VBLK", at + 4))
            methods.insert(static_cast<std::uint8_t>(bytes[at + 4]));
        return methods;
    }
    // The forms of the word text blocks (the payload's first byte).
    static std::set<int> WordTextFormsOf(const fs::path &archive) {
        std::string bytes = ReadFile(archive);
        std::set<int> forms;
        for (std::size_t at = bytes.find("VBLK"); at != std::string::npos && at + 40 < bytes.size();
             at = bytes.find("VBLK", at + 4))
            if (static_cast<std::uint8_t>(bytes[at + 4]) == kMethodWordText)
                forms.insert(static_cast<std::uint8_t>(bytes[at + 40]));
        return forms;
    }
    // Made, listed, verified and expanded byte for byte; the block methods.
    std::set<int> RoundTrip(const std::string &name, const char *format = "vnkx") {
        fs::path archive = Scratch("archives") / name;
        EXPECT_EQ(Create(format, {tree}, archive), kEngineOK) << name;
        std::size_t entries = 0;
        for ([[maybe_unused]] const auto &entry : fs::recursive_directory_iterator(tree)) ++entries;
        EXPECT_EQ(OpenedArchive(engine, archive).Listing().size(), entries + 1) << name;
        OwnedFS file = Path(archive);
        EXPECT_EQ(VerifyArchive(engine, file.get(), nullptr), kEngineOK) << name;
        fs::path out = Scratch("out-" + name);
        EXPECT_EQ(Expand(archive, out), kEngineOK) << name;
        EXPECT_EQ(Snapshot(out / "src"), Snapshot(tree)) << name;
        return MethodsOf(archive);
    }
    fs::path tree;
};

TEST_F(VnkxTextBlockTest, TextGetsBlocksOfItsOwn) {
    // Word text under zstd runs: words replaced, then zstd at the defaults
    // (form 3) and LZMA2 at higher levels (form 1).
    std::set<int> defaults = RoundTrip("defaults.vnkx");
    EXPECT_FALSE(defaults.count(kMethodText)) << "the defaults stay fast";
    EXPECT_TRUE(defaults.count(kMethodWordText));
    EXPECT_EQ(WordTextFormsOf(Scratch("archives") / "defaults.vnkx"), std::set<int>{3});
    SetVnkx(kFormatPropCompressionDegree, 3);
    EXPECT_TRUE(RoundTrip("degree3.vnkx").count(kMethodWordText));
    EXPECT_EQ(WordTextFormsOf(Scratch("archives") / "degree3.vnkx"), std::set<int>{1});
    SetVnkx(kFormatPropCompressionDegree, 4);
    std::set<int> degree4 = RoundTrip("degree4.vnkx");
    EXPECT_TRUE(degree4.count(kMethodText));
    EXPECT_FALSE(degree4.count(kMethodWordText));
    SetVnkx(kFormatPropCompressionDegree, 0);
    SetVnkx(kFormatPropCompMethod, 4);
    SetVnkx(kFormatPropCompressionLevel, 6);
    std::set<int> ppmd = RoundTrip("ppmd.vnkx");
    EXPECT_TRUE(ppmd.count(kMethodText));
    EXPECT_FALSE(ppmd.count(kMethodPpmd));
    SetVnkx(kFormatPropCompressionDegree, 5);
    EXPECT_TRUE(RoundTrip("smallest.vnkx").count(kMethodText));
}

TEST_F(VnkxTextBlockTest, FirstVersionArchivesNeverHoldTextBlocks) {
    std::set<int> classic = RoundTrip("classic.vnk", "vnk5");
    EXPECT_FALSE(classic.count(kMethodText) || classic.count(kMethodWordText));
    SetVnkx(kFormatPropMaxVersion, 0);
    for (int32_t method : {5, 4}) {
        SetVnkx(kFormatPropCompMethod, method);
        std::string name = "first" + std::to_string(method) + ".vnkx";
        std::set<int> methods = RoundTrip(name);
        EXPECT_FALSE(methods.empty()) << name;
        EXPECT_FALSE(methods.count(kMethodText)) << name;
        EXPECT_FALSE(methods.count(kMethodWordText)) << name;
    }
}

// A later archive changed where only the first version may be written: its
// blocks cannot be copied as they are, so its items are coded again.
TEST_F(VnkxTextBlockTest, ChangingALaterArchiveForTheFirstVersionCodesItsItemsAgain) {
    fs::path extra = Scratch("extra") / "added.txt";
    WriteFile(extra, "added under the first version\n");
    // Plain, and enciphered with ChaCha20, which the first version has not.
    for (const std::wstring password : {L"", L"pw"}) {
        const std::string label = password.empty() ? "plain" : "enciphered";
        SetVnkx(kFormatPropMaxVersion, 7);
        SetVnkx(kFormatPropEncryptMethod, 2);
        fs::path archive = Scratch("archives") / (label + ".vnkx");
        OwnedString secret = password.empty() ? OwnedString() : Text(password);
        ASSERT_EQ(Create("vnkx", {tree}, archive, nullptr, secret.get()), kEngineOK) << label;
        ASSERT_TRUE(MethodsOf(archive).count(kMethodWordText)) << label;
        SetVnkx(kFormatPropMaxVersion, 0);
        {
            OpenedArchive opened(engine, archive, kEngineAccessChange, password);
            ASSERT_EQ(opened.status(), kEngineOK) << label;
            OwnedItem src = opened.Item(L"src");
            OwnedFSList sources = PathList(engine, {extra});
            OwnedItemList added;
            ASSERT_EQ(AddItemsToArchive(engine, src.get(), sources.get(), added.out(), nullptr),
                      kEngineOK)
                << label;
            ASSERT_EQ(opened.Close(), kEngineOK) << label;
        }
        std::string bytes = ReadFile(archive);
        EXPECT_EQ(bytes[8], 0) << label << ": the header's version";
        const std::set<int> firstVersionMethods{1, 2, 3, 5, 6};
        for (std::size_t at = bytes.find("VBLK"); at != std::string::npos;
             at = bytes.find("VBLK", at + 4)) {
            EXPECT_TRUE(firstVersionMethods.count(static_cast<std::uint8_t>(bytes[at + 4])))
                << label;
            EXPECT_EQ(bytes[at + 5], 0) << label << ": no filter";
            EXPECT_EQ(bytes[at + 6], password.empty() ? 0 : 1) << label << ": AES-256-GCM";
        }
        fs::path out = Scratch("out-" + label);
        ASSERT_EQ(Expand(archive, out, nullptr, secret.get()), kEngineOK) << label;
        EXPECT_EQ(ReadFile(out / "src" / "added.txt"), "added under the first version\n");
        fs::remove(out / "src" / "added.txt");
        EXPECT_EQ(Snapshot(out / "src"), Snapshot(tree)) << label;
    }
}

}  // namespace
}  // namespace enginetest
