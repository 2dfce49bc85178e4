#include "settings/JobFileSections.h"

#include "CIniFile.h"

namespace jobfile {

void WriteFtpSection(CIniFile &ini, const wchar_t *profileName, bool md5File) {
    ini.SetString(kFtpSection, L"ProfileName", profileName);
    ini.SetBool(kFtpSection, L"FTPMD5File", md5File);
}

void WriteBurnSection(CIniFile &ini, const BurnKeys &keys) {
    ini.SetTCHAR(kBurnSection, L"Device", keys.device);
    ini.SetBool(kBurnSection, L"SafeSpeed", keys.safeSpeed);
    ini.SetString(kBurnSection, L"Label", keys.label);
    ini.SetBool(kBurnSection, L"Appendable", keys.appendable);
    ini.SetBool(kBurnSection, L"PreEraseRW", keys.preEraseRW);
    ini.SetBool(kBurnSection, L"Rename", keys.rename);
}

}  // namespace jobfile
