#include "TransferProfiles.h"

#include <string>

#include "CCrypto.h"
#include "CFSUtils.h"
#include "CIniFile.h"
#include "platform/SpecialFolders.h"
#include "platform/Win32.h"

namespace {

constexpr const wchar_t *kFtpSection = L"FTP";
constexpr const wchar_t *kUploadSection = L"UploadService";
constexpr unsigned kReadChars = 1024;
constexpr unsigned kDefaultFtpPort = 21;
// Room for the hexadecimal form of a password: 63 characters at most fit.
constexpr unsigned long kCipherChars = 254;

// One kind's folder, found and made on first use and kept for the process.
// It is looked for again only when the application data folder itself moved
// (a new VARNICK_HOME), so each home gets its folder made.
struct ProfileFolder {
    const wchar_t *suffix;
    std::wstring path;
    std::wstring base;
    bool known = false;
};

ProfileFolder ftpFolder{L"Orvane Labs/FTPProfiles", {}, {}, false};
ProfileFolder uploadFolder{L"Orvane Labs/UploadProfiles", {}, {}, false};

// Shared by both kinds: one enumeration at a time.
HANDLE enumeration = nullptr;

wchar_t ftpFirstName[kProfileNameChars];
wchar_t ftpNextName[kProfileNameChars];
wchar_t uploadFirstName[kProfileNameChars];
wchar_t uploadNextName[kProfileNameChars];

FtpProfileRecord ftpRecord;
UploadProfileRecord uploadRecord;

const std::wstring &FolderOf(ProfileFolder &folder) {
    wchar_t base[1024] = {};
    CFSUtils::ShellGetFolderPath(CSIDL_LOCAL_APPDATA, base);
    if (folder.known && folder.base == base) return folder.path;
    folder.base = base;
    folder.path = platform::JoinPath(base, folder.suffix);
    if (GetFileAttributesW(folder.path.c_str()) == INVALID_FILE_ATTRIBUTES) {
        CFSUtils::ForceDirectories(folder.path.c_str());
    }
    folder.known = true;
    return folder.path;
}

std::wstring ProfilePath(ProfileFolder &folder, const wchar_t *name) {
    return FormatW(L"%s%c%s", FolderOf(folder).c_str(), kPathSep, name ? name : L"");
}

void CloseEnumeration() {
    if (enumeration && enumeration != INVALID_HANDLE_VALUE) FindClose(enumeration);
    enumeration = nullptr;
}

// From the current entry on, the first that is not a folder: its name into
// `buffer`. At the end the handle is closed and null comes back.
const wchar_t *SkipFoldersAndCopy(WIN32_FIND_DATAW &found, bool haveEntry, wchar_t *buffer) {
    while (haveEntry && (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) {
        haveEntry = FindNextFileW(enumeration, &found) != FALSE;
    }
    if (!haveEntry) {
        CloseEnumeration();
        return nullptr;
    }
    wcsncpy_s(buffer, kProfileNameChars, found.cFileName, _TRUNCATE);
    return buffer;
}

const wchar_t *FirstProfile(ProfileFolder &folder, wchar_t *buffer) {
    // A walk that stopped early left its handle open; it is not needed again.
    CloseEnumeration();
    WIN32_FIND_DATAW found{};
    std::wstring pattern = FormatW(L"%s%c*.*", FolderOf(folder).c_str(), kPathSep);
    enumeration = FindFirstFileW(pattern.c_str(), &found);
    return SkipFoldersAndCopy(found, enumeration != INVALID_HANDLE_VALUE, buffer);
}

const wchar_t *NextProfile(wchar_t *buffer) {
    if (!enumeration) return nullptr;
    WIN32_FIND_DATAW found{};
    bool haveEntry = FindNextFileW(enumeration, &found) != FALSE;
    return SkipFoldersAndCopy(found, haveEntry, buffer);
}

void ResetFtpRecord() {
    ftpRecord.server[0] = L'\0';
    ftpRecord.user[0] = L'\0';
    ftpRecord.password[0] = L'\0';
    ftpRecord.path[0] = L'\0';
    ftpRecord.overwrite = false;
    ftpRecord.passive = false;
    ftpRecord.port = kDefaultFtpPort;
}

// Copies the value into `target` only when the key is there.
void ReadText(CIniFile &ini, const wchar_t *name, wchar_t *target, std::size_t size) {
    wchar_t value[kReadChars] = {};
    if (ini.GetString(kFtpSection, name, value, kReadChars)) {
        wcsncpy_s(target, size, value, _TRUNCATE);
    }
}

void ReadPassword(CIniFile &ini) {
    wchar_t cipher[kReadChars] = {};
    if (!ini.GetString(kFtpSection, L"Pass", cipher, kReadChars) || cipher[0] == L'\0') return;
    CCrypto crypto(nullptr);
    crypto.DecryptString(cipher, ftpRecord.password, kProfilePasswordChars);
}

}  // namespace

extern "C" {

void AddFTPProfile(const FtpProfileRecord *profile) {
    CIniFile ini(ProfilePath(ftpFolder, profile->name).c_str());
    ini.SetString(kFtpSection, L"ProfileName", profile->name);
    ini.SetString(kFtpSection, L"Server", profile->server);
    ini.SetInt(kFtpSection, L"Port", profile->port);
    ini.SetString(kFtpSection, L"Path", profile->path);
    ini.SetString(kFtpSection, L"User", profile->user);
    if (profile->password[0] != L'\0') {
        // A password too long for the buffer is stored empty.
        wchar_t cipher[kCipherChars] = {};
        CCrypto crypto(nullptr);
        crypto.EncryptString(profile->password, cipher, kCipherChars);
        ini.SetString(kFtpSection, L"Pass", cipher);
    }
    ini.SetBool(kFtpSection, L"Overwrite", profile->overwrite);
    ini.SetBool(kFtpSection, L"Passive", profile->passive);
    ini.Save();
}

FtpProfileRecord *GetFTPProfile(const wchar_t *name) {
    CIniFile ini(ProfilePath(ftpFolder, name).c_str());
    wcsncpy_s(ftpRecord.name, kProfileNameChars, name ? name : L"", _TRUNCATE);
    ResetFtpRecord();
    wchar_t server[kReadChars] = {};
    // Without a server nothing else of the file counts.
    if (!ini.GetString(kFtpSection, L"Server", server, kReadChars)) return &ftpRecord;
    wcsncpy_s(ftpRecord.server, kProfileServerChars, server, _TRUNCATE);
    ReadText(ini, L"Path", ftpRecord.path, kProfilePathChars);
    ReadText(ini, L"User", ftpRecord.user, kProfileUserChars);
    ReadPassword(ini);
    ini.GetInt(kFtpSection, L"Port", &ftpRecord.port);
    ini.GetBool(kFtpSection, L"Overwrite", &ftpRecord.overwrite);
    ini.GetBool(kFtpSection, L"Passive", &ftpRecord.passive);
    return &ftpRecord;
}

bool DeleteFTPProfile(const wchar_t *name) {
    return CFSUtils::DeleteFileW(ProfilePath(ftpFolder, name).c_str(), false);
}

const wchar_t *GetFirstFTPProfile() { return FirstProfile(ftpFolder, ftpFirstName); }

const wchar_t *GetNextFTPProfile() { return NextProfile(ftpNextName); }

void AddUploadProfile(const UploadProfileRecord *profile) {
    CIniFile ini(ProfilePath(uploadFolder, profile->name).c_str());
    ini.SetString(kUploadSection, L"ProfileName", profile->name);
    ini.SetInt(kUploadSection, L"Service", profile->service);
    ini.Save();
}

UploadProfileRecord *GetUploadProfile(const wchar_t *name) {
    CIniFile ini(ProfilePath(uploadFolder, name).c_str());
    wchar_t stored[kReadChars] = {};
    // No reset: a missing profile leaves the last read's values standing.
    if (ini.GetString(kUploadSection, L"ProfileName", stored, kReadChars)) {
        wcsncpy_s(uploadRecord.name, kProfileNameChars, stored, _TRUNCATE);
        ini.GetInt(kUploadSection, L"Service", &uploadRecord.service);
    }
    return &uploadRecord;
}

bool DeleteUploadProfile(const wchar_t *name) {
    return CFSUtils::DeleteFileW(ProfilePath(uploadFolder, name).c_str(), false);
}

const wchar_t *GetFirstUploadProfile() { return FirstProfile(uploadFolder, uploadFirstName); }

const wchar_t *GetNextUploadProfile() { return NextProfile(uploadNextName); }

}  // extern "C"
