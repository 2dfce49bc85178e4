// The PPM text coder: what goes in comes out, whatever the order, the
// model's memory (small memories make it start over and lose text behind
// its contexts) and the way the bytes are handed in; damaged streams are
// refused or decode to other bytes, never outside the buffers.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "PpmDecoder.h"
#include "PpmEncoder.h"

namespace {

using engine::vnkx::PpmDecoder;
using engine::vnkx::PpmEncoder;
using engine::vnkx::PpmSettings;
using Bytes = std::vector<std::uint8_t>;

// Source-like text: declarations built from a small vocabulary, so that
// contexts of every length repeat.
Bytes PseudoText(std::size_t size, std::uint32_t seed) {
    static const char *const kWords[] = {"int",    "const",  "struct", "return", "value",
                                         "size_t", "buffer", "length", "static", "void",
                                         "(",      ")",      ";\n",    " = ",    "{\n    "};
    std::mt19937 random(seed);
    std::string text;
    while (text.size() < size) {
        text += kWords[random() % std::size(kWords)];
        text += ' ';
    }
    return Bytes(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(size));
}

Bytes RandomBytes(std::size_t size, std::uint32_t seed) {
    std::mt19937 random(seed);
    Bytes bytes(size);
    for (auto &byte : bytes) byte = static_cast<std::uint8_t>(random());
    return bytes;
}

// Runs of text, noise and a three-letter alphabet in turn: the mix that
// makes contexts outrun the text they point into.
Bytes Mixed(std::size_t size, std::uint32_t seed) {
    std::mt19937 random(seed);
    Bytes text = PseudoText(1 << 16, seed), bytes;
    while (bytes.size() < size) {
        std::size_t run = random() % 8000;
        switch (random() % 3) {
            case 0: {
                std::size_t at = random() % (text.size() - run);
                bytes.insert(bytes.end(), text.begin() + static_cast<std::ptrdiff_t>(at),
                             text.begin() + static_cast<std::ptrdiff_t>(at + run));
                break;
            }
            case 1:
                for (std::size_t i = 0; i < run; ++i)
                    bytes.push_back(static_cast<std::uint8_t>(random()));
                break;
            default:
                for (std::size_t i = 0; i < run; ++i) bytes.push_back("abc"[random() % 3]);
        }
    }
    bytes.resize(size);
    return bytes;
}

Bytes Encode(const PpmSettings &settings, const Bytes &data, std::size_t piece = 0) {
    PpmEncoder encoder(settings);
    EXPECT_TRUE(encoder.Ready());
    if (piece == 0) piece = data.size() + 1;
    for (std::size_t at = 0; at < data.size(); at += piece)
        encoder.Add(data.data() + at, std::min(piece, data.size() - at));
    return encoder.Finish();
}

bool Decode(const PpmSettings &settings, const Bytes &packed, Bytes &out) {
    PpmDecoder decoder(settings, packed.data(), packed.size());
    return decoder.Ready() && decoder.Read(out.data(), out.size());
}

TEST(PpmCoderTest, RoundTripsAcrossOrdersMemoriesAndContents) {
    struct Case {
        const char *name;
        Bytes data;
        int order;
        std::uint32_t memoryMiB;
    };
    const Case cases[] = {
        {"empty", {}, 6, 1},
        {"one byte", {0x41}, 6, 1},
        {"text, order 2", PseudoText(300000, 1), 2, 1},
        {"text, order 12, restarts", PseudoText(1500000, 2), 12, 1},
        {"text, order 64", PseudoText(400000, 3), 64, 2},
        {"noise", RandomBytes(100000, 4), 8, 1},
        {"one byte repeated", Bytes(500000, 0x20), 16, 1},
        {"mixed, order 26", Mixed(600000, 5), 26, 1},
        {"mixed, order 7", Mixed(600000, 6), 7, 1},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        PpmSettings settings{c.order, c.memoryMiB};
        Bytes packed = Encode(settings, c.data), back(c.data.size());
        ASSERT_TRUE(Decode(settings, packed, back));
        EXPECT_EQ(back, c.data);
    }
}

TEST(PpmCoderTest, PiecesCodeAsOneStreamAndTextPacksTight) {
    PpmSettings settings{12, 4};
    Bytes text = PseudoText(400000, 7);
    Bytes whole = Encode(settings, text);
    EXPECT_EQ(Encode(settings, text, 1), whole);
    EXPECT_EQ(Encode(settings, text, 4093), whole);
    // Fifteen words in random order carry about four bits a word.
    EXPECT_LT(whole.size(), text.size() / 10);
}

TEST(PpmCoderTest, DamagedStreamsAreRefusedOrDecodeToOtherBytes) {
    PpmSettings settings{10, 1};
    Bytes text = PseudoText(60000, 8), packed = Encode(settings, text);
    std::mt19937 random(9);
    for (int round = 0; round < 60; ++round) {
        Bytes damaged = packed;
        switch (round % 3) {
            case 0:
                for (int k = 0; k < 3; ++k)
                    damaged[random() % (damaged.size() * 9 / 10)] ^=
                        static_cast<std::uint8_t>(1 << (k + 2));
                break;
            case 1:
                damaged.resize(random() % damaged.size());
                break;
            default:
                damaged = RandomBytes(damaged.size(), static_cast<std::uint32_t>(round));
        }
        Bytes back(text.size());
        bool decoded = Decode(settings, damaged, back);
        if (round % 3 == 1) {
            EXPECT_FALSE(decoded) << "a cut stream runs out";
        }
        if (decoded) {
            EXPECT_NE(back, text);
        }
    }
}

}  // namespace
