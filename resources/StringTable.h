// The form in which a resource library offers its texts. The platform's
// LoadStringW finds the table through the exported symbol below.
#pragma once

#include <cstddef>

struct VarnickStringEntry {
    unsigned id;
    const wchar_t *text;
};

// Every resource library exports this; entries are sorted by id.
extern "C" const VarnickStringEntry *VarnickStringTable(std::size_t *count);
