// Encoding files as uu, base64, btoa, yEnc, MIME, BinHex, MacBinary and
// AppleSingle: read back by the engine's own decoders and by other tools.
#include "EngineFixture.h"
#include "platform/WideText.h"

namespace enginetest {
namespace {

struct Encoding {
    const char *id;
    const char *extension;
    bool keepsName;
};

const Encoding kEncodings[] = {
    {"uu", ".uue", true},    {"b64", ".b64", false},  {"btoa", ".btoa", false},
    {"yenc", ".yenc", true}, {"mime", ".mime", true}, {"hqx", ".hqx", true},
    {"bin", ".bin", true},   {"apple", ".as", true},
};

std::string Be16(uint32_t v) { return {static_cast<char>(v >> 8), static_cast<char>(v)}; }
std::string Be32(uint32_t v) { return Be16(v >> 16) + Be16(v & 0xFFFF); }

// Every byte value, and the runs that run-length coding, btoa's "z" and
// yEnc's escapes treat apart.
std::string EveryByte() {
    std::string bytes;
    for (int i = 0; i < 256; ++i) bytes += static_cast<char>(i);
    bytes += std::string(300, 'A') + std::string(7, '\x90') + std::string(2, '\x90') + "x" +
             std::string(8, '\0');
    for (int i = 255; i >= 0; --i) bytes += static_cast<char>(i);
    return bytes;
}

std::vector<std::string> LinesOf(const std::string &text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        lines.push_back(line);
        start = end + 1;
    }
    return lines;
}

class EncodersTest : public EngineTest {
protected:
    void SetUp() override {
        EngineTest::SetUp();
        folder = Scratch("sources");
        out = Scratch("encoded");
        WriteFile(folder / "blob.bin", EveryByte());
        WriteFile(folder / "empty.dat", "");
        WriteFile(folder / "Grüße ü.bin", "non-ASCII name\n" + EveryByte());
    }

    // Creates from sources named in UTF-8 (the fixture's paths convert
    // through the "C" locale, which takes ASCII only).
    EngineResult CreateUtf8(const char *id, const std::vector<fs::path> &sources,
                            const fs::path &output, fs::path *written = nullptr) {
        OwnedFSList list;
        EXPECT_EQ(NewFSObjectList(engine, list.out()), kEngineOK);
        for (const fs::path &source : sources) {
            OwnedFS item;
            std::wstring wide = platform::FromUtf8(source.string());
            EXPECT_EQ(NewFSObjectFromUnicodePath(wide.c_str(), item.out()), kEngineOK);
            EXPECT_EQ(AddFSObjectToFSObjectList(engine, item.get(), list.get()), kEngineOK);
        }
        OwnedFS target = Path(output);
        OwnedFS result;
        EngineResult status =
            ArchiveFSObjectList(engine, id, list.get(), target.get(), result.out(), nullptr);
        if (status == kEngineOK && written)
            *written = fs::path(platform::ToUtf8(PathOf(result.get())));
        return status;
    }

    fs::path Encoded(const char *id, const fs::path &source, const std::string &name) {
        fs::path written;
        EXPECT_EQ(CreateUtf8(id, {source}, out / name, &written), kEngineOK) << id << " " << name;
        return written;
    }

    // The files an expansion gives, by name, with their bytes.
    std::map<std::string, std::string> Decoded(const fs::path &encoded) {
        fs::path destination = Scratch("decoded-" + encoded.filename().string());
        EXPECT_EQ(Expand(encoded, destination), kEngineOK) << encoded;
        std::map<std::string, std::string> files;
        for (const auto &entry : fs::recursive_directory_iterator(destination))
            if (entry.is_regular_file())
                files[entry.path().lexically_relative(destination).string()] =
                    ReadFile(entry.path());
        return files;
    }

    // A hand-made AppleSingle file with both forks.
    fs::path AppleSingleWithForks(const std::string &name, const std::string &data,
                                  const std::string &resource) {
        std::string header = Be32(0x00051600) + Be32(0x00020000) + std::string(16, '\0') + Be16(3);
        uint32_t at = 26 + 3 * 12;
        header += Be32(3) + Be32(at) + Be32(static_cast<uint32_t>(name.size()));
        at += static_cast<uint32_t>(name.size());
        header += Be32(2) + Be32(at) + Be32(static_cast<uint32_t>(resource.size()));
        at += static_cast<uint32_t>(resource.size());
        header += Be32(1) + Be32(at) + Be32(static_cast<uint32_t>(data.size()));
        fs::path file = folder / "forks.as";
        WriteFile(file, header + name + resource + data);
        return file;
    }

    std::string ResourceFork(const fs::path &archive, const std::wstring &item) {
        OpenedArchive opened(engine, archive);
        EXPECT_EQ(opened.status(), kEngineOK) << archive;
        OwnedItem object = opened.Item(item);
        ArchiveObjectFork fork = nullptr;
        if (GetArchiveObjectFork(object.get(), kForkResource, &fork) != kEngineOK) return "<none>";
        uint64_t size = 0;
        EXPECT_EQ(GetArchiveObjectForkSize(fork, &size), kEngineOK);
        std::string bytes(size, '\0');
        uint64_t count = 0;
        EXPECT_EQ(GetArchiveObjectForkData(engine, fork, bytes.data(), static_cast<uint32_t>(size),
                                           0, &count, nullptr),
                  kEngineOK);
        return bytes.substr(0, count);
    }

    fs::path folder, out;
};

TEST_F(EncodersTest, EveryEncodingRoundTripsThroughTheEnginesDecoderByteForByte) {
    const std::string sources[] = {"blob.bin", "empty.dat", "Grüße ü.bin"};
    for (const Encoding &encoding : kEncodings) {
        int n = 0;
        for (const std::string &source : sources) {
            std::string name = std::string(encoding.id) + "-" + std::to_string(n++);
            // Plain base64 of an empty file is an empty file: nothing to recognise.
            if (std::string(encoding.id) == "b64" && source == "empty.dat") continue;
            if (!encoding.keepsName && source != "blob.bin" && source != "empty.dat") continue;
            fs::path written = Encoded(encoding.id, folder / source, name);
            EXPECT_EQ(written, out / (name + encoding.extension));
            EXPECT_EQ(FormatOf(written), encoding.id) << name;
            std::map<std::string, std::string> got = Decoded(written);
            std::string expectedName = encoding.keepsName ? source : name;
            ASSERT_EQ(got.size(), 1u) << name;
            EXPECT_EQ(got.begin()->first, expectedName) << name;
            EXPECT_TRUE(got.begin()->second == ReadFile(folder / source))
                << name << " " << got.begin()->second.size();
        }
    }
    // Cut before its "end", a uu file is truncated rather than shorter data.
    std::string uu = ReadFile(out / "uu-0.uue");
    WriteFile(out / "cut.uue", uu.substr(0, uu.size() / 2));
    EXPECT_EQ(Expand(out / "cut.uue", Scratch("cut")), kEngineArchiveTruncated);
}

TEST_F(EncodersTest, LinesKeepTheLengthsReadersExpect) {
    const std::pair<const char *, std::size_t> longest[] = {
        {"uu", 61}, {"b64", 76}, {"btoa", 78}, {"yenc", 129}, {"hqx", 64}, {"mime", 76},
    };
    for (const auto &[id, limit] : longest) {
        std::string text = ReadFile(Encoded(id, folder / "blob.bin", std::string("lines-") + id));
        for (const std::string &line : LinesOf(text)) {
            if (line.rfind("=ybegin", 0) == 0 || line.rfind("=yend", 0) == 0 ||
                line.rfind("xbtoa End", 0) == 0 || line.find(':') != std::string::npos ||
                line.rfind("(This", 0) == 0)
                continue;
            EXPECT_LE(line.size(), limit) << id << ": " << line;
        }
    }
    std::vector<std::string> binhex =
        LinesOf(ReadFile(Encoded("hqx", folder / "blob.bin", "colons")));
    ASSERT_GE(binhex.size(), 3u);
    EXPECT_EQ(binhex[0], "(This file must be converted with BinHex 4.0)");
    EXPECT_EQ(binhex[1].size(), 64u);
    EXPECT_EQ(binhex[1][0], ':');
    EXPECT_EQ(binhex.back().back(), ':');
}

TEST_F(EncodersTest, BtoaAndYencMatchHandComputedVectors) {
    // btoa: a word of zeros is "z"; "ABC" is padded to 0x41424300, which is
    // 20 82 67 79 28 in base 85; the sums run over the padded bytes.
    WriteFile(folder / "v.bin", std::string("\0\0\0\0ABC", 7));
    EXPECT_EQ(ReadFile(Encoded("btoa", folder / "v.bin", "vector")),
              "xbtoa Begin\nz5sdp=\nxbtoa End N 7 7 E 40 S ce R 396\n");

    // yEnc adds 42: a leading "." is escaped (=n), so are NUL (=@), LF (=J),
    // "=" (=}) and a space that ends the line (=`).
    WriteFile(folder / "y.bin", std::string("\x04\x00\xD6\xE0\x13\x41\xF6", 7));
    EXPECT_EQ(ReadFile(Encoded("yenc", folder / "y.bin", "vector")),
              "=ybegin line=128 size=7 name=y.bin\n=n*=@=J=}k=`\n=yend size=7 crc32=1a3504e8\n");
}

TEST_F(EncodersTest, TextEncodingsAreReadByOtherTools) {
    std::string blob = ReadFile(folder / "blob.bin");
    fs::path uu = Encoded("uu", folder / "blob.bin", "tool");
    Shell decoded = RunShell(
        "python3 -c \"\n"
        "import binascii, sys\n"
        "lines = open(sys.argv[1], 'rb').read().split(b'\\n')\n"
        "assert lines[0] == b'begin 644 blob.bin', lines[0]\n"
        "end = lines.index(b'end')\n"
        "sys.stdout.buffer.write(b''.join(binascii.a2b_uu(l) for l in lines[1:end]))\n\" " +
        Quote(uu));
    EXPECT_EQ(decoded.status, 0) << decoded.output.substr(0, 300);
    EXPECT_TRUE(decoded.output == blob);

    fs::path b64 = Encoded("b64", folder / "blob.bin", "tool");
    decoded = RunShell("base64 -d " + Quote(b64));
    EXPECT_EQ(decoded.status, 0);
    EXPECT_TRUE(decoded.output == blob);

    // One message, every file an attachment under its name.
    fs::path written;
    ASSERT_EQ(
        CreateUtf8("mime", {folder / "blob.bin", folder / "empty.dat", folder / "Grüße ü.bin"},
                   out / "message", &written),
        kEngineOK);
    decoded = RunShell(
        "python3 -c \"\n"
        "import email, email.policy, sys, hashlib\n"
        "m = email.message_from_binary_file(open(sys.argv[1], 'rb'), policy=email.policy.default)\n"
        "assert m.is_multipart() and not m.defects, m.defects\n"
        "for part in m.iter_attachments():\n"
        "    data = part.get_payload(decode=True)\n"
        "    print(part.get_filename(), len(data), hashlib.sha256(data).hexdigest())\n\" " +
        Quote(written));
    ASSERT_EQ(decoded.status, 0) << decoded.output;
    std::string expected;
    for (const std::string name : {"blob.bin", "empty.dat", "Grüße ü.bin"}) {
        Shell digest = RunShell("sha256sum " + Quote(folder / name));
        expected += name + " " + std::to_string(ReadFile(folder / name).size()) + " " +
                    digest.output.substr(0, 64) + "\n";
    }
    EXPECT_EQ(decoded.output, expected);
    EXPECT_EQ(Decoded(written).size(), 3u);
}

TEST_F(EncodersTest, MacEncodingsCarryTheResourceForkFromFormatToFormat) {
    const std::string data = "the data fork\n", resource = std::string("\0\0\1\0rsrc", 8) + "fork";
    fs::path source = AppleSingleWithForks("Icon Doc", data, resource);
    const std::pair<const char *, const char *> chain[] = {
        {"hqx", "forks.hqx"}, {"bin", "forks.bin"}, {"apple", "forks_1.as"}};
    fs::path previous = source;
    for (const auto &[id, expected] : chain) {
        OwnedFS file = Path(previous);
        OwnedFS result;
        ASSERT_EQ(
            TransformArchive(engine, file.get(), nullptr, result.out(), id, nullptr, nullptr, 1, 0),
            kEngineOK)
            << id;
        fs::path written(platform::ToUtf8(PathOf(result.get())));
        EXPECT_EQ(written, folder / expected);
        EXPECT_EQ(ResourceFork(written, L"Icon Doc"), resource) << id;
        std::map<std::string, std::string> got = Decoded(written);
        EXPECT_EQ(got["Icon Doc"], data) << id;
        previous = written;
    }

    // A file from the disk has no resource fork. MacBinary II as another
    // reader checks it: header CRC (CRC-CCITT), versions, lengths, padding.
    fs::path bin = Encoded("bin", folder / "blob.bin", "plain");
    EXPECT_EQ(ResourceFork(bin, L"blob.bin"), "<none>");
    Shell checked = RunShell(
        "python3 -c \"\n"
        "import binascii, sys\n"
        "b = open(sys.argv[1], 'rb').read()\n"
        "assert binascii.crc_hqx(b[:124], 0) == int.from_bytes(b[124:126], 'big'), 'crc'\n"
        "assert b[122] == b[123] == 0x81 and b[0] == 0 and b[2:2 + b[1]] == b'blob.bin'\n"
        "data = int.from_bytes(b[83:87], 'big'); rsrc = int.from_bytes(b[87:91], 'big')\n"
        "assert rsrc == 0 and len(b) == 128 + (data + 127) // 128 * 128, len(b)\n"
        "sys.stdout.buffer.write(b[128:128 + data])\n\" " +
        Quote(bin));
    EXPECT_EQ(checked.status, 0) << checked.output.substr(0, 300);
    EXPECT_TRUE(checked.output == EveryByte());
}

TEST_F(EncodersTest, SingleFileEncodingsTakeExactlyOneFile) {
    fs::path tree = MakeSampleTree();
    for (const char *id : {"uu", "b64", "btoa", "yenc", "hqx", "bin", "apple"}) {
        EXPECT_EQ(Create(id, {tree}, out / (std::string("folder-") + id)),
                  kEngineItemKindUnsupported)
            << id;
        EXPECT_EQ(Create(id, {folder / "blob.bin", folder / "empty.dat"},
                         out / (std::string("two-") + id)),
                  kEngineTooManyItems)
            << id;
    }
    EXPECT_TRUE(fs::is_empty(out));
    // A message takes the files below a folder as attachments.
    std::wstring written;
    ASSERT_EQ(Create("mime", {tree}, out / "tree", &written), kEngineOK);
    std::size_t files = 0;
    for (const auto &[path, contents] : Snapshot(tree))
        if (contents != "<dir>" && contents.rfind("-> ", 0) != 0) ++files;
    EXPECT_EQ(Decoded(fs::path(platform::ToUtf8(written))).size(), files);
}

}  // namespace
}  // namespace enginetest
