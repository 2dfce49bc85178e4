// One scheduled task as the program sees it: the "Scheduler" section of a
// ".varnicktask" file (a job file with that section beside the job's own).
// The task service keeps only a trigger and a command line naming the file;
// everything else about the task lives here.
//
// The account password is plain in memory and enciphered on disk under the
// key "DateTimeStruct". The task file path is written as "ApplicationName"
// and never read back. No operation reports a file error.
#pragma once

#include <string>

#include "platform/TaskTrigger.h"
#include "platform/WinTypes.h"

class CSchedulerTaskRepository {
public:
    // Stores the module (for string 649, the default comment) and the path,
    // sets a one-time trigger at the present minute, then reads the file. A
    // file that is missing or has no trigger keeps that default trigger.
    CSchedulerTaskRepository(HINSTANCE module, const wchar_t *taskFile);
    // A guard, not a constructor to use: it breaks into the debugger, and
    // without one the process aborts.
    CSchedulerTaskRepository();
    // Every member, the 48 trigger bytes included.
    CSchedulerTaskRepository(const CSchedulerTaskRepository &other);
    CSchedulerTaskRepository &operator=(const CSchedulerTaskRepository &other);
    virtual ~CSchedulerTaskRepository();

    // Reads the "Scheduler" section. Missing keys leave members as they are,
    // except that the wizard type starts from 0, last and next run are
    // cleared, and a missing or empty comment becomes string 649. "LogFile"
    // wins over "LastRunLog".
    void Read();
    // Writes every key of the section, empty strings as they are, and saves.
    void Save();
    // Writes only "LogFile" from the log file member, and saves.
    void SaveLogFile();
    // Every member from `source`; a null source changes nothing.
    void Copy(CSchedulerTaskRepository *source);

    HINSTANCE m_hModule = nullptr;
    // 0 to 3: the wizard's first switch "-n", "-f", "-e", "-b".
    int m_WizardType = 0;
    std::wstring m_LogFile;
    std::wstring m_TaskName;
    // Full path of the task file.
    std::wstring m_TaskFile;
    std::wstring m_AccountName;
    std::wstring m_AccountPassword;
    std::wstring m_Comment;
    SYSTEMTIME m_LastRun{};
    SYSTEMTIME m_NextRun{};
    std::wstring m_TriggerDescription;
    TASK_TRIGGER m_Trigger{};
    bool m_AtShutdown = false;

private:
    void SetDefaultTrigger();
};
