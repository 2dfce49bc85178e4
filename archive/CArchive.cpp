#include "CArchive.h"

#include <cstdlib>
#include <memory>

#include "CAppOptionsRepository.h"
#include "CAppUtils.h"
#include "CArchiveCompress.h"
#include "CArchiveEncrypt.h"
#include "CArchiveExpand.h"
#include "CArchiveExtract.h"
#include "CArchiveInfo.h"
#include "CArchiveMakeSeaVnkx.h"
#include "CArchiveObject.h"
#include "CArchiveVerifyRecover.h"
#include "CCrypto.h"
#include "CFSUtils.h"
#include "CIniFile.h"
#include "CNewArchiveContentList.h"
#include "CRegistry.h"
#include "platform/Win32.h"

namespace {

constexpr const wchar_t *kStartActivityKey = L"Software\\Orvane Labs\\Varnick\\StartActivity";
constexpr const wchar_t *kIniSection = L"ArchiveInfo";
constexpr unsigned kIndexPrefixText = 763;
constexpr int kLocalAppDataFolder = 28;
constexpr DWORD kAskOnDuplicate = 7;  // AddConflictMethod: ask through (1,3)
constexpr DWORD kAskOnConflict = 0;   // ExpandConflictMethod: ask through (1,3)
constexpr unsigned kSavedPasswordChars = 254;
constexpr unsigned kReadPasswordChars = 1023;

// Progress texts of the threaded runs.
enum : unsigned {
    kInfoText = 507,
    kExpandText = 582,
    kExtractText = 583,
    kCreateText = 584,
    kAddText = 585,
    kRemoveText = 674,
    kVerifyText = 689,
    kRecoverText = 690,
    kEncryptText = 701,
    kDecryptText = 704,
    kSeaText = 1225,
};

const NotificationPair kWorkUnit{1, 1};
const NotificationPair kTargetExists{1, 3};
const NotificationPair kScanning{100, 4};
const NotificationPair kWritingCatalogue{100, 5};
const NotificationPair kVerifying{100, 8};
const NotificationPair kPassword{200, 9};
const NotificationPair kSegmentMissing{200, 10};
const NotificationPair kOtherRequest{200, 11};

// The progress dialog reaches its archive through these.
void LinkProgressDialogs() {
    static const bool linked = [] {
        PROGRESS_ARCHIVE_LINK link;
        link.showProgress = [](const CArchive *archive) { return archive->showProgress; };
        link.parentWindow = [](const CArchive *archive) { return archive->parentWindow; };
        link.cancel = [](CArchive *archive) { archive->Cancel(); };
        CProgressDialog::SetArchiveLink(link);
        return true;
    }();
    (void)linked;
}

std::wstring DefaultTempFolder() {
    wchar_t folder[platform::kPathBufferSize] = {};
    CFSUtils::ShellGetFolderPath(kLocalAppDataFolder, folder);
    std::wstring temp = platform::JoinPath(platform::JoinPath(folder, L"Orvane Labs"), L"Temp");
    CFSUtils::ForceDirectories(temp.c_str());
    return temp;
}

// The file name of `path` without its extension.
std::wstring BareFileName(const std::wstring &path) {
    std::wstring file = CFSUtils::ExtractFileName(path.c_str());
    return CFSUtils::RemoveFileExtension(file.c_str());
}

std::wstring IndexArchiveFolder(const CArchive &archive) {
    return archive.appOptions ? archive.appOptions->ArchiveIndexFolder : std::wstring();
}

// The conflict pair when the options ask through it.
std::vector<NotificationPair> AddingConflictPair(const CArchive &archive) {
    if (archive.appOptions && archive.appOptions->AddConflictMethod == kAskOnDuplicate) {
        return {kTargetExists};
    }
    return {};
}

std::vector<NotificationPair> ExpandingConflictPair(const CArchive &archive) {
    if (archive.appOptions && archive.appOptions->ExpandConflictMethod == kAskOnConflict) {
        return {kTargetExists};
    }
    return {};
}

}  // namespace

CArchive::CArchive(HWND parent, CEngine *engineIn, CAppOptionsRepository *appOptionsIn,
                   CFormatOptionsRepository *formatOptionsIn)
    : parentWindow(parent),
      engine(engineIn),
      appOptions(appOptionsIn),
      formatOptions(formatOptionsIn),
      hasWindow(true) {
    LinkProgressDialogs();
    if (appOptions) tempFolder = appOptions->TempFolder;
    SetMemberDefaults();
}

CArchive::CArchive() : tempFolder(DefaultTempFolder()), hasWindow(false) {
    LinkProgressDialogs();
    SetMemberDefaults();
}

CArchive::~CArchive() { delete archiveObject; }

void CArchive::SetMemberDefaults() {
    CRegistry registry;
    registry.SetAppKey(kStartActivityKey);
    DWORD stored = 0;
    if (registry.GetRegSetting(L"FormatType", &stored)) {
        formatType = static_cast<format::type>(stored);
    }
}

// ---------------------------------------------------------------------------
// Small operations

void CArchive::SetArchiveName(const wchar_t *archiveName) {
    name = archiveName ? archiveName : L"";
}

void CArchive::RunSilent(FILE *log) {
    silent = true;
    silentLog = log;
}

bool CArchive::Busy() const { return archiveObject && archiveObject->busy; }

void CArchive::Cancel() {
    if (archiveObject) archiveObject->cancel = true;
}

bool CArchive::IsProgressUp() const { return GetProgressDlgHwnd() != nullptr; }

HWND CArchive::GetProgressDlgHwnd() const {
    if (!archiveObject || !archiveObject->progressDialog) return nullptr;
    return archiveObject->progressDialog->window;
}

HWND CArchive::GetProgressHwnd() const { return archiveObject->progressDialog->window; }

void CArchive::DisposeOfProgress() {
    EnableWindow(parentWindow, TRUE);
    if (!archiveObject) return;
    delete archiveObject->progressDialog;
    archiveObject->progressDialog = nullptr;
}

const wchar_t *CArchive::GetIndexArchiveFolder() const { return indexArchiveFolder.c_str(); }

CNewArchiveContentList *CArchive::GetNewArchiveContentList() { return new CNewArchiveContentList; }

void CArchive::FreeNewArchiveContentList(CNewArchiveContentList *list) { delete list; }

void CArchive::FreeForkData(BYTE **data) {
    if (data && *data) std::free(*data);
}

void CArchive::CloseExtract() {
    if (archiveObject && archiveObject->extract) archiveObject->extract->CloseExtract();
}

bool CArchive::OpenArchiveObject() {
    delete archiveObject;
    archiveObject = new (std::nothrow) CArchiveObject(this);
    return archiveObject != nullptr;
}

void CArchive::EnsureArchiveObject() {
    if (!archiveObject) OpenArchiveObject();
}

// ---------------------------------------------------------------------------
// Threaded operations

bool CArchive::Verify() {
    EnsureArchiveObject();
    return archiveObject->StartRun({.textId = kVerifyText, .work = [](CArchiveObject &object) {
                                        object.verifyRecover->Verify(
                                            object.owner->name.c_str(),
                                            object.owner->password.c_str());
                                    }});
}

bool CArchive::Recover() {
    EnsureArchiveObject();
    return archiveObject->StartRun({.textId = kRecoverText, .work = [](CArchiveObject &object) {
                                        object.verifyRecover->Recover(
                                            object.owner->name.c_str(),
                                            object.owner->password.c_str());
                                    }});
}

bool CArchive::Encrypt(const wchar_t *newPassword) {
    EnsureArchiveObject();
    changed = true;
    archiveObject->newPassword = newPassword ? newPassword : L"";
    return archiveObject->StartRun(
        {.textId = kEncryptText,
         .work =
             [](CArchiveObject &object) { object.encrypt->Encrypt(object.newPassword.c_str()); },
         .without = {kScanning, kWritingCatalogue, kVerifying, kPassword}});
}

bool CArchive::RemoveEncryption(const wchar_t *oldPassword) {
    EnsureArchiveObject();
    changed = true;
    archiveObject->newPassword = oldPassword ? oldPassword : L"";
    return archiveObject->StartRun({.textId = kDecryptText,
                                    .work =
                                        [](CArchiveObject &object) {
                                            object.encrypt->RemoveEncryption(
                                                object.newPassword.c_str());
                                        },
                                    .without = {kPassword}});
}

bool CArchive::MakeSDKSea() {
    EnsureArchiveObject();
    return archiveObject->StartRun({.textId = kSeaText, .work = [](CArchiveObject &object) {
                                        object.seaMaker->MakeSDKSea();
                                    }});
}

bool CArchive::MakeSeaZip() {
    EnsureArchiveObject();
    return archiveObject->StartRun({.textId = kSeaText, .work = [](CArchiveObject &object) {
                                        object.seaMaker->TransformZip();
                                    }});
}

bool CArchive::MakeSeaVnkx() {
    EnsureArchiveObject();
    return archiveObject->StartRun({.textId = kSeaText, .work = [](CArchiveObject &object) {
                                        object.seaMaker->TransformVnkx();
                                    }});
}

bool CArchive::MakeIndexFromVnkx() {
    EnsureArchiveObject();
    // Stays false after the run; a caller that goes on sets it again.
    showProgress = false;
    std::wstring prefix = CAppUtils::LoadString(kIndexPrefixText);
    std::wstring indexName =
        FormatW(L"%c%s%s.vidx", kPathSep, prefix.c_str(), BareFileName(name).c_str());
    archiveObject->indexPath =
        CFSUtils::CreateUniqueFileName(IndexArchiveFolder(*this).c_str(), indexName.c_str());
    return archiveObject->StartRun({.textId = kExtractText, .work = [](CArchiveObject &object) {
                                        object.compress->MakeIndexFromVnkx(
                                            object.owner->name.c_str(), object.indexPath.c_str());
                                    }});
}

bool CArchive::GetArchiveInfo(bool threaded) {
    EnsureArchiveObject();
    delete archiveObject->info;
    archiveObject->info = new CArchiveInfo(archiveObject, this);
    if (threaded) {
        showProgress = false;
        return archiveObject->StartRun(
            {.textId = kInfoText,
             .work = [](CArchiveObject &object) { object.info->GetInfo(); },
             .restoreShowProgress = true});
    }
    archiveObject->InstallNotifications({kPassword});
    bool read = archiveObject->info->GetInfo();
    archiveObject->EndBlockingCall({kPassword});
    return read;
}

bool CArchive::RemoveFrom(std::vector<std::wstring> *items) {
    EnsureArchiveObject();
    if (!items || items->empty()) return false;
    changed = true;
    archiveObject->itemSelection = items;
    return archiveObject->StartRun({.textId = kRemoveText, .work = [](CArchiveObject &object) {
                                        object.extract->Remove(object.itemSelection);
                                    }});
}

bool CArchive::AddTo(CNewArchiveContentList *list, const wchar_t *folder) {
    EnsureArchiveObject();
    operationKind = ARCHIVE_OPERATION_ADDING;
    changed = true;
    archiveObject->contentList = list;
    archiveObject->destination = folder ? folder : L"";
    return archiveObject->StartRun(
        {.textId = kAddText,
         .work = [](CArchiveObject &object) { object.compress->Add(object.contentList); },
         .with = AddingConflictPair(*this)});
}

bool CArchive::CreateFromList(CNewArchiveContentList *list) {
    OpenArchiveObject();
    changed = true;
    archiveObject->contentList = list;
    if (list && list->MakeIndex) {
        std::wstring indexName = BareFileName(name) + L".vidx";
        std::wstring unique =
            CFSUtils::CreateUniqueFileName(IndexArchiveFolder(*this).c_str(), indexName.c_str());
        std::wstring prefix = CAppUtils::LoadString(kIndexPrefixText);
        list->IndexPath =
            platform::ParentPath(unique) + kPathSepString + prefix + platform::FileNamePart(unique);
    }
    return archiveObject->StartRun(
        {.textId = kCreateText,
         .work = [](CArchiveObject &object) { object.compress->Compress(object.contentList); },
         .without = {kPassword},
         .with = AddingConflictPair(*this)});
}

bool CArchive::CreateEmpty() {
    OpenArchiveObject();
    return archiveObject->StartRun(
        {.textId = kCreateText,
         .work = [](CArchiveObject &object) { object.compress->Compress(nullptr); },
         .without = {kPassword},
         .with = AddingConflictPair(*this)});
}

bool CArchive::ExpandTo(const wchar_t *folder) {
    EnsureArchiveObject();
    operationKind = ARCHIVE_OPERATION_EXPANDING;
    if (folder) archiveObject->destination = folder;
    return archiveObject->StartRun(
        {.textId = kExpandText,
         .work = [](CArchiveObject &object) { object.expand->Expand(object.destination.c_str()); },
         .with = ExpandingConflictPair(*this)});
}

bool CArchive::Extract(std::vector<std::wstring> *items, const wchar_t *folder) {
    EnsureArchiveObject();
    operationKind = ARCHIVE_OPERATION_EXPANDING;
    archiveObject->itemSelection = items;
    archiveObject->destination = folder ? folder : L"";
    ARCHIVE_RUN run;
    // Without progress there is no window at all: the worker then ends the
    // run by calling the end callback itself.
    run.textId = kExtractText;
    run.work = [](CArchiveObject &object) {
        object.extract->Extract(object.itemSelection, object.destination.c_str());
    };
    run.with = ExpandingConflictPair(*this);
    run.withDialog = showProgress;
    return archiveObject->StartRun(run);
}

// ---------------------------------------------------------------------------
// Blocking operations

bool CArchive::VerifyPassword(const wchar_t *candidate) {
    EnsureArchiveObject();
    return archiveObject->encrypt->VerifyPassword(candidate);
}

bool CArchive::IsEncrypted() {
    EnsureArchiveObject();
    return archiveObject->info->IsEncrypted();
}

bool CArchive::IsArchiveSelfExtracting(const wchar_t *path) {
    EnsureArchiveObject();
    return archiveObject->info->IsArchiveSelfExtracting(path);
}

bool CArchive::IsFirstVnkxSegment() {
    if (IsVnkxIndex(name.c_str())) return true;
    EnsureArchiveObject();
    archiveObject->InstallNotifications({kPassword});
    bool first = archiveObject->info->IsFirstVnkxSegment();
    archiveObject->EndBlockingCall({kPassword});
    return first;
}

bool CArchive::GetVnkxComment() {
    EnsureArchiveObject();
    archiveObject->InstallNotifications({kPassword});
    bool read = archiveObject->info->GetVnkxComment();
    archiveObject->EndBlockingCall({kPassword});
    return read;
}

bool CArchive::SetVnkxComment(const wchar_t *text) {
    EnsureArchiveObject();
    changed = true;
    archiveObject->InstallNotifications({kPassword});
    bool written = archiveObject->info->SetVnkxComment(text);
    archiveObject->EndBlockingCall({kPassword});
    return written;
}

bool CArchive::RenameArchiveItem(const wchar_t *oldPath, const wchar_t *newName) {
    EnsureArchiveObject();
    changed = true;
    return archiveObject->info->RenameArchiveItem(oldPath, newName);
}

bool CArchive::AddFolder(const wchar_t *parent, const wchar_t *folderName) {
    EnsureArchiveObject();
    changed = true;
    archiveObject->InstallNotifications({kPassword});
    bool added = archiveObject->compress->AddFolder(parent, folderName);
    archiveObject->EndBlockingCall({kPassword});
    return added;
}

std::uint64_t CArchive::ExtractFork(const wchar_t *item, const char *forkName, BYTE **buffer,
                                    std::uint64_t size) {
    EnsureArchiveObject();
    const std::vector<NotificationPair> pairs{kWorkUnit, kPassword, kSegmentMissing, kOtherRequest};
    archiveObject->InstallNotifications(pairs);
    std::uint64_t count =
        archiveObject->extract->ExtractForkObjectData(item, forkName, buffer, size);
    archiveObject->EndBlockingCall(pairs);
    return count;
}

bool CArchive::ExtractToTempUnthreaded(const wchar_t *item) {
    EnsureArchiveObject();
    const std::vector<NotificationPair> pairs{kPassword, kSegmentMissing};
    archiveObject->InstallNotifications(pairs);
    bool extracted = archiveObject->extract->ExtractToTemp(item);
    archiveObject->EndBlockingCall(pairs);
    EnableWindow(parentWindow, TRUE);
    return extracted;
}

// ---------------------------------------------------------------------------
// Job files

bool CArchive::ReadFromIni(const wchar_t *path) {
    CIniFile ini(path);
    wchar_t text[platform::kPathBufferSize] = {};
    if (ini.GetString(kIniSection, L"Name", text, platform::kPathBufferSize)) name = text;
    encrypted = false;
    ini.GetBool(kIniSection, L"Encrypt", &encrypted);
    wchar_t hex[platform::kPathBufferSize] = {};
    if (ini.GetString(kIniSection, L"Password", hex, platform::kPathBufferSize) && *hex) {
        wchar_t plain[kReadPasswordChars] = {};
        CCrypto crypto;
        crypto.DecryptString(hex, plain, kReadPasswordChars);
        password = plain;
    }
    unsigned int stored = 0;
    if (ini.GetInt(kIniSection, L"Format", &stored)) formatType = static_cast<format::type>(stored);
    return true;
}

bool CArchive::SaveToIni(const wchar_t *path) {
    CIniFile ini(path);
    ini.SetString(kIniSection, L"Name", name.c_str());
    ini.SetBool(kIniSection, L"Encrypt", encrypted);
    wchar_t hex[kSavedPasswordChars] = {};
    if (encrypted) {
        CCrypto crypto;
        crypto.EncryptString(password.c_str(), hex, kSavedPasswordChars);
    }
    ini.SetString(kIniSection, L"Password", hex);
    ini.SetInt(kIniSection, L"Format", static_cast<unsigned int>(formatType));
    ini.Save();
    return true;
}
