#include "platform/FormatMessage.h"

#include <algorithm>
#include <cstdlib>
#include <cwchar>
#include <string>

#include "platform/WinError.h"

namespace {

bool Has(DWORD flags, DWORD flag) { return (flags & flag) != 0; }

DWORD Fail(DWORD code) {
    SetLastError(code);
    return 0;
}

// A new buffer for the text: at least `minimum` characters, like the
// LocalAlloc of Windows, and always room for the terminator.
wchar_t *AllocateText(const std::wstring &text, DWORD minimum) {
    std::size_t characters = std::max<std::size_t>(text.size() + 1, minimum);
    auto *memory = static_cast<wchar_t *>(std::calloc(characters, sizeof(wchar_t)));
    if (memory) std::wmemcpy(memory, text.c_str(), text.size() + 1);
    return memory;
}

}  // namespace

DWORD FormatMessageW(DWORD flags, LPCVOID /*source*/, DWORD messageId, DWORD /*languageId*/,
                     LPWSTR buffer, DWORD size, va_list * /*arguments*/) {
    if (!Has(flags, FORMAT_MESSAGE_FROM_SYSTEM) || Has(flags, FORMAT_MESSAGE_FROM_STRING) ||
        !buffer) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    const std::wstring text = platform::SystemMessageText(messageId);
    const auto length = static_cast<DWORD>(text.size());
    if (Has(flags, FORMAT_MESSAGE_ALLOCATE_BUFFER)) {
        wchar_t *memory = AllocateText(text, size);
        if (!memory) return Fail(ERROR_NOT_ENOUGH_MEMORY);
        *reinterpret_cast<LPWSTR *>(buffer) = memory;
        return length;
    }
    if (size <= length) return Fail(ERROR_INSUFFICIENT_BUFFER);
    std::wmemcpy(buffer, text.c_str(), text.size() + 1);
    return length;
}

HLOCAL LocalFree(HLOCAL memory) {
    std::free(memory);
    return nullptr;
}
