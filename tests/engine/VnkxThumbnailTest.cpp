// vnkx pictures with their "thumb" fork (made, listed, read, kept over
// changes and transforms, behind the password of the data), the delta filter
// on sound samples, and items larger than what the writer reads whole.
#include <openssl/evp.h>
#include <turbojpeg.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <random>

#include "EngineFixture.h"

namespace enginetest {
namespace {

// A smooth colour (or grey) picture as a JPEG, made with TurboJPEG.
std::string MakeJpeg(int width, int height, bool grey = false) {
    int format = grey ? TJPF_GRAY : TJPF_RGB;
    int channels = tjPixelSize[format];
    std::vector<unsigned char> pixels(static_cast<std::size_t>(width) * height * channels);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < channels; ++c)
                pixels[(static_cast<std::size_t>(y) * width + x) * channels + c] =
                    static_cast<unsigned char>((x * (c + 1) + y * (3 - c)) & 0xFF);
    tjhandle encoder = tjInitCompress();
    unsigned char *jpeg = nullptr;
    unsigned long size = 0;
    EXPECT_EQ(tjCompress2(encoder, pixels.data(), width, 0, height, format, &jpeg, &size,
                          grey ? TJSAMP_GRAY : TJSAMP_420, 90, 0),
              0);
    std::string bytes(reinterpret_cast<char *>(jpeg), size);
    tjFree(jpeg);
    tjDestroy(encoder);
    return bytes;
}

struct JpegShape {
    int width = 0, height = 0, colourSpace = -1;
};

JpegShape ShapeOf(const std::string &jpeg) {
    JpegShape shape;
    int subsampling = 0;
    tjhandle decoder = tjInitDecompress();
    if (tjDecompressHeader3(decoder, reinterpret_cast<const unsigned char *>(jpeg.data()),
                            jpeg.size(), &shape.width, &shape.height, &subsampling,
                            &shape.colourSpace) != 0)
        shape = {};
    tjDestroy(decoder);
    return shape;
}

std::string Sha256Of(const std::string &bytes) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    EVP_Digest(bytes.data(), bytes.size(), digest, &size, EVP_sha256(), nullptr);
    return std::string(reinterpret_cast<char *>(digest), size);
}

// Stereo 16-bit samples of a few partials and some noise, as music is.
std::string SoundSamples(std::size_t frames) {
    std::mt19937 random(1);
    std::normal_distribution<double> noise(0, 200);
    std::string samples;
    samples.reserve(frames * 4);
    for (std::size_t i = 0; i < frames; ++i) {
        double wave = 0;
        for (int k = 1; k <= 5; ++k) wave += std::sin(i * 0.03 * k) * 3000.0 / k;
        for (double channel : {wave + noise(random), wave * 0.8 + noise(random)}) {
            auto sample = static_cast<std::int16_t>(std::clamp(channel, -32768.0, 32767.0));
            samples += static_cast<char>(sample & 0xFF);
            samples += static_cast<char>((sample >> 8) & 0xFF);
        }
    }
    return samples;
}

class VnkxThumbnailTest : public EngineTest {
protected:
    void SetUp() override {
        EngineTest::SetUp();
        folder = Scratch("pictures");
        picture = MakeJpeg(640, 480);
        WriteFile(folder / "src" / "photo.jpg", picture);
    }
    void ThumbnailsOn(bool on) {
        ASSERT_EQ(SetFormatBooleanProperty(engine, "vnkx", kFormatPropThumbNails, on), kEngineOK);
    }
    fs::path Made(const std::string &name, StringRef password = nullptr) {
        fs::path archive = folder / name;
        EXPECT_EQ(Create("vnkx", {folder / "src"}, archive, nullptr, password), kEngineOK);
        return archive;
    }
    // The item's thumbnail through the surface: its fork, size and bytes;
    // the result of the first call that fails.
    EngineResult Thumbnail(const OpenedArchive &opened, const std::wstring &path,
                           std::string &bytes, StringRef password = nullptr) {
        OwnedItem item = opened.Item(path);
        ArchiveObjectFork fork = nullptr;
        if (EngineResult result = GetArchiveObjectFork(item.get(), kForkThumbnail, &fork))
            return result;
        uint64_t size = 0;
        if (EngineResult result = GetArchiveObjectForkSize(fork, &size)) return result;
        bytes.assign(size, '\0');
        uint64_t count = 0;
        EngineResult result =
            GetArchiveObjectForkData(engine, fork, bytes.data(), static_cast<uint32_t>(size),
                                     static_cast<uint32_t>(size >> 32), &count, password);
        bytes.resize(count);
        return result;
    }
    std::string ThumbnailOf(const fs::path &archive, const std::wstring &path) {
        OpenedArchive opened(engine, archive);
        std::string bytes;
        EXPECT_EQ(Thumbnail(opened, path, bytes), kEngineOK) << path;
        return bytes;
    }

    fs::path folder;
    std::string picture;
};

TEST_F(VnkxThumbnailTest, PicturesGetThumbnailsOfTheChosenSizeOtherFilesNone) {
    WriteFile(folder / "src" / "tall grey.jpg", MakeJpeg(90, 400, true));
    WriteFile(folder / "src" / "small.jpg", MakeJpeg(100, 50));
    WriteFile(folder / "src" / "notes.txt", "not a picture\n");
    WriteFile(folder / "src" / "cut.jpg", picture.substr(0, picture.size() / 2));
    WriteFile(folder / "src" / "fake.jpg", "\xFF\xD8\xFF\xE0 nothing of a picture follows");
    ThumbnailsOn(true);
    fs::path archive = Made("pictures.vnkx");
    OwnedFS file = Path(archive);
    EXPECT_EQ(VerifyArchive(engine, file.get(), nullptr), kEngineOK);
    fs::path out = Scratch("out");
    ASSERT_EQ(Expand(archive, out), kEngineOK);
    EXPECT_EQ(Snapshot(out / "src"), Snapshot(folder / "src")) << "thumbnails are not expanded";

    OpenedArchive opened(engine, archive);
    ASSERT_EQ(opened.status(), kEngineOK);
    struct Expected {
        const wchar_t *path;
        int width, height, colourSpace;
    };
    for (const Expected &expected : {Expected{L"src/photo.jpg", 160, 120, TJCS_YCbCr},
                                     Expected{L"src/tall grey.jpg", 36, 160, TJCS_GRAY},
                                     Expected{L"src/small.jpg", 100, 50, TJCS_YCbCr}}) {
        std::string thumbnail;
        ASSERT_EQ(Thumbnail(opened, expected.path, thumbnail), kEngineOK) << expected.path;
        JpegShape shape = ShapeOf(thumbnail);
        EXPECT_EQ(shape.width, expected.width) << expected.path;
        EXPECT_EQ(shape.height, expected.height) << expected.path;
        EXPECT_EQ(shape.colourSpace, expected.colourSpace) << expected.path;
    }
    for (const wchar_t *path : {L"src/notes.txt", L"src/cut.jpg", L"src/fake.jpg", L"src"}) {
        std::string none;
        EXPECT_EQ(Thumbnail(opened, path, none), kEngineNoSuchFork) << path;
    }

    ThumbnailsOn(false);
    fs::path without = Made("without.vnkx");
    OpenedArchive plain(engine, without);
    std::string none;
    EXPECT_EQ(Thumbnail(plain, L"src/photo.jpg", none), kEngineNoSuchFork);
}

TEST_F(VnkxThumbnailTest, ThumbnailsAreKeptOverChangesAndTransforms) {
    ThumbnailsOn(true);
    fs::path archive = Made("kept.vnkx");
    std::string original = ThumbnailOf(archive, L"src/photo.jpg");
    ASSERT_FALSE(original.empty());
    // From here on the property is off: what is kept comes from the archive.
    ThumbnailsOn(false);
    {
        OpenedArchive opened(engine, archive, kEngineAccessChange);
        OwnedItem photo = opened.Item(L"src/photo.jpg");
        OwnedString name = Text(L"renamed.jpg");
        ASSERT_EQ(SetArchiveObjectStringProperty(photo.get(), kItemPropName, name.get()),
                  kEngineOK);
        WriteFile(folder / "later.txt", "added later\n");
        OwnedFSList sources = PathList(engine, {folder / "later.txt"});
        OwnedItem root = opened.Root();
        OwnedItemList added;
        ASSERT_EQ(AddItemsToArchive(engine, root.get(), sources.get(), added.out(), nullptr),
                  kEngineOK);
        std::string pending;
        EXPECT_EQ(Thumbnail(opened, L"src/renamed.jpg", pending), kEngineOK)
            << "readable before the close";
        EXPECT_EQ(pending, original);
        EXPECT_EQ(opened.Close(), kEngineOK);
    }
    EXPECT_EQ(ThumbnailOf(archive, L"src/renamed.jpg"), original);

    OwnedFS source = Path(archive);
    OwnedFS result;
    ASSERT_EQ(TransformArchive(engine, source.get(), nullptr, result.out(), "vnkx", nullptr,
                               nullptr, 1, 0),
              kEngineOK);
    EXPECT_EQ(ThumbnailOf(PathOf(result.get()), L"src/renamed.jpg"), original);
}

TEST_F(VnkxThumbnailTest, ThumbnailNeedsThePasswordOfTheData) {
    ThumbnailsOn(true);
    OwnedString secret = Text(L"geheim");
    fs::path archive = Made("locked.vnkx", secret.get());
    EXPECT_EQ(ReadFile(archive).find(picture.substr(0, 64)), std::string::npos);
    OpenedArchive opened(engine, archive);
    ASSERT_EQ(opened.status(), kEngineOK);
    std::string thumbnail;
    EXPECT_EQ(Thumbnail(opened, L"src/photo.jpg", thumbnail), kEnginePasswordNeeded);
    Recorder recorder(engine);
    int asked = 0;
    recorder.On(200, 9, [&](NotificationContext context) {
        return GivePassword(context, ++asked == 1 ? L"falsch" : L"geheim");
    });
    ASSERT_EQ(Thumbnail(opened, L"src/photo.jpg", thumbnail), kEngineOK);
    EXPECT_EQ(asked, 2);
    EXPECT_EQ(ShapeOf(thumbnail).width, 160);
}

// Sound samples alone in an archive are written with the delta filter (the
// block header's filter byte), text without, and both come back whole.
TEST_F(VnkxThumbnailTest, SoundSamplesTakeTheDeltaFilterTextDoesNot) {
    constexpr std::size_t kFilterByte = 16 + 5;  // after the header, in the first block's
    fs::remove(folder / "src" / "photo.jpg");
    std::string sound = SoundSamples(1 << 20);
    WriteFile(folder / "src" / "sound.raw", sound);
    fs::path archive = Made("sound.vnkx");
    EXPECT_EQ(ReadFile(archive)[kFilterByte], 2);
    fs::path out = Scratch("sound-out");
    ASSERT_EQ(Expand(archive, out), kEngineOK);
    EXPECT_TRUE(ReadFile(out / "src" / "sound.raw") == sound);

    std::string text;
    for (int i = 0; text.size() < (1 << 20); ++i)
        text += "line " + std::to_string(i) + " of text\n";
    WriteFile(folder / "src" / "sound.raw", text);
    EXPECT_EQ(ReadFile(Made("text.vnkx"))[kFilterByte], 0);
}

// Items above the size read whole are streamed into blocks; a second one of
// the same size goes through a scratch file and is folded when equal.
TEST_F(VnkxThumbnailTest, ItemsLargerThanWhatIsReadWholeRoundTrip) {
    fs::remove(folder / "src" / "photo.jpg");
    std::string large;
    large.reserve(70u << 20);
    std::mt19937_64 random(7);
    for (unsigned part = 0; large.size() < (70u << 20); ++part) {
        std::size_t size = (1u << 20) + random() % (1u << 20);
        switch (part % 4) {
            case 0:  // incompressible
                for (std::size_t i = 0; i < size; i += 8) {
                    std::uint64_t word = random();
                    large.append(reinterpret_cast<const char *>(&word), 8);
                }
                break;
            case 1:
                large.append(size, static_cast<char>(part));
                break;
            case 2:
                while (size > 40) {
                    std::string line = "record " + std::to_string(random() % 100000) + "\n";
                    large += line;
                    size -= std::min(size, line.size());
                }
                break;
            default:
                large += SoundSamples(size / 4);
        }
    }
    large.resize(70u << 20);
    WriteFile(folder / "src" / "large.bin", large);
    WriteFile(folder / "src" / "copy.bin", large);
    fs::path archive = Made("large.vnkx");
    // Each copy packs to about half its size: both stored would pass 70 MiB.
    EXPECT_LT(fs::file_size(archive), large.size() * 3 / 4) << "the copy is stored once";
    OwnedFS file = Path(archive);
    EXPECT_EQ(VerifyArchive(engine, file.get(), nullptr), kEngineOK);
    fs::path out = Scratch("large-out");
    ASSERT_EQ(Expand(archive, out), kEngineOK);
    std::string digest = Sha256Of(large);
    EXPECT_TRUE(Sha256Of(ReadFile(out / "src" / "large.bin")) == digest);
    EXPECT_TRUE(Sha256Of(ReadFile(out / "src" / "copy.bin")) == digest);
}

}  // namespace
}  // namespace enginetest
