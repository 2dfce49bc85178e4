#include "CIniFile.h"
#include "CJulianDate.h"
#include "CNewArchiveContentList.h"
#include "platform/WinTime.h"

namespace {

constexpr unsigned kMaskChars = 1024;
// What a job file means by a missing key (the constructor's defaults differ
// for Since and SystemAndHidden).
constexpr DWORD kAssumedSince = 10;

FILETIME LocalNow() {
    FILETIME utc{};
    FILETIME local{};
    GetSystemTimeAsFileTime(&utc);
    FileTimeToLocalFileTime(&utc, &local);
    return local;
}

}  // namespace

CFilterObject::CFilterObject()
    : ByDate(false),
      DateType(kFilterDateAny),
      Since(0),
      DateStart(LocalNow()),
      DateEnd(DateStart),
      AddArchived(false),
      ResetArchived(false),
      SystemAndHidden(true) {}

CFilterObject::CFilterObject(const CFilterObject *source) : CFilterObject() {
    if (source) *this = *source;
}

CFilterObject::~CFilterObject() = default;

bool CFilterObject::SaveToIni(const wchar_t *section, const wchar_t *path) {
    CIniFile ini(path);
    if (Mask.empty()) Mask = L"*.*";
    ini.SetString(section, L"Mask", Mask.c_str());
    ini.SetBool(section, L"ByDate", ByDate);
    ini.SetInt(section, L"DateType", DateType);
    ini.SetInt(section, L"DateStartHigh", DateStart.dwHighDateTime);
    ini.SetInt(section, L"DateStartLow", DateStart.dwLowDateTime);
    ini.SetInt(section, L"DateEndHigh", DateEnd.dwHighDateTime);
    ini.SetInt(section, L"DateEndLow", DateEnd.dwLowDateTime);
    ini.SetInt(section, L"Since", Since);
    ini.SetBool(section, L"AddArchived", AddArchived);
    ini.SetBool(section, L"ResetArchived", ResetArchived);
    ini.SetBool(section, L"SystemAndHidden", SystemAndHidden);
    ini.Save();
    return true;
}

void CFilterObject::ReadFromIni(const wchar_t *section, const wchar_t *path) {
    CIniFile ini(path);
    wchar_t mask[kMaskChars] = {};
    if (ini.GetString(section, L"Mask", mask, kMaskChars)) Mask = mask;
    ByDate = false;
    ini.GetBool(section, L"ByDate", &ByDate);
    ini.GetInt(section, L"DateType", &DateType);
    DateStart = FILETIME{};
    ini.GetInt(section, L"DateStartHigh", &DateStart.dwHighDateTime);
    ini.GetInt(section, L"DateStartLow", &DateStart.dwLowDateTime);
    DateEnd = FILETIME{};
    ini.GetInt(section, L"DateEndHigh", &DateEnd.dwHighDateTime);
    ini.GetInt(section, L"DateEndLow", &DateEnd.dwLowDateTime);
    Since = kAssumedSince;
    ini.GetInt(section, L"Since", &Since);
    AddArchived = false;
    ini.GetBool(section, L"AddArchived", &AddArchived);
    ResetArchived = false;
    ini.GetBool(section, L"ResetArchived", &ResetArchived);
    SystemAndHidden = false;
    ini.GetBool(section, L"SystemAndHidden", &SystemAndHidden);
}

bool CFilterObject::DatePasses(const FILETIME &lastWrite, const FILETIME &sinceLimit) const {
    switch (DateType) {
        case kFilterDateAny:
            return true;
        case kFilterDateOlderThanStart:
            return CompareFileTime(&lastWrite, &DateStart) < 0;
        case kFilterDateNewerThanStart:
            return CompareFileTime(&lastWrite, &DateStart) > 0;
        case kFilterDateBetween:
            return CompareFileTime(&lastWrite, &DateStart) > 0 &&
                   CompareFileTime(&lastWrite, &DateEnd) < 0;
        case kFilterDateSinceDays:
            return CompareFileTime(&lastWrite, &sinceLimit) > 0;
        default:
            return false;
    }
}

FILETIME CFilterObject::SinceLimit() const {
    SYSTEMTIME now{};
    GetLocalTime(&now);
    SYSTEMTIME moment = now;
    (CJulianDate(now) - static_cast<LONG>(Since)).ToSystime(&moment);
    // The calendar step moves the day; the time of day stays the present one.
    moment.wHour = now.wHour;
    moment.wMinute = now.wMinute;
    moment.wSecond = now.wSecond;
    moment.wMilliseconds = now.wMilliseconds;
    FILETIME limit{};
    SystemTimeToFileTime(&moment, &limit);
    return limit;
}
