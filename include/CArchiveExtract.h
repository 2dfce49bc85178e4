// Chosen items out of an archive: extracting, removing, one item to the
// temporary folder, and a fork of an item into memory.
// Runs on the archive worker of CArchiveObject and keeps its result code in
// the archive's last result. Not written yet: every operation answers the
// engine's "not implemented" (kEngineNotImplemented).
#pragma once

#include <cstdint>
#include <string>
#include <vector>
#include "platform/WinTypes.h"

class CArchive;
class CArchiveObject;

class CArchiveExtract {
public:
    CArchiveExtract(CArchiveObject *object, CArchive *archive);
    virtual ~CArchiveExtract();
    CArchiveExtract(const CArchiveExtract &) = delete;
    CArchiveExtract &operator=(const CArchiveExtract &) = delete;

    // Extracts `items`; the result goes into the last result.
    void Extract(std::vector<std::wstring> *items, const wchar_t *destination);
    // Removes `items` from the archive.
    bool Remove(std::vector<std::wstring> *items);
    // One item into the temporary folder.
    bool ExtractToTemp(const wchar_t *item);
    // A fork of an item into a new buffer; the count of bytes.
    std::uint64_t ExtractForkObjectData(const wchar_t *item, const char *fork, BYTE **buffer,
                                        std::uint64_t capacity);
    // Releases what the last two keep open.
    void CloseExtract();

private:
    // Records the not-implemented result in the archive.
    void NotYetWritten();

    CArchiveObject *object_;
    CArchive *archive_;
};
