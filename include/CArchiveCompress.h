// Making archives and adding to them.
// Runs on the archive worker of CArchiveObject and keeps its result code in
// the archive's last result. Not written yet: every operation answers the
// engine's "not implemented" (kEngineNotImplemented).
#pragma once

class CArchive;
class CArchiveObject;
class CNewArchiveContentList;

class CArchiveCompress {
public:
    CArchiveCompress(CArchiveObject *object, CArchive *archive);
    virtual ~CArchiveCompress();
    CArchiveCompress(const CArchiveCompress &) = delete;
    CArchiveCompress &operator=(const CArchiveCompress &) = delete;

    // A new archive from `list` (null: an empty one).
    bool Compress(CNewArchiveContentList *list);
    // Adds the list to the archive, below the destination folder.
    bool Add(CNewArchiveContentList *list);
    // A new folder in the archive.
    bool AddFolder(const wchar_t *parent, const wchar_t *name);
    // An index file of a vnkx archive.
    bool MakeIndexFromVnkx(const wchar_t *archivePath, const wchar_t *indexPath);

private:
    // Records the not-implemented result in the archive.
    void NotYetWritten();

    CArchiveObject *object_;
    CArchive *archive_;
};
