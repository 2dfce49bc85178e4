#include "UiTestSupport.h"

#include "CAppUtils.h"

namespace uitest {

ResourceLibraries::ResourceLibraries()
    : localized_(LoadLibraryW(CAppUtils::GetInstResPath())),
      nonLocalized_(LoadLibraryW(CAppUtils::GetInstResNLPath())) {
    EXPECT_NE(localized_, nullptr);
    EXPECT_NE(nonLocalized_, nullptr);
    CAppUtils::SetCommonHINST(localized_, nonLocalized_);
}

ResourceLibraries::~ResourceLibraries() {
    CAppUtils::SetCommonHINST(nullptr, nullptr);
    if (localized_) FreeLibrary(localized_);
    if (nonLocalized_) FreeLibrary(nonLocalized_);
}

void PumpPending() {
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
}

bool PumpUntil(const std::function<bool()> &done, std::chrono::milliseconds timeout) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        PumpPending();
        if (done()) return true;
        if (std::chrono::steady_clock::now() >= deadline) return false;
        MsgWaitForMultipleObjects(0, nullptr, FALSE, 20, QS_ALLINPUT);
    }
}

}  // namespace uitest
