// Self-extracting output: the engine's stub added to a finished archive, or
// a Zip or vnkx archive rewritten as a program into the temporary folder.
// Each route replaces the archive's path with the result's and keeps its
// result code in the archive's last result. Moving a result out of the
// temporary folder is the caller's business. Runs on the archive worker of
// CArchiveObject.
#pragma once

#include <string>

#include "VarnickEngine.h"

class CArchive;
class CArchiveObject;

class CArchiveMakeSeaVnkx {
public:
    CArchiveMakeSeaVnkx(CArchiveObject *object, CArchive *archive);
    virtual ~CArchiveMakeSeaVnkx();
    CArchiveMakeSeaVnkx(const CArchiveMakeSeaVnkx &) = delete;
    CArchiveMakeSeaVnkx &operator=(const CArchiveMakeSeaVnkx &) = delete;

    // Adds the self-extracting stub through the engine: "name.sea" beside
    // the archive. A failure is shown in the engine's error box.
    bool MakeSDKSea();
    // A self-extracting Zip archive in the temporary folder, without
    // encryption, from a ".zip" archive.
    bool TransformZip();
    // A self-extracting vnkx archive in the temporary folder, from a
    // ".vnkx" archive, encrypted again with the archive's password when
    // the source is encrypted.
    bool TransformVnkx();

private:
    // Rewrites the archive through the engine into the temporary folder
    // under its own file name; on success the archive's path becomes the
    // result's.
    EngineResult TransformIntoTemp(FSObject source, const char *formatId, StringRef password,
                                   const wchar_t *function);

    CArchiveObject *object_;
    CArchive *archive_;
};
