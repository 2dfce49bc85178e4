// Profiles that the delivery tests store before they look at them.
#pragma once

#include "TransferProfiles.h"
#include "platform/WideText.h"

namespace profilesamples {

// A full FTP profile: every field set, passive and overwriting.
inline FtpProfileRecord Ftp(const wchar_t *name, const wchar_t *password) {
    FtpProfileRecord record{};
    wcscpy_s(record.name, kProfileNameChars, name);
    wcscpy_s(record.server, kProfileServerChars, L"ftp.example.org");
    record.port = 2121;
    wcscpy_s(record.path, kProfilePathChars, L"/incoming/backups");
    wcscpy_s(record.user, kProfileUserChars, L"alice");
    wcscpy_s(record.password, kProfilePasswordChars, password);
    record.overwrite = true;
    record.passive = true;
    return record;
}

inline void AddUpload(const wchar_t *name, unsigned service) {
    UploadProfileRecord record{};
    wcscpy_s(record.name, kProfileNameChars, name);
    record.service = service;
    AddUploadProfile(&record);
}

}  // namespace profilesamples
