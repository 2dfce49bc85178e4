// The password prompt: the password of an archive being opened, or a new
// password, typed twice.
#pragma once

#include <string>

#include "platform/WinTypes.h"

class CPassword {
public:
    // `confirm` asks for a new password (typed twice); `passwordWrong` says
    // that the password given last was refused.
    CPassword(HWND parent, const wchar_t *archiveName, bool confirm, bool passwordWrong);

    // Shows the prompt, modal to the parent. True when a password was
    // entered; it is then in `password`. False when the prompt was refused.
    bool Run();

    HWND parent;
    std::wstring archiveName;
    bool confirm;
    bool passwordWrong;
    std::wstring password;
};
