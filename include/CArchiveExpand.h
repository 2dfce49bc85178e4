// Expanding a whole archive.
// Runs on the archive worker of CArchiveObject and keeps its result code in
// the archive's last result. Not written yet: every operation answers the
// engine's "not implemented" (kEngineNotImplemented).
#pragma once

class CArchive;
class CArchiveObject;

class CArchiveExpand {
public:
    CArchiveExpand(CArchiveObject *object, CArchive *archive);
    virtual ~CArchiveExpand();
    CArchiveExpand(const CArchiveExpand &) = delete;
    CArchiveExpand &operator=(const CArchiveExpand &) = delete;

    // Expands into `destination`; the result goes into the last result.
    void Expand(const wchar_t *destination);

private:
    // Records the not-implemented result in the archive.
    void NotYetWritten();

    CArchiveObject *object_;
    CArchive *archive_;
};
