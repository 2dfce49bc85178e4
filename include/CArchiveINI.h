// The job file as a class: one request (what to compress, into which
// archive, with which options, and what happens to the archive afterwards)
// written to an INI file by one program and read back by another.
//
// Every section reader and writer opens the file on its own, so a read is
// many opens of one file: a job file must not be written by two programs at
// once. The store reports no file errors, so writing to an unwritable path
// looks like success.
#pragma once

#include <string>
#include <vector>

#include "TransferProfiles.h"
#include "platform/WinTypes.h"

class CAppOptionsRepository;
class CArchive;
class CFormatOptionsRepository;
class CNewArchiveContentList;
class CSchedulerTaskRepository;

// What happens to the archive after it is made (the key WizardType).
enum WIZARD_TYPE : DWORD {
    kWizardKeepOnly = 0,
    kWizardFtp = 1,
    kWizardEmail = 2,
    kWizardBurn = 3,
    kWizardUpload = 4,
};

class CArchiveINI {
public:
    // Format options read with simple mode, application options read, an
    // archive holding both, and a fresh content list from that archive.
    CArchiveINI();
    virtual ~CArchiveINI();
    CArchiveINI(const CArchiveINI &) = delete;
    CArchiveINI &operator=(const CArchiveINI &) = delete;

    // Writes the whole job file. A null path makes a new empty temporary
    // file (prefix "SW") and returns its path on the heap, owned by the
    // caller; otherwise returns `path`. An empty path writes nothing.
    std::wstring *Create(std::wstring *path);
    // Reads the whole job file. False only for an empty path, a missing
    // file or a folder: the context-menu section, read last, decides the
    // result, and its reader always succeeds.
    bool Read(std::wstring path);

    // Appends a folder or a file to the content; a file is replaced by its
    // shortcut's target when CompressOrig is set. False only without a
    // content list.
    bool AddFilespec(const wchar_t *path, bool folder);
    void ClearFilespec();
    unsigned int GetFilespecCount();
    unsigned int GetFolderspecCount();
    // Folders first, then files; null past the end.
    const wchar_t *GetFilespec(unsigned int index);
    bool FilterSet();

    // Copy from `source`: the objects stay this job's own.
    void SetFormatOptions(CFormatOptionsRepository *source);
    void SetAppOptions(CAppOptionsRepository *source);
    CFormatOptionsRepository *GetFormatOptions() { return formatOptions_; }
    CAppOptionsRepository *GetAppOptions() { return appOptions_; }
    CArchive *GetArchive() { return archive_; }
    CNewArchiveContentList *GetArchiveContent() { return content_; }
    const wchar_t *GetIniFileName() { return fileName_.c_str(); }
    void SethInstRes(HINSTANCE instance) { resourceInstance_ = instance; }

    // Appends every value of ArcNames in the file at `path` to NewArcNames.
    void ReadNewArcNames(const wchar_t *path);
    // Writes NewArcNames under their decimal indexes into the file last
    // given to Read, and saves it.
    void SaveNewArcNames();

    // Each opens the file, sets its keys and saves; true.
    bool CreateArchiveSection(const wchar_t *path);
    bool CreateContentSection(const wchar_t *path);
    bool CreateFtpSection(const wchar_t *path);
    bool CreateBurnSection(const wchar_t *path);
    bool CreateEmailSection(const wchar_t *path);
    bool CreateUploadSection(const wchar_t *path);

    // Each opens the file on its own.
    bool ReadArchiveSection(const wchar_t *path);
    bool ReadContentSection(const wchar_t *path);
    bool ReadFtpSection(const wchar_t *path);
    bool ReadBurnSection(const wchar_t *path);
    // False always, like ReadUploadSection; Read's result does not depend
    // on either.
    bool ReadEmailSection(const wchar_t *path);
    bool ReadUploadSection(const wchar_t *path);
    // True always.
    bool ReadContextMenuSection(const wchar_t *path);

    DWORD WizardType = kWizardKeepOnly;
    // Set by ReadContentSection: SegmentSize is not 0.
    bool Segmented = false;
    bool KeepArchive = true;
    // The FTP profile: the whole stored record when the named profile
    // exists, else only its name.
    FtpProfileRecord FTPProfile{};
    bool FTPMD5File = false;
    // Up to 255 characters.
    std::wstring UploadProfileName;
    DWORD Service = 0;
    bool EmailAddMD5Msg = false;
    wchar_t Device = 0;
    std::wstring Label;
    bool SafeSpeed = false;
    bool Appendable = false;
    bool PreEraseRW = false;
    bool Rename = false;
    // The archives the job made (section ArcNames).
    std::vector<std::wstring> NewArcNames;
    // Owned; the task sections of the file, made anew by every Read.
    CSchedulerTaskRepository *TaskRepository = nullptr;
    // Left uninterpreted: the program that runs the job acts on it.
    DWORD RequestedActionCmd = 0;
    std::wstring ExtractTo;

private:
    CFormatOptionsRepository *formatOptions_ = nullptr;  // owned
    CAppOptionsRepository *appOptions_ = nullptr;        // owned
    HINSTANCE resourceInstance_ = nullptr;
    std::wstring fileName_;
    CArchive *archive_ = nullptr;                // owned
    CNewArchiveContentList *content_ = nullptr;  // owned; given back to the archive
};
