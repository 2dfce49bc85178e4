// The most recently used archive paths, newest first, kept in the registry
// under "Software\Orvane Labs\Varnick\RecentList" with one REG_SZ an entry,
// named by its index in decimal. Entries whose files have gone are dropped
// (and their values deleted) when the list is read.
//
// The array itself is never cut: the limit (RecentListSize of the
// application options, 5 unless stored) applies to GetSize and Save.
// Nothing is reported: a registry failure gives an empty list or a list not
// saved. GetItem returns one static string: one thread at a time.
#pragma once

#include <string>
#include <vector>

#include "platform/WinTypes.h"

class CRecentList {
public:
    // Creates the product root if needed, takes RecentListSize as the limit
    // when it is stored, then reads the list.
    CRecentList();
    virtual ~CRecentList();

    // Replaces the array with the stored entries 0 to limit - 1 whose files
    // exist; a missing index is skipped, a gone file's value deleted.
    void Read();
    // Writes at most `limit` entries under their indexes. An empty list
    // writes nothing, and values above the count are left in place.
    void Save();
    // Puts `path` first and drops the first older entry equal to it,
    // ignoring case.
    void Add(const wchar_t *path);
    // Drops the first entry equal to `path`, ignoring case.
    void Remove(const wchar_t *path);
    // Deletes the key with every value, and empties the array.
    void Clear();
    // The lesser of the limit and the number of entries.
    unsigned int GetSize();
    // The entry at `index`, empty when `index` is not below GetSize(). The
    // text is overwritten by the next call.
    const wchar_t *GetItem(unsigned int index);

private:
    DWORD limit_ = 5;
    std::vector<std::wstring> items_;
};
