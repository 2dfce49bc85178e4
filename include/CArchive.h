// The facade of one archive file: everything known about it (name, password,
// format, sizes, the outcome of the last operation) and every operation on
// it. The long operations run on a worker thread of the CArchiveObject that
// the archive owns and report their end through the progress window; the
// others block the calling thread until the engine is done.
//
// Fields are public: the programs read and write them directly. Copying is
// memberwise, the archive object pointer included, so two copies share one
// CArchiveObject and only one of them may be destroyed (the destructor
// deletes it). A caller that copies must give up one copy without running
// its destructor, or clear its archiveObject first.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "CProgressDialog.h"
#include "FormatCatalogue.h"
#include "VarnickEngine.h"
#include "platform/WinTypes.h"

class CAppOptionsRepository;
class CArchiveItem;
class CArchiveObject;
class CEngine;
class CFormatOptionsRepository;
class CNewArchiveContentList;

// Which conflict dialog applies to the run.
enum ARCHIVE_OPERATION_KIND : LONG {
    ARCHIVE_OPERATION_ADDING = 0,
    ARCHIVE_OPERATION_EXPANDING = 1,
    ARCHIVE_OPERATION_OTHER = 2,
};

class CArchive {
public:
    CArchive(HWND parent, CEngine *engine, CAppOptionsRepository *appOptions,
             CFormatOptionsRepository *formatOptions);
    // No engine and no options: the caller fills them in before any
    // operation. The temp folder lies in the local application data folder.
    CArchive();
    CArchive(const CArchive &) = default;
    CArchive &operator=(const CArchive &) = default;
    virtual ~CArchive();

    // The stored default format, if the registry holds one.
    void SetMemberDefaults();

    // Small operations.
    void SetArchiveName(const wchar_t *archiveName);
    // Silent from now on; there is no way back.
    void RunSilent(FILE *log);
    bool Busy() const;
    void Cancel();
    bool IsProgressUp() const;
    HWND GetProgressDlgHwnd() const;
    // Only while a dialog stands.
    HWND GetProgressHwnd() const;
    // Enables the parent and deletes the dialog of the last run.
    void DisposeOfProgress();
    const wchar_t *GetIndexArchiveFolder() const;
    // Owned by the caller; give it back with FreeNewArchiveContentList.
    CNewArchiveContentList *GetNewArchiveContentList();
    void FreeNewArchiveContentList(CNewArchiveContentList *list);
    // Frees the buffer of ExtractFork; the pointer is left as it is.
    void FreeForkData(BYTE **data);
    void CloseExtract();

    // Makes a new archive object, deleting any old one (even during a run:
    // look at Busy first). False only when it could not be made.
    bool OpenArchiveObject();

    // Operations on a worker thread: true when the thread started. The end
    // arrives through the end callback.
    bool Verify();
    bool Recover();
    bool Encrypt(const wchar_t *newPassword);
    bool RemoveEncryption(const wchar_t *oldPassword);
    bool MakeSDKSea();
    bool MakeSeaZip();
    bool MakeSeaVnkx();
    bool MakeIndexFromVnkx();
    bool RemoveFrom(std::vector<std::wstring> *items);
    bool AddTo(CNewArchiveContentList *list, const wchar_t *folder);
    bool CreateFromList(CNewArchiveContentList *list);
    bool CreateEmpty();
    bool ExpandTo(const wchar_t *folder);
    bool Extract(std::vector<std::wstring> *items, const wchar_t *folder);
    // Threaded with true; blocking with false.
    bool GetArchiveInfo(bool threaded);

    // Operations that block the calling thread.
    bool VerifyPassword(const wchar_t *candidate);
    bool IsEncrypted();
    bool IsArchiveSelfExtracting(const wchar_t *path);
    bool IsFirstVnkxSegment();
    bool GetVnkxComment();
    bool SetVnkxComment(const wchar_t *text);
    bool RenameArchiveItem(const wchar_t *oldPath, const wchar_t *newName);
    bool AddFolder(const wchar_t *parent, const wchar_t *folderName);
    std::uint64_t ExtractFork(const wchar_t *item, const char *forkName, BYTE **buffer,
                              std::uint64_t size);
    bool ExtractToTempUnthreaded(const wchar_t *item);

    // The section "ArchiveInfo" of a job file. Both return true.
    bool ReadFromIni(const wchar_t *path);
    bool SaveToIni(const wchar_t *path);

    HWND parentWindow = nullptr;
    CEngine *engine = nullptr;                          // not owned
    CAppOptionsRepository *appOptions = nullptr;        // not owned
    CFormatOptionsRepository *formatOptions = nullptr;  // not owned
    std::wstring tempFolder;
    std::wstring name;
    std::wstring password;  // empty: none known
    format::type formatType = format::zip;
    FormatId formatId = {};
    std::wstring modeText;
    DWORD accessMode = 255;
    std::wstring comment;
    std::uint64_t expandedSize = 0;
    std::uint64_t archiveSize = 0;
    std::uint64_t compressedSize = 0;
    bool applyToAll = false;
    bool encrypted = false;
    bool readOnly = false;
    bool showProgress = true;
    bool refreshAfterChange = true;
    DWORD fileCount = 0;
    DWORD folderCount = 1;             // the root counts
    CArchiveItem *itemTree = nullptr;  // the first row of the archive object's listing
    LONG operationKind = ARCHIVE_OPERATION_OTHER;
    bool changed = false;
    bool selfExtracting = false;
    std::wstring indexArchiveFolder;
    bool silent = false;
    FILE *silentLog = nullptr;                // not owned
    EngineResult lastResult;                  // left unset by the constructors
    CArchiveObject *archiveObject = nullptr;  // owned
    PROGRESS_END_CALLBACK endCallback = nullptr;
    void *endContext = nullptr;
    PROGRESS_SEGMENT_CALLBACK segmentCallback = nullptr;
    void *segmentContext = nullptr;
    bool cancelled = false;
    bool passwordRefused = false;
    bool passwordWrong = false;
    bool hasWindow = false;
    bool noPrompts = false;
    DWORD reserved = 0;  // copied with the object; not read here

private:
    // Makes the archive object when there is none; the result is not
    // looked at, as in every operation.
    void EnsureArchiveObject();
};
