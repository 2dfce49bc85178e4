#include "platform/WinFormat.h"

#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <string_view>

#include "platform/WideText.h"

namespace {

enum class Length { None, Short, Long32, LongLong, Size, Wide, Narrow };

struct Directive {
    std::string flags;
    int width = -1;
    int precision = -1;
    bool leftAlign = false;
    Length length = Length::None;
    wchar_t conversion = 0;
};

bool IsFlag(wchar_t c) { return c == L'-' || c == L'+' || c == L' ' || c == L'#' || c == L'0'; }

int ReadNumber(const wchar_t *&p) {
    int value = 0;
    while (*p >= L'0' && *p <= L'9') value = value * 10 + (*p++ - L'0');
    return value;
}

// Reads flags, width, precision and length after a '%'. Stars take their
// value from the arguments, as printf does.
void ReadDirective(const wchar_t *&p, Directive &directive, va_list &args) {
    while (IsFlag(*p)) {
        if (*p == L'-') directive.leftAlign = true;
        directive.flags += static_cast<char>(*p++);
    }
    if (*p == L'*') {
        ++p;
        directive.width = va_arg(args, int);
        if (directive.width < 0) {
            directive.leftAlign = true;
            directive.flags += '-';
            directive.width = -directive.width;
        }
    } else if (*p >= L'0' && *p <= L'9') {
        directive.width = ReadNumber(p);
    }
    if (*p == L'.') {
        ++p;
        if (*p == L'*') {
            ++p;
            directive.precision = va_arg(args, int);
        } else {
            directive.precision = ReadNumber(p);
        }
    }
    if (p[0] == L'I' && p[1] == L'6' && p[2] == L'4') {
        directive.length = Length::LongLong, p += 3;
    } else if (p[0] == L'I' && p[1] == L'3' && p[2] == L'2') {
        directive.length = Length::Long32, p += 3;
    } else if (p[0] == L'I') {
        directive.length = Length::Size, ++p;
    } else if (p[0] == L'l' && p[1] == L'l') {
        directive.length = Length::LongLong, p += 2;
    } else if (p[0] == L'h' && p[1] == L'h') {
        directive.length = Length::Short, p += 2;
    } else if (p[0] == L'h') {
        directive.length = Length::Narrow, ++p;  // "%hs", "%hc" narrow; "%hd" short
    } else if (p[0] == L'l') {
        directive.length = Length::Wide, ++p;  // "%ls", "%lc" wide; "%ld" 32-bit
    } else if (p[0] == L'w') {
        directive.length = Length::Wide, ++p;
    } else if (p[0] == L'L' || p[0] == L'q' || p[0] == L'j' || p[0] == L'z' || p[0] == L't') {
        directive.length = (p[0] == L'L') ? Length::None : Length::LongLong, ++p;
    }
    directive.conversion = *p;
    if (*p) ++p;
}

void Pad(std::wstring &out, std::wstring_view text, const Directive &directive) {
    std::size_t width = directive.width > 0 ? static_cast<std::size_t>(directive.width) : 0;
    std::size_t fill = width > text.size() ? width - text.size() : 0;
    if (!directive.leftAlign) out.append(fill, L' ');
    out.append(text);
    if (directive.leftAlign) out.append(fill, L' ');
}

void AppendString(std::wstring &out, std::wstring_view text, const Directive &directive) {
    if (directive.precision >= 0 && static_cast<std::size_t>(directive.precision) < text.size()) {
        text = text.substr(0, static_cast<std::size_t>(directive.precision));
    }
    Pad(out, text, directive);
}

// Numbers go through snprintf with a narrow directive of the same flags, width
// and precision; its output is ASCII.
template <typename T>
void AppendNumber(std::wstring &out, const Directive &directive, const char *length, char conversion,
                  T value) {
    std::string format = "%" + directive.flags;
    if (directive.width >= 0) format += std::to_string(directive.width);
    if (directive.precision >= 0) format += "." + std::to_string(directive.precision);
    format += length;
    format += conversion;
    char buffer[512];
    int n = std::snprintf(buffer, sizeof buffer, format.c_str(), value);
    if (n < 0) return;
    if (static_cast<std::size_t>(n) < sizeof buffer) {
        out.append(buffer, buffer + n);
        return;
    }
    std::string big(static_cast<std::size_t>(n) + 1, '\0');
    std::snprintf(big.data(), big.size(), format.c_str(), value);
    out.append(big.begin(), big.begin() + n);
}

void AppendInteger(std::wstring &out, const Directive &directive, va_list &args) {
    char conversion = static_cast<char>(directive.conversion == L'i' ? L'd' : directive.conversion);
    bool isSigned = conversion == 'd';
    switch (directive.length) {
        case Length::LongLong:
            if (isSigned) {
                AppendNumber(out, directive, "ll", conversion,
                             static_cast<long long>(va_arg(args, std::int64_t)));
            } else {
                AppendNumber(out, directive, "ll", conversion,
                             static_cast<unsigned long long>(va_arg(args, std::uint64_t)));
            }
            break;
        case Length::Size:
            if (isSigned) {
                AppendNumber(out, directive, "z", conversion, va_arg(args, std::ptrdiff_t));
            } else {
                AppendNumber(out, directive, "z", conversion, va_arg(args, std::size_t));
            }
            break;
        case Length::Narrow:  // "%hd": a short, promoted to int
            if (isSigned) {
                AppendNumber(out, directive, "h", conversion, va_arg(args, int));
            } else {
                AppendNumber(out, directive, "h", conversion, va_arg(args, unsigned int));
            }
            break;
        case Length::Short:
            AppendNumber(out, directive, "hh", conversion, va_arg(args, int));
            break;
        default:  // int, and Windows' 32-bit long
            if (isSigned) {
                AppendNumber(out, directive, "", conversion, va_arg(args, int));
            } else {
                AppendNumber(out, directive, "", conversion, va_arg(args, unsigned int));
            }
            break;
    }
}

void AppendFloat(std::wstring &out, const Directive &directive, va_list &args) {
    AppendNumber(out, directive, "", static_cast<char>(directive.conversion), va_arg(args, double));
}

void AppendChar(std::wstring &out, const Directive &directive, bool wide, va_list &args) {
    int value = va_arg(args, int);
    wchar_t c = wide ? static_cast<wchar_t>(value)
                     : static_cast<wchar_t>(static_cast<unsigned char>(value));
    Directive plain = directive;
    plain.precision = -1;
    Pad(out, std::wstring_view(&c, 1), plain);
}

void AppendText(std::wstring &out, const Directive &directive, bool wide, va_list &args) {
    if (wide) {
        const wchar_t *text = va_arg(args, const wchar_t *);
        AppendString(out, text ? std::wstring_view(text) : std::wstring_view(L"(null)"), directive);
    } else {
        const char *text = va_arg(args, const char *);
        AppendString(out, text ? platform::FromUtf8(text) : std::wstring(L"(null)"), directive);
    }
}

void AppendConversion(std::wstring &out, const Directive &directive, va_list &args) {
    // In the wide family, a plain "%s"/"%c" is wide and "%S"/"%C" narrow;
    // "h" forces narrow, "l"/"w" wide.
    bool upper = directive.conversion == L'S' || directive.conversion == L'C';
    bool wide = directive.length == Length::Wide || (directive.length != Length::Narrow && !upper);
    switch (directive.conversion) {
        case L'd':
        case L'i':
        case L'u':
        case L'o':
        case L'x':
        case L'X':
            AppendInteger(out, directive, args);
            break;
        case L'e':
        case L'E':
        case L'f':
        case L'F':
        case L'g':
        case L'G':
        case L'a':
        case L'A':
            AppendFloat(out, directive, args);
            break;
        case L'c':
        case L'C':
            AppendChar(out, directive, wide, args);
            break;
        case L's':
        case L'S':
            AppendText(out, directive, wide, args);
            break;
        case L'p':
            AppendNumber(out, directive, "", 'p', va_arg(args, void *));
            break;
        case L'n':
            (void)va_arg(args, void *);
            break;
        default:
            break;  // an unknown conversion prints nothing and takes nothing
    }
}

// Copies text into a caller's buffer of `size`, at most `limit` characters.
// Returns the count written, or -1 if the text was cut.
int CopyOut(wchar_t *buffer, std::size_t size, std::size_t limit, const std::wstring &text) {
    std::size_t room = size - 1 < limit ? size - 1 : limit;
    std::size_t n = text.size() < room ? text.size() : room;
    text.copy(buffer, n);
    buffer[n] = L'\0';
    return n == text.size() ? static_cast<int>(n) : -1;
}

}  // namespace

std::wstring VFormatW(const wchar_t *format, va_list args) {
    std::wstring out;
    if (!format) return out;
    va_list work;
    va_copy(work, args);
    for (const wchar_t *p = format; *p;) {
        if (*p != L'%') {
            out += *p++;
            continue;
        }
        ++p;
        if (*p == L'%') {
            out += *p++;
            continue;
        }
        Directive directive;
        ReadDirective(p, directive, work);
        if (directive.conversion == 0) break;
        AppendConversion(out, directive, work);
    }
    va_end(work);
    return out;
}

std::wstring FormatW(const wchar_t *format, ...) {
    va_list args;
    va_start(args, format);
    std::wstring out = VFormatW(format, args);
    va_end(args);
    return out;
}

int vswprintf_s(wchar_t *buffer, std::size_t size, const wchar_t *format, va_list args) {
    if (!buffer || size == 0) return -1;
    std::wstring text = VFormatW(format, args);
    if (text.size() >= size) {
        buffer[0] = L'\0';
        return -1;
    }
    return CopyOut(buffer, size, size, text);
}

int swprintf_s(wchar_t *buffer, std::size_t size, const wchar_t *format, ...) {
    va_list args;
    va_start(args, format);
    int n = vswprintf_s(buffer, size, format, args);
    va_end(args);
    return n;
}

int _vsnwprintf_s(wchar_t *buffer, std::size_t size, std::size_t count, const wchar_t *format,
                  va_list args) {
    if (!buffer || size == 0) return -1;
    std::wstring text = VFormatW(format, args);
    if (count != _TRUNCATE && count < size && text.size() > count) {
        return CopyOut(buffer, size, count, text);
    }
    if (count != _TRUNCATE && text.size() >= size) {
        buffer[0] = L'\0';
        return -1;
    }
    return CopyOut(buffer, size, size, text);
}

int _snwprintf_s(wchar_t *buffer, std::size_t size, std::size_t count, const wchar_t *format, ...) {
    va_list args;
    va_start(args, format);
    int n = _vsnwprintf_s(buffer, size, count, format, args);
    va_end(args);
    return n;
}

int wvsprintfW(wchar_t *buffer, const wchar_t *format, va_list args) {
    constexpr std::size_t kWsprintfLimit = 1024;
    if (!buffer) return 0;
    std::wstring text = VFormatW(format, args);
    int n = CopyOut(buffer, kWsprintfLimit, kWsprintfLimit, text);
    return n < 0 ? static_cast<int>(kWsprintfLimit - 1) : n;
}

int wsprintfW(wchar_t *buffer, const wchar_t *format, ...) {
    va_list args;
    va_start(args, format);
    int n = wvsprintfW(buffer, format, args);
    va_end(args);
    return n;
}
