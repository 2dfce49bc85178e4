// The task service's trigger record, kept byte for byte in the published
// 48-byte layout: task files store it raw, and files written on Windows
// must read here and back. Natural alignment gives exactly that layout on
// every ABI we build for; the asserts below hold it there.
#pragma once

#include <cstddef>

#include "platform/WinTypes.h"

enum TASK_TRIGGER_TYPE : DWORD {
    TASK_TIME_TRIGGER_ONCE = 0,
    TASK_TIME_TRIGGER_DAILY = 1,
    TASK_TIME_TRIGGER_WEEKLY = 2,
    TASK_TIME_TRIGGER_MONTHLYDATE = 3,
    TASK_TIME_TRIGGER_MONTHLYDOW = 4,
    TASK_EVENT_TRIGGER_ON_IDLE = 5,
    TASK_EVENT_TRIGGER_AT_SYSTEMSTART = 6,
    TASK_EVENT_TRIGGER_AT_LOGON = 7,
};

inline constexpr DWORD TASK_TRIGGER_FLAG_HAS_END_DATE = 0x1;
inline constexpr DWORD TASK_TRIGGER_FLAG_KILL_AT_DURATION_END = 0x2;
inline constexpr DWORD TASK_TRIGGER_FLAG_DISABLED = 0x4;

struct DAILY {
    WORD DaysInterval;
};
struct WEEKLY {
    WORD WeeksInterval;
    WORD rgfDaysOfTheWeek;
};
struct MONTHLYDATE {
    DWORD rgfDays;
    WORD rgfMonths;
};
struct MONTHLYDOW {
    WORD wWhichWeek;
    WORD rgfDaysOfTheWeek;
    WORD rgfMonths;
};
union TRIGGER_TYPE_UNION {
    DAILY Daily;
    WEEKLY Weekly;
    MONTHLYDATE MonthlyDate;
    MONTHLYDOW MonthlyDOW;
};

struct TASK_TRIGGER {
    WORD cbTriggerSize;
    WORD Reserved1;
    WORD wBeginYear;
    WORD wBeginMonth;
    WORD wBeginDay;
    WORD wEndYear;
    WORD wEndMonth;
    WORD wEndDay;
    WORD wStartHour;
    WORD wStartMinute;
    DWORD MinutesDuration;
    DWORD MinutesInterval;
    DWORD rgFlags;
    TASK_TRIGGER_TYPE TriggerType;
    TRIGGER_TYPE_UNION Type;
    WORD Reserved2;
    WORD wRandomMinutesInterval;
};
using PTASK_TRIGGER = TASK_TRIGGER *;

static_assert(sizeof(TRIGGER_TYPE_UNION) == 8);
static_assert(sizeof(TASK_TRIGGER) == 48);
static_assert(offsetof(TASK_TRIGGER, wBeginYear) == 4);
static_assert(offsetof(TASK_TRIGGER, wStartHour) == 16);
static_assert(offsetof(TASK_TRIGGER, wStartMinute) == 18);
static_assert(offsetof(TASK_TRIGGER, MinutesDuration) == 20);
static_assert(offsetof(TASK_TRIGGER, rgFlags) == 28);
static_assert(offsetof(TASK_TRIGGER, TriggerType) == 32);
static_assert(offsetof(TASK_TRIGGER, Type) == 36);
static_assert(offsetof(TASK_TRIGGER, Reserved2) == 44);
static_assert(offsetof(TASK_TRIGGER, wRandomMinutesInterval) == 46);
