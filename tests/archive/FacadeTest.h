// The fixture of the facade tests: an engine session, both option records,
// a parent window on the test's thread, archives made with the command-line
// tools, and a pump for the runs that end through the window.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "CAppOptionsRepository.h"
#include "CArchive.h"
#include "CArchiveObject.h"
#include "CEngine.h"
#include "CFormatOptionsRepository.h"
#include "archive/ArchiveTest.h"
#include "archive/EngineHandles.h"
#include "support/DialogDriving.h"

namespace archivetest {

// What an end callback saw.
struct EndLog {
    std::atomic<int> ends{0};
    std::atomic<bool> cancelled{false};
    std::thread::id thread;
    std::function<void()> atEnd;

    static void Callback(void *context, bool cancelled) {
        auto *log = static_cast<EndLog *>(context);
        log->thread = std::this_thread::get_id();
        log->cancelled = cancelled;
        if (log->atEnd) log->atEnd();
        log->ends++;
    }
    void Attach(CArchive &archive) {
        archive.endCallback = Callback;
        archive.endContext = this;
    }
};

class FacadeTest : public ArchiveTest {
protected:
    void SetUp() override {
        ArchiveTest::SetUp();
        appOptions = std::make_unique<CAppOptionsRepository>();
        formatOptions = std::make_unique<CFormatOptionsRepository>();
        parent = CreateDialogParamW(
            nullptr, MAKEINTRESOURCEW(1), nullptr,
            [](HWND, UINT, WPARAM, LPARAM) -> INT_PTR { return FALSE; }, 0);
        ASSERT_NE(parent, nullptr);
        work = home.Scratch("work");
    }
    void TearDown() override {
        if (parent) DestroyWindow(parent);
    }

    std::unique_ptr<CArchive> MakeArchive(const std::filesystem::path &path) {
        auto archive =
            std::make_unique<CArchive>(parent, &engine, appOptions.get(), formatOptions.get());
        archive->SetArchiveName(Wide(path).c_str());
        return archive;
    }

    // A file of `bytes` under the work folder.
    std::filesystem::path Put(const std::string &relative, const std::string &bytes) {
        std::filesystem::path file = work / relative;
        std::filesystem::create_directories(file.parent_path());
        testsupport::WriteBytes(file, bytes);
        return file;
    }

    // Runs `command` in the work folder and gives the path of `made` there.
    std::filesystem::path Make(const std::string &made, const std::string &command) {
        EXPECT_TRUE(RunIn(work, command)) << command;
        return work / made;
    }

    // The three-file zip most tests list: a.txt, docs/b.txt, docs/sub/c.txt.
    std::filesystem::path SampleZip(const std::string &name = "sample.zip") {
        Put("src/a.txt", std::string(1000, 'a'));
        Put("src/docs/b.txt", std::string(2000, 'b'));
        Put("src/docs/sub/c.txt", "c");
        return Make(name, "cd src && zip -qr ../" + name + " a.txt docs");
    }

    // An archive of `sources` made by the engine in the format `formatId`.
    EngineResult Create(const std::filesystem::path &output,
                        const std::vector<std::filesystem::path> &sources,
                        const char *formatId = "zip", const wchar_t *password = nullptr) {
        OpaqueEngineObject *session = engine.GetEngine();
        ::archive::ScopedFSObjectList list;
        ::archive::ScopedFSObject out, made;
        ::archive::ScopedStringRef secret;
        NewFSObjectList(session, list.Out());
        for (const auto &source : sources) {
            ::archive::ScopedFSObject item;
            NewFSObjectFromUnicodePath(Wide(source).c_str(), item.Out());
            AddFSObjectToFSObjectList(session, item.Get(), list.Get());
        }
        NewFSObjectFromUnicodePath(Wide(output).c_str(), out.Out());
        if (password) NewStringRefFromUnicodeString(password, secret.Out());
        return ArchiveFSObjectList(session, formatId, list.Get(), out.Get(), made.Out(),
                                   secret.Get());
    }

    // Expansions go straight into the folder given: no folder of their own,
    // no merging, the archive kept, no virus scan.
    void ExpandStraightIntoTheFolder() {
        appOptions->ExpandFolderOptions = kCreateFolderNever;
        appOptions->ExpandMergeContents = false;
        appOptions->DeleteArcAfterExpand = false;
        appOptions->AVOption = 0;
    }

    // Bytes that do not compress, the same for the same seed: a run over a
    // large file of them lasts long enough to be cancelled in the middle.
    static std::string Noise(std::size_t size, std::uint32_t seed) {
        std::string bytes(size, '\0');
        for (char &byte : bytes) {
            seed = seed * 1664525u + 1013904223u;
            byte = static_cast<char>(seed >> 24);
        }
        return bytes;
    }

    // A stored zip of one large file of noise, big/noise.bin.
    std::filesystem::path BigZip(const std::string &name = "big.zip", std::uint32_t seed = 99) {
        Put("big/noise.bin", Noise(kBigFileSize, seed));
        return Make(name, "cd big && zip -q -0 ../" + name + " noise.bin");
    }

    // Starts `start` and pumps until its run has ended.
    void RunToEnd(CArchive &archive, EndLog &log, const std::function<bool()> &start) {
        int before = log.ends;
        ASSERT_TRUE(start());
        ASSERT_TRUE(PumpUntil([&] { return log.ends == before + 1 && !archive.Busy(); }));
        archive.DisposeOfProgress();
    }

    // The same with a log of its own, detached again at the end.
    void RunToEnd(CArchive &archive, const std::function<bool()> &start) {
        EndLog log;
        log.Attach(archive);
        RunToEnd(archive, log, start);
        archive.endCallback = nullptr;
        archive.endContext = nullptr;
    }

    // The same, expecting the run to end with result 0.
    void RunToSuccess(CArchive &archive, const std::function<bool()> &start) {
        RunToEnd(archive, start);
        EXPECT_EQ(archive.lastResult, 0) << Wide(archive.name);
    }

    // Cancels a run started on `archive` once its progress has counted
    // bytes, and pumps until it has ended.
    void CancelUnderway(CArchive &archive, EndLog &log) {
        int before = log.ends;
        ASSERT_TRUE(PumpUntil([&] {
            return archive.Busy() && archive.archiveObject->progressDialog->bytesTotal > 0;
        }));
        archive.Cancel();
        ASSERT_TRUE(PumpUntil([&] { return log.ends == before + 1 && !archive.Busy(); }));
    }

    static constexpr std::size_t kBigFileSize = 48u << 20;

    static bool PumpUntil(const std::function<bool()> &done) {
        return testsupport::PumpUntil(done);
    }

    CEngine engine;
    std::unique_ptr<CAppOptionsRepository> appOptions;
    std::unique_ptr<CFormatOptionsRepository> formatOptions;
    HWND parent = nullptr;
    std::filesystem::path work;
};

// Facade cases whose work folder holds the sample tree src/a.txt and
// src/docs/b.txt: conversions and self-extracting programs.
class SampleTreeTest : public FacadeTest {
protected:
    void SetUp() override {
        FacadeTest::SetUp();
        Put("src/a.txt", std::string(3000, 'a'));
        Put("src/docs/b.txt", "bee");
    }

    // The sample as an archive of `formatId` made by the engine.
    std::filesystem::path Sample(const std::string &name, const char *formatId,
                                 const wchar_t *password = nullptr) {
        const std::filesystem::path path = work / name;
        EXPECT_EQ(Create(path, {work / "src/a.txt", work / "src/docs"}, formatId, password), 0);
        return path;
    }

    static void ExpectSampleIn(const std::filesystem::path &folder) {
        EXPECT_EQ(testsupport::ReadBytes(folder / "a.txt"), std::string(3000, 'a')) << folder;
        EXPECT_EQ(testsupport::ReadBytes(folder / "docs/b.txt"), "bee") << folder;
    }

    static bool IsProgram(const std::filesystem::path &path) {
        return testsupport::ReadBytes(path).rfind(
                   "\x7f"
                   "ELF",
                   0) == 0;
    }

    // Runs the program with `arguments` and checks the sample came out in `out`.
    void ExpectExpandsItself(const std::filesystem::path &program, const std::filesystem::path &out,
                             const std::string &arguments = "") {
        ASSERT_TRUE(IsProgram(program)) << program;
        ASSERT_TRUE(RunIn(
            work, "'" + program.string() + "' " + arguments + " '" + out.string() + "' </dev/null"))
            << program;
        ExpectSampleIn(out);
    }
};

}  // namespace archivetest
