// The notification procedure, driven with the contexts the engine passes:
// a tap installed on a pair hands each real context to NotificationProc
// during a real engine run, and the effect shows on disk, in the progress
// dialog's fields and in the prompts the headless host was asked.
#include <gtest/gtest.h>

#include <cstring>
#include <map>

#include "CExpandConflictAction.h"
#include "CProgressDialog.h"
#include "archive/FacadeTest.h"

namespace {

using archivetest::FacadeTest;

// Forwards the notifications of a pair to a test's function.
struct Tap {
    std::function<int32_t(int32_t, int32_t, NotificationContext)> call;
    std::vector<int32_t> answers;

    static int32_t Procedure(int32_t category, int32_t event, NotificationContext context,
                             void *user) {
        auto *tap = static_cast<Tap *>(user);
        int32_t answer = tap->call(category, event, context);
        tap->answers.push_back(answer);
        return answer;
    }
    void On(OpaqueEngineObject *engine, int32_t category, int32_t event) {
        InstallNotification(engine, category, event, Procedure, this);
    }
};

class NotificationProcTest : public FacadeTest {
protected:
    void SetUp() override {
        FacadeTest::SetUp();
        archivePath = SampleZip();
        archive = MakeArchive(archivePath);
        ASSERT_TRUE(archive->OpenArchiveObject());
        object = archive->archiveObject;
        session = engine.GetEngine();
        SetPasswordRetryMark(false);
    }
    void TearDown() override {
        for (int32_t category : {1, 100, 200}) {
            for (int32_t event = 1; event <= 11; ++event) {
                RemoveNotification(session, category, event);
            }
        }
        archive.reset();
        FacadeTest::TearDown();
    }

    // A progress dialog for the object, as a threaded run makes one.
    CProgressDialog &WithDialog() {
        object->progressDialog = new CProgressDialog;
        EXPECT_TRUE(object->progressDialog->Run(archive.get()));
        return *object->progressDialog;
    }

    // Forwards `pair` to NotificationProc with the object as user data.
    void Forward(Tap &tap, int32_t category, int32_t event) {
        tap.call = [this](int32_t c, int32_t e, NotificationContext context) {
            return NotificationProc(c, e, context, object);
        };
        tap.On(session, category, event);
    }

    EngineResult Expand(const std::filesystem::path &from, const std::filesystem::path &to,
                        const wchar_t *password = nullptr) {
        ::archive::ScopedFSObject source, destination;
        ::archive::ScopedFSObjectList result;
        ::archive::ScopedStringRef secret;
        NewFSObjectFromUnicodePath(Wide(from).c_str(), source.Out());
        NewFSObjectFromUnicodePath(Wide(to).c_str(), destination.Out());
        if (password) NewStringRefFromUnicodeString(password, secret.Out());
        return ExpandOrDecodeFile(session, source.Get(), destination.Get(), result.Out(),
                                  secret.Get());
    }

    // Expands the sample into "out" once; the next expansion there meets
    // every item, with the engine asking through (1,3), forwarded by `tap`,
    // in an expanding run with a dialog.
    void AskConflictsOfASecondExpansion(Tap &tap) {
        ASSERT_EQ(Expand(archivePath, work / "out"), 0);
        SetEngineIntegerProperty(session, kEnginePropConflictResolution, kResolutionAsk);
        archive->operationKind = ARCHIVE_OPERATION_EXPANDING;
        WithDialog();
        Forward(tap, 1, 3);
    }

    std::string Listing(const std::filesystem::path &zip) {
        return Output(work, "unzip -Z1 '" + zip.string() + "'");
    }

    std::string Contents(const std::filesystem::path &zip, const std::string &item) {
        return Output(work, "unzip -p '" + zip.string() + "' '" + item + "'");
    }

    std::filesystem::path archivePath;
    std::unique_ptr<CArchive> archive;
    CArchiveObject *object = nullptr;
    OpaqueEngineObject *session = nullptr;
};

TEST_F(NotificationProcTest, CancelStopsEveryPairAndTellsTheWindowFirst) {
    EXPECT_EQ(NotificationProc(1, 1, nullptr, object), 1);
    EXPECT_EQ(NotificationProc(2, 5, nullptr, object), 0) << "category 2 is never handled";
    EXPECT_EQ(NotificationProc(300, 1, nullptr, object), 0);
    object->cancel = true;
    EXPECT_EQ(NotificationProc(200, 11, nullptr, object), 2) << "without a dialog";

    CProgressDialog &dialog = WithDialog();
    object->cancel = false;
    dialog.bytesDone = 500;
    dialog.cancelRequested = true;  // the dialog's own button
    EXPECT_EQ(NotificationProc(100, 4, nullptr, object), 2);
    ASSERT_TRUE(PumpUntil([&] { return dialog.bytesDone == 0; })) << "message 11 arrived";
    EXPECT_EQ(dialog.DlgString(PROGRESSDLG_OPERATION), Text(1217));

    // A real run stops at its next notification.
    Tap tap;
    Forward(tap, 100, 7);
    EXPECT_EQ(Expand(archivePath, work / "stopped"), kEngineCancelled);
    EXPECT_EQ(tap.answers, std::vector<int32_t>{2});
}

TEST_F(NotificationProcTest, CountersAndItemNamesReachTheDialogFields) {
    Tap counters, names;
    std::map<int32_t, std::uint64_t> last;
    counters.call = [&](int32_t c, int32_t e, NotificationContext context) {
        for (int32_t key = 5; key <= 9; ++key) {
            GetDataFromContext(context, key, &last[key], sizeof(std::uint64_t));
        }
        return NotificationProc(c, e, context, object);
    };
    counters.On(session, 100, 7);
    Forward(names, 100, 6);

    // Without a dialog: counters handled, names not.
    ASSERT_EQ(Expand(archivePath, work / "first"), 0);
    ASSERT_FALSE(counters.answers.empty());
    ASSERT_FALSE(names.answers.empty());
    EXPECT_EQ(counters.answers.back(), 1);
    EXPECT_EQ(names.answers.back(), 0);

    CProgressDialog &dialog = WithDialog();
    counters.answers.clear();
    ASSERT_EQ(Expand(archivePath, work / "second"), 0);
    EXPECT_EQ(counters.answers.back(), 1);
    EXPECT_EQ(names.answers.back(), 1);
    EXPECT_EQ(dialog.filesTotal, static_cast<LONGLONG>(last[6]));
    EXPECT_EQ(dialog.filesDone, static_cast<LONGLONG>(last[5]));
    EXPECT_EQ(dialog.bytesTotal, static_cast<LONGLONG>(last[9]));
    EXPECT_EQ(dialog.bytesRead, static_cast<LONGLONG>(last[7]));
    EXPECT_EQ(dialog.bytesDone, static_cast<LONGLONG>(last[7] + last[8]))
        << "both sides of the work";
    EXPECT_EQ(last[6], 3u);
    EXPECT_TRUE(platform::EndsWithNoCase(dialog.FileName(), L"c.txt")) << dialog.FileName();
}

TEST_F(NotificationProcTest, ExpandingConflictActionsAndTheFolderNotice) {
    appOptions->ExpandMergeContents = false;
    Tap tap;
    AskConflictsOfASecondExpansion(tap);
    auto reset = [&] {
        Put("out/a.txt", "old");
        Put("out/docs/extra.txt", "mine");
        host.Reset();
        tap.answers.clear();
        archive->applyToAll = false;
        object->cancel = false;
    };

    // Skip the file, replace the folder: the notice comes once.
    reset();
    host.QueueConflictAction(CExpandConflictAction::Skip);
    host.QueueConflictAction(CExpandConflictAction::Replace);
    host.QueueFolderDelete(platform::FolderDeleteAnswer{true, false});
    EXPECT_EQ(Expand(archivePath, work / "out"), 0);
    EXPECT_EQ(testsupport::ReadBytes(work / "out/a.txt"), "old");
    EXPECT_FALSE(std::filesystem::exists(work / "out/docs/extra.txt"));
    auto prompts = host.Prompts();
    ASSERT_EQ(prompts.size(), 3u);
    EXPECT_FALSE(prompts[0].As<platform::ConflictPrompt>()->folder);
    EXPECT_TRUE(prompts[1].As<platform::ConflictPrompt>()->folder);
    ASSERT_NE(prompts[2].As<platform::FolderDeletePrompt>(), nullptr);
    EXPECT_FALSE(object->askOnFolderReplace) << "the notice said: do not ask again";
    EXPECT_FALSE(appOptions->ExpandMergeContents);

    // Keep both (5 gives 3); replace-if-newer (4) on the folder merges.
    reset();
    host.QueueConflictAction(CExpandConflictAction::KeepBoth);
    host.QueueConflictAction(CExpandConflictAction::ReplaceIfNewer);
    host.QueueConflictAction(CExpandConflictAction::SkipAll);  // inside the merged folder
    ASSERT_EQ(Expand(archivePath, work / "out"), 0);
    EXPECT_TRUE(std::filesystem::exists(work / "out/a_1.txt"));
    EXPECT_EQ(testsupport::ReadBytes(work / "out/a.txt"), "old");
    EXPECT_TRUE(std::filesystem::exists(work / "out/docs/extra.txt"));

    // The merge option makes a folder replace a merge, without the notice.
    reset();
    object->askOnFolderReplace = true;
    appOptions->ExpandMergeContents = true;
    host.QueueConflictAction(CExpandConflictAction::Replace);
    host.QueueConflictAction(CExpandConflictAction::Replace);
    host.QueueConflictAction(CExpandConflictAction::ReplaceAll);  // inside the merged folder
    ASSERT_EQ(Expand(archivePath, work / "out"), 0);
    EXPECT_EQ(testsupport::ReadBytes(work / "out/a.txt"), std::string(1000, 'a'));
    EXPECT_TRUE(std::filesystem::exists(work / "out/docs/extra.txt"));
    for (const auto &prompt : host.Prompts()) {
        EXPECT_EQ(prompt.As<platform::FolderDeletePrompt>(), nullptr);
    }

    // An answer for all: the later conflicts return 1 without a prompt.
    reset();
    host.QueueConflictAction(CExpandConflictAction::SkipAll);
    ASSERT_EQ(Expand(archivePath, work / "out"), 0);
    EXPECT_EQ(host.Prompts().size(), 1u);
    EXPECT_TRUE(archive->applyToAll);
    EXPECT_EQ(tap.answers.size(), 2u);
    EXPECT_EQ(tap.answers.back(), 1);

    // Stop (6) and a refused prompt both end the run.
    for (std::optional<int> answer :
         {std::optional<int>(CExpandConflictAction::Stop), std::optional<int>()}) {
        reset();
        host.QueueConflictAction(answer);
        EXPECT_EQ(Expand(archivePath, work / "out"), kEngineCancelled);
        EXPECT_EQ(tap.answers, std::vector<int32_t>{2});
        EXPECT_TRUE(object->cancel);
    }
}

TEST_F(NotificationProcTest, AddingConflictTranslatesTheActionsDifferently) {
    Put("one/x.txt", "first");
    Put("two/x.txt", "second");
    SetEngineIntegerProperty(session, kEnginePropDuplicateResolution, kResolutionAskDuplicate);
    archive->operationKind = ARCHIVE_OPERATION_ADDING;
    Tap tap;
    Forward(tap, 1, 3);
    const std::vector<std::filesystem::path> sources{work / "one/x.txt", work / "two/x.txt"};

    // No dialog: keep what is there (2), also with the merge flag.
    for (bool merge : {false, true}) {
        appOptions->AddMergeContents = merge;
        std::filesystem::path zip = work / (merge ? "merged.zip" : "plain.zip");
        ASSERT_EQ(Create(zip, sources), 0);
        EXPECT_EQ(Listing(zip), "x.txt\n");
        EXPECT_EQ(Contents(zip, "x.txt"), "first");
    }
    EXPECT_TRUE(host.Prompts().empty());
    appOptions->AddMergeContents = false;

    CProgressDialog &dialog = WithDialog();
    host.QueueConflictAction(CExpandConflictAction::ReplaceAll);
    ASSERT_EQ(Create(work / "replaced.zip", sources), 0);
    EXPECT_EQ(Contents(work / "replaced.zip", "x.txt"), "second");
    EXPECT_TRUE(archive->applyToAll);

    // Cancel in the prompt is not a stop when adding.
    archive->applyToAll = false;
    tap.answers.clear();
    host.QueueConflictAction(std::nullopt);
    EXPECT_EQ(Create(work / "refused.zip", sources), 0);
    EXPECT_EQ(tap.answers, std::vector<int32_t>{1});
    EXPECT_FALSE(object->cancel);

    // (1,2) with the path object of the same context: the newest segment.
    Tap segment;
    segment.call = [&](int32_t, int32_t, NotificationContext context) {
        return NotificationProc(1, 2, context, object);
    };
    segment.On(session, 1, 3);
    archive->applyToAll = false;
    ASSERT_EQ(Create(work / "segment.zip", sources), 0);
    EXPECT_EQ(segment.answers, std::vector<int32_t>{1});
    EXPECT_EQ(std::filesystem::path(dialog.NewestSegment()), work / "two/x.txt");
}

TEST_F(NotificationProcTest, StoredWrongPasswordIsOfferedTwiceThenThePromptSaysWrong) {
    Put("enc/one.txt", std::string(300, '1'));
    std::filesystem::path zip = Make("enc.zip", "cd enc && zip -q -P right ../enc.zip one.txt");
    archive->SetArchiveName(Wide(zip).c_str());
    archive->password = L"wrong";
    std::vector<std::wstring> offered;
    Tap tap;
    tap.call = [&](int32_t c, int32_t e, NotificationContext context) {
        offered.push_back(archive->password);
        return NotificationProc(c, e, context, object);
    };
    tap.On(session, 200, 9);
    host.QueuePassword(L"right");
    ASSERT_EQ(Expand(zip, work / "out"), 0);
    EXPECT_EQ(testsupport::ReadBytes(work / "out/one.txt"), std::string(300, '1'));
    EXPECT_EQ(offered, (std::vector<std::wstring>{L"wrong", L"wrong", L"wrong"}));
    auto prompts = host.Prompts();
    ASSERT_EQ(prompts.size(), 1u);
    EXPECT_TRUE(prompts[0].As<platform::PasswordPrompt>()->passwordWrong);
    EXPECT_EQ(prompts[0].As<platform::PasswordPrompt>()->archiveName, archive->name);
    EXPECT_EQ(archive->password, L"right");
    EXPECT_EQ(object->lastPasswordItem, L"one.txt");
    EXPECT_TRUE(PasswordRetryMark()) << "the mark outlives the run";
}

TEST_F(NotificationProcTest, RefusedPasswordEndsEveryLaterRequestOfTheRun) {
    Put("enc/one.txt", "1");
    std::filesystem::path zip = Make("enc.zip", "cd enc && zip -q -P right ../enc.zip one.txt");
    archive->SetArchiveName(Wide(zip).c_str());
    Tap tap;
    Forward(tap, 200, 9);
    host.QueuePassword(std::nullopt);
    EXPECT_EQ(Expand(zip, work / "out"), kEngineCancelled);
    EXPECT_TRUE(archive->passwordRefused);
    EXPECT_EQ(host.Prompts().size(), 1u);
    object->cancel = false;
    EXPECT_EQ(NotificationProc(200, 9, nullptr, object), 2) << "no second prompt";
    EXPECT_EQ(host.Prompts().size(), 1u);

    // Reading quietly with a window: refused without a prompt.
    archive->passwordRefused = false;
    object->cancel = false;
    archive->noPrompts = true;
    EXPECT_EQ(Expand(zip, work / "quiet"), kEngineCancelled);
    EXPECT_EQ(host.Prompts().size(), 1u);
    EXPECT_TRUE(archive->passwordRefused);
}

TEST_F(NotificationProcTest, SegmentNamesAndTheMissingSegmentAnswers) {
    struct Case {
        const wchar_t *name;
        format::type stored;
        bool form;
    };
    for (const Case &c :
         {Case{L"/x/a.part01.vnkx", format::unknown, true},
          Case{L"/x/A.PART07.VNKX", format::vnkx, true}, Case{L"/x/a.vnkx", format::unknown, false},
          Case{L"/x/a.part01.zip", format::unknown, false},
          Case{L"/x/a.part01.vnkx", format::zip, false}}) {
        archive->SetArchiveName(c.name);
        archive->formatType = c.stored;
        archive->lastResult = 99;
        EXPECT_EQ(IsSegmentName(*archive), c.form) << c.name;
        EXPECT_EQ(archive->lastResult, 0);
    }

    // Key 4 of a real context names the segment.
    std::vector<std::pair<std::wstring, int32_t>> seen;
    std::wstring asked;
    std::vector<bool> cancels;
    Tap tap;
    tap.call = [&](int32_t, int32_t, NotificationContext context) {
        if (!asked.empty()) return 1;
        StringRef segment = nullptr;
        GetDataFromContext(context, kContextName, &segment, sizeof(segment));
        asked = GetUnicodeStringFromStringRef(segment);
        for (const wchar_t *name : {L"/x/a.part01.vnkx", L"/x/a.vnkx", L"/x/b.part02.vnkx"}) {
            archive->SetArchiveName(name);
            archive->formatType = format::unknown;  // taken from the engine's id
            std::strcpy(archive->formatId, "vnkx");
            object->cancel = false;
            seen.emplace_back(name, NotificationProc(200, 10, context, object));
            cancels.push_back(object->cancel);
        }
        archive->SetArchiveName(Wide(work / (Text(763) + L"a.vidx")).c_str());
        object->cancel = false;
        seen.emplace_back(L"index", NotificationProc(200, 10, context, object));
        return 1;
    };
    tap.On(session, 100, 6);
    archive->indexArchiveFolder = Wide(work);
    host.QueueDirectory(Wide(work));
    host.QueueDirectory(std::nullopt);
    host.QueueArchiveLocation(Wide(work / "a.vnkx"));
    ASSERT_EQ(Expand(archivePath, work / "out"), 0);
    ASSERT_FALSE(asked.empty());
    EXPECT_EQ(
        seen,
        (std::vector<std::pair<std::wstring, int32_t>>{
            {L"/x/a.part01.vnkx", 1}, {L"/x/a.vnkx", 1}, {L"/x/b.part02.vnkx", 2}, {L"index", 1}}));
    auto prompts = host.Prompts();
    ASSERT_EQ(prompts.size(), 3u) << "a.vnkx takes the index archive folder unasked";
    EXPECT_EQ(prompts[0].As<platform::DirectoryPrompt>()->text,
              FormatW(Text(1123).c_str(), asked.c_str()));
    EXPECT_EQ(prompts[2].As<platform::ArchiveLocationPrompt>()->pattern, L"*.vnkx");
    EXPECT_EQ(cancels, (std::vector<bool>{false, false, true})) << "a refusal sets the cancel flag";
}

}  // namespace
