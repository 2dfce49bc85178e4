#include "OptionStore.h"

namespace optionstore {
namespace {

// The string buffer the option records read into, in bytes; the registry
// front counts two bytes a character.
constexpr DWORD kStringBufferBytes = 1024;
constexpr DWORD kStringBufferChars = kStringBufferBytes / 2;

}  // namespace

OptionKey::OptionKey(const wchar_t *subKey, bool create)
    : OptionKey(std::wstring(kProductRoot) + (subKey ? subKey : L""), create) {}

OptionKey::OptionKey(const std::wstring &fullPath, bool create) {
    registry_.SetAppKey(fullPath.c_str());
    if (create) registry_.CreateAppKey(fullPath.c_str());
}

bool OptionKey::Read(const wchar_t *name, DWORD &field) {
    DWORD value = 0;
    if (!registry_.GetRegSetting(name, &value)) return false;
    field = value;
    return true;
}

bool OptionKey::Read(const wchar_t *name, bool &field) {
    DWORD value = 0;
    if (!registry_.GetRegSetting(name, &value)) return false;
    field = value == 1;
    return true;
}

bool OptionKey::Read(const wchar_t *name, std::wstring &field) {
    wchar_t buffer[kStringBufferChars] = {};
    if (!registry_.GetRegSetting(name, buffer, kStringBufferBytes)) return false;
    // The store keeps text without its terminator; a text that fills the
    // buffer would have no room for one, so 511 characters is the most read.
    if (buffer[kStringBufferChars - 1] != L'\0') return false;
    field = buffer;
    return true;
}

void OptionKey::Write(const wchar_t *name, DWORD value) { registry_.WriteRegSetting(name, &value); }

void OptionKey::Write(const wchar_t *name, bool value) {
    DWORD number = value ? 1 : 0;
    registry_.WriteRegSetting(name, &number);
}

void OptionKey::Write(const wchar_t *name, const std::wstring &value) {
    registry_.WriteRegSetting(name, value.c_str());
}

}  // namespace optionstore
