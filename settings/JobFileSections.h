// The delivery sections of a job file, written the same by the job object
// (CArchiveINI) and by the flat interface that wizards fill (SaveIni).
#pragma once

class CIniFile;

namespace jobfile {

inline constexpr const wchar_t *kFtpSection = L"FTP";
inline constexpr const wchar_t *kBurnSection = L"Burn";

// What the "Burn" section holds.
struct BurnKeys {
    wchar_t device;
    bool safeSpeed;
    const wchar_t *label;
    bool appendable;
    bool preEraseRW;
    bool rename;
};

// The keys, in the order a job file has them; the caller saves the file.
void WriteFtpSection(CIniFile &ini, const wchar_t *profileName, bool md5File);
void WriteBurnSection(CIniFile &ini, const BurnKeys &keys);

}  // namespace jobfile
