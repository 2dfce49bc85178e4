// Self-extracting output.
// Runs on the archive worker of CArchiveObject and keeps its result code in
// the archive's last result. Not written yet: every operation answers the
// engine's "not implemented" (kEngineNotImplemented).
#pragma once

class CArchive;
class CArchiveObject;

class CArchiveMakeSeaVnkx {
public:
    CArchiveMakeSeaVnkx(CArchiveObject *object, CArchive *archive);
    virtual ~CArchiveMakeSeaVnkx();
    CArchiveMakeSeaVnkx(const CArchiveMakeSeaVnkx &) = delete;
    CArchiveMakeSeaVnkx &operator=(const CArchiveMakeSeaVnkx &) = delete;

    // Adds the self-extracting stub through the engine.
    bool MakeSDKSea();
    // A self-extracting file from a zip archive.
    bool TransformZip();
    // A self-extracting vnkx archive.
    bool TransformVnkx();

private:
    // Records the not-implemented result in the archive.
    void NotYetWritten();

    CArchiveObject *object_;
    CArchive *archive_;
};
