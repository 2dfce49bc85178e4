// The text store of the product: an INI file held in memory, with typed
// getters and setters. Nothing reaches the disk before Save, and no
// operation reports a file error.
//
// On disk: UTF-16LE with the mark FF FE and CR LF line ends; "[section]"
// lines, each followed by its "name=value" lines; no blank lines, no
// comments, nothing quoted. Reading takes at most 1023 characters at a time
// and treats every piece as a line of its own, so a longer line falls apart
// into several entries. Names and section names compare case-sensitively,
// and duplicates of both are kept in file order.
//
// Every getter, GetFirstName and RemoveName create the section they look
// for when it is missing, so a later Save writes an empty header for it. The
// getters leave their output alone when they return false. Pointers to
// names and values stay good until the store changes.
//
// One thread at a time: the iteration cursor is part of the object.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "platform/WinTypes.h"

class CIniFile {
public:
    struct NAMEVALUE {
        std::wstring name;
        std::wstring value;
    };
    struct SECTION {
        std::wstring name;
        std::vector<NAMEVALUE> values;
    };

    CIniFile();
    // Constructs, then Open(path).
    explicit CIniFile(const wchar_t *path);
    // Does not save.
    virtual ~CIniFile();
    CIniFile(const CIniFile &) = delete;
    CIniFile &operator=(const CIniFile &) = delete;

    // Keeps the path and reads the file if it can be opened. Sections held
    // already stay, so a second Open appends. True in every case.
    bool Open(const wchar_t *path);
    // Reads from a stream the caller opened, by the same rules: the first
    // character is taken for the mark and dropped, and a value is cut at its
    // last carriage return (a binary stream keeps its CR LF). A null stream is
    // skipped. The path is left alone. True in every case.
    bool Read(FILE *stream);
    // Rewrites the file at the path whole; if it cannot be opened, nothing
    // happens.
    void Save();

    // The first section of that name; a new empty one at the end when there
    // is none. Never null.
    SECTION *LookUpSection(const wchar_t *section);
    // The last entry of that name: its index or -1, its value or null.
    int LookUpNameIndex(SECTION *section, const wchar_t *name);
    const wchar_t *LookUpNameValue(SECTION *section, const wchar_t *name);

    // False when the name is missing or the value does not fit in `size`
    // characters with its terminator.
    bool GetString(const wchar_t *section, const wchar_t *name, wchar_t *buffer, unsigned size);
    // Replaces the value of the last entry of that name, or appends one.
    bool SetString(const wchar_t *section, const wchar_t *name, const wchar_t *value);
    // _wtoi; written with "%i", so 2^31 and above stand as negative numbers
    // and read back to the same 32 bits.
    bool GetInt(const wchar_t *section, const wchar_t *name, unsigned int *value);
    bool SetInt(const wchar_t *section, const wchar_t *name, unsigned int value);
    // Read signed (_wtoi64), written unsigned (_ui64tow): a negative value
    // goes out as a large positive number and does not read back as itself.
    bool GetInt64(const wchar_t *section, const wchar_t *name, __int64 *value);
    bool SetInt64(const wchar_t *section, const wchar_t *name, __int64 value);
    // True for every value but exactly "0"; written as "1" or "0".
    bool GetBool(const wchar_t *section, const wchar_t *name, bool *value);
    bool SetBool(const wchar_t *section, const wchar_t *name, bool value);
    // The first character (the terminator of an empty value).
    bool GetTCHAR(const wchar_t *section, const wchar_t *name, wchar_t *value);
    bool SetTCHAR(const wchar_t *section, const wchar_t *name, wchar_t value);
    // Bytes as hexadecimal digits. GetStruct decodes as many bytes as the
    // value has digit pairs, so `data` must hold (digits + 1) / 2 bytes; false
    // for an empty value. SetStruct refuses more than 511 bytes, changing
    // nothing: the one setter that can fail.
    bool GetStruct(const wchar_t *section, const wchar_t *name, void *data);
    bool SetStruct(const wchar_t *section, const wchar_t *name, const void *data, unsigned size);

    // Upper-case digits and a terminator; false unless `outSize` is greater
    // than 2 * size.
    static bool BinToHexString(const BYTE *bytes, unsigned size, wchar_t *out, unsigned outSize);
    // 0 unless the text has exactly `size` digit pairs (an odd last digit
    // aside); otherwise decodes and returns `size`. Digits are read as upper
    // case: other characters give wrong bytes, not a failure. An odd last
    // digit is paired with the terminator and written as byte `size`, so
    // `bytes` must hold (length + 1) / 2 bytes.
    static unsigned HexStringToBin(const wchar_t *text, BYTE *bytes, unsigned size);

    // Chooses the section (made when missing) and returns its first name;
    // GetNextName returns the following ones, then null.
    const wchar_t *GetFirstName(const wchar_t *section);
    const wchar_t *GetNextName();

    // The last entry of that name, if any.
    void RemoveName(const wchar_t *section, const wchar_t *name);
    // The first section of that name with its entries, if any; further
    // sections of the name stay.
    void RemoveSection(const wchar_t *section);

private:
    void ReadLines(FILE *file, wchar_t valueEnd);
    SECTION *TakeLine(wchar_t *line, SECTION *current, wchar_t valueEnd);
    // The common step of the setters: the entry's value becomes `value`.
    bool Store(const wchar_t *section, const wchar_t *name, const std::wstring &value);
    // The common step of the getters: the value of the last entry, or null.
    const wchar_t *Find(const wchar_t *section, const wchar_t *name);

    std::vector<std::unique_ptr<SECTION>> sections_;
    unsigned iterationIndex_ = 0;
    SECTION *iterationSection_ = nullptr;
    std::wstring path_;
};
