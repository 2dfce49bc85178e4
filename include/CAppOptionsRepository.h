// The application-wide settings: viewing, compress and expand defaults, the
// wizard, the virus-scan hook, and the lists of excluded locations. Every
// setting is a public field; construction sets the defaults, makes the
// product's folders and overlays the registry.
//
// Two stores with different coverage. The registry (HKEY_CURRENT_USER,
// "Software\Orvane Labs\Varnick" and subkeys by group) holds everything
// stored; a job file holds most of it in the section "AppOptions" and the
// two list sections. Where they differ:
//   - a missing string: the registry leaves the field alone, a job file
//     empties it;
//   - true: exactly the DWORD 1 in the registry, anything but "0" in a job
//     file (so a stored 2 is false there and true here);
//   - an empty string is stored empty in the registry and leaves no line in
//     a job file.
// Nothing is range-checked and no operation reports a failure.
//
// One thread at a time; nothing is locked.
#pragma once

#include <string>
#include <vector>

#include "FileAssociations.h"
#include "platform/WinTypes.h"

class CAppOptionsRepository {
public:
    // Defaults, the four folders made on disk, then Read.
    CAppOptionsRepository();
    // Field by field from `source`; touches neither the registry nor the
    // disk. A null source gives the defaults without the folders and
    // without Read.
    explicit CAppOptionsRepository(CAppOptionsRepository *source);
    virtual ~CAppOptionsRepository();
    CAppOptionsRepository(const CAppOptionsRepository &) = delete;
    CAppOptionsRepository &operator=(const CAppOptionsRepository &) = delete;

    // Overlays every stored field from the registry; a value that cannot be
    // read leaves its field. The association table is recomputed.
    void Read();
    // Writes every stored field; each list replaces its key whole. The root
    // key must exist already (it is not created here).
    void Save();
    // Writes ShowDropDblClickMsg alone.
    void SaveNonOptions();
    // Every field from `source`. ExcludeLocations and SmartSendExtTriggers
    // are always replaced; LocationHistory only when the source's is not
    // empty.
    void Copy(CAppOptionsRepository *source);

    // Adds the job-file keys to the file at `path`, keeping its other
    // content, and saves it.
    void SaveToIni(const wchar_t *path);
    // Reads the job-file keys; the file is not written. LocationHistory ends
    // empty.
    void ReadFromIni(const wchar_t *path);

    bool ViewFlat;
    DWORD ViewState;
    bool CheckForUpdates;
    DWORD RecentListSize;
    // Computed from the registry (IsAssociatedWithVarnick), never stored.
    FILEASSOCIATIONS FileAssociations;
    std::vector<std::wstring> ExcludeLocations;
    bool DeleteSrc;
    bool DeleteArcAfterExpand;
    bool CompressOrig;
    bool CompressArcs;
    bool UseEncryption;
    DWORD ForkHandling;
    DWORD ExpandFolderOptions;
    bool EnableContextMenu;
    DWORD FormatType;
    bool UseSmartArchiving;
    bool UseWizard;
    std::wstring TempFolder;
    DWORD ExpandConflictMethod;
    bool ExpandMergeContents;
    DWORD AddConflictMethod;
    bool AddMergeContents;
    bool WizardDeleteArchiveAfterExpansion;
    bool WizardShowSchedulerPage;
    std::wstring WizardTaskFolder;
    std::wstring AVPath;
    DWORD AVOption;
    // Made at construction, never stored.
    std::wstring ArchiveIndexFolder;
    bool ShowArcNameWarningMsg;
    std::vector<std::wstring> LocationHistory;
    DWORD CompressFolderMethod;
    std::wstring DefaultCompressFolder;
    std::wstring DefaultExpandFolder;
    DWORD ExpandFolderMethod;
    DWORD DblClickAction;
    bool UseQuickToolsOpen;
    DWORD ThumbnailSize;
    DWORD ThumbnailLimit;
    std::wstring DropletLocation;
    bool UseSmartSend;
    std::vector<std::wstring> SmartSendExtTriggers;
    DWORD SmartSendSizeTrigger;
    DWORD SmartSendService;
    std::wstring SmartSendFTPProfile;
    bool AutoOpenExpandFolder;
    // Copied with the record, never stored; false unless a caller sets it.
    bool UnstoredFlag;
    bool ShowDropDblClickMsg;

private:
    void SetDefaults();
    void MakeFolders();
    void ComputeFileAssociations();
};
