#include "ArchiveIniInterface.h"

#include <new>
#include <string>

#include "CAppOptionsRepository.h"
#include "CCrypto.h"
#include "CEngine.h"
#include "CFormatOptionsRepository.h"
#include "CIniFile.h"
#include "CNewArchiveContentList.h"
#include "CNewUploadProfile.h"
#include "platform/Win32.h"
#include "settings/CmdLineLaunch.h"
#include "settings/JobFileSections.h"

namespace {

constexpr unsigned kSavedPasswordChars = 254;
// SEE_MASK_NOCLOSEPROCESS | SEE_MASK_UNICODE.
constexpr ULONG kLaunchMask = 16448;

void DeleteOptions(INIINFOOPTIONS *options) {
    if (!options) return;
    if (options->FormatOptions) delete options->FormatOptions->Engine;
    delete options->FormatOptions;
    delete options->AppOptions;
    delete options->Content;
    delete options;
}

// The companions with the user's stored options and an open engine; null
// when any part cannot be made.
INIINFOOPTIONS *NewOptions() {
    auto *options = new (std::nothrow) INIINFOOPTIONS{};
    if (!options) return nullptr;
    options->AppOptions = new (std::nothrow) CAppOptionsRepository;
    options->FormatOptions = new (std::nothrow) CFormatOptionsRepository;
    options->Content = new (std::nothrow) CNewArchiveContentList;
    CEngine *engine = options->FormatOptions ? new (std::nothrow) CEngine : nullptr;
    if (!options->AppOptions || !options->Content || !engine) {
        delete engine;
        DeleteOptions(options);
        return nullptr;
    }
    options->FormatOptions->Engine = engine;
    options->FormatOptions->Read(true);
    options->AppOptions->Read();
    return options;
}

// The record and the format options share these field names, so one list
// serves both directions.
template <typename From, typename To>
void CopyFormatFields(const From &from, To &to) {
    to.VnkxCompressionMethod = from.VnkxCompressionMethod;
    to.VnkxCompressionLevel = from.VnkxCompressionLevel;
    to.CompressionMemory = from.CompressionMemory;
    to.VnkxEncryptionMethod = from.VnkxEncryptionMethod;
    to.UseBlockMode = from.UseBlockMode;
    to.RedundancyLevel = from.RedundancyLevel;
    to.TextEncoding = from.TextEncoding;
    to.EmbedJPGThumbnails = from.EmbedJPGThumbnails;
    to.ZipRecompression = from.ZipRecompression;
    to.RecompressionMask = from.RecompressionMask;
    to.ZipCompressionMethod = from.ZipCompressionMethod;
    to.ZipCompressionLevel = from.ZipCompressionLevel;
    to.ZipEncryptionMethod = from.ZipEncryptionMethod;
    to.BZipCompressionLevel = from.BZipCompressionLevel;
    to.GZipCompressionLevel = from.GZipCompressionLevel;
}

// Likewise for the application fields of the same name; the inverted
// CompressArcs and the folder text are the callers' own.
template <typename From, typename To>
void CopySharedAppFields(const From &from, To &to) {
    to.UseEncryption = from.UseEncryption;
    to.DeleteSrc = from.DeleteSrc;
    to.CompressOrig = from.CompressOrig;
    to.ForkHandling = from.ForkHandling;
    to.AddConflictMethod = from.AddConflictMethod;
    to.AddMergeContents = from.AddMergeContents;
    to.CompressFolderMethod = from.CompressFolderMethod;
}

void TakeAppDefaults(INIINFO &info, const CAppOptionsRepository &app) {
    CopySharedAppFields(app, info);
    info.DontCompressArcs = !app.CompressArcs;
    wcsncpy_s(info.DefaultCompressFolder, 1024, app.DefaultCompressFolder.c_str(), _TRUNCATE);
}

void GiveAppFields(const INIINFO &info, CAppOptionsRepository &app) {
    CopySharedAppFields(info, app);
    app.CompressArcs = !info.DontCompressArcs;
    app.DefaultCompressFolder = info.DefaultCompressFolder;
}

void FillFilter(const INIINFO &info, CFilterObject &filter) {
    filter.Mask = info.Mask;
    filter.ByDate = info.ByDate;
    filter.DateType = info.DateType;
    filter.DateStart = info.DateStart;
    filter.DateEnd = info.DateEnd;
    filter.Since = info.Since;
    filter.AddArchived = info.AddArchived;
    filter.ResetArchived = info.ResetArchived;
    filter.SystemAndHidden = info.SystemAndHidden;
}

void SaveContent(const INIINFO &info, CNewArchiveContentList &content) {
    content.OneArchivePerItem = info.OneArchivePerItem;
    content.Timestamp = info.Timestamp;
    content.SegmentSize = info.SegmentSize;
    content.MakeIndex = info.MakeIndex;
    if (info.UseFilter) {
        content.GetNewFilterObject();
        if (content.Filter) FillFilter(info, *content.Filter);
    }
    content.SaveToIni(info.IniPath);
    content.DisposeOfFilterObject();
}

void SaveArchiveAndDelivery(const INIINFO &info) {
    CIniFile ini(info.IniPath);
    ini.SetInt(L"Archive", L"WizardType", info.WizardType);
    ini.SetBool(L"Archive", L"KeepArchive", info.KeepArchive);
    ini.SetString(L"ArchiveInfo", L"Name", info.ArchiveName);
    ini.SetBool(L"ArchiveInfo", L"Encrypt", info.Encrypt);
    if (info.Encrypt) {
        wchar_t hex[kSavedPasswordChars] = {};
        CCrypto crypto;
        crypto.EncryptString(info.Password, hex, kSavedPasswordChars);
        ini.SetString(L"ArchiveInfo", L"Password", hex);
    }
    ini.SetInt(L"ArchiveInfo", L"Format", info.Format);
    if (info.WizardType == 1) {
        jobfile::WriteFtpSection(ini, info.FTPProfileName, info.FTPMD5File);
    } else if (info.WizardType == 3) {
        jobfile::WriteBurnSection(ini, {info.Device, info.SafeSpeed, info.Label, info.Appendable,
                                        info.PreEraseRW, info.Rename});
    }
    ini.Save();
}

}  // namespace

namespace jobfile {

bool RunCmdLineBeside(const wchar_t *moduleFile, const wchar_t *arguments) {
    std::wstring program = moduleFile ? moduleFile : L"";
    const std::size_t cut = program.rfind(kPathSep);
    if (cut == std::wstring::npos) return false;
    program.erase(cut);
    const std::wstring folder = program;
    program += kPathSep;
    program += L"CmdLine.exe";

    SHELLEXECUTEINFOW execute{};
    execute.cbSize = sizeof(execute);
    execute.fMask = kLaunchMask;
    execute.lpVerb = L"open";
    execute.lpFile = program.c_str();
    execute.lpParameters = arguments;
    execute.lpDirectory = folder.c_str();
    execute.nShow = SW_SHOWNORMAL;
    if (!ShellExecuteExW(&execute)) return false;
    if (execute.hProcess) {
        WaitForSingleObject(execute.hProcess, INFINITE);
        CloseHandle(execute.hProcess);
    }
    return true;
}

}  // namespace jobfile

extern "C" {

INIINFO *CreateIni(const wchar_t *path) {
    auto *info = new (std::nothrow) INIINFO{};
    if (!info) return nullptr;
    info->Options = NewOptions();
    if (!info->Options) {
        delete info;
        return nullptr;
    }
    wcsncpy_s(info->IniPath, 1024, path ? path : L"", _TRUNCATE);
    info->WizardType = 2;
    info->KeepArchive = true;
    info->Device = L'A';
    CopyFormatFields(*info->Options->FormatOptions, *info);
    TakeAppDefaults(*info, *info->Options->AppOptions);
    return info;
}

void AddFile(INIINFO *info, const wchar_t *path) {
    if (info && info->Options) info->Options->Content->Files.push_back(path ? path : L"");
}

void AddFolder(INIINFO *info, const wchar_t *path) {
    if (info && info->Options) info->Options->Content->Folders.push_back(path ? path : L"");
}

bool SaveIni(INIINFO *info) {
    if (!info) return false;
    if (info->Options) {
        SaveContent(*info, *info->Options->Content);
        GiveAppFields(*info, *info->Options->AppOptions);
        info->Options->AppOptions->SaveToIni(info->IniPath);
        CopyFormatFields(*info, *info->Options->FormatOptions);
        info->Options->FormatOptions->SaveToIni(info->IniPath);
    }
    SaveArchiveAndDelivery(*info);
    DeleteINIINFO(info);
    return true;
}

void DeleteINIINFO(INIINFO *info) {
    if (!info) return;
    DeleteOptions(info->Options);
    delete info;
}

const wchar_t *GetLogFile(const wchar_t *path) {
    static wchar_t logFile[1024];
    logFile[0] = L'\0';
    CIniFile ini(path);
    if (!ini.GetString(L"CmdLine", L"LogFile", logFile, 1024)) logFile[0] = L'\0';
    return logFile;
}

void LaunchCmdLineBlocking(const wchar_t *arguments) {
    wchar_t library[1024] = {};
    if (GetModuleFileNameW(platform::LibraryModule(), library, 1024) == 0) return;
    jobfile::RunCmdLineBeside(library, arguments);
}

const wchar_t *RunUploadProfileDlg(const wchar_t *name, HWND parent) {
    static std::wstring chosen;
    CNewUploadProfile dialog(parent);
    if (name) {
        // An edit gives back the name it was given, accepted or not.
        dialog.RunEdit(name);
        chosen = name;
    } else {
        const wchar_t *created = dialog.RunNew();
        chosen = created ? created : L"";
    }
    return chosen.c_str();
}

}  // extern "C"
