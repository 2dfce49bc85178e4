#include "CSchedulerTaskRepository.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <string>
#include <vector>

#include "CAppUtils.h"
#include "CCrypto.h"
#include "CIniFile.h"
#include "platform/Debugger.h"
#include "platform/WideText.h"
#include "platform/WinModule.h"
#include "platform/WinTime.h"
#include "support/TempHome.h"

namespace {

constexpr const wchar_t *kSection = L"Scheduler";

class SchedulerTaskRepositoryTest : public testsupport::HomeTest {
protected:
    std::wstring TaskFile(const std::string &name = "task.varnicktask") {
        return platform::FromUtf8((home.Scratch() / name).string());
    }

    // The text of a key of the task file, or "<none>".
    static std::wstring Key(const std::wstring &file, const wchar_t *name,
                            const wchar_t *section = kSection) {
        CIniFile ini(file.c_str());
        wchar_t buffer[1024] = {};
        return ini.GetString(section, name, buffer, 1024) ? buffer : L"<none>";
    }

    static void SetKeys(const std::wstring &file,
                        std::initializer_list<std::pair<const wchar_t *, const wchar_t *>> keys) {
        CIniFile ini(file.c_str());
        for (const auto &[name, value] : keys) ini.SetString(kSection, name, value);
        ini.Save();
    }
};

// A weekly trigger with every field distinct from its neighbours.
TASK_TRIGGER WeeklyTrigger() {
    TASK_TRIGGER trigger{};
    trigger.cbTriggerSize = 48;
    trigger.wBeginYear = 2026;
    trigger.wBeginMonth = 11;
    trigger.wBeginDay = 22;
    trigger.wEndYear = 2027;
    trigger.wEndMonth = 1;
    trigger.wEndDay = 2;
    trigger.wStartHour = 13;
    trigger.wStartMinute = 45;
    trigger.MinutesDuration = 0x01020304;
    trigger.MinutesInterval = 60;
    trigger.rgFlags = TASK_TRIGGER_FLAG_HAS_END_DATE;
    trigger.TriggerType = TASK_TIME_TRIGGER_WEEKLY;
    trigger.Type.Weekly.WeeksInterval = 2;
    trigger.Type.Weekly.rgfDaysOfTheWeek = 0x41;
    trigger.wRandomMinutesInterval = 0xABCD;
    return trigger;
}

// WeeklyTrigger() as the task file keeps it: the raw 48 bytes of the
// published layout, little-endian, two digits a byte.
constexpr const wchar_t *kWeeklyTriggerHex =
    L"30000000"                  // cbTriggerSize, Reserved1
    L"EA070B001600EB0701000200"  // begin 2026-11-22, end 2027-01-02
    L"0D002D00"                  // start 13:45
    L"040302013C00000001000000"  // duration, interval, flags
    L"02000000"                  // type weekly
    L"0200410000000000"          // every 2 weeks, Sunday and Saturday
    L"0000CDAB";                 // Reserved2, random minutes

bool SameBytes(const void *a, const void *b, std::size_t size) {
    return std::memcmp(a, b, size) == 0;
}

TEST_F(SchedulerTaskRepositoryTest, MissingFileOrABadTriggerGivesOneTimeTriggerAtThePresentMinute) {
    SYSTEMTIME before{}, after{};
    GetLocalTime(&before);
    CSchedulerTaskRepository task(nullptr, TaskFile().c_str());
    GetLocalTime(&after);

    EXPECT_EQ(task.m_Trigger.cbTriggerSize, 48);
    EXPECT_EQ(task.m_Trigger.TriggerType, TASK_TIME_TRIGGER_ONCE);
    EXPECT_EQ(task.m_Trigger.rgFlags, 0u);
    const auto matches = [&](const SYSTEMTIME &now) {
        return task.m_Trigger.wBeginYear == now.wYear && task.m_Trigger.wBeginMonth == now.wMonth &&
               task.m_Trigger.wBeginDay == now.wDay && task.m_Trigger.wStartHour == now.wHour &&
               task.m_Trigger.wStartMinute == now.wMinute;
    };
    EXPECT_TRUE(matches(before) || matches(after));

    // So does a stored trigger whose first word is zero or that is too long.
    const std::wstring zeroSize = L"0000" + std::wstring(92, L'1');
    const std::wstring tooLong = L"3000" + std::wstring(100, L'1');
    for (const std::wstring &stored : {zeroSize, tooLong}) {
        SetKeys(TaskFile(), {{L"Trigger", stored.c_str()}});
        CSchedulerTaskRepository refused(nullptr, TaskFile().c_str());
        EXPECT_EQ(refused.m_Trigger.cbTriggerSize, 48);
        EXPECT_EQ(refused.m_Trigger.wEndYear, 0);
    }
}

TEST_F(SchedulerTaskRepositoryTest, SaveAndReadKeepEveryMemberAndTheJobSections) {
    const std::wstring file = TaskFile();
    {
        CIniFile job(file.c_str());
        job.SetString(L"Archive", L"KeepArchive", L"1");
        job.Save();
    }
    CSchedulerTaskRepository task(nullptr, file.c_str());
    task.m_WizardType = 3;
    task.m_AtShutdown = true;
    task.m_LogFile = L"/var/log/run.log";
    task.m_TaskName = L"Nightly äöü";
    task.m_AccountName = L"user";
    task.m_AccountPassword = L"s3cret pass";
    task.m_Comment = L"my comment";
    task.m_LastRun = SYSTEMTIME{2026, 1, 5, 2, 3, 4, 5, 6};
    task.m_NextRun = SYSTEMTIME{2026, 5, 3, 6, 7, 8, 9, 10};
    task.m_TriggerDescription = L"Every other week";
    task.m_Trigger = WeeklyTrigger();
    task.Save();

    CSchedulerTaskRepository read(nullptr, file.c_str());
    EXPECT_EQ(read.m_WizardType, 3);
    EXPECT_TRUE(read.m_AtShutdown);
    EXPECT_EQ(read.m_LogFile, task.m_LogFile);
    EXPECT_EQ(read.m_TaskName, task.m_TaskName);
    EXPECT_EQ(read.m_AccountName, task.m_AccountName);
    EXPECT_EQ(read.m_AccountPassword, task.m_AccountPassword);
    EXPECT_EQ(read.m_Comment, task.m_Comment);
    EXPECT_TRUE(SameBytes(&read.m_LastRun, &task.m_LastRun, sizeof(SYSTEMTIME)));
    EXPECT_TRUE(SameBytes(&read.m_NextRun, &task.m_NextRun, sizeof(SYSTEMTIME)));
    EXPECT_EQ(read.m_TriggerDescription, task.m_TriggerDescription);
    EXPECT_TRUE(SameBytes(&read.m_Trigger, &task.m_Trigger, sizeof(TASK_TRIGGER)));

    EXPECT_EQ(Key(file, L"KeepArchive", L"Archive"), L"1");
    EXPECT_EQ(Key(file, L"ApplicationName"), file);
    EXPECT_EQ(Key(file, L"Trigger"), kWeeklyTriggerHex);

    // The password is kept only enciphered, under its odd key name.
    const std::string bytes = testsupport::ReadBytes(home.Scratch() / "task.varnicktask");
    const std::vector<BYTE> plain = platform::ToUtf16Bytes(task.m_AccountPassword);
    EXPECT_EQ(bytes.find(std::string(plain.begin(), plain.end())), std::string::npos);
    wchar_t deciphered[1024] = {};
    CCrypto crypto;
    ASSERT_TRUE(crypto.DecryptString(Key(file, L"DateTimeStruct").c_str(), deciphered, 1024));
    EXPECT_EQ(deciphered, task.m_AccountPassword);
}

TEST_F(SchedulerTaskRepositoryTest,
       LogFileWinsOverLastRunLogApplicationNameIsNotReadAndSaveLogFileWritesOnlyLogFile) {
    const std::wstring file = TaskFile();
    SetKeys(file, {{L"LastRunLog", L"last.log"},
                   {L"LogFile", L"chosen.log"},
                   {L"ApplicationName", L"/elsewhere.varnicktask"}});
    CSchedulerTaskRepository task(nullptr, file.c_str());
    EXPECT_EQ(task.m_LogFile, L"chosen.log");
    EXPECT_EQ(task.m_TaskFile, file);  // ApplicationName is never read

    task.m_LogFile = L"new.log";
    task.m_TaskName = L"not saved";
    task.SaveLogFile();
    EXPECT_EQ(Key(file, L"LogFile"), L"new.log");
    EXPECT_EQ(Key(file, L"LastRunLog"), L"last.log");
    EXPECT_EQ(Key(file, L"TaskName"), L"<none>");
}

TEST_F(SchedulerTaskRepositoryTest, MissingOrEmptyCommentShowsString649) {
    HINSTANCE resources = LoadLibraryW(CAppUtils::GetInstResPath());
    ASSERT_NE(resources, nullptr);
    wchar_t text[1024] = {};
    ASSERT_GT(LoadStringW(resources, 649, text, 1024), 0);

    const std::wstring file = TaskFile();
    EXPECT_EQ(CSchedulerTaskRepository(resources, file.c_str()).m_Comment, text);
    SetKeys(file, {{L"Comment", L""}});
    EXPECT_EQ(CSchedulerTaskRepository(resources, file.c_str()).m_Comment, text);
    SetKeys(file, {{L"Comment", L"own"}});
    EXPECT_EQ(CSchedulerTaskRepository(resources, file.c_str()).m_Comment, L"own");
    FreeLibrary(resources);
}

TEST(SchedulerTaskRepositoryDeathTest, DefaultConstructorAbortsWithoutADebugger) {
    ASSERT_FALSE(IsDebuggerPresent());
    EXPECT_DEATH({ CSchedulerTaskRepository guard; }, "");
}

}  // namespace
