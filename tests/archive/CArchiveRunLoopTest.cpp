// The run loop: how a run ends, and an interrupt turned into a cancel.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <string>

#include "CArchiveRunLoop.h"
#include "archive/FacadeTest.h"

namespace {

namespace fs = std::filesystem;

class CArchiveRunLoopTest : public archivetest::FacadeTest {};

TEST_F(CArchiveRunLoopTest, OutcomesOfRunsThatEndOnTheirOwn) {
    CArchiveRunLoop loop(false);
    auto archive = MakeArchive(SampleZip());
    EXPECT_EQ(loop.Run(*archive, [] { return false; }), kArchiveRunNotStarted);

    EXPECT_EQ(loop.Run(*archive, [&] { return archive->Verify(); }), kArchiveRunSucceeded);
    EXPECT_FALSE(archive->IsProgressUp()) << "the run's window is gone";
    EXPECT_FALSE(archive->Busy());

    testsupport::WriteBytes(work / "damaged.zip", "PK\x03\x04 not the rest of a zip archive");
    auto damaged = MakeArchive(work / "damaged.zip");
    EXPECT_EQ(loop.Run(*damaged, [&] { return damaged->Verify(); }), kArchiveRunFailed);
    EXPECT_NE(damaged->lastResult, 0);
}

TEST_F(CArchiveRunLoopTest, AnInterruptDuringARunCancelsItAndOneBeforeStopsNothing) {
    auto archive = MakeArchive(BigZip());
    const fs::path out = work / "out";
    auto expand = [&] { return archive->ExpandTo(out.wstring().c_str()); };
    {
        CArchiveRunLoop loop(true);
        std::raise(SIGINT);  // caught by the loop: no run to stop yet
        EXPECT_EQ(loop.Run(*archive, expand), kArchiveRunSucceeded);

        fs::remove_all(out);
        EXPECT_EQ(loop.Run(*archive,
                           [&] {
                               const bool started = expand();
                               std::raise(SIGINT);
                               return started;
                           }),
                  kArchiveRunInterrupted);
        EXPECT_TRUE(archive->cancelled);

        fs::remove_all(out);
        EXPECT_EQ(loop.Run(*archive,
                           [&] {
                               const bool started = expand();
                               CArchiveRunLoop::RequestInterrupt();
                               return started;
                           }),
                  kArchiveRunInterrupted);
    }
    // The loop gave SIGINT back: the default again.
    void (*previous)(int) = std::signal(SIGINT, SIG_DFL);
    EXPECT_EQ(previous, SIG_DFL);
}

TEST_F(CArchiveRunLoopTest, ABlockingCallRunsBesideThePumpAndAnInterruptReachesItsCancelTest) {
    CArchiveRunLoop loop(false);
    auto archive = MakeArchive(SampleZip());
    EXPECT_EQ(loop.Run(*archive, [&] { return archive->Verify(); }), kArchiveRunSucceeded);
    const std::thread::id pump = std::this_thread::get_id();
    std::thread::id worker;
    EXPECT_EQ(loop.RunBlocking(*archive,
                               [&] {
                                   worker = std::this_thread::get_id();
                                   return true;
                               }),
              kArchiveRunSucceeded);
    EXPECT_NE(worker, pump);
    EXPECT_EQ(loop.RunBlocking(*archive, [] { return false; }), kArchiveRunFailed);

    // The call stops once the archive is cancelled, as the engine does at
    // its next cancel test.
    EXPECT_EQ(loop.RunBlocking(*archive,
                               [&] {
                                   CArchiveRunLoop::RequestInterrupt();
                                   while (!archive->archiveObject->cancel) {
                                       std::this_thread::sleep_for(std::chrono::milliseconds(1));
                                   }
                                   return false;
                               }),
              kArchiveRunInterrupted);
    EXPECT_FALSE(archive->Busy());
}

}  // namespace
