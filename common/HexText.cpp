#include "common/HexText.h"

namespace hextext {

namespace {

constexpr wchar_t kUpperDigits[] = L"0123456789ABCDEF";
constexpr wchar_t kLowerDigits[] = L"0123456789abcdef";

int DigitValue(wchar_t digit) { return digit > L'9' ? digit - 55 : digit - 48; }

}  // namespace

std::wstring Encode(const BYTE *bytes, std::size_t size, bool upperCase) {
    const wchar_t *digits = upperCase ? kUpperDigits : kLowerDigits;
    std::wstring text;
    text.reserve(2 * size);
    for (std::size_t i = 0; i < size; ++i) {
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 0x0F];
    }
    return text;
}

bool EncodeInto(const BYTE *bytes, std::size_t size, wchar_t *out, std::size_t outSize) {
    if (!out || outSize <= 2 * size) return false;
    const std::wstring text = Encode(bytes, size, true);
    text.copy(out, text.size());
    out[text.size()] = L'\0';
    return true;
}

BYTE DecodePair(wchar_t high, wchar_t low) {
    return static_cast<BYTE>((16 * DigitValue(high) + DigitValue(low)) & 0xFF);
}

}  // namespace hextext
