// The vnkx catalogue body in both its layouts: item by item (version 0 and
// archives written before the column layout) and column by column (version
// 7): every field survives both, hostile column bodies are refused without
// being followed, and archives say which layout they hold.
#include <algorithm>
#include <functional>

#include "EngineFixture.h"
#include "VnkxLayout.h"
#include "VnkxMethods.h"

namespace enginetest {
namespace {

namespace vnkx = engine::vnkx;
using vnkx::Bytes;

std::array<std::uint8_t, vnkx::kHashSize> HashOf(const std::string &text) {
    return vnkx::Sha256(reinterpret_cast<const std::uint8_t *>(text.data()), text.size());
}

vnkx::ForkEntry Fork(std::uint8_t kind, std::vector<vnkx::Extent> extents,
                     const std::string &hashed) {
    vnkx::ForkEntry fork;
    fork.kind = kind;
    for (const vnkx::Extent &extent : extents) fork.size += extent.length;
    fork.extents = std::move(extents);
    fork.hash = HashOf(hashed);
    return fork;
}

vnkx::ItemEntry Item(std::uint8_t kind, const std::string &path, std::uint64_t modified) {
    vnkx::ItemEntry item;
    item.kind = kind;
    item.path = path;
    item.modified = modified;
    item.mode = kind == vnkx::kItemFolder ? 040755 : 0100644;
    return item;
}

vnkx::ItemEntry File(const std::string &path, std::uint64_t modified, vnkx::ForkEntry data) {
    vnkx::ItemEntry item = Item(vnkx::kItemFile, path, modified);
    item.size = data.size;
    item.forks.push_back(std::move(data));
    return item;
}

// Every kind of field a catalogue holds, with the steps between items going
// both ways: extents that go back (folded duplicates) and jump between
// blocks, times that fall, paths that share all, some or none of the one
// before.
vnkx::CatalogueBody EveryField() {
    vnkx::CatalogueBody body;
    body.comment = "Archive comment: Grüße";
    for (std::uint64_t size : {1000u, 5000u, 300u}) {
        vnkx::BlockEntry block;
        block.offset = 16 + 3 * size;
        block.unpackedSize = size;
        block.storedSize = size / 2;
        block.method = vnkx::kMethodZstd;
        block.crc = static_cast<std::uint32_t>(size * 7);
        block.sealNumber = size;
        body.blocks.push_back(block);
    }
    const std::uint64_t time = 133000000000000000ULL;
    body.items.push_back(Item(vnkx::kItemFolder, "docs", time));
    vnkx::ItemEntry noted = File("docs/a.txt", time + 5, Fork(0, {{0, 0, 100}}, "a"));
    noted.comment = "a comment";
    noted.legacyName = "A.TXT";
    body.items.push_back(noted);
    vnkx::ItemEntry mac =
        File("docs/b.bin", time - 100000, Fork(0, {{0, 100, 900}, {2, 0, 300}, {1, 0, 2000}}, "b"));
    mac.forks.push_back(Fork(vnkx::kForkOfResource, {{1, 2000, 120}}, "rsrc"));
    mac.forks.push_back(Fork(vnkx::kForkOfThumb, {{1, 2120, 80}}, "thumb"));
    mac.encrypted = true;
    body.items.push_back(mac);
    // The same contents as docs/a.txt, folded onto its extents.
    body.items.push_back(File("docs/ü/東京 ça.txt", 0, Fork(0, {{0, 0, 100}}, "a")));
    vnkx::ItemEntry link = Item(vnkx::kItemLink, "docs/link", ~0ULL - 3);
    link.linkTarget = "a.txt";
    link.mode = 0xFFFFFFFFu;
    body.items.push_back(link);
    body.items.push_back(Item(vnkx::kItemFolder, "docs", 1));  // all of the previous path
    body.items.push_back(File("empty", 0, Fork(0, {}, "")));
    body.items.push_back(File("zero", 0, Fork(0, {}, "")));
    // An item whose data fork is larger than its stated size.
    vnkx::ItemEntry odd = File("odd", 2, Fork(0, {{1, 3000, 2000}}, "odd"));
    odd.size = 10;
    body.items.push_back(odd);
    return body;
}

// Both layouts give back what was put in: compared through the item-by-item
// encoding, which keeps every field at its full width.
TEST(VnkxCatalogue, BothLayoutsKeepEveryField) {
    const vnkx::CatalogueBody empty;
    for (const vnkx::CatalogueBody &body : {EveryField(), empty}) {
        const Bytes rows = vnkx::EncodeCatalogue(body, 7, 0);
        for (std::uint16_t flags : {std::uint16_t(0), vnkx::kFlagColumnCatalogue}) {
            SCOPED_TRACE(flags);
            vnkx::CatalogueBody back;
            ASSERT_EQ(vnkx::DecodeCatalogue(vnkx::EncodeCatalogue(body, 7, flags), 7, flags, back),
                      kEngineOK);
            EXPECT_EQ(vnkx::EncodeCatalogue(back, 7, 0), rows);
        }
    }
    // A catalogue read in the wrong layout is damage, not another catalogue.
    vnkx::CatalogueBody back;
    EXPECT_EQ(vnkx::DecodeCatalogue(vnkx::EncodeCatalogue(EveryField(), 7, 0), 7,
                                    vnkx::kFlagColumnCatalogue, back),
              kEngineCatalogueDamaged);
}

// Version 0 keeps neither item comments nor forks other than data, in either
// layout, and refuses a comment it finds.
TEST(VnkxCatalogue, VersionZeroLeavesOutWhatItsReadersDoNotKnow) {
    for (std::uint16_t flags : {std::uint16_t(0), vnkx::kFlagColumnCatalogue}) {
        SCOPED_TRACE(flags);
        vnkx::CatalogueBody back;
        ASSERT_EQ(
            vnkx::DecodeCatalogue(vnkx::EncodeCatalogue(EveryField(), 0, flags), 0, flags, back),
            kEngineOK);
        EXPECT_FALSE(back.items[1].comment);
        EXPECT_EQ(back.items[2].forks.size(), 1u);
        vnkx::CatalogueBody commented;
        EXPECT_EQ(vnkx::DecodeCatalogue(vnkx::EncodeCatalogue(EveryField(), 7, flags), 0, flags,
                                        commented),
                  kEngineCatalogueDamaged);
    }
}

// A tree of a few thousand files in a few folders, as a source tree gives:
// the columns take a fraction of the rows' bytes before any packing.
TEST(VnkxCatalogue, ColumnsOfATypicalTreeAreAFractionOfTheRows) {
    vnkx::CatalogueBody body;
    vnkx::BlockEntry block;
    block.unpackedSize = 1ULL << 30;
    body.blocks.push_back(block);
    std::uint64_t at = 0;
    for (int i = 0; i < 3000; ++i) {
        std::uint64_t size = 1000 + (i * 7919) % 50000;
        std::string path =
            "project/src/module" + std::to_string(i / 100) + "/file" + std::to_string(i) + ".cpp";
        body.items.push_back(
            File(path, 133000000000000000ULL + i * 10000000ULL, Fork(0, {{0, at, size}}, path)));
        at += size;
    }
    std::size_t rows = vnkx::EncodeCatalogue(body, 7, 0).size();
    std::size_t columns = vnkx::EncodeCatalogue(body, 7, vnkx::kFlagColumnCatalogue).size();
    EXPECT_LT(columns * 10, rows * 6) << columns << " of " << rows;
}

// Column bodies written by hand, as a reader of the layout would find them:
// one file "f" of 10 bytes in the only block, then each field spoiled.
struct HandBody {
    std::uint32_t items = 1;
    std::uint64_t shared = 0;
    std::uint8_t forks = 1;
    std::uint64_t extents = 1;
    std::uint64_t blockStep = 0;  // zigzag
    std::uint64_t offsetStep = 0;
    std::uint64_t hashReference = 0;
    std::size_t hashes = 1;
    std::uint8_t kind = vnkx::kItemFile;
    std::uint64_t size = 10;
    Bytes sizeAsWritten;  // in place of the size's varint when not empty

    Bytes Encode() const {
        vnkx::Writer out;
        out.U8(0);  // no archive comment
        out.U32(1);
        vnkx::BlockEntry block;
        block.unpackedSize = 100;
        out.U64(block.offset);
        out.U64(block.storedSize);
        out.U64(block.unpackedSize);
        for (int i = 0; i < 4; ++i) out.U8(0);
        out.U32(vnkx::kNoKey);
        out.U64(0);
        out.U32(0);
        out.U32(items);
        out.U8(kind);
        out.U8(0);  // flags
        out.Varint(shared);
        out.VarText("f");
        if (sizeAsWritten.empty())
            out.Varint(size);
        else
            out.Raw(sizeAsWritten.data(), sizeAsWritten.size());
        out.Varint(0);  // time step
        out.Varint(0);  // mode
        out.U8(forks);
        for (std::uint8_t i = 0; i < forks; ++i) out.U8(vnkx::kForkOfData);
        for (std::uint8_t i = 0; i < forks; ++i) out.Varint(0);  // size step from the item's
        for (std::uint8_t i = 0; i < forks; ++i) out.Varint(extents);
        for (std::uint64_t i = 0; i < std::min<std::uint64_t>(extents, 4); ++i) {
            out.Varint(blockStep);
            out.Varint(offsetStep);
            if (i + 1 < extents) out.Varint(0);
        }
        for (std::uint8_t i = 0; i < forks; ++i) out.Varint(hashReference);
        for (std::size_t i = 0; i < hashes; ++i) {
            auto hash = HashOf("f");
            out.Raw(hash.data(), hash.size());
        }
        return out.bytes;
    }
};

EngineResult DecodeColumns(const Bytes &bytes, vnkx::CatalogueBody &body) {
    return vnkx::DecodeCatalogue(bytes, 7, vnkx::kFlagColumnCatalogue, body);
}

TEST(VnkxCatalogue, HostileColumnBodiesAreDamagedWithoutBeingFollowed) {
    const Bytes good = HandBody{}.Encode();
    vnkx::CatalogueBody body;
    ASSERT_EQ(DecodeColumns(good, body), kEngineOK);
    ASSERT_EQ(body.items.size(), 1u);
    EXPECT_EQ(body.items[0].path, "f");
    ASSERT_EQ(body.items[0].forks.size(), 1u);
    EXPECT_EQ(body.items[0].forks[0].extents[0].length, 10u);

    struct Case {
        const char *what;
        HandBody hand;
    };
    auto with = [](auto change) {
        HandBody hand;
        change(hand);
        return hand;
    };
    const Case cases[] = {
        {"more items than bytes", with([](HandBody &h) { h.items = 1u << 20; })},
        {"an item count past any limit", with([](HandBody &h) { h.items = 0xFFFFFFFFu; })},
        {"a shared prefix longer than the previous path", with([](HandBody &h) { h.shared = 1; })},
        {"a kind that does not exist", with([](HandBody &h) { h.kind = 3; })},
        {"forks without their extents", with([](HandBody &h) { h.forks = 200; })},
        {"more extents than bytes", with([](HandBody &h) { h.extents = 1000; })},
        {"an extent count past any limit", with([](HandBody &h) { h.extents = 1ULL << 40; })},
        {"no extents for bytes", with([](HandBody &h) { h.extents = 0; })},
        {"a block that is not listed", with([](HandBody &h) { h.blockStep = 2; })},
        {"a block before the first", with([](HandBody &h) { h.blockStep = 1; })},
        {"an extent beyond its block", with([](HandBody &h) { h.offsetStep = 2 * 95; })},
        {"a reference to a hash not yet seen", with([](HandBody &h) { h.hashReference = 1; })},
        {"a hash too many", with([](HandBody &h) { h.hashes = 2; })},
        {"a hash missing", with([](HandBody &h) { h.hashes = 0; })},
        {"a size that no block holds", with([](HandBody &h) { h.size = 101; })},
        {"a varint with bits beyond 64", with([](HandBody &h) {
             h.sizeAsWritten = {0x8A, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x02};
         })},
        {"a varint of 11 bytes", with([](HandBody &h) {
             h.sizeAsWritten = {0x8A, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x00};
         })},
    };
    for (const Case &bad : cases) {
        vnkx::CatalogueBody read;
        EXPECT_EQ(DecodeColumns(bad.hand.Encode(), read), kEngineCatalogueDamaged) << bad.what;
    }

    // Every cut and every spoiled byte of a full catalogue: refused or read,
    // never followed beyond its bytes.
    const Bytes full = vnkx::EncodeCatalogue(EveryField(), 7, vnkx::kFlagColumnCatalogue);
    for (std::size_t cut = 0; cut < full.size(); ++cut) {
        vnkx::CatalogueBody part;
        EXPECT_EQ(DecodeColumns(Bytes(full.begin(), full.begin() + cut), part),
                  kEngineCatalogueDamaged)
            << cut;
    }
    for (std::size_t at = 0; at < full.size(); ++at) {
        Bytes spoiled = full;
        spoiled[at] ^= 0xA5;
        vnkx::CatalogueBody any;
        DecodeColumns(spoiled, any);
    }
}

// -- archives ----------------------------------------------------------------

class VnkxCatalogueArchiveTest : public EngineTest {
protected:
    void SetUp() override {
        EngineTest::SetUp();
        tree = MakeSampleTree("src");
        folder = Scratch("catalogue");
    }
    fs::path Made(const std::string &name, const char *format = "vnkx") {
        fs::path archive = folder / name;
        EXPECT_EQ(Create(format, {tree}, archive), kEngineOK) << name;
        return archive;
    }
    static std::uint16_t FlagsAt(const std::string &bytes, std::size_t at) {
        return static_cast<std::uint16_t>(static_cast<std::uint8_t>(bytes[at]) |
                                          static_cast<std::uint8_t>(bytes[at + 1]) << 8);
    }
    void ExpectFlag(const fs::path &archive, bool columns) {
        std::string bytes = ReadFile(archive);
        ASSERT_GT(bytes.size(), vnkx::kHeaderSize + vnkx::kTrailerSize);
        std::uint16_t header = FlagsAt(bytes, 10);
        std::uint16_t trailer = FlagsAt(bytes, bytes.size() - vnkx::kTrailerSize + 6);
        EXPECT_EQ((header & vnkx::kFlagColumnCatalogue) != 0, columns) << archive;
        EXPECT_EQ((trailer & vnkx::kFlagColumnCatalogue) != 0, columns) << archive;
    }
    fs::path tree, folder;
};

TEST_F(VnkxCatalogueArchiveTest, TheLatestVersionStoresColumnsTheFirstRows) {
    ExpectFlag(Made("latest.vnkx"), true);
    ExpectFlag(Made("classic.vnk", "vnk5"), false);
    ASSERT_EQ(SetFormatIntegerProperty(engine, "vnkx", kFormatPropMaxVersion, 0), kEngineOK);
    ExpectFlag(Made("first.vnkx"), false);
}

// The archive with its catalogue written anew in the given layout (0: item
// by item, as earlier writers stored it), after `edit`, and the flags,
// hashes and trailer to match: an archive as a writer could have made it.
Bytes WithCatalogue(const Bytes &archive, std::uint16_t layout,
                    const std::function<void(vnkx::CatalogueBody &)> &edit = {}) {
    vnkx::Trailer trailer;
    vnkx::CatalogueBody body;
    ReadPlainCatalogue(archive, trailer, body);
    EXPECT_EQ(trailer.recoverySize, 0u);
    if (edit) edit(body);
    Bytes rows = vnkx::EncodeCatalogue(body, trailer.version, layout), packed;
    void *state = nullptr;
    EXPECT_TRUE(vnkx::Compress({vnkx::kMethodZstd, 1, 22}, rows, packed, state));
    vnkx::FreeCoderState(state);

    Bytes out(archive.begin(), archive.begin() + trailer.catalogueOffset);
    out[10] = static_cast<std::uint8_t>((out[10] & ~vnkx::kFlagColumnCatalogue) | layout);
    vnkx::Writer region;
    region.Raw(vnkx::kCatalogueMagic, 4);
    region.U32(0);
    region.U8(vnkx::kCipherNone);
    region.U32(vnkx::kNoKey);
    region.U64(rows.size());
    region.U64(packed.size());
    region.Raw(packed.data(), packed.size());
    out.insert(out.end(), region.bytes.begin(), region.bytes.end());
    trailer.flags =
        static_cast<std::uint16_t>((trailer.flags & ~vnkx::kFlagColumnCatalogue) | layout);
    trailer.catalogueSize = region.bytes.size();
    trailer.catalogueHash = vnkx::Sha256(region.bytes.data(), region.bytes.size());
    trailer.archiveLength = out.size() + vnkx::kTrailerSize;
    Bytes closing = vnkx::EncodeTrailer(trailer);
    out.insert(out.end(), closing.begin(), closing.end());
    return out;
}

// The catalogue of an archive written in columns, put back item by item: the
// archive lists and expands as before, and the second reader reads it.
TEST_F(VnkxCatalogueArchiveTest, ArchivesWithTheirCatalogueItemByItemStillRead) {
    fs::path latest = Made("latest.vnkx");
    std::string bytes = ReadFile(latest);
    Bytes rewritten = WithCatalogue(Bytes(bytes.begin(), bytes.end()), 0);
    fs::path old = folder / "old.vnkx";
    WriteFile(old, std::string(rewritten.begin(), rewritten.end()));
    ExpectFlag(old, false);

    std::vector<std::wstring> listing;
    {
        OpenedArchive opened(engine, latest);
        ASSERT_EQ(opened.status(), kEngineOK);
        listing = opened.Listing();
    }
    OpenedArchive opened(engine, old);
    ASSERT_EQ(opened.status(), kEngineOK);
    EXPECT_EQ(opened.Listing(), listing);
    fs::path out = Scratch("out-old");
    ASSERT_EQ(Expand(old, out), kEngineOK);
    EXPECT_EQ(Snapshot(out / "src"), Snapshot(tree));

    const std::string reader =
        Quote(fs::path(VARNICK_SOURCE_DIR) / "engine" / "formats" / "vnkx" / "read_layout.py");
    for (const fs::path &archive : {latest, old}) {
        Shell run = RunShell("python3 " + reader + " " + Quote(archive) + " 2>&1");
        EXPECT_EQ(run.status, 0) << run.output;
        const char *layout = archive == old ? "catalogue items" : "catalogue columns";
        EXPECT_NE(run.output.find(layout), std::string::npos) << run.output;
    }
}

// Sound blocks whose bytes do not match an item's hash (the catalogue says
// otherwise): the item is damaged whether its block was hashed by a thread
// decoding ahead (the last block the items use; the first is decoded on the
// walk) or on the walk itself.
TEST_F(VnkxCatalogueArchiveTest, AnItemUnlikeItsHashIsDamagedWithOrWithoutThreads) {
    WriteFile(tree / "zz" / "later.bin", std::string(3 << 20, '\x5A'));  // a block of its own
    std::string bytes = ReadFile(Made("latest.vnkx"));
    std::string spoiled;
    std::uint32_t spoiledBlock = 0;
    auto spoil = [&](vnkx::CatalogueBody &body) {
        for (auto item = body.items.rbegin(); item != body.items.rend(); ++item)
            if (item->kind == vnkx::kItemFile && item->size > 0 &&
                item->forks.at(0).extents.size() == 1) {
                item->forks[0].hash[0] ^= 1;
                spoiled = item->path;
                spoiledBlock = item->forks[0].extents[0].block;
                return;
            }
    };
    Bytes edited =
        WithCatalogue(Bytes(bytes.begin(), bytes.end()), vnkx::kFlagColumnCatalogue, spoil);
    ASSERT_FALSE(spoiled.empty());
    vnkx::Trailer trailer;
    vnkx::CatalogueBody body;
    ReadPlainCatalogue(edited, trailer, body);
    std::uint32_t firstBlock = 0;
    for (const vnkx::ItemEntry &item : body.items)
        if (!item.forks.empty() && !item.forks[0].extents.empty()) {
            firstBlock = item.forks[0].extents[0].block;
            break;
        }
    EXPECT_NE(spoiledBlock, firstBlock) << spoiled << ": not in a block decoded ahead";
    fs::path archive = folder / "spoiled.vnkx";
    WriteFile(archive, std::string(edited.begin(), edited.end()));
    for (bool threads : {true, false}) {
        SCOPED_TRACE(threads);
        ASSERT_EQ(SetEngineBooleanProperty(engine, kEnginePropUseThreads, threads), kEngineOK);
        OwnedFS file = Path(archive);
        EXPECT_EQ(VerifyArchive(engine, file.get(), nullptr), kEngineItemDataDamaged);
        fs::path out = Scratch(threads ? "out-threads" : "out-one");
        EXPECT_EQ(Expand(archive, out), kEngineItemDataDamaged);
    }
}

}  // namespace
}  // namespace enginetest
