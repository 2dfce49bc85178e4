#include "platform/WideText.h"

#include <locale.h>
#include <wctype.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool IsSurrogate(char32_t c) { return c >= 0xD800 && c <= 0xDFFF; }

char32_t Sanitize(wchar_t c) {
    auto code = static_cast<char32_t>(c);
    return (code > 0x10FFFF || IsSurrogate(code)) ? kReplacement : code;
}

void AppendUtf8(std::string &out, char32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

// Decodes one UTF-8 sequence at text[pos], advancing pos. Overlong forms,
// surrogates and truncated sequences give U+FFFD and consume one byte.
char32_t DecodeUtf8(std::string_view text, std::size_t &pos) {
    auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    unsigned char lead = byte(pos);
    if (lead < 0x80) {
        ++pos;
        return lead;
    }
    int length = 0;
    char32_t c = 0;
    char32_t minimum = 0;
    if ((lead & 0xE0) == 0xC0) {
        length = 2, c = lead & 0x1F, minimum = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3, c = lead & 0x0F, minimum = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4, c = lead & 0x07, minimum = 0x10000;
    } else {
        ++pos;
        return kReplacement;
    }
    if (pos + length > text.size()) {
        ++pos;
        return kReplacement;
    }
    for (int i = 1; i < length; ++i) {
        unsigned char next = byte(pos + i);
        if ((next & 0xC0) != 0x80) {
            ++pos;
            return kReplacement;
        }
        c = (c << 6) | (next & 0x3F);
    }
    if (c < minimum || c > 0x10FFFF || IsSurrogate(c)) {
        ++pos;
        return kReplacement;
    }
    pos += length;
    return c;
}

// A fixed UTF-8 locale for case mapping, so folding never depends on what
// the host process set with setlocale.
locale_t FoldingLocale() {
    static locale_t locale = [] {
        locale_t l = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(nullptr));
        return l ? l : newlocale(LC_CTYPE_MASK, "C", static_cast<locale_t>(nullptr));
    }();
    return locale;
}

}  // namespace

namespace platform {

std::string ToUtf8(std::wstring_view text) {
    std::string out;
    out.reserve(text.size());
    for (wchar_t c : text) AppendUtf8(out, Sanitize(c));
    return out;
}

std::wstring FromUtf8(std::string_view text) {
    std::wstring out;
    out.reserve(text.size());
    for (std::size_t pos = 0; pos < text.size();) {
        out += static_cast<wchar_t>(DecodeUtf8(text, pos));
    }
    return out;
}

std::u16string ToUtf16(std::wstring_view text) {
    std::u16string out;
    out.reserve(text.size());
    for (wchar_t wc : text) {
        char32_t c = Sanitize(wc);
        if (c < 0x10000) {
            out += static_cast<char16_t>(c);
        } else {
            c -= 0x10000;
            out += static_cast<char16_t>(0xD800 + (c >> 10));
            out += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
        }
    }
    return out;
}

std::wstring FromUtf16(std::u16string_view text) {
    std::wstring out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t c = text[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
            text[i + 1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (text[i + 1] - 0xDC00);
            ++i;
        } else if (IsSurrogate(c)) {
            c = kReplacement;
        }
        out += static_cast<wchar_t>(c);
    }
    return out;
}

std::vector<BYTE> ToUtf16Bytes(std::wstring_view text) {
    std::u16string units = ToUtf16(text);
    std::vector<BYTE> out;
    out.reserve(units.size() * 2);
    for (char16_t u : units) {
        out.push_back(static_cast<BYTE>(u & 0xFF));
        out.push_back(static_cast<BYTE>(u >> 8));
    }
    return out;
}

std::wstring FromUtf16Bytes(const BYTE *bytes, std::size_t count) {
    std::u16string units;
    if (bytes) {
        units.reserve(count / 2);
        for (std::size_t i = 0; i + 1 < count; i += 2) {
            units += static_cast<char16_t>(bytes[i] | (bytes[i + 1] << 8));
        }
    }
    return FromUtf16(units);
}

wchar_t FoldLower(wchar_t c) { return static_cast<wchar_t>(towlower_l(c, FoldingLocale())); }

wchar_t FoldUpper(wchar_t c) { return static_cast<wchar_t>(towupper_l(c, FoldingLocale())); }

std::wstring ToLower(std::wstring_view text) {
    std::wstring out(text);
    for (wchar_t &c : out) c = FoldLower(c);
    return out;
}

std::wstring ToUpper(std::wstring_view text) {
    std::wstring out(text);
    for (wchar_t &c : out) c = FoldUpper(c);
    return out;
}

int CompareNoCase(std::wstring_view a, std::wstring_view b) {
    std::size_t n = a.size() < b.size() ? a.size() : b.size();
    for (std::size_t i = 0; i < n; ++i) {
        wchar_t x = FoldLower(a[i]);
        wchar_t y = FoldLower(b[i]);
        if (x != y) return x < y ? -1 : 1;
    }
    if (a.size() == b.size()) return 0;
    return a.size() < b.size() ? -1 : 1;
}

bool EqualsNoCase(std::wstring_view a, std::wstring_view b) {
    return a.size() == b.size() && CompareNoCase(a, b) == 0;
}

bool EndsWithNoCase(std::wstring_view text, std::wstring_view suffix) {
    return suffix.size() <= text.size() &&
           EqualsNoCase(text.substr(text.size() - suffix.size()), suffix);
}

}  // namespace platform

namespace {

std::wstring_view View(const wchar_t *text) { return text ? std::wstring_view(text) : L""; }

template <typename Convert>
int FoldInPlace(wchar_t *text, Convert convert) {
    if (text) {
        for (wchar_t *p = text; *p; ++p) *p = convert(*p);
    }
    return 0;
}

}  // namespace

extern "C" int WCToMB(const wchar_t *source, char *target, int size) {
    if (!source || !target || size <= 0) return 0;
    std::string narrow = platform::ToUtf8(source);
    std::size_t fit = narrow.size();
    if (fit > static_cast<std::size_t>(size - 1)) {
        fit = static_cast<std::size_t>(size - 1);
        // Step back to the start of a UTF-8 sequence so no half character remains.
        while (fit > 0 && (static_cast<unsigned char>(narrow[fit]) & 0xC0) == 0x80) --fit;
    }
    std::memcpy(target, narrow.data(), fit);
    target[fit] = '\0';
    return static_cast<int>(fit);
}

extern "C" int MBToWC(const char *source, wchar_t *target, int size) {
    if (!source || !target || size <= 0) return 0;
    std::wstring wide = platform::FromUtf8(source);
    std::size_t fit = wide.size() < static_cast<std::size_t>(size - 1)
                          ? wide.size()
                          : static_cast<std::size_t>(size - 1);
    wide.copy(target, fit);
    target[fit] = L'\0';
    return static_cast<int>(fit);
}

int _wcsicmp(const wchar_t *a, const wchar_t *b) {
    return platform::CompareNoCase(View(a), View(b));
}

int _wcsnicmp(const wchar_t *a, const wchar_t *b, std::size_t count) {
    std::wstring_view x = View(a), y = View(b);
    return platform::CompareNoCase(x.substr(0, count), y.substr(0, count));
}

int StrCmpIW(const wchar_t *a, const wchar_t *b) { return _wcsicmp(a, b); }

int StrCmpNIW(const wchar_t *a, const wchar_t *b, int count) {
    return count <= 0 ? 0 : _wcsnicmp(a, b, static_cast<std::size_t>(count));
}

wchar_t *CharLowerW(wchar_t *text) {
    FoldInPlace(text, platform::FoldLower);
    return text;
}

const wchar_t *StrStrIW(const wchar_t *text, const wchar_t *search) {
    if (!text || !search) return nullptr;
    std::wstring_view haystack(text), needle(search);
    if (needle.empty()) return text;
    for (std::size_t i = 0; i + needle.size() <= haystack.size(); ++i) {
        if (platform::EqualsNoCase(haystack.substr(i, needle.size()), needle)) return text + i;
    }
    return nullptr;
}

int wcsncpy_s(wchar_t *target, std::size_t size, const wchar_t *source, std::size_t count) {
    if (!target || size == 0) return EINVAL;
    if (!source) {
        target[0] = L'\0';
        return EINVAL;
    }
    std::size_t length = std::wcslen(source);
    if (length > count) length = count;
    if (length >= size) {
        if (count != _TRUNCATE) {
            target[0] = L'\0';
            return ERANGE;
        }
        length = size - 1;
        std::wmemcpy(target, source, length);
        target[length] = L'\0';
        return STRUNCATE;
    }
    std::wmemcpy(target, source, length);
    target[length] = L'\0';
    return 0;
}

// The whole source or nothing: a copy of exactly its length.
int wcscpy_s(wchar_t *target, std::size_t size, const wchar_t *source) {
    return wcsncpy_s(target, size, source, source ? std::wcslen(source) : 0);
}

int wcscat_s(wchar_t *target, std::size_t size, const wchar_t *source) {
    if (!target || size == 0) return EINVAL;
    std::size_t used = wcsnlen(target, size);
    if (used == size || !source) {
        target[0] = L'\0';
        return EINVAL;
    }
    std::size_t length = std::wcslen(source);
    if (used + length >= size) {
        target[0] = L'\0';
        return ERANGE;
    }
    std::wmemcpy(target + used, source, length + 1);
    return 0;
}
