// The form in which a resource library offers its texts. The platform's
// LoadStringW finds the table through the exported symbol below.
#pragma once

#include <cstddef>

struct VarnickStringEntry {
    unsigned id;
    const wchar_t *text;
};

// LoadStringW looks texts up by binary search, so a table must be sorted by
// id with no id twice; each table checks itself with this at compile time.
template <std::size_t N>
constexpr bool IsSortedById(const VarnickStringEntry (&entries)[N]) {
    for (std::size_t i = 1; i < N; ++i) {
        if (entries[i - 1].id >= entries[i].id) return false;
    }
    return true;
}

// Every resource library exports this; entries are sorted by id.
extern "C" const VarnickStringEntry *VarnickStringTable(std::size_t *count);
