#include "platform/WinNumbers.h"

#include <cerrno>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace {

bool IsBlank(wchar_t c) { return c == L' ' || (c >= L'\t' && c <= L'\r'); }

// The runtime's decimal reading for a signed type, saturating on overflow.
template <typename Signed>
Signed ParseDecimal(const wchar_t *text) {
    using Unsigned = std::make_unsigned_t<Signed>;
    if (!text) {
        errno = EINVAL;
        return 0;
    }
    while (IsBlank(*text)) ++text;
    const bool negative = *text == L'-';
    if (*text == L'-' || *text == L'+') ++text;

    const Unsigned limit =
        static_cast<Unsigned>(std::numeric_limits<Signed>::max()) + (negative ? 1 : 0);
    Unsigned value = 0;
    bool overflow = false;
    for (; *text >= L'0' && *text <= L'9'; ++text) {
        const auto digit = static_cast<Unsigned>(*text - L'0');
        if (overflow || value > (limit - digit) / 10) {
            overflow = true;
            continue;
        }
        value = value * 10 + digit;
    }
    if (overflow) {
        errno = ERANGE;
        return negative ? std::numeric_limits<Signed>::min() : std::numeric_limits<Signed>::max();
    }
    // Negation in the unsigned type is exact for every value up to the
    // limit, including the minimum itself.
    return negative ? static_cast<Signed>(Unsigned{0} - value) : static_cast<Signed>(value);
}

wchar_t *WriteDigits(std::uint64_t value, wchar_t *buffer, int radix) {
    if (!buffer) {
        errno = EINVAL;
        return buffer;
    }
    if (radix < 2 || radix > 36) {
        errno = EINVAL;
        buffer[0] = L'\0';
        return buffer;
    }
    wchar_t reversed[64];
    int count = 0;
    do {
        const auto digit = static_cast<int>(value % static_cast<unsigned>(radix));
        reversed[count++] = static_cast<wchar_t>(digit < 10 ? L'0' + digit : L'a' + digit - 10);
        value /= static_cast<unsigned>(radix);
    } while (value != 0);
    wchar_t *out = buffer;
    while (count > 0) *out++ = reversed[--count];
    *out = L'\0';
    return buffer;
}

}  // namespace

int _wtoi(const wchar_t *text) { return ParseDecimal<int>(text); }

__int64 _wtoi64(const wchar_t *text) { return ParseDecimal<__int64>(text); }

wchar_t *_ui64tow(ULONGLONG value, wchar_t *buffer, int radix) {
    return WriteDigits(value, buffer, radix);
}
