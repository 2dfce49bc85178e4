// Decoding the Mac and text encodings: BinHex, MacBinary, AppleSingle,
// btoa, yEnc, MIME and plain base64, with the resource forks of the Mac ones.
#include <sys/xattr.h>

#include "EngineFixture.h"

namespace enginetest {
namespace {

using Bytes = std::string;

uint16_t CrcXmodem(const Bytes &data) {
    uint16_t crc = 0;
    for (unsigned char c : data) {
        crc ^= static_cast<uint16_t>(c << 8);
        for (int bit = 0; bit < 8; ++bit)
            crc = static_cast<uint16_t>(crc & 0x8000 ? (crc << 1) ^ 0x1021 : crc << 1);
    }
    return crc;
}

uint32_t Crc32(const Bytes &data) {
    uint32_t crc = 0xFFFFFFFFu;
    for (unsigned char c : data) {
        crc ^= c;
        for (int bit = 0; bit < 8; ++bit) crc = crc & 1 ? (crc >> 1) ^ 0xEDB88320u : crc >> 1;
    }
    return ~crc;
}

Bytes Be16(uint32_t v) { return {static_cast<char>(v >> 8), static_cast<char>(v)}; }
Bytes Be32(uint32_t v) { return Be16(v >> 16) + Be16(v & 0xFFFF); }

// BinHex 4.0 of a file with two forks, a run of repeated bytes compressed.
Bytes BinHex(const Bytes &name, const Bytes &data, const Bytes &resource) {
    Bytes header = Bytes(1, static_cast<char>(name.size())) + name + Bytes(1, '\0') + "TEXTttxt" +
                   Be16(0) + Be32(static_cast<uint32_t>(data.size())) +
                   Be32(static_cast<uint32_t>(resource.size()));
    Bytes plain = header + Be16(CrcXmodem(header)) + data + Be16(CrcXmodem(data)) + resource +
                  Be16(CrcXmodem(resource));
    Bytes packed;
    for (std::size_t i = 0; i < plain.size();) {
        std::size_t run = 1;
        while (i + run < plain.size() && plain[i + run] == plain[i] && run < 255) ++run;
        packed += plain[i];
        if (static_cast<unsigned char>(plain[i]) == 0x90) packed += '\0';
        if (run > 3 && static_cast<unsigned char>(plain[i]) != 0x90) {
            packed += static_cast<char>(0x90);
            packed += static_cast<char>(run);
            i += run;
        } else {
            ++i;
        }
    }
    const char alphabet[] = "!\"#$%&'()*+,-012345689@ABCDEFGHIJKLMNPQRSTUVXYZ[`abcdefhijklmpqr";
    Bytes text = "(This file must be converted with BinHex 4.0)\n:";
    uint32_t bits = 0;
    int count = 0, column = 1;
    auto emit = [&](int value) {
        text += alphabet[value];
        if (++column == 64) {
            text += '\n';
            column = 0;
        }
    };
    for (unsigned char c : packed) {
        bits = (bits << 8) | c;
        count += 8;
        while (count >= 6) {
            count -= 6;
            emit((bits >> count) & 0x3F);
        }
    }
    if (count > 0) emit((bits << (6 - count)) & 0x3F);
    return text + ":\n";
}

Bytes MacBinary(const Bytes &name, const Bytes &data, const Bytes &resource) {
    Bytes header(128, '\0');
    header[1] = static_cast<char>(name.size());
    header.replace(2, name.size(), name);
    header.replace(65, 8, "TEXTttxt");
    header.replace(83, 4, Be32(static_cast<uint32_t>(data.size())));
    header.replace(87, 4, Be32(static_cast<uint32_t>(resource.size())));
    header.replace(95, 4, Be32(3786825600u));  // 2024-01-01 in Mac seconds
    header[122] = header[123] = static_cast<char>(0x81);
    header.replace(124, 2, Be16(CrcXmodem(header.substr(0, 124))));
    auto padded = [](Bytes fork) {
        fork.resize((fork.size() + 127) / 128 * 128, '\0');
        return fork;
    };
    return header + padded(data) + padded(resource);
}

Bytes AppleSingle(const Bytes &name, const Bytes &data, const Bytes &resource) {
    Bytes out = Be32(0x00051600) + Be32(0x00020000) + Bytes(16, '\0') + Be16(3);
    uint32_t at = 26 + 3 * 12;
    out += Be32(3) + Be32(at) + Be32(static_cast<uint32_t>(name.size()));
    out += Be32(1) + Be32(at + static_cast<uint32_t>(name.size())) +
           Be32(static_cast<uint32_t>(data.size()));
    out += Be32(2) + Be32(at + static_cast<uint32_t>(name.size() + data.size())) +
           Be32(static_cast<uint32_t>(resource.size()));
    return out + name + data + resource;
}

Bytes Btoa(const Bytes &data) {
    Bytes text = "xbtoa Begin\n";
    for (std::size_t i = 0; i < data.size(); i += 4) {
        uint32_t word = 0;
        for (int k = 0; k < 4; ++k)
            word =
                (word << 8) | (i + k < data.size() ? static_cast<unsigned char>(data[i + k]) : 0);
        if (word == 0) {
            text += 'z';
            continue;
        }
        char group[5];
        for (int k = 4; k >= 0; --k, word /= 85) group[k] = static_cast<char>('!' + word % 85);
        text.append(group, 5);
    }
    return text + "\nxbtoa End N " + std::to_string(data.size()) + " 0 E 0 S 0 R 0\n";
}

Bytes Yenc(const Bytes &name, const Bytes &data, bool spoil = false) {
    Bytes text = "=ybegin line=128 size=" + std::to_string(data.size()) + " name=" + name + "\n";
    int column = 0;
    for (unsigned char c : data) {
        unsigned char out = static_cast<unsigned char>(c + 42);
        if (out == 0 || out == '\n' || out == '\r' || out == '=') {
            text += '=';
            out = static_cast<unsigned char>(out + 64);
        }
        text += static_cast<char>(out);
        if (++column == 128) {
            text += '\n';
            column = 0;
        }
    }
    char crc[16];
    std::snprintf(crc, sizeof crc, "%08x", Crc32(data) ^ (spoil ? 1u : 0u));
    return text + "\n=yend size=" + std::to_string(data.size()) + " crc32=" + crc + "\n";
}

class EncodingTest : public EngineTest {
protected:
    void SetUp() override {
        EngineTest::SetUp();
        folder = Scratch("encoded");
        for (int i = 0; i < 5000; ++i)
            data += static_cast<char>(i % 7 == 0 ? 0x90 : (i / 100) % 256);
        data += std::string(600, 'r');  // a run
        resource = "resource fork bytes";
    }
    std::map<std::string, std::string> Decoded(const std::string &name, const Bytes &bytes) {
        WriteFile(folder / name, bytes);
        fs::path out = Scratch("out-" + name);
        EXPECT_EQ(Expand(folder / name, out), kEngineOK) << name;
        return Snapshot(out);
    }
    fs::path folder;
    Bytes data, resource;
};

TEST_F(EncodingTest, MacEncodingsGiveTheDataForkUnderTheFilesName) {
    const std::pair<const char *, Bytes> kinds[] = {
        {"note.hqx", BinHex("Read Me", data, resource)},
        {"note.bin", MacBinary("Read Me", data, resource)},
        {"note.as", AppleSingle("Read Me", data, resource)},
    };
    const char *ids[] = {"hqx", "bin", "apple"};
    int n = 0;
    for (const auto &[name, bytes] : kinds) {
        std::map<std::string, std::string> got = Decoded(name, bytes);
        EXPECT_EQ(FormatOf(folder / name), ids[n++]);
        ASSERT_EQ(got.size(), 1u) << name;
        fs::path out = Scratch(std::string("out-") + name);
        EXPECT_TRUE(ReadFile(out / "Read Me") == data) << name;
    }
}

TEST_F(EncodingTest, ResourceForksFollowPreserveMacResource) {
    WriteFile(folder / "forks.hqx", BinHex("doc", data, resource));
    SetInteger(kEnginePropPreserveMacResource, 1);
    fs::path sidecar = Scratch("sidecar");
    ASSERT_EQ(Expand(folder / "forks.hqx", sidecar), kEngineOK);
    std::string appleDouble = ReadFile(sidecar / "._doc");
    ASSERT_GE(appleDouble.size(), 4u);
    EXPECT_EQ(appleDouble.substr(0, 4), Be32(0x00051607));
    EXPECT_NE(appleDouble.find(resource), std::string::npos);

    SetInteger(kEnginePropPreserveMacResource, 2);
    fs::path attribute = Scratch("attribute");
    ASSERT_EQ(Expand(folder / "forks.hqx", attribute), kEngineOK);
    char value[64] = {};
    ssize_t length =
        getxattr((attribute / "doc").c_str(), "user.com.apple.ResourceFork", value, sizeof value);
    if (length >= 0) {
        EXPECT_EQ(std::string(value, static_cast<std::size_t>(length)), resource);
    }
    EXPECT_FALSE(fs::exists(attribute / "._doc"));

    SetInteger(kEnginePropPreserveMacResource, 0);
    fs::path none = Scratch("none");
    ASSERT_EQ(Expand(folder / "forks.hqx", none), kEngineOK);
    EXPECT_EQ(Snapshot(none).size(), 1u);

    // The fork is read through the surface too.
    OpenedArchive opened(engine, folder / "forks.hqx");
    OwnedItem doc = opened.Item(L"doc");
    ArchiveObjectFork fork = nullptr;
    ASSERT_EQ(GetArchiveObjectFork(doc.get(), kForkResource, &fork), kEngineOK);
    uint64_t size = 0;
    ASSERT_EQ(GetArchiveObjectForkSize(fork, &size), kEngineOK);
    ASSERT_EQ(size, resource.size());
    std::string read(size, '\0');
    uint64_t count = 0;
    ASSERT_EQ(GetArchiveObjectForkData(engine, fork, read.data(), static_cast<uint32_t>(size), 0,
                                       &count, nullptr),
              kEngineOK);
    EXPECT_EQ(read, resource);
}

TEST_F(EncodingTest, DamagedBinHexIsReportedAsDamage) {
    Bytes encoded = BinHex("doc", data, resource);
    encoded[encoded.size() / 2] = encoded[encoded.size() / 2] == 'A' ? 'B' : 'A';
    WriteFile(folder / "broken.hqx", encoded);
    EngineResult result = Expand(folder / "broken.hqx", Scratch("broken"));
    EXPECT_TRUE(result == kEngineItemDataDamaged || result == kEngineCatalogueDamaged ||
                result == kEngineArchiveTruncated)
        << result;
}

TEST_F(EncodingTest, TextEncodingsDecodeToTheSameBytes) {
    Decoded("payload.btoa", Btoa(data));
    EXPECT_TRUE(ReadFile(Scratch("out-payload.btoa") / "payload") == data);
    EXPECT_EQ(FormatOf(folder / "payload.btoa"), "btoa");

    Decoded("post.ync", Yenc("picture.bin", data));
    EXPECT_TRUE(ReadFile(Scratch("out-post.ync") / "picture.bin") == data);
    EXPECT_EQ(FormatOf(folder / "post.ync"), "yenc");
    WriteFile(folder / "spoiled.ync", Yenc("picture.bin", data, true));
    EXPECT_EQ(Expand(folder / "spoiled.ync", Scratch("spoiled")), kEngineItemDataDamaged);

    WriteFile(folder / "raw.dat", data);
    ASSERT_EQ(RunShell("base64 raw.dat > raw.b64", folder).status, 0);
    Decoded("raw.b64", ReadFile(folder / "raw.b64"));
    EXPECT_TRUE(ReadFile(Scratch("out-raw.b64") / "raw") == data);
}

TEST_F(EncodingTest, MimeMessagesGiveTheirAttachments) {
    WriteFile(folder / "attached.bin", data);
    Shell made = RunShell(
        "python3 -c \"\n"
        "from email.message import EmailMessage\n"
        "m = EmailMessage(); m['Subject'] = 'files'; m.set_content('Hello, see the files.')\n"
        "m.add_attachment(open('attached.bin', 'rb').read(), maintype='application', "
        "subtype='octet-stream', "
        "filename='attached.bin')\n"
        "m.add_attachment('Grüße aus Köln\\n', filename='Grüße.txt')\n"
        "open('message.mime', 'wb').write(bytes(m))\n\"",
        folder);
    ASSERT_EQ(made.status, 0) << made.output;
    EXPECT_EQ(FormatOf(folder / "message.mime"), "mime");
    fs::path out = Scratch("mime");
    ASSERT_EQ(Expand(folder / "message.mime", out), kEngineOK);
    std::map<std::string, std::string> got = Snapshot(out);
    EXPECT_EQ(got.size(), 2u);
    EXPECT_TRUE(ReadFile(out / "attached.bin") == data);
    EXPECT_EQ(got["Grüße.txt"], "Grüße aus Köln\n");
}

}  // namespace
}  // namespace enginetest
