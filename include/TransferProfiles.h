// The stored transfer destinations: FTP profiles and upload profiles, one
// INI file per profile, named exactly as the profile, in
// "Orvane Labs/FTPProfiles" and "Orvane Labs/UploadProfiles" of the local
// application data folder.
//
// Every result is a process-wide buffer that the next call of the same kind
// overwrites, and one enumeration handle serves both kinds: finish walking
// one folder before starting on the other. Not for two threads at once.
// Nothing here reports a failed write.
#pragma once

#include "platform/WinTypes.h"

inline constexpr unsigned kProfileNameChars = 256;
inline constexpr unsigned kProfileServerChars = 1024;
inline constexpr unsigned kProfilePathChars = 1024;
inline constexpr unsigned kProfileUserChars = 256;
inline constexpr unsigned kProfilePasswordChars = 256;

// Upload services; the numbers are also the ids of their names' texts.
inline constexpr unsigned kUploadServicePando = 1181;
inline constexpr unsigned kUploadServiceSharing = 1182;

struct FtpProfileRecord {
    wchar_t name[kProfileNameChars];
    wchar_t server[kProfileServerChars];
    unsigned int port;
    wchar_t path[kProfilePathChars];
    wchar_t user[kProfileUserChars];
    wchar_t password[kProfilePasswordChars];  // plain text; enciphered on disk
    bool overwrite;
    bool passive;
};

struct UploadProfileRecord {
    wchar_t name[kProfileNameChars];
    unsigned int service;
};

extern "C" {

void AddFTPProfile(const FtpProfileRecord *profile);
// Always the static record: a missing profile reads as the name asked for,
// no server, port 21 and both flags off. A usable profile has a server.
FtpProfileRecord *GetFTPProfile(const wchar_t *name);
// To the trash; false when there was no such file.
bool DeleteFTPProfile(const wchar_t *name);
// The first name has a buffer of its own; each next name overwrites the one
// before. Null when the folder holds no more files.
const wchar_t *GetFirstFTPProfile();
const wchar_t *GetNextFTPProfile();

// Updates in place: other keys of an existing file stay.
void AddUploadProfile(const UploadProfileRecord *profile);
// Always the static record, which a missing profile leaves as the last
// successful read made it.
UploadProfileRecord *GetUploadProfile(const wchar_t *name);
bool DeleteUploadProfile(const wchar_t *name);
const wchar_t *GetFirstUploadProfile();
const wchar_t *GetNextUploadProfile();

}  // extern "C"
