// One row of an archive's listing, as the inspection of an archive gathers
// it: a file, or a folder whose path ends in the path separator and whose
// sizes and date are 0. Levels are joined with the platform's separator, as
// every item path outside the engine is.
#pragma once

#include <cstdint>
#include <string>

#include "VarnickEngine.h"

class CArchiveItem {
public:
    CArchiveItem() = default;
    CArchiveItem(std::wstring name, std::wstring path);
    virtual ~CArchiveItem();
    CArchiveItem(const CArchiveItem &) = default;
    CArchiveItem &operator=(const CArchiveItem &) = default;

    // Whether the row is a folder (its path ends in the separator).
    bool IsFolder() const;

    std::wstring name;  // the item's own name; empty for a folder row
    std::wstring path;  // levels joined by kPathSep
    std::uint64_t compressedSize = 0;
    std::uint64_t expandedSize = 0;
    EngineDateTime modificationDate = 0;
    bool encrypted = false;
};
