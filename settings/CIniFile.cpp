#include "CIniFile.h"

#include <cwchar>
#include <memory>

#include "common/HexText.h"
#include "platform/Win32.h"
#include "platform/WinNumbers.h"

namespace {

// A read takes at most 1023 characters; a longer line arrives in pieces.
constexpr int kLineBufferChars = 1024;
// SetStruct encodes into this many characters, terminator included.
constexpr unsigned kStructTextChars = 1024;
constexpr unsigned kStructMaxBytes = 511;
// Digits of an unsigned 64-bit number and a terminator.
constexpr std::size_t kNumberChars = 32;

std::wstring_view Text(const wchar_t *text) { return text ? text : L""; }

struct FileClose {
    void operator()(FILE *file) const { std::fclose(file); }
};

}  // namespace

CIniFile::CIniFile() = default;

CIniFile::CIniFile(const wchar_t *path) { Open(path); }

CIniFile::~CIniFile() = default;

bool CIniFile::Open(const wchar_t *path) {
    path_ = Text(path);
    std::unique_ptr<FILE, FileClose> file(_wfopen(path_.c_str(), L"rt, ccs=UNICODE"));
    if (file) ReadLines(file.get(), L'\n');
    return true;
}

bool CIniFile::Read(FILE *stream) {
    if (!stream) return true;
    wchar_t mark[2];
    TextFileGets(mark, 2, stream);
    ReadLines(stream, L'\r');
    return true;
}

void CIniFile::ReadLines(FILE *file, wchar_t valueEnd) {
    wchar_t line[kLineBufferChars];
    SECTION *current = nullptr;
    while (TextFileGets(line, kLineBufferChars, file)) current = TakeLine(line, current, valueEnd);
}

// One line (or piece of a line) by the reading rules; returns the section
// that later pairs go to.
CIniFile::SECTION *CIniFile::TakeLine(wchar_t *line, SECTION *current, wchar_t valueEnd) {
    if (line[0] == L'[') {
        // Without a "]" the name runs to the end, line end included.
        if (wchar_t *close = std::wcsrchr(line, L']')) *close = L'\0';
        sections_.push_back(std::make_unique<SECTION>(SECTION{line + 1, {}}));
        return sections_.back().get();
    }
    wchar_t *equals = std::wcschr(line, L'=');
    if (!equals || !current) return current;
    *equals = L'\0';
    wchar_t *value = equals + 1;
    if (wchar_t *end = std::wcsrchr(value, valueEnd)) *end = L'\0';
    current->values.push_back(NAMEVALUE{line, value});
    return current;
}

void CIniFile::Save() {
    std::unique_ptr<FILE, FileClose> file(_wfopen(path_.c_str(), L"wt, ccs=UNICODE"));
    if (!file) return;
    for (const auto &section : sections_) {
        TextFilePrintf(file.get(), L"[%s]\n", section->name.c_str());
        for (const NAMEVALUE &entry : section->values) {
            TextFilePrintf(file.get(), L"%s=%s\n", entry.name.c_str(), entry.value.c_str());
        }
    }
}

CIniFile::SECTION *CIniFile::LookUpSection(const wchar_t *section) {
    const std::wstring_view name = Text(section);
    for (const auto &candidate : sections_) {
        if (candidate->name == name) return candidate.get();
    }
    sections_.push_back(std::make_unique<SECTION>(SECTION{std::wstring(name), {}}));
    return sections_.back().get();
}

int CIniFile::LookUpNameIndex(SECTION *section, const wchar_t *name) {
    if (!section) return -1;
    const std::wstring_view wanted = Text(name);
    for (int index = static_cast<int>(section->values.size()) - 1; index >= 0; --index) {
        if (section->values[index].name == wanted) return index;
    }
    return -1;
}

const wchar_t *CIniFile::LookUpNameValue(SECTION *section, const wchar_t *name) {
    const int index = LookUpNameIndex(section, name);
    return index < 0 ? nullptr : section->values[index].value.c_str();
}

const wchar_t *CIniFile::Find(const wchar_t *section, const wchar_t *name) {
    return LookUpNameValue(LookUpSection(section), name);
}

bool CIniFile::Store(const wchar_t *section, const wchar_t *name, const std::wstring &value) {
    SECTION *target = LookUpSection(section);
    const int index = LookUpNameIndex(target, name);
    if (index < 0) {
        target->values.push_back(NAMEVALUE{std::wstring(Text(name)), value});
    } else {
        target->values[index].value = value;
    }
    return true;
}

bool CIniFile::GetString(const wchar_t *section, const wchar_t *name, wchar_t *buffer,
                         unsigned size) {
    const wchar_t *value = Find(section, name);
    if (!value || !buffer || std::wcslen(value) >= size) return false;
    std::wcscpy(buffer, value);
    return true;
}

bool CIniFile::SetString(const wchar_t *section, const wchar_t *name, const wchar_t *value) {
    return Store(section, name, std::wstring(Text(value)));
}

bool CIniFile::GetInt(const wchar_t *section, const wchar_t *name, unsigned int *value) {
    const wchar_t *text = Find(section, name);
    if (!text || !value) return false;
    *value = static_cast<unsigned int>(_wtoi(text));
    return true;
}

bool CIniFile::SetInt(const wchar_t *section, const wchar_t *name, unsigned int value) {
    return Store(section, name, FormatW(L"%i", static_cast<int>(value)));
}

bool CIniFile::GetInt64(const wchar_t *section, const wchar_t *name, __int64 *value) {
    const wchar_t *text = Find(section, name);
    if (!text || !value) return false;
    *value = _wtoi64(text);
    return true;
}

bool CIniFile::SetInt64(const wchar_t *section, const wchar_t *name, __int64 value) {
    wchar_t digits[kNumberChars];
    _ui64tow(static_cast<ULONGLONG>(value), digits, 10);
    return Store(section, name, digits);
}

bool CIniFile::GetBool(const wchar_t *section, const wchar_t *name, bool *value) {
    const wchar_t *text = Find(section, name);
    if (!text || !value) return false;
    *value = std::wcscmp(text, L"0") != 0;
    return true;
}

bool CIniFile::SetBool(const wchar_t *section, const wchar_t *name, bool value) {
    return Store(section, name, value ? L"1" : L"0");
}

bool CIniFile::GetTCHAR(const wchar_t *section, const wchar_t *name, wchar_t *value) {
    const wchar_t *text = Find(section, name);
    if (!text || !value) return false;
    *value = text[0];
    return true;
}

bool CIniFile::SetTCHAR(const wchar_t *section, const wchar_t *name, wchar_t value) {
    const wchar_t text[2] = {value, L'\0'};
    return Store(section, name, text);
}

bool CIniFile::GetStruct(const wchar_t *section, const wchar_t *name, void *data) {
    const wchar_t *text = Find(section, name);
    if (!text || !data) return false;
    const auto size = static_cast<unsigned>(std::wcslen(text) / 2);
    return HexStringToBin(text, static_cast<BYTE *>(data), size) != 0;
}

bool CIniFile::SetStruct(const wchar_t *section, const wchar_t *name, const void *data,
                         unsigned size) {
    // Converted before the section is looked up, so that a refusal leaves
    // no new section behind.
    if (size > kStructMaxBytes) return false;
    wchar_t text[kStructTextChars];
    if (!BinToHexString(static_cast<const BYTE *>(data), size, text, kStructTextChars)) {
        return false;
    }
    return Store(section, name, text);
}

bool CIniFile::BinToHexString(const BYTE *bytes, unsigned size, wchar_t *out, unsigned outSize) {
    return hextext::EncodeInto(bytes, size, out, outSize);
}

unsigned CIniFile::HexStringToBin(const wchar_t *text, BYTE *bytes, unsigned size) {
    if (!text || !bytes) return 0;
    const std::size_t length = std::wcslen(text);
    if (length / 2 != size) return 0;
    // Steps of two while the position is inside the text: an odd last digit
    // is paired with the terminator and makes one byte more than `size`.
    for (std::size_t position = 0; position < length; position += 2) {
        bytes[position / 2] = hextext::DecodePair(text[position], text[position + 1]);
    }
    return size;
}

const wchar_t *CIniFile::GetFirstName(const wchar_t *section) {
    iterationSection_ = LookUpSection(section);
    iterationIndex_ = 0;
    return GetNextName();
}

const wchar_t *CIniFile::GetNextName() {
    if (!iterationSection_ || iterationIndex_ >= iterationSection_->values.size()) return nullptr;
    return iterationSection_->values[iterationIndex_++].name.c_str();
}

void CIniFile::RemoveName(const wchar_t *section, const wchar_t *name) {
    SECTION *target = LookUpSection(section);
    const int index = LookUpNameIndex(target, name);
    if (index >= 0) target->values.erase(target->values.begin() + index);
}

void CIniFile::RemoveSection(const wchar_t *section) {
    const std::wstring_view name = Text(section);
    for (auto it = sections_.begin(); it != sections_.end(); ++it) {
        if ((*it)->name != name) continue;
        if (iterationSection_ == it->get()) iterationSection_ = nullptr;
        sections_.erase(it);
        return;
    }
}
