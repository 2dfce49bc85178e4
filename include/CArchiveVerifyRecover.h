// Checking an archive's integrity, and rebuilding a damaged one into a folder
// that the user chooses. Runs on the archive worker of CArchiveObject.
#pragma once

#include "VarnickEngine.h"

class CArchive;
class CArchiveObject;

class CArchiveVerifyRecover {
public:
    CArchiveVerifyRecover(CArchiveObject *object, CArchive *archive);
    virtual ~CArchiveVerifyRecover();
    CArchiveVerifyRecover(const CArchiveVerifyRecover &) = delete;
    CArchiveVerifyRecover &operator=(const CArchiveVerifyRecover &) = delete;

    // True when every item of the archive at `path` checks out. A null or
    // empty password is none.
    bool Verify(const wchar_t *path, const wchar_t *password);
    // True when the recovery ran into the folder the user chose; false when
    // none was chosen (no engine call then).
    bool Recover(const wchar_t *path, const wchar_t *password);

private:
    OpaqueEngineObject *Engine() const;

    CArchiveObject *object_;
    CArchive *archive_;
};
