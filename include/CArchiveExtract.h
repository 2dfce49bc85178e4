// Chosen items out of an archive: extracting, removing, one item to the
// temporary folder, and a fork of an item into memory. Extract and Remove run
// on the archive worker of CArchiveObject; the others on the caller's thread,
// where the archive stays open between calls until CloseExtract.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "VarnickEngine.h"
#include "platform/WinTypes.h"

class CArchive;
class CArchiveObject;

class CArchiveExtract {
public:
    CArchiveExtract(CArchiveObject *object, CArchive *archive);
    // Releases what OpenForExtract kept open.
    virtual ~CArchiveExtract();
    CArchiveExtract(const CArchiveExtract &) = delete;
    CArchiveExtract &operator=(const CArchiveExtract &) = delete;

    // Extracts `items` into `destination`; items no longer in the archive are
    // left out.
    void Extract(std::vector<std::wstring> *items, const wchar_t *destination);
    // Removes `items` from the archive, asking for the password until it fits
    // or the user gives up.
    bool Remove(std::vector<std::wstring> *items);
    // Opens the archive for ExtractToTemp and ExtractForkObjectData, which
    // keep it open.
    bool OpenForExtract();
    // One item into the temporary folder of the archive.
    bool ExtractToTemp(const wchar_t *item);
    // A fork of an item into *buffer; the count of bytes (0: no data). A
    // "thumb..." fork reuses a buffer of `capacity` bytes that is large
    // enough; any other fork always gets a new buffer in *buffer.
    std::uint64_t ExtractForkObjectData(const wchar_t *item, const char *fork, BYTE **buffer,
                                        std::uint64_t capacity);
    // Releases what the last three keep open. The archive handle itself is
    // not released here: the engine frees it with the session.
    void CloseExtract();

private:
    bool IsOpen() const { return root_ != nullptr; }
    // The items of the selection that are still in `archive`, into `list`.
    EngineResult CollectItems(EngineArchive archive, ArchiveObjectList list);
    // Adds the one item at `item` to `list`.
    EngineResult AddItem(EngineArchive archive, const wchar_t *item, ArchiveObjectList list);
    // Expands `list` into `destination` and scans what came out.
    EngineResult ExpandList(ArchiveObjectList list, FSObject destination, StringRef password);
    // Opens `archive` for change, asking for the password while it is needed.
    EngineResult OpenForChange(EngineArchive archive);
    EngineResult ReadFork(ArchiveObject object, const char *fork, BYTE **buffer,
                          std::uint64_t capacity, std::uint64_t *count);
    void ShowFailure(EngineResult code) const;

    CArchiveObject *object_;
    CArchive *archive_;
    std::wstring destination_;
    std::vector<std::wstring> *itemSelection_ = nullptr;
    FSObject tempDestination_ = nullptr;
    StringRef password_ = nullptr;
    FSObject archiveFile_ = nullptr;
    EngineArchive openArchive_ = nullptr;
    ArchiveObject root_ = nullptr;
    // The outcome of the last OpenForExtract.
    EngineResult openResult_ = 0;
};
