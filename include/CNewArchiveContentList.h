// What goes into a new archive (CNewArchiveContentList) and the filter that
// decides which files found below a folder are taken (CFilterObject). Both
// are plain records that keep themselves in a job file; neither reports a
// failure.
#pragma once

#include <string>
#include <vector>

#include "platform/WinTypes.h"

// Which comparison of a file's last-write time CFilterObject::DateType
// selects.
enum FILTERDATE_TYPE : DWORD {
    kFilterDateAny = 0,
    kFilterDateOlderThanStart = 1,
    kFilterDateNewerThanStart = 2,
    kFilterDateBetween = 3,
    kFilterDateSinceDays = 4,
    // 5 and above: no file passes.
};

class CFilterObject {
public:
    // Start and end dates both the present local time.
    CFilterObject();
    // Every field of `source`.
    explicit CFilterObject(const CFilterObject *source);
    virtual ~CFilterObject();
    CFilterObject(const CFilterObject &) = default;
    CFilterObject &operator=(const CFilterObject &) = default;

    // Writes the filter's keys to `section` of the file at `path` (keeping
    // the rest) and saves it. An empty mask becomes "*.*", here too.
    bool SaveToIni(const wchar_t *section, const wchar_t *path);
    // Reads the keys back. A missing key gives the value the job file
    // assumes, which is not always the constructor's default: Since 10,
    // SystemAndHidden false, the dates 0. Mask and DateType stay as they
    // are when missing.
    void ReadFromIni(const wchar_t *section, const wchar_t *path);

    // Whether a file last written at `lastWrite` passes the DateType
    // comparison. Bounds are exclusive. `sinceLimit` is the moment of type
    // 4, computed once a run by SinceLimit.
    bool DatePasses(const FILETIME &lastWrite, const FILETIME &sinceLimit) const;
    // The present local time moved back by Since days.
    FILETIME SinceLimit() const;

    std::wstring Mask;
    bool ByDate;
    DWORD DateType;
    // Days before now, for DateType 4.
    DWORD Since;
    // Local time in FILETIME form.
    FILETIME DateStart;
    FILETIME DateEnd;
    bool AddArchived;
    bool ResetArchived;
    bool SystemAndHidden;
};

class CNewArchiveContentList {
public:
    CNewArchiveContentList() = default;
    // Deletes the filter.
    virtual ~CNewArchiveContentList();
    // Copies share the filter: the pointer is copied, not the filter, so
    // only one copy may keep it (the others set Filter to null before they
    // go).
    CNewArchiveContentList(const CNewArchiveContentList &) = default;
    CNewArchiveContentList &operator=(const CNewArchiveContentList &) = default;

    // Replaces the filter with a new one of default values.
    void GetNewFilterObject();
    // Deletes the filter; the pointer becomes null.
    void DisposeOfFilterObject();

    // Writes everything to the job file at `path`, keeping its other
    // content. True.
    bool SaveToIni(const wchar_t *path);
    // Appends the files and folders of the job file that exist now, reads
    // the flags, and reads the filter when the file says there is one. True,
    // also for a file that cannot be read.
    bool ReadFromIni(const wchar_t *path);

    std::vector<std::wstring> Files;
    std::vector<std::wstring> Folders;
    // Owned; null for no filter.
    CFilterObject *Filter = nullptr;
    bool OneArchivePerItem = false;
    bool Timestamp = false;
    // Bytes a segment; 0 for no segments.
    __int64 SegmentSize = 0;
    bool MakeIndex = false;
    // Where the index of the new archive goes; set by the facade, never
    // stored.
    std::wstring IndexPath;
};
