#include "EngineFixture.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>

#include "VnkxMethods.h"

namespace enginetest {

OwnedFS Path(const fs::path &path) {
    OwnedFS object;
    std::wstring wide = path.wstring();
    EXPECT_EQ(NewFSObjectFromUnicodePath(wide.c_str(), object.out()), kEngineOK);
    return object;
}

OwnedString Text(const std::wstring &text) {
    OwnedString string;
    EXPECT_EQ(NewStringRefFromUnicodeString(text.c_str(), string.out()), kEngineOK);
    return string;
}

std::wstring TextOf(StringRef text) {
    const wchar_t *chars = GetUnicodeStringFromStringRef(text);
    return chars ? chars : L"";
}

std::wstring PathOf(FSObject object) {
    OwnedString path;
    if (AcquirePathFromFSObject(object, path.out()) != kEngineOK) return {};
    return TextOf(path.get());
}

std::vector<std::wstring> PathsOf(FSObjectList list) {
    std::vector<std::wstring> paths;
    for (uint32_t i = 0; i < CountFSObjectList(list); ++i) {
        OwnedFS item;
        if (GetNthFSObject(list, i, item.out()) == kEngineOK) paths.push_back(PathOf(item.get()));
    }
    return paths;
}

OwnedFSList PathList(OpaqueEngineObject *engine, const std::vector<fs::path> &paths) {
    OwnedFSList list;
    EXPECT_EQ(NewFSObjectList(engine, list.out()), kEngineOK);
    for (const auto &path : paths) {
        OwnedFS item = Path(path);
        EXPECT_EQ(AddFSObjectToFSObjectList(engine, item.get(), list.get()), kEngineOK);
    }
    return list;
}

Recorder::Recorder(OpaqueEngineObject *engine) : engine_(engine) {}

Recorder::~Recorder() {
    for (const auto &entry : answers_)
        RemoveNotification(engine_, entry.first.first, entry.first.second);
}

void Recorder::On(int32_t category, int32_t event,
                  std::function<int32_t(NotificationContext)> answer) {
    answers_[{category, event}] = std::move(answer);
    EXPECT_EQ(InstallNotification(engine_, category, event, &Recorder::Procedure, this), kEngineOK);
}

void Recorder::OnAll() {
    const std::pair<int32_t, int32_t> pairs[] = {{1, 1},   {1, 2},    {1, 3},   {100, 4},
                                                 {100, 5}, {100, 6},  {100, 7}, {100, 8},
                                                 {200, 9}, {200, 10}, {200, 11}};
    for (const auto &pair : pairs)
        if (!answers_.count(pair)) On(pair.first, pair.second);
}

std::vector<Seen> Recorder::Of(int32_t category, int32_t event) const {
    std::vector<Seen> found;
    for (const auto &seen : seen_)
        if (seen.category == category && seen.event == event) found.push_back(seen);
    return found;
}

int32_t Recorder::Procedure(int32_t category, int32_t event, NotificationContext context,
                            void *self) {
    auto *recorder = static_cast<Recorder *>(self);
    Seen seen{category, event, {}, {}};
    StringRef name = nullptr;
    if (GetDataFromContext(context, kContextName, &name, sizeof name) == kEngineOK)
        seen.name = TextOf(name);
    FSObject file = nullptr;
    if (GetDataFromContext(context, kContextFSObject, &file, sizeof file) == kEngineOK)
        seen.name = PathOf(file);
    for (int32_t key = kContextFilesDone; key <= kContextBytesTotal; ++key) {
        uint64_t value = 0;
        if (GetDataFromContext(context, key, &value, sizeof value) == kEngineOK)
            seen.counters.push_back(value);
    }
    recorder->seen_.push_back(seen);
    auto answer = recorder->answers_.find({category, event});
    if (answer != recorder->answers_.end() && answer->second) return answer->second(context);
    return kNotificationHandled;
}

int32_t GivePassword(NotificationContext context, const std::wstring &password) {
    StringRef text = nullptr;
    NewStringRefFromUnicodeString(password.c_str(), &text);
    EXPECT_EQ(SetDataInContext(context, kContextPassword, &text, sizeof text), kEngineOK);
    return kNotificationHandled;
}

int32_t AnswerConflict(NotificationContext context, int32_t resolution) {
    OpaqueEngineObject *answer = nullptr;
    EXPECT_EQ(GetDataFromContext(context, kContextAnswerHandle, &answer, sizeof answer), kEngineOK);
    EXPECT_EQ(SetEngineIntegerProperty(answer, kEnginePropConflictResolution, resolution),
              kEngineOK);
    return kNotificationHandled;
}

// Short contents as they are; long ones by size and digest, so that a
// failing comparison prints readably.
std::string Summary(const std::string &contents) {
    if (contents.size() <= 64) return contents;
    return "<" + std::to_string(contents.size()) + " bytes, digest " +
           std::to_string(std::hash<std::string>()(contents)) + ">";
}

std::map<std::string, std::string> Snapshot(const fs::path &root) {
    std::map<std::string, std::string> tree;
    if (!fs::exists(fs::symlink_status(root))) return tree;
    for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator();
         ++it) {
        std::string relative = it->path().lexically_relative(root).string();
        if (it->is_symlink())
            tree[relative] = "-> " + fs::read_symlink(it->path()).string();
        else if (it->is_directory())
            tree[relative] = "<dir>";
        else
            tree[relative] = Summary(ReadFile(it->path()));
    }
    return tree;
}

void WriteFile(const fs::path &path, const std::string &bytes) {
    fs::create_directories(path.parent_path());
    testsupport::WriteBytes(path, bytes);
}

std::string ReadFile(const fs::path &path) { return testsupport::ReadBytes(path); }

void ReadPlainCatalogue(const std::vector<std::uint8_t> &archive, engine::vnkx::Trailer &trailer,
                        engine::vnkx::CatalogueBody &body) {
    namespace vnkx = engine::vnkx;
    ASSERT_GT(archive.size(), vnkx::kTrailerSize);
    const std::uint8_t *end = archive.data() + archive.size() - vnkx::kTrailerSize;
    ASSERT_TRUE(vnkx::DecodeTrailer(end, vnkx::kTrailerSize, trailer));
    ASSERT_LE(trailer.catalogueOffset + trailer.catalogueSize, archive.size());
    vnkx::Reader in(archive.data() + trailer.catalogueOffset, trailer.catalogueSize);
    std::uint8_t magic[4], cipher = 0;
    std::uint32_t keys = 1, slot = 0;
    std::uint64_t plainSize = 0, packedSize = 0;
    ASSERT_TRUE(in.Raw(magic, 4) && in.U32(keys) && keys == 0 && in.U8(cipher) && in.U32(slot) &&
                in.U64(plainSize) && in.U64(packedSize));
    std::vector<std::uint8_t> plain;
    ASSERT_EQ(vnkx::Decompress(vnkx::kMethodZstd, archive.data() + trailer.catalogueOffset + 29,
                               packedSize, plainSize, plain),
              kEngineOK);
    ASSERT_EQ(vnkx::DecodeCatalogue(plain, trailer.version, trailer.flags, body), kEngineOK);
}

Shell RunShell(const std::string &command, const fs::path &folder) {
    // The tools read and write names as UTF-8 whatever the test's locale.
    std::string full = "export LC_ALL=C.UTF-8; " +
                       (folder.empty() ? std::string() : "cd " + Quote(folder) + " && ") + command +
                       " 2>&1";
    Shell result{-1, {}};
    FILE *pipe = popen(full.c_str(), "r");
    if (!pipe) return result;
    std::array<char, 4096> buffer{};
    while (std::size_t got = fread(buffer.data(), 1, buffer.size(), pipe))
        result.output.append(buffer.data(), got);
    int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

std::string Quote(const fs::path &path) {
    std::string quoted = "'";
    for (char c : path.string()) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

void EngineTest::SetUp() {
    ASSERT_EQ(OpenVarnickEngine(&engine, "test"), kEngineOK);
    // Defaults a caller would otherwise leave to the engine, set plainly.
    SetInteger(kEnginePropConflictResolution, kResolutionReplace);
    SetInteger(kEnginePropCreateFolderMethod, kCreateFolderNever);
}

void EngineTest::TearDown() {
    if (engine) CloseVarnickEngine(engine);
}

void EngineTest::SetInteger(const char *name, int32_t value) {
    ASSERT_EQ(SetEngineIntegerProperty(engine, name, value), kEngineOK) << name;
}

fs::path EngineTest::MakeSampleTree(const std::string &name) {
    fs::path root = Scratch(name);
    WriteFile(root / "readme.txt", "Hello, archive.\n");
    std::string binary;
    for (unsigned i = 0; i < 300000; ++i) binary += static_cast<char>((i * 7919u) % 251u);
    WriteFile(root / "data" / "blob.bin", binary);
    WriteFile(root / "data" / "empty.txt", "");
    WriteFile(root / "data" / "Grüße, 東京.txt", "unicode name\n");
    fs::create_directories(root / "hollow");
    WriteFile(root / "a" / "b" / "c" / "d" / "e" / "f" / "g" / "deep.txt", "deep\n");
    return root;
}

std::string EngineTest::FormatOf(const fs::path &file) {
    OwnedFS object = Path(file);
    EngineFormatId id = {};
    EngineResult result = DetermineFileFormat(engine, object.get(), id);
    return result == kEngineOK ? std::string(id) : "error " + std::to_string(result);
}

EngineResult EngineTest::Expand(const fs::path &archive, const fs::path &destination,
                                std::vector<std::wstring> *outputs, StringRef password) {
    OwnedFS file = Path(archive);
    OwnedFS folder = Path(destination);
    OwnedFSList result;
    EngineResult status =
        ExpandOrDecodeFile(engine, file.get(), folder.get(), result.out(), password);
    if (status == kEngineOK && outputs) *outputs = PathsOf(result.get());
    return status;
}

EngineResult EngineTest::Create(const char *formatId, const std::vector<fs::path> &sources,
                                const fs::path &output, std::wstring *written, StringRef password) {
    OwnedFSList list = PathList(engine, sources);
    OwnedFS target = Path(output);
    OwnedFS result;
    EngineResult status =
        ArchiveFSObjectList(engine, formatId, list.get(), target.get(), result.out(), password);
    if (status == kEngineOK && written) *written = PathOf(result.get());
    return status;
}

OpenedArchive::OpenedArchive(OpaqueEngineObject *engine, const fs::path &file, uint16_t mode,
                             const std::wstring &password)
    : file_(Path(file)) {
    status_ = AcquireArchive(engine, file_.get(), &archive_);
    if (status_ != kEngineOK) return;
    if (password.empty()) {
        status_ = OpenArchive(engine, archive_, mode);
    } else {
        OwnedString text = Text(password);
        status_ = OpenEncryptedArchive(engine, archive_, mode, text.get());
    }
}

OpenedArchive::~OpenedArchive() {
    if (!archive_) return;
    if (!closed_) CloseArchive(archive_);
    ReleaseArchive(archive_);
}

EngineResult OpenedArchive::Close() {
    closed_ = true;
    return CloseArchive(archive_);
}

OwnedItem OpenedArchive::Root() const {
    OwnedItem root;
    EXPECT_EQ(AcquireRootArchiveObject(archive_, root.out()), kEngineOK);
    return root;
}

OwnedItem OpenedArchive::Item(const std::wstring &path) const {
    OwnedItem item;
    OwnedString text = Text(path);
    EXPECT_EQ(AcquireArchiveObjectFromPath(archive_, text.get(), item.out()), kEngineOK)
        << std::string(path.begin(), path.end());
    return item;
}

std::vector<std::wstring> OpenedArchive::Listing() const {
    std::vector<std::wstring> out;
    OwnedItem root = Root();
    Walk(root.get(), L"", out);
    return out;
}

void OpenedArchive::Walk(ArchiveObject folder, const std::wstring &prefix,
                         std::vector<std::wstring> &out) const {
    OwnedIterator iterator;
    ASSERT_EQ(NewArchiveIterator(folder, iterator.out()), kEngineOK);
    for (;;) {
        OwnedItem item;
        EngineResult status = AcquireNextArchiveObject(iterator.get(), item.out());
        if (status == kEngineNoMoreObjects) break;
        ASSERT_EQ(status, kEngineOK);
        OwnedString name;
        ASSERT_EQ(AcquireArchiveObjectName(item.get(), name.out()), kEngineOK);
        bool isFolder = false;
        ASSERT_EQ(GetArchiveObjectIsFolder(item.get(), &isFolder), kEngineOK);
        std::wstring path = prefix + TextOf(name.get());
        out.push_back(isFolder ? path + L"/" : path);
        if (isFolder) Walk(item.get(), path + L"/", out);
    }
}

}  // namespace enginetest
