// The paths an archive operation takes when the file system is in its way or
// the user stops it: files held by a mount, the desktop's refresh, and runs
// cancelled in the middle. The file system is made to refuse for real (a file
// bound onto itself cannot be replaced or deleted), so these tests need the
// right to mount and are skipped without it.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>

#include "CNewArchiveContentList.h"
#include "archive/FacadeTest.h"
#include "platform/SpecialFolders.h"

namespace {

using archivetest::EndLog;
namespace fs = std::filesystem;

// A file bound onto itself for the life of the object: renaming onto it or
// deleting it fails with "busy", which the platform reports as a sharing
// violation.
class HeldFile {
public:
    explicit HeldFile(fs::path path) : path_(std::move(path)) {
        held_ = mount(path_.c_str(), path_.c_str(), nullptr, MS_BIND, nullptr) == 0;
    }
    ~HeldFile() { Release(); }
    HeldFile(const HeldFile &) = delete;
    HeldFile &operator=(const HeldFile &) = delete;

    bool Held() const { return held_; }
    void Release() {
        if (held_) umount2(path_.c_str(), MNT_DETACH);
        held_ = false;
    }

private:
    fs::path path_;
    bool held_ = false;
};

// The names created, deleted and moved in one folder, from inotify.
class FolderWatch {
public:
    struct Event {
        uint32_t mask;
        std::string name;
    };

    explicit FolderWatch(const fs::path &folder) : fd_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
        inotify_add_watch(fd_, folder.c_str(), IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO);
    }
    ~FolderWatch() { close(fd_); }
    FolderWatch(const FolderWatch &) = delete;
    FolderWatch &operator=(const FolderWatch &) = delete;

    // The events that came since the last call, waiting up to `waitMs` for
    // the first.
    std::vector<Event> Take(int waitMs = 0) {
        std::vector<Event> events;
        pollfd ready{fd_, POLLIN, 0};
        if (poll(&ready, 1, waitMs) <= 0) return events;
        alignas(inotify_event) char buffer[4096];
        for (;;) {
            ssize_t count = read(fd_, buffer, sizeof buffer);
            if (count <= 0) break;
            for (char *at = buffer; at < buffer + count;) {
                auto *event = reinterpret_cast<inotify_event *>(at);
                events.push_back({event->mask, event->len ? event->name : ""});
                at += sizeof(inotify_event) + event->len;
            }
        }
        return events;
    }

    // How many of `events` made a file whose name begins with `prefix`.
    static std::size_t Created(const std::vector<Event> &events, const std::string &prefix) {
        std::size_t count = 0;
        for (const Event &event : events)
            count += (event.mask & IN_CREATE) && event.name.rfind(prefix, 0) == 0 ? 1 : 0;
        return count;
    }

private:
    int fd_;
};

class ErrorPathTest : public archivetest::FacadeTest {
protected:
    void SetUp() override {
        FacadeTest::SetUp();
        ExpandStraightIntoTheFolder();
        appOptions->ExpandConflictMethod = kResolutionReplace;
        out = work / "out";
        fs::create_directories(out);
    }

    // Makes an archive of `sources` through the facade and runs it to its end.
    std::unique_ptr<CArchive> Created(const fs::path &path, format::type type,
                                      const std::vector<fs::path> &sources) {
        CNewArchiveContentList list;
        for (const auto &source : sources) list.Files.push_back(Wide(source));
        auto archive = MakeArchive(path);
        archive->formatType = type;
        RunToEnd(*archive, [&] { return archive->CreateFromList(&list); });
        return archive;
    }

    // The engine writes a new archive under a hidden name beside it first.
    static std::string TemporaryPrefix(const std::string &name) { return "." + name + "."; }

    static std::vector<std::string> Names(const fs::path &folder) {
        std::vector<std::string> names;
        for (const auto &entry : fs::directory_iterator(folder))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

    fs::path out;
};

// A Zip run that meets a sharing violation is run once more, and not a third
// time; other formats are not retried.
TEST_F(ErrorPathTest, SharingViolationIsRetriedOnceForZipOnly) {
    fs::path source = Put("src/a.txt", std::string(5000, 'a'));
    for (const auto &[type, name, runs] :
         {std::tuple{format::zip, "held.zip", 2u}, {format::vnkx, "held.vnkx", 1u}}) {
        SCOPED_TRACE(name);
        testsupport::WriteBytes(out / name, "in use");
        HeldFile held(out / name);
        if (!held.Held()) GTEST_SKIP() << "binding a file needs the right to mount";
        FolderWatch watch(out);
        auto archive = Created(out / name, type, {source});
        EXPECT_EQ(archive->lastResult, static_cast<EngineResult>(ERROR_SHARING_VIOLATION));
        EXPECT_EQ(FolderWatch::Created(watch.Take(), TemporaryPrefix(name)), runs);
        held.Release();
        EXPECT_EQ(testsupport::ReadBytes(out / name), "in use");
        EXPECT_EQ(Names(out).size(), 1u) << "no attempt left a file behind";
        fs::remove(out / name);
    }
}

// The shell is shown a new archive on the desktop by moving it away and back.
TEST_F(ErrorPathTest, ArchiveOnTheDesktopIsMovedAwayAndBack) {
    wchar_t folder[MAX_PATH] = {};
    ASSERT_TRUE(SHGetSpecialFolderPathW(nullptr, folder, CSIDL_DESKTOPDIRECTORY, TRUE));
    fs::path desktop = folder;
    fs::create_directories(desktop);
    ASSERT_NE(Wide(desktop).find(Wide(home.Path())), std::wstring::npos);
    fs::path source = Put("src/a.txt", "a");

    FolderWatch watchDesktop(desktop);
    auto started = std::chrono::steady_clock::now();
    auto archive = Created(desktop / "new.zip", format::zip, {source});
    auto took = std::chrono::steady_clock::now() - started;
    EXPECT_EQ(archive->lastResult, 0);
    EXPECT_TRUE(fs::exists(desktop / "new.zip"));
    EXPECT_GE(took, std::chrono::seconds(2)) << "it stays away for two seconds";
    std::vector<std::string> moves;
    for (const auto &event : watchDesktop.Take()) {
        if (event.mask & IN_MOVED_FROM) moves.push_back("from " + event.name);
        if (event.mask & IN_MOVED_TO) moves.push_back("to " + event.name);
    }
    ASSERT_GE(moves.size(), 4u);
    std::vector<std::string> last(moves.end() - 4, moves.end());
    std::string away = last[1].substr(3);
    EXPECT_NE(away, "new.zip");
    EXPECT_EQ(last, (std::vector<std::string>{"from new.zip", "to " + away, "from " + away,
                                              "to new.zip"}));

    // Anywhere else the archive stays where the engine put it.
    FolderWatch watchOut(out);
    auto elsewhere = Created(out / "new.zip", format::zip, {source});
    EXPECT_EQ(elsewhere->lastResult, 0);
    for (const auto &event : watchOut.Take()) {
        if (!(event.mask & IN_MOVED_FROM)) continue;
        EXPECT_EQ(event.name.rfind(".", 0), 0u) << "only the engine's own file moved";
    }
}

// A failed delete of the old file stops the rewrite with both files on the
// disk: nothing is rolled back. Encrypt has taken the password by then.
TEST_F(ErrorPathTest, FailedDeleteLeavesBothFilesAsItStands) {
    Put("src/a.txt", std::string(3000, 'a'));
    fs::path plain = Make("plain.zip", "cd src && zip -q ../plain.zip a.txt");
    Put("src/b.txt", std::string(3000, 'b'));
    fs::path locked = Make("locked.zip", "cd src && zip -q -P secret ../locked.zip b.txt");
    for (bool encrypting : {true, false}) {
        SCOPED_TRACE(encrypting ? "encrypt" : "remove encryption");
        fs::path path = encrypting ? plain : locked;
        const std::string before = testsupport::ReadBytes(path);
        const std::size_t entries = Names(work).size();
        HeldFile held(path);
        if (!held.Held()) GTEST_SKIP() << "binding a file needs the right to mount";
        auto archive = MakeArchive(path);
        archive->encrypted = !encrypting;
        archive->password = encrypting ? L"" : L"secret";
        EndLog log;
        log.Attach(*archive);
        RunToEnd(*archive, log, [&] {
            return encrypting ? archive->Encrypt(L"secret") : archive->RemoveEncryption(L"secret");
        });
        held.Release();
        EXPECT_EQ(testsupport::ReadBytes(path), before) << "the old file is still there";
        EXPECT_EQ(Names(work).size(), entries + 1) << "and the new one beside it";
        EXPECT_NE(ErrorFileText().find("DeleteFileW()"), std::string::npos);
        EXPECT_TRUE(archive->encrypted) << "Encrypt sets it; RemoveEncryption keeps it";
        EXPECT_EQ(archive->password, L"secret");
    }
}

// A long run stopped in the middle leaves no partial file: a new archive is
// not made, a changed one is as it was, an expanded item is whole or absent.
TEST_F(ErrorPathTest, CancelInTheMiddleLeavesNothingHalfWritten) {
    fs::path big = BigZip();
    const std::string bigBytes = testsupport::ReadBytes(big);
    fs::path noise = work / "big" / "noise.bin";
    fs::path small = SampleZip();
    const std::string smallBytes = testsupport::ReadBytes(small);

    CNewArchiveContentList list;
    list.Files = {Wide(noise)};
    struct Run {
        const char *name;
        fs::path archive;
        std::function<bool(CArchive &)> start;
        EngineResult result;
    };
    const Run runs[] = {
        {"create", out / "new.zip", [&](CArchive &a) { return a.CreateFromList(&list); },
         kEngineCancelled},
        {"add", small, [&](CArchive &a) { return a.AddTo(&list, L""); }, kEngineCancelled},
        {"expand", big, [&](CArchive &a) { return a.ExpandTo(Wide(out).c_str()); }, 0},
        {"encrypt", big, [&](CArchive &a) { return a.Encrypt(L"secret"); }, kEngineCancelled},
    };
    for (const Run &run : runs) {
        SCOPED_TRACE(run.name);
        const std::vector<std::string> workBefore = Names(work);
        auto archive = MakeArchive(run.archive);
        archive->refreshAfterChange = false;
        EndLog log;
        log.Attach(*archive);
        ASSERT_TRUE(run.start(*archive));
        CancelUnderway(*archive, log);
        archive->DisposeOfProgress();
        EXPECT_TRUE(log.cancelled);
        EXPECT_EQ(archive->lastResult, run.result);
        EXPECT_TRUE(fs::is_empty(out)) << "nothing new in the output folder";
        EXPECT_EQ(Names(work), workBefore) << "nothing new beside the archive";
        EXPECT_EQ(testsupport::ReadBytes(big), bigBytes);
        EXPECT_EQ(testsupport::ReadBytes(small), smallBytes);
        EXPECT_FALSE(archive->encrypted);
    }
}

}  // namespace
