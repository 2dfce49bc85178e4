#include "ui/DialogText.h"

#include "CAppUtils.h"
#include "platform/WinModule.h"

std::wstring DialogText(UINT id, int maxChars) {
    std::wstring text(static_cast<std::size_t>(maxChars), L'\0');
    int length = LoadStringW(CAppUtils::GetCommonHINST(), id, text.data(), maxChars);
    text.resize(static_cast<std::size_t>(length > 0 ? length : 0));
    return text;
}
