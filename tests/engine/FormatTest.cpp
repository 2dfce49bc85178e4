// Telling formats by content: archives made by other tools, the magic of
// the kinds no tool here makes, and what is no archive at all.
#include "EngineFixture.h"

namespace enginetest {
namespace {

class FormatTest : public EngineTest {
protected:
    void SetUp() override {
        EngineTest::SetUp();
        folder = Scratch("formats");
        WriteFile(folder / "in" / "hello.txt", "hello, formats\n");
        WriteFile(folder / "in" / "sub" / "second.txt", "second\n");
    }
    // Makes an archive with a shell command run in the "in" folder.
    fs::path Made(const std::string &name, const std::string &command) {
        Shell made = RunShell(command, folder / "in");
        EXPECT_EQ(made.status, 0) << command << "\n" << made.output;
        return folder / name;
    }
    fs::path Bytes(const std::string &name, const std::string &bytes) {
        WriteFile(folder / name, bytes);
        return folder / name;
    }
    fs::path folder;
};

TEST_F(FormatTest, ArchivesOfOtherToolsAreToldByContentNotName) {
    struct Case {
        const char *name;
        const char *command;
        const char *id;
    };
    const Case cases[] = {
        {"a.zip", "zip -qr ../a.zip .", "zip"},
        {"b.7z", "7zz a -bd ../b.7z . >/dev/null", "sevenz"},
        {"c.tar", "bsdtar -cf ../c.tar .", "tar"},
        {"d.tgz", "bsdtar -czf ../d.tgz .", "tar"},
        {"e.tbz2", "bsdtar -cjf ../e.tbz2 .", "tar"},
        {"f.txz", "bsdtar -cJf ../f.txz .", "tar"},
        {"g.tzst", "bsdtar --zstd -cf ../g.tzst .", "tar"},
        {"h.tlz4", "bsdtar --lz4 -cf ../h.tlz4 .", "tar"},
        {"i.tz", "bsdtar -cZf ../i.tz .", "tar"},
        {"j.gtar", "bsdtar --format gnutar -cf ../j.gtar .", "tar"},
        {"k.cpio", "bsdtar --format cpio -cf ../k.cpio .", "cpio"},
        {"l.cpio.gz", "bsdtar --format newc -czf ../l.cpio.gz .", "cpio"},
        {"m.iso", "bsdtar --format iso9660 -cf ../m.iso .", "iso"},
        {"n.a", "bsdtar --format arsvr4 -cf ../n.a hello.txt", "ar"},
        {"o.xar", "bsdtar --format xar -cf ../o.xar .", "xar"},
        {"p.gz", "gzip -c hello.txt > ../p.gz", "gz"},
        {"q.bz2", "bzip2 -c hello.txt > ../q.bz2", "bz2"},
        {"r.xz", "xz -c hello.txt > ../r.xz", "xz"},
        {"s.lzma", "xz --format=lzma -c hello.txt > ../s.lzma", "lzma"},
        {"t.zst", "zstd -q -c hello.txt > ../t.zst", "zstd"},
        {"u.lz4", "lz4 -q -c hello.txt > ../u.lz4", "lz4"},
        {"v.Z", "bsdtar --format raw -cZf ../v.Z hello.txt", "compress"},
        {"w.uu", "bsdtar --format raw --uuencode -cf ../w.uu hello.txt", "uu"},
        {"x.b64", "bsdtar --format raw --b64encode -cf ../x.b64 hello.txt", "b64"},
    };
    for (const auto &c : cases) {
        fs::path made = Made(c.name, c.command);
        EXPECT_EQ(FormatOf(made), c.id) << c.name;
        // The name says nothing: the same bytes under another name.
        fs::path renamed = folder / (std::string("renamed-") + c.name + ".bin");
        fs::copy_file(made, renamed);
        EXPECT_EQ(FormatOf(renamed), c.id) << c.name << " renamed";
    }
}

TEST_F(FormatTest, KindsNoToolHereMakesAreToldByTheirHeaders) {
    std::string macBinary(256, '\0');
    macBinary[1] = 5;
    macBinary.replace(2, 5, "hello");
    macBinary.replace(65, 8, "TEXTttxt");
    macBinary[86] = 4;  // data fork of 4 bytes
    macBinary[122] = static_cast<char>(0x81);
    macBinary[123] = static_cast<char>(0x81);
    uint16_t crc = 0;
    for (int i = 0; i < 124; ++i) {
        crc ^= static_cast<uint16_t>(static_cast<uint8_t>(macBinary[i]) << 8);
        for (int bit = 0; bit < 8; ++bit)
            crc = static_cast<uint16_t>(crc & 0x8000 ? (crc << 1) ^ 0x1021 : crc << 1);
    }
    macBinary[124] = static_cast<char>(crc >> 8);
    macBinary[125] = static_cast<char>(crc & 0xFF);

    struct Case {
        std::string bytes;
        const char *id;
    };
    const Case cases[] = {
        {std::string("Rar!\x1A\x07\x00", 7) + std::string(64, 'x'), "rar"},
        {std::string("Rar!\x1A\x07\x01\x00", 8) + std::string(64, 'x'), "rar"},
        {std::string("MSCF\0\0\0\0", 8) + std::string(64, 'x'), "cab"},
        {std::string("\x1F\x00-lh5-", 7) + std::string(64, 'x'), "lha"},
        {std::string("\x60\xEA\x22\x00\x1E\x0B\x01\x02\x10\x00\x02", 11) + std::string(64, 'x'),
         "arj"},
        {std::string("\x1A\x08hello.txt\0\0\0\0", 15) + std::string(64, 'x'), "arc"},
        {std::string("\x1F\xA0", 2) + std::string(64, 'x'), "sco"},
        {std::string("\x1F\x9F", 2) + std::string(64, 'x'), "freeze"},
        {std::string("\xFF\x1F", 2) + std::string(64, 'x'), "compact"},
        {"(This file must be converted with BinHex 4.0)\n:" + std::string(64, 'A'), "hqx"},
        {macBinary, "bin"},
        {std::string("\x00\x05\x16\x00\x00\x02\x00\x00", 8) + std::string(64, 0), "apple"},
        {"xbtoa Begin\n" + std::string(64, 'a') + "\nxbtoa End N 1 1 E 1 S 1 R 1\n", "btoa"},
        {"=ybegin line=128 size=5 name=a.txt\nabcde\n=yend size=5\n", "yenc"},
        {"MIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=x\n\n--x\n", "mime"},
    };
    int n = 0;
    for (const auto &c : cases) {
        fs::path file = Bytes("crafted" + std::to_string(n++), c.bytes);
        EXPECT_EQ(FormatOf(file), c.id) << file;
    }
}

TEST_F(FormatTest, AnArchiveBehindAnExecutableIsFoundAndAPlainExecutableIsNoArchive) {
    fs::path program = folder / "program";
    fs::copy_file("/bin/true", program);
    EXPECT_EQ(FormatOf(program), "error " + std::to_string(kEngineNotAnArchive));

    fs::path zip = Made("inner.zip", "zip -qr ../inner.zip .");
    fs::path sfx = folder / "selfextracting";
    WriteFile(sfx, ReadFile(program) + ReadFile(zip));
    EXPECT_EQ(FormatOf(sfx), "zip");
    fs::path out = Scratch("sfx-out");
    ASSERT_EQ(Expand(sfx, out), kEngineOK);
    EXPECT_EQ(ReadFile(out / "hello.txt"), "hello, formats\n");

    fs::path seven = Made("inner.7z", "7zz a -bd ../inner.7z . >/dev/null");
    fs::path sevenSfx = folder / "seven-sfx";
    WriteFile(sevenSfx, ReadFile(program) + ReadFile(seven));
    EXPECT_EQ(FormatOf(sevenSfx), "sevenz");
}

TEST_F(FormatTest, TextAndEmptyFilesAreNoArchives) {
    const std::string notArchive = "error " + std::to_string(kEngineNotAnArchive);
    EXPECT_EQ(FormatOf(Bytes("empty", "")), notArchive);
    EXPECT_EQ(FormatOf(Bytes("text", "Just some words.\nAnd a second line.\n")), notArchive);
    EXPECT_EQ(FormatOf(Bytes("pk", "PK")), notArchive);
    EXPECT_EQ(FormatOf(folder / "missing"), "error 2");
    EXPECT_EQ(FormatOf(folder), "error 5");  // a folder
}

}  // namespace
}  // namespace enginetest
