// Looking into an archive without changing it (its format, access mode,
// sizes, comment and listing), and the small changes of its metadata in
// place: renaming an item, the comment of a vnkx archive. Results go into
// the CArchive and the CArchiveObject of the facade.
#pragma once

#include <string>

#include "FormatCatalogue.h"
#include "VarnickEngine.h"

class CArchive;
class CArchiveObject;

class CArchiveInfo {
public:
    // Discards an earlier listing of the archive object.
    CArchiveInfo(CArchiveObject *object, CArchive *archive);
    virtual ~CArchiveInfo();
    CArchiveInfo(const CArchiveInfo &) = delete;
    CArchiveInfo &operator=(const CArchiveInfo &) = delete;

    // Everything the facade keeps about the archive; the result code goes
    // into the archive's last result. True when the listing was read.
    bool GetInfo();
    // Lists the items below `folder` into the archive object, paths
    // beginning with `prefix`. The status of the walk (0 at its normal end).
    EngineResult TraverseDirectory(ArchiveObject folder, const std::wstring &prefix,
                                   bool checkEncrypted);
    // True at the first encrypted item below `folder`.
    bool TraverseDirectoryForEncryption(ArchiveObject folder, const std::wstring &prefix);
    // Whether the contents of an archive of that kind can be listed.
    bool Viewable(format::type type) const;
    bool IsEncrypted();
    bool IsArchiveSelfExtracting(const wchar_t *path);
    bool RenameArchiveItem(const wchar_t *oldPath, const wchar_t *newName);
    bool GetVnkxComment();
    bool SetVnkxComment(const wchar_t *text);
    bool IsFirstVnkxSegment();

private:
    CArchiveObject *object_;
    CArchive *archive_;
};
