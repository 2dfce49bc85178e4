// Shared steps of the option records: the product's registry root, and the
// typed reads and writes of one value that both stores make again and again.
// Internal to settings/.
#pragma once

#include <string>
#include <variant>

#include "CRegistry.h"
#include "platform/WinTypes.h"

namespace optionstore {

inline constexpr const wchar_t *kProductRoot = L"Software\\Orvane Labs\\Varnick";

// A key of HKEY_CURRENT_USER: the product root with `subKey` appended (the
// root itself for an empty one), or a full path of its own.
class OptionKey {
public:
    explicit OptionKey(const wchar_t *subKey, bool create = false);
    OptionKey(const std::wstring &fullPath, bool create);

    // A missing or unreadable value leaves the field and gives false.
    bool Read(const wchar_t *name, DWORD &field);
    // True only for exactly 1.
    bool Read(const wchar_t *name, bool &field);
    // Text of at most 511 characters (a buffer of 1,024 bytes).
    bool Read(const wchar_t *name, std::wstring &field);

    void Write(const wchar_t *name, DWORD value);
    // A DWORD of 1 or 0.
    void Write(const wchar_t *name, bool value);
    void Write(const wchar_t *name, const std::wstring &value);

    CRegistry &Registry() { return registry_; }

private:
    CRegistry registry_;
};

// A stored field of a record: its value name and a pointer to the member,
// of one of the stored types.
template <class Record, class... Types>
struct NamedField {
    const wchar_t *name;
    std::variant<Types Record::*...> field;
};

// Every field of a table through one key. A table row has `name` and
// `field`, a variant of pointers to members of the record.
template <class Record, class Table>
void ReadFields(Record &record, OptionKey &key, const Table &fields) {
    for (const auto &f : fields)
        std::visit([&](auto member) { key.Read(f.name, record.*member); }, f.field);
}

template <class Record, class Table>
void WriteFields(Record &record, OptionKey &key, const Table &fields) {
    for (const auto &f : fields)
        std::visit([&](auto member) { key.Write(f.name, record.*member); }, f.field);
}

}  // namespace optionstore
