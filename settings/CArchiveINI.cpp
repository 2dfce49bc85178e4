#include "CArchiveINI.h"

#include <new>
#include <string>

#include "CAppOptionsRepository.h"
#include "CArchive.h"
#include "CFSUtils.h"
#include "CFormatOptionsRepository.h"
#include "CIniFile.h"
#include "CNewArchiveContentList.h"
#include "CSchedulerTaskRepository.h"
#include "platform/Shortcuts.h"
#include "platform/Win32.h"
#include "settings/JobFileSections.h"

namespace {

constexpr const wchar_t *kArchiveSection = L"Archive";
using jobfile::kBurnSection;
using jobfile::kFtpSection;
constexpr const wchar_t *kEmailSection = L"Email";
constexpr const wchar_t *kUploadSection = L"UploadService";
constexpr const wchar_t *kContextMenuSection = L"ContextMenu";
constexpr const wchar_t *kArcNamesSection = L"ArcNames";

// Read limits of the text keys, terminator included.
constexpr unsigned kFtpProfileNameChars = 1024;
constexpr unsigned kUploadProfileNameChars = 256;
constexpr unsigned kTextChars = 1024;

// A text key into `target` when present; false leaves `target` alone.
bool ReadText(CIniFile &ini, const wchar_t *section, const wchar_t *name, unsigned limit,
              std::wstring &target) {
    std::wstring buffer(limit, L'\0');
    if (!ini.GetString(section, name, buffer.data(), limit)) return false;
    target = buffer.c_str();
    return true;
}

// The "SW" temporary file in the product's temporary folder, made empty by
// the platform call; empty if it could not be made.
std::wstring NewTemporaryJobPath() {
    std::wstring folder = CFSUtils::GetTempFolder();
    folder += kPathSep;
    wchar_t name[platform::kPathBufferSize] = {};
    if (GetTempFileNameW(folder.c_str(), L"SW", 0, name) == 0) return std::wstring();
    return name;
}

}  // namespace

CArchiveINI::CArchiveINI() {
    formatOptions_ = new (std::nothrow) CFormatOptionsRepository;
    if (formatOptions_) formatOptions_->Read(true);
    appOptions_ = new (std::nothrow) CAppOptionsRepository;
    if (appOptions_) appOptions_->Read();
    archive_ = new (std::nothrow) CArchive;
    if (archive_) {
        archive_->appOptions = appOptions_;
        archive_->formatOptions = formatOptions_;
        content_ = archive_->GetNewArchiveContentList();
    }
}

CArchiveINI::~CArchiveINI() {
    if (archive_) archive_->FreeNewArchiveContentList(content_);
    delete archive_;
    delete TaskRepository;
    delete appOptions_;
    delete formatOptions_;
}

// ---------------------------------------------------------------------------
// Writing

std::wstring *CArchiveINI::Create(std::wstring *path) {
    if (!path) path = new std::wstring(NewTemporaryJobPath());
    if (archive_ && !archive_->encrypted) archive_->password.clear();
    if (path->empty()) return path;
    const wchar_t *file = path->c_str();
    if (!CreateArchiveSection(file)) return path;
    if (!CreateContentSection(file)) return path;
    bool delivery = true;
    switch (WizardType) {
        case kWizardFtp:
            delivery = CreateFtpSection(file);
            break;
        case kWizardBurn:
            delivery = CreateBurnSection(file);
            break;
        case kWizardEmail:
            delivery = CreateEmailSection(file);
            break;
        case kWizardUpload:
            delivery = CreateUploadSection(file);
            break;
        default:
            break;
    }
    if (!delivery) return path;
    if (formatOptions_) formatOptions_->SaveToIni(file);
    if (appOptions_) appOptions_->SaveToIni(file);
    return path;
}

bool CArchiveINI::CreateArchiveSection(const wchar_t *path) {
    CIniFile ini(path);
    ini.SetInt(kArchiveSection, L"WizardType", WizardType);
    if (WizardType == kWizardKeepOnly) KeepArchive = true;
    ini.SetBool(kArchiveSection, L"KeepArchive", KeepArchive);
    ini.Save();
    if (archive_) archive_->SaveToIni(path);
    return true;
}

bool CArchiveINI::CreateContentSection(const wchar_t *path) {
    if (content_) content_->SaveToIni(path);
    return true;
}

bool CArchiveINI::CreateFtpSection(const wchar_t *path) {
    CIniFile ini(path);
    jobfile::WriteFtpSection(ini, FTPProfile.name, FTPMD5File);
    ini.Save();
    return true;
}

bool CArchiveINI::CreateBurnSection(const wchar_t *path) {
    CIniFile ini(path);
    jobfile::WriteBurnSection(ini,
                              {Device, SafeSpeed, Label.c_str(), Appendable, PreEraseRW, Rename});
    ini.Save();
    return true;
}

bool CArchiveINI::CreateEmailSection(const wchar_t *path) {
    CIniFile ini(path);
    ini.SetBool(kEmailSection, L"EmailAddMD5Msg", EmailAddMD5Msg);
    ini.Save();
    return true;
}

bool CArchiveINI::CreateUploadSection(const wchar_t *path) {
    CIniFile ini(path);
    ini.SetString(kUploadSection, L"ProfileName", UploadProfileName.c_str());
    ini.SetInt(kUploadSection, L"Service", Service);
    ini.Save();
    return true;
}

// ---------------------------------------------------------------------------
// Reading

bool CArchiveINI::Read(std::wstring path) {
    fileName_ = path;
    if (path.empty() || (GetFileAttributesW(path.c_str()) & FILE_ATTRIBUTE_DIRECTORY)) {
        return false;
    }
    const wchar_t *file = path.c_str();
    bool result = ReadArchiveSection(file);
    if (result) result = ReadContentSection(file);
    if (result) {
        if (WizardType == kWizardFtp) {
            result = ReadFtpSection(file);
        } else if (WizardType == kWizardBurn) {
            result = ReadBurnSection(file);
        } else if (WizardType == kWizardEmail) {
            result = ReadEmailSection(file);
        } else if (WizardType == kWizardUpload) {
            result = ReadUploadSection(file);
        }
    }
    // The context menu's answer stands for the whole read, whatever came
    // before: any existing file reads as a job.
    result = ReadContextMenuSection(file);
    delete TaskRepository;
    TaskRepository = new (std::nothrow) CSchedulerTaskRepository(resourceInstance_, file);
    if (formatOptions_) formatOptions_->ReadFromIni(file);
    if (appOptions_) appOptions_->ReadFromIni(file);
    return result;
}

bool CArchiveINI::ReadArchiveSection(const wchar_t *path) {
    CIniFile ini(path);
    WizardType = kWizardKeepOnly;
    const bool result = ini.GetInt(kArchiveSection, L"WizardType", &WizardType);
    if (WizardType != kWizardKeepOnly) {
        KeepArchive = false;
        ini.GetBool(kArchiveSection, L"KeepArchive", &KeepArchive);
    } else {
        KeepArchive = true;
    }
    if (archive_) archive_->ReadFromIni(path);
    return result;
}

bool CArchiveINI::ReadContentSection(const wchar_t *path) {
    if (!content_) return false;
    content_->ReadFromIni(path);
    Segmented = content_->SegmentSize != 0;
    return true;
}

bool CArchiveINI::ReadFtpSection(const wchar_t *path) {
    CIniFile ini(path);
    wchar_t name[kFtpProfileNameChars] = {};
    const bool named = ini.GetString(kFtpSection, L"ProfileName", name, kFtpProfileNameChars);
    if (named) wcsncpy_s(FTPProfile.name, kProfileNameChars, name, _TRUNCATE);
    bool found = false;
    if (named) {
        const FtpProfileRecord *stored = GetFTPProfile(name);
        // The store answers every name; only a profile with a server exists.
        found = stored && stored->server[0] != L'\0';
        if (found) FTPProfile = *stored;
    }
    ini.GetBool(kFtpSection, L"FTPMD5File", &FTPMD5File);
    return found;
}

bool CArchiveINI::ReadBurnSection(const wchar_t *path) {
    CIniFile ini(path);
    if (!ini.GetTCHAR(kBurnSection, L"Device", &Device)) return false;
    ini.GetBool(kBurnSection, L"SafeSpeed", &SafeSpeed);
    ReadText(ini, kBurnSection, L"Label", kTextChars, Label);
    ini.GetBool(kBurnSection, L"Appendable", &Appendable);
    ini.GetBool(kBurnSection, L"PreEraseRW", &PreEraseRW);
    ini.GetBool(kBurnSection, L"Rename", &Rename);
    return true;
}

bool CArchiveINI::ReadEmailSection(const wchar_t *path) {
    CIniFile ini(path);
    ini.GetBool(kEmailSection, L"EmailAddMD5Msg", &EmailAddMD5Msg);
    return false;
}

bool CArchiveINI::ReadUploadSection(const wchar_t *path) {
    CIniFile ini(path);
    if (ReadText(ini, kUploadSection, L"ProfileName", kUploadProfileNameChars, UploadProfileName)) {
        ini.GetInt(kUploadSection, L"Service", &Service);
    }
    return false;
}

bool CArchiveINI::ReadContextMenuSection(const wchar_t *path) {
    CIniFile ini(path);
    RequestedActionCmd = 0;
    ini.GetInt(kContextMenuSection, L"RequestedActionCmd", &RequestedActionCmd);
    if (appOptions_) {
        ini.GetInt(kContextMenuSection, L"ExtractFolderOptions", &appOptions_->ExpandFolderOptions);
    }
    ReadText(ini, kContextMenuSection, L"ExtractTo", kTextChars, ExtractTo);
    return true;
}

// ---------------------------------------------------------------------------
// Content

bool CArchiveINI::AddFilespec(const wchar_t *path, bool folder) {
    if (!content_) return false;
    std::wstring entry = path ? path : L"";
    if (folder) {
        content_->Folders.push_back(entry);
        return true;
    }
    if (appOptions_ && appOptions_->CompressOrig) entry = platform::ResolveShortcut(entry);
    content_->Files.push_back(entry);
    return true;
}

void CArchiveINI::ClearFilespec() {
    if (!content_) return;
    content_->Folders.clear();
    content_->Files.clear();
}

unsigned int CArchiveINI::GetFilespecCount() {
    if (!content_) return 0;
    return static_cast<unsigned int>(content_->Folders.size() + content_->Files.size());
}

unsigned int CArchiveINI::GetFolderspecCount() {
    return content_ ? static_cast<unsigned int>(content_->Folders.size()) : 0;
}

const wchar_t *CArchiveINI::GetFilespec(unsigned int index) {
    if (!content_) return nullptr;
    const std::size_t folders = content_->Folders.size();
    if (index < folders) return content_->Folders[index].c_str();
    if (index - folders < content_->Files.size()) return content_->Files[index - folders].c_str();
    return nullptr;
}

bool CArchiveINI::FilterSet() { return content_ && content_->Filter; }

void CArchiveINI::SetFormatOptions(CFormatOptionsRepository *source) {
    if (formatOptions_ && source) formatOptions_->Copy(source);
}

void CArchiveINI::SetAppOptions(CAppOptionsRepository *source) {
    if (appOptions_ && source) appOptions_->Copy(source);
}

// ---------------------------------------------------------------------------
// Names of the archives made

void CArchiveINI::ReadNewArcNames(const wchar_t *path) {
    CIniFile ini(path);
    CIniFile::SECTION *section = ini.LookUpSection(kArcNamesSection);
    for (const CIniFile::NAMEVALUE &entry : section->values) NewArcNames.push_back(entry.value);
}

void CArchiveINI::SaveNewArcNames() {
    CIniFile ini(fileName_.c_str());
    for (std::size_t i = 0; i < NewArcNames.size(); ++i) {
        ini.SetString(kArcNamesSection, std::to_wstring(i).c_str(), NewArcNames[i].c_str());
    }
    ini.Save();
}
