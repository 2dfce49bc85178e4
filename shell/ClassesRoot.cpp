#include "shell/ClassesRoot.h"

namespace shell {

namespace {
constexpr DWORD kTextChars = 1024;
}  // namespace

void UseClassesKey(CRegistry &key, const std::wstring &path, bool create) {
    key.SetMajorKey(kClassesRoot);
    if (create) {
        key.CreateAppKey(path.c_str());
    } else {
        key.SetAppKey(path.c_str());
    }
}

void WriteClassesText(const std::wstring &keyPath, const wchar_t *name, const std::wstring &text) {
    CRegistry key;
    UseClassesKey(key, keyPath, true);
    key.WriteRegSetting(name, text.c_str());
}

bool ReadText(CRegistry &key, const wchar_t *name, std::wstring &text) {
    // Stored text has no terminator: the buffer starts cleared and its last
    // character is never filled.
    wchar_t buffer[kTextChars] = {};
    if (!key.GetRegSetting(name, buffer, (kTextChars - 1) * 2)) return false;
    text = buffer;
    return true;
}

}  // namespace shell
