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

wchar_t *WriteDigits(std::uint64_t value, bool negative, wchar_t *buffer, int radix) {
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
    if (negative) *out++ = L'-';
    while (count > 0) *out++ = reversed[--count];
    *out = L'\0';
    return buffer;
}

// A signed value: its magnitude with a sign in radix 10, its bits (of the
// given width) as an unsigned number otherwise.
template <typename Signed>
wchar_t *WriteSigned(Signed value, wchar_t *buffer, int radix) {
    using Unsigned = std::make_unsigned_t<Signed>;
    const auto bits = static_cast<Unsigned>(value);
    if (radix == 10 && value < 0) {
        return WriteDigits(static_cast<Unsigned>(Unsigned{0} - bits), true, buffer, radix);
    }
    return WriteDigits(bits, false, buffer, radix);
}

}  // namespace

int _wtoi(const wchar_t *text) { return ParseDecimal<int>(text); }

__int64 _wtoi64(const wchar_t *text) { return ParseDecimal<__int64>(text); }

wchar_t *_itow(int value, wchar_t *buffer, int radix) { return WriteSigned(value, buffer, radix); }

wchar_t *_i64tow(__int64 value, wchar_t *buffer, int radix) {
    return WriteSigned(value, buffer, radix);
}

wchar_t *_ui64tow(ULONGLONG value, wchar_t *buffer, int radix) {
    return WriteDigits(value, false, buffer, radix);
}
