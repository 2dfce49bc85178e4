// Enciphered archives: the (200,9) loop, a password given with the call, a
// refusal, and VerifyArchivePassword.
#include <algorithm>
#include <string>

#include "ByteOrder.h"
#include "EngineFixture.h"
#include "ZipTraditionalCipher.h"

namespace enginetest {
namespace {

class PasswordTest : public EngineTest {
protected:
    void SetUp() override {
        EngineTest::SetUp();
        folder = Scratch("enc");
        WriteFile(folder / "in" / "secret.txt", "the secret contents\n");
        WriteFile(folder / "in" / "plain" / "other.txt", std::string(100000, 'x'));
    }
    fs::path Made(const std::string &name, const std::string &command) {
        Shell made = RunShell(command, folder / "in");
        EXPECT_EQ(made.status, 0) << command << "\n" << made.output;
        return folder / name;
    }
    // Answers with the given passwords in turn and records which item asked.
    void Answer(Recorder &recorder, std::vector<std::wstring> passwords,
                std::vector<std::wstring> &askedBy) {
        recorder.On(
            200, 9,
            [this, passwords, &askedBy, n = std::size_t(0)](NotificationContext context) mutable {
                ArchiveObject item = nullptr;
                EXPECT_EQ(GetDataFromContext(context, kContextArchiveObject, &item, sizeof item),
                          kEngineOK);
                StringRef name = nullptr;
                if (AcquireArchiveObjectName(item, &name) == kEngineOK) {
                    askedBy.push_back(TextOf(name));
                    DisposeStringRef(name);
                }
                if (n >= passwords.size()) return kNotificationStop;
                return GivePassword(context, passwords[n++]);
            });
    }
    // A copy of `archive` with the byte in its middle changed.
    fs::path DamagedCopy(const fs::path &archive) {
        std::string bytes = ReadFile(archive);
        bytes[bytes.size() / 2] ^= 0x40;
        fs::path damaged = Scratch("damaged") / archive.filename();
        WriteFile(damaged, bytes);
        return damaged;
    }
    // Expands `archive`, answering the password questions with `secret`.
    EngineResult ExpandWithSecret(const fs::path &archive, const fs::path &out) {
        Recorder recorder(engine);
        std::vector<std::wstring> askedBy;
        Answer(recorder, {L"secret"}, askedBy);
        return Expand(archive, out);
    }
    fs::path folder;
};

TEST_F(PasswordTest, AWrongPasswordIsAskedForAgainForTheSameItemUntilRight) {
    const std::pair<const char *, const char *> kinds[] = {
        {"traditional.zip", "zip -q -r -P secret ../traditional.zip ."},
        {"aes.zip", "7zz a -bd -tzip -psecret -mem=AES256 ../aes.zip . >/dev/null"},
        {"aes128.zip", "7zz a -bd -tzip -psecret -mem=AES128 ../aes128.zip . >/dev/null"},
        {"bsdtar-aes.zip",
         "bsdtar --format zip --options zip:encryption=aes256 --passphrase secret -cf "
         "../bsdtar-aes.zip ."},
        {"bsdtar-traditional.zip",
         "bsdtar --format zip --options zip:encryption=zipcrypt --passphrase secret -cf "
         "../bsdtar-traditional.zip ."},
        // Methods libarchive does not decipher: the engine does.
        {"aes-bzip2.zip",
         "7zz a -bd -tzip -psecret -mem=AES256 -mm=BZip2 ../aes-bzip2.zip . >/dev/null"},
        {"aes192-lzma.zip",
         "7zz a -bd -tzip -psecret -mem=AES192 -mm=LZMA ../aes192-lzma.zip . >/dev/null"},
        {"traditional-ppmd.zip",
         "7zz a -bd -tzip -psecret -mem=ZipCrypto -mm=PPMd ../traditional-ppmd.zip . >/dev/null"},
        {"traditional-deflate64.zip",
         "7zz a -bd -tzip -psecret -mem=ZipCrypto -mm=Deflate64 "
         "../traditional-deflate64.zip . >/dev/null"},
    };
    for (const auto &[name, command] : kinds) {
        fs::path archive = Made(name, command);
        Recorder recorder(engine);
        std::vector<std::wstring> askedBy;
        Answer(recorder, {L"wrong", L"also wrong", L"secret"}, askedBy);
        fs::path out = Scratch(std::string("out-") + name);
        ASSERT_EQ(Expand(archive, out), kEngineOK) << name;
        EXPECT_EQ(ReadFile(out / "secret.txt"), "the secret contents\n") << name;
        EXPECT_EQ(ReadFile(out / "plain" / "other.txt"), std::string(100000, 'x')) << name;
        ASSERT_GE(askedBy.size(), 3u) << name;
        // The first item asks three times; the password that fitted is
        // offered to the next ones without asking.
        EXPECT_EQ(askedBy[0], askedBy[1]);
        EXPECT_EQ(askedBy[1], askedBy[2]);
        EXPECT_EQ(askedBy.size(), 3u) << name;
    }
}

// One wrong password in 256 passes the traditional cipher's check byte; the
// start of the item, decoded, tells it from the right one.
TEST_F(PasswordTest, AWrongPasswordThatPassesTheCheckByteIsAskedAgain) {
    const std::string bytes =
        ReadFile(Made("check.zip", "zip -q -P secret ../check.zip secret.txt"));
    const auto *local = reinterpret_cast<const std::uint8_t *>(bytes.data());
    const std::uint16_t flags = engine::Le16(local + 6);
    const std::uint8_t check = static_cast<std::uint8_t>(
        flags & 0x0008 ? engine::Le16(local + 10) >> 8 : engine::Le32(local + 14) >> 24);
    const std::uint8_t *header = local + 30 + engine::Le16(local + 26) + engine::Le16(local + 28);
    std::string fitting;
    for (int n = 0; fitting.empty() && n < 100000; ++n) {
        engine::ZipTraditionalCipher cipher;
        std::string candidate = "wrong-" + std::to_string(n);
        if (cipher.StartDecrypting(candidate, check, header)) fitting = candidate;
    }
    ASSERT_FALSE(fitting.empty());
    Recorder recorder(engine);
    std::vector<std::wstring> askedBy;
    Answer(recorder, {std::wstring(fitting.begin(), fitting.end()), L"secret"}, askedBy);
    fs::path out = Scratch("out-check");
    ASSERT_EQ(Expand(folder / "check.zip", out), kEngineOK);
    EXPECT_EQ(ReadFile(out / "secret.txt"), "the secret contents\n");
    EXPECT_EQ(askedBy.size(), 2u);
}

// The items the engine deciphers itself hold their damage against the
// authentication code (AES) or the CRC (traditional), also when only the
// password is being checked.
TEST_F(PasswordTest, DamageInZipItemsTheEngineDeciphersIsFound) {
    // Past the first MiB: nearer the start, damage to a traditional item
    // cannot be told from a wrong password, and the password is asked again.
    ASSERT_EQ(RunShell("head -c 3000000 /dev/urandom > noise.bin", folder / "in").status, 0);
    const std::pair<const char *, const char *> kinds[] = {
        {"aes-bzip2.zip",
         "7zz a -bd -tzip -psecret -mem=AES256 -mm=BZip2 ../aes-bzip2.zip "
         "noise.bin >/dev/null"},
        {"traditional-lzma.zip",
         "7zz a -bd -tzip -psecret -mem=ZipCrypto -mm=LZMA "
         "../traditional-lzma.zip noise.bin >/dev/null"},
    };
    for (const auto &[name, command] : kinds) {
        fs::path damaged = DamagedCopy(Made(name, command));
        EXPECT_EQ(ExpandWithSecret(damaged, Scratch(std::string("out-") + name)),
                  kEngineItemDataDamaged)
            << name;
        // The right password on damaged data is damage, not a wrong password.
        OwnedFS file = Path(damaged);
        EngineArchive bound = nullptr;
        ASSERT_EQ(AcquireArchive(engine, file.get(), &bound), kEngineOK);
        OwnedString right = Text(L"secret");
        EXPECT_EQ(VerifyArchivePassword(engine, bound, right.get()), kEngineItemDataDamaged)
            << name;
        ReleaseArchive(bound);
    }
}

TEST_F(PasswordTest, Enciphered7zIsDecipheredItemsAndCatalogueAlike) {
    fs::copy_file("/bin/true", folder / "in" / "program");  // 7-Zip filters executables
    const std::pair<const char *, const char *> kinds[] = {
        {"items.7z", "7zz a -bd -psecret ../items.7z . >/dev/null"},
        {"stored.7z", "7zz a -bd -psecret -m0=copy ../stored.7z secret.txt plain >/dev/null"},
        {"solid.7z", "7zz a -bd -psecret -mx9 ../solid.7z secret.txt plain >/dev/null"},
    };
    for (const auto &[name, command] : kinds) {
        fs::path archive = Made(name, command);
        Recorder recorder(engine);
        std::vector<std::wstring> askedBy;
        Answer(recorder, {L"wrong", L"secret"}, askedBy);
        fs::path out = Scratch(std::string("out-") + name);
        ASSERT_EQ(Expand(archive, out), kEngineOK) << name;
        std::map<std::string, std::string> expected = Snapshot(folder / "in");
        if (std::string(name) != "items.7z") expected.erase("program");
        EXPECT_EQ(Snapshot(out), expected) << name;
        EXPECT_EQ(askedBy.size(), 2u) << name;
    }

    // Enciphered chains of other shapes: the four-stream branch filter (BCJ2)
    // of the strongest setting, and the other coders 7-Zip offers, each
    // behind the branch filter it puts before executables (PPMd through
    // libarchive). A damaged byte in the middle of the packed data shows.
    fs::copy_file(VARNICK_BIN_DIR "/varnick", folder / "in" / "tool");
    const std::pair<const char *, const char *> chains[] = {
        {"bcj2.7z", "7zz a -bd -psecret -mx9 ../bcj2.7z program tool secret.txt >/dev/null"},
        {"bzip2.7z", "7zz a -bd -psecret -m0=BZip2 ../bzip2.7z program tool >/dev/null"},
        {"deflate.7z", "7zz a -bd -psecret -m0=Deflate ../deflate.7z program tool >/dev/null"},
        {"deflate64.7z",
         "7zz a -bd -psecret -m0=Deflate64 ../deflate64.7z program tool >/dev/null"},
        {"ppmd.7z", "7zz a -bd -psecret -m0=PPMd:mem=16m ../ppmd.7z program tool >/dev/null"},
    };
    for (const auto &[name, command] : chains) {
        fs::path archive = Made(name, command);
        fs::path out = Scratch(std::string("out-") + name);
        {
            Recorder recorder(engine);
            std::vector<std::wstring> askedBy;
            Answer(recorder, {L"wrong", L"secret"}, askedBy);
            ASSERT_EQ(Expand(archive, out), kEngineOK) << name;
            EXPECT_EQ(askedBy.size(), 2u) << name;
        }
        EXPECT_EQ(ReadFile(out / "tool"), ReadFile(folder / "in" / "tool")) << name;
        EXPECT_EQ(ReadFile(out / "program"), ReadFile("/bin/true")) << name;

        EXPECT_EQ(
            ExpandWithSecret(DamagedCopy(archive), Scratch(std::string("out-damaged-") + name)),
            kEngineItemDataDamaged)
            << name;
    }
    {
        // The byte swap filter behind the cipher; a coder no reader here has
        // (the RISC-V branch filter): a clear code.
        fs::path swapped = Made(
            "swap.7z", "7zz a -bd -psecret -m0=Swap4 -m1=LZMA2 ../swap.7z secret.txt >/dev/null");
        ASSERT_EQ(ExpandWithSecret(swapped, Scratch("out-swap")), kEngineOK);
        EXPECT_EQ(ReadFile(Scratch("out-swap") / "secret.txt"),
                  ReadFile(folder / "in" / "secret.txt"));
        fs::path riscv = Made(
            "riscv.7z", "7zz a -bd -psecret -m0=RISCV -m1=LZMA2 ../riscv.7z secret.txt >/dev/null");
        EXPECT_EQ(ExpandWithSecret(riscv, Scratch("out-riscv")), kEngineMethodUnsupported);
    }
    // Without a password the same four-stream filter is read alike.
    fs::path open = Made("branch-open.7z", "7zz a -bd -mx9 ../branch-open.7z program >/dev/null");
    ASSERT_EQ(Expand(open, Scratch("out-branch-open")), kEngineOK);
    EXPECT_EQ(ReadFile(Scratch("out-branch-open") / "program"), ReadFile("/bin/true"));

    // With the catalogue enciphered, the archive's root asks before anything
    // can be listed.
    fs::path hidden = Made("hidden.7z", "7zz a -bd -psecret -mhe=on ../hidden.7z . >/dev/null");
    {
        OpenedArchive refused(engine, hidden);
        EXPECT_EQ(refused.status(), kEnginePasswordNeeded);
    }
    Recorder recorder(engine);
    std::vector<std::wstring> askedBy;
    Answer(recorder, {L"wrong", L"secret"}, askedBy);
    OpenedArchive opened(engine, hidden);
    ASSERT_EQ(opened.status(), kEngineOK);
    EXPECT_EQ(askedBy, (std::vector<std::wstring>{L"hidden.7z", L"hidden.7z"}));
    std::vector<std::wstring> listing = opened.Listing();
    EXPECT_NE(std::find(listing.begin(), listing.end(), L"secret.txt"), listing.end());
    // The password that opened the catalogue opens the items too.
    fs::path out = Scratch("out-hidden");
    OwnedItemList all;
    ASSERT_EQ(NewArchiveObjectList(engine, all.out()), kEngineOK);
    OwnedItem root = opened.Root();
    ASSERT_EQ(AddToArchiveObjectList(root.get(), all.get()), kEngineOK);
    OwnedFS destination = Path(out);
    OwnedFSList result;
    ASSERT_EQ(ExpandArchiveObjects(engine, all.get(), destination.get(), result.out(), nullptr),
              kEngineOK);
    EXPECT_EQ(ReadFile(out / "secret.txt"), "the secret contents\n");
    EXPECT_EQ(askedBy.size(), 2u);
}

TEST_F(PasswordTest, RefusingStopsTheRunAndNoAnswerMeansAPasswordIsNeeded) {
    fs::path archive = Made("refused.zip", "zip -q -r -P secret ../refused.zip .");
    {
        Recorder recorder(engine);
        recorder.On(200, 9, [](NotificationContext) { return kNotificationStop; });
        EXPECT_EQ(Expand(archive, Scratch("refused")), kEngineCancelled);
    }
    {
        // A vnkx whose folders come before the first enciphered file: the
        // folders made before the refusal are taken back.
        OwnedString password = Text(L"secret");
        fs::path guarded = folder / "guarded.vnkx";
        ASSERT_EQ(Create("vnkx", {folder / "in"}, guarded, nullptr, password.get()), kEngineOK);
        Recorder recorder(engine);
        recorder.On(200, 9, [](NotificationContext) { return kNotificationStop; });
        fs::path out = Scratch("refused-vnkx");
        EXPECT_EQ(Expand(guarded, out), kEngineCancelled);
        EXPECT_EQ(recorder.Of(200, 9).size(), 1u);
        EXPECT_TRUE(fs::is_empty(out)) << "nothing made stays behind";
    }
    {
        Recorder recorder(engine);
        recorder.On(200, 9, [](NotificationContext) { return kNotificationNotHandled; });
        EXPECT_EQ(Expand(archive, Scratch("unanswered")), kEnginePasswordNeeded);
    }
    EXPECT_EQ(Expand(archive, Scratch("nobody")), kEnginePasswordNeeded);
}

TEST_F(PasswordTest, APasswordGivenWithTheCallNeedsNoQuestion) {
    fs::path archive =
        Made("given.zip", "7zz a -bd -tzip -psecret -mem=AES256 ../given.zip . >/dev/null");
    Recorder recorder(engine);
    recorder.On(200, 9, [](NotificationContext) { return kNotificationStop; });
    OwnedString password = Text(L"secret");
    fs::path out = Scratch("given");
    ASSERT_EQ(Expand(archive, out, nullptr, password.get()), kEngineOK);
    EXPECT_TRUE(recorder.Of(200, 9).empty());
    EXPECT_EQ(ReadFile(out / "secret.txt"), "the secret contents\n");
}

TEST_F(PasswordTest, VerifyingAPasswordTellsRightWrongAndNotEncrypted) {
    fs::path archive =
        Made("verify.zip", "7zz a -bd -tzip -psecret -mem=AES256 ../verify.zip . >/dev/null");
    fs::path plain = Made("plain.zip", "zip -q -r ../plain.zip .");
    OwnedFS file = Path(archive);
    EngineArchive bound = nullptr;
    ASSERT_EQ(AcquireArchive(engine, file.get(), &bound), kEngineOK);
    OwnedString right = Text(L"secret"), wrong = Text(L"nope");
    EXPECT_EQ(VerifyArchivePassword(engine, bound, wrong.get()), kEnginePasswordOnPlainArchive);
    EXPECT_EQ(VerifyArchivePassword(engine, bound, right.get()), kEngineOK);
    ReleaseArchive(bound);

    OwnedFS plainFile = Path(plain);
    ASSERT_EQ(AcquireArchive(engine, plainFile.get(), &bound), kEngineOK);
    EXPECT_EQ(VerifyArchivePassword(engine, bound, right.get()), kEnginePasswordOnEncryptedItem);
    ReleaseArchive(bound);
}

TEST_F(PasswordTest, ItemsTellWhetherTheyAreEnciphered) {
    fs::path archive = Made(
        "flags.zip", "zip -q -P secret ../flags.zip secret.txt && zip -q -r ../flags.zip plain");
    OpenedArchive opened(engine, archive);
    ASSERT_EQ(opened.status(), kEngineOK);
    bool encrypted = false;
    OwnedItem root = opened.Root();
    ASSERT_EQ(GetArchiveObjectBooleanProperty(root.get(), kItemPropEncrypted, &encrypted),
              kEngineOK);
    EXPECT_TRUE(encrypted);
    OwnedItem secret = opened.Item(L"secret.txt");
    ASSERT_EQ(GetArchiveObjectBooleanProperty(secret.get(), kItemPropEncrypted, &encrypted),
              kEngineOK);
    EXPECT_TRUE(encrypted);
    OwnedItem other = opened.Item(L"plain/other.txt");
    ASSERT_EQ(GetArchiveObjectBooleanProperty(other.get(), kItemPropEncrypted, &encrypted),
              kEngineOK);
    EXPECT_FALSE(encrypted);
}

}  // namespace
}  // namespace enginetest
