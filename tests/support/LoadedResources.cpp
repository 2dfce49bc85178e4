#include "support/LoadedResources.h"

#include "CAppUtils.h"
#include "platform/WinModule.h"

namespace testsupport {

LoadedResources::LoadedResources()
    : localized_(LoadLibraryW(CAppUtils::GetInstResPath())),
      nonLocalized_(LoadLibraryW(CAppUtils::GetInstResNLPath())) {
    CAppUtils::SetCommonHINST(localized_, nonLocalized_);
}

LoadedResources::~LoadedResources() {
    CAppUtils::SetCommonHINST(nullptr, nullptr);
    if (localized_) FreeLibrary(localized_);
    if (nonLocalized_) FreeLibrary(nonLocalized_);
}

std::wstring LoadedResources::Text(unsigned id) {
    const wchar_t *text = platform::FindResourceString(CAppUtils::GetCommonHINST(), id);
    if (!text) text = platform::FindResourceString(CAppUtils::GetCommonNLHINST(), id);
    return text ? text : L"";
}

}  // namespace testsupport
