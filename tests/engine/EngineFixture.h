// Shared pieces of the engine's tests: a session per test, handles that give
// themselves back, notification recorders and tools that make and check
// archives from outside.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "VarnickEngine.h"
#include "VnkxLayout.h"
#include "support/TempHome.h"

namespace enginetest {

namespace fs = std::filesystem;

// A handle of the engine with its give-back call.
template <class Handle, EngineResult (*Dispose)(Handle)>
class Owned {
public:
    Owned() = default;
    explicit Owned(Handle handle) : handle_(handle) {}
    Owned(const Owned &) = delete;
    Owned &operator=(const Owned &) = delete;
    Owned(Owned &&other) noexcept : handle_(other.handle_) { other.handle_ = nullptr; }
    ~Owned() { Reset(); }
    void Reset() {
        if (handle_) Dispose(handle_);
        handle_ = nullptr;
    }
    Handle get() const { return handle_; }
    Handle *out() {
        Reset();
        return &handle_;
    }
    Handle release() {
        Handle h = handle_;
        handle_ = nullptr;
        return h;
    }

private:
    Handle handle_ = nullptr;
};

using OwnedFS = Owned<FSObject, DisposeFSObject>;
using OwnedFSList = Owned<FSObjectList, DisposeFSObjectList>;
using OwnedString = Owned<StringRef, DisposeStringRef>;
using OwnedItem = Owned<ArchiveObject, ReleaseArchiveObject>;
using OwnedItemList = Owned<ArchiveObjectList, DisposeArchiveObjectList>;
using OwnedIterator = Owned<ArchiveIterator, DisposeArchiveIterator>;

OwnedFS Path(const fs::path &path);
OwnedString Text(const std::wstring &text);
std::wstring TextOf(StringRef text);
std::wstring PathOf(FSObject object);
std::vector<std::wstring> PathsOf(FSObjectList list);
OwnedFSList PathList(OpaqueEngineObject *engine, const std::vector<fs::path> &paths);

// One notification as the procedure saw it.
struct Seen {
    int32_t category;
    int32_t event;
    std::wstring name;               // key 4, or the path of key 1
    std::vector<uint64_t> counters;  // keys 5 to 9 for (100,7)
};

// Answers notifications by a script and records them.
class Recorder {
public:
    explicit Recorder(OpaqueEngineObject *engine);
    ~Recorder();
    // Installs the recorder for a pair; `answer` decides each call's answer
    // and may write into the context.
    void On(int32_t category, int32_t event,
            std::function<int32_t(NotificationContext)> answer = nullptr);
    // Every pair of the engine's table.
    void OnAll();
    const std::vector<Seen> &seen() const { return seen_; }
    std::vector<Seen> Of(int32_t category, int32_t event) const;

private:
    static int32_t Procedure(int32_t category, int32_t event, NotificationContext context,
                             void *self);

    OpaqueEngineObject *engine_;
    std::map<std::pair<int32_t, int32_t>, std::function<int32_t(NotificationContext)>> answers_;
    std::vector<Seen> seen_;
};

// Writes the password into a (200,9) context and answers 1.
int32_t GivePassword(NotificationContext context, const std::wstring &password);
// Sets "conflictResolution" on the (1,3) answer handle and answers 1.
int32_t AnswerConflict(NotificationContext context, int32_t resolution);

// A file, link or folder tree as text: relative path -> contents, "<dir>"
// for a folder, "-> target" for a link.
std::map<std::string, std::string> Snapshot(const fs::path &root);
void WriteFile(const fs::path &path, const std::string &bytes);
std::string ReadFile(const fs::path &path);

// The trailer and catalogue of a vnkx archive's bytes whose catalogue is not
// enciphered, read with the layout's own functions (no reader involved).
void ReadPlainCatalogue(const std::vector<std::uint8_t> &archive, engine::vnkx::Trailer &trailer,
                        engine::vnkx::CatalogueBody &body);

struct Shell {
    int status;
    std::string output;
};
// Runs a command through /bin/sh in `folder`.
Shell RunShell(const std::string &command, const fs::path &folder = {});
std::string Quote(const fs::path &path);

// A test with a session and a scratch folder below a fresh home.
class EngineTest : public testsupport::HomeTest {
protected:
    void SetUp() override;
    void TearDown() override;
    fs::path Scratch(const std::string &name) { return home.Scratch(name); }
    // A small tree with text, binary, empty files, an empty folder, a
    // non-ASCII name and a deep path.
    fs::path MakeSampleTree(const std::string &name = "sample");
    std::string FormatOf(const fs::path &file);
    EngineResult Expand(const fs::path &archive, const fs::path &destination,
                        std::vector<std::wstring> *outputs = nullptr, StringRef password = nullptr);
    EngineResult Create(const char *formatId, const std::vector<fs::path> &sources,
                        const fs::path &output, std::wstring *written = nullptr,
                        StringRef password = nullptr);
    void SetInteger(const char *name, int32_t value);

    OpaqueEngineObject *engine = nullptr;
};

// An archive opened through the surface, closed and released at the end.
class OpenedArchive {
public:
    OpenedArchive(OpaqueEngineObject *engine, const fs::path &file,
                  uint16_t mode = kEngineAccessRead, const std::wstring &password = L"");
    ~OpenedArchive();
    EngineResult status() const { return status_; }
    EngineArchive get() const { return archive_; }
    OwnedItem Root() const;
    OwnedItem Item(const std::wstring &path) const;
    // Every item below the root as "path" or "path/" for folders, walked with
    // iterators in stored order.
    std::vector<std::wstring> Listing() const;
    EngineResult Close();

private:
    void Walk(ArchiveObject folder, const std::wstring &prefix,
              std::vector<std::wstring> &out) const;
    OwnedFS file_;
    EngineArchive archive_ = nullptr;
    EngineResult status_ = kEngineOK;
    bool closed_ = false;
};

}  // namespace enginetest
