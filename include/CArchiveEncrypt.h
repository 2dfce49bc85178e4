// Adding encryption to an archive, removing it, checking a password.
// Encrypt and RemoveEncryption run on the archive worker of CArchiveObject.
// Neither changes the archive in place: the engine writes a new file, and
// only then is the old one deleted and the new one moved to its name. A
// failed delete leaves both files; a failed move leaves only the new file
// under the engine's name. Nothing is rolled back.
#pragma once

#include "VarnickEngine.h"

class CArchive;
class CArchiveObject;

class CArchiveEncrypt {
public:
    CArchiveEncrypt(CArchiveObject *object, CArchive *archive);
    virtual ~CArchiveEncrypt();
    CArchiveEncrypt(const CArchiveEncrypt &) = delete;
    CArchiveEncrypt &operator=(const CArchiveEncrypt &) = delete;

    // Whether `password` opens the archive. An archive without encryption
    // takes any password, and the stored one is forgotten.
    bool VerifyPassword(const wchar_t *password);
    // Whether the archive is now encrypted with `password`.
    bool Encrypt(const wchar_t *password);
    // Whether the archive is now without encryption.
    bool RemoveEncryption(const wchar_t *password);

private:
    // Rewrites the archive through the engine with the two passwords into a
    // new file beside it, handed back in `transformed`.
    bool Transform(FSObject file, const char *formatId, const wchar_t *oldPassword,
                   const wchar_t *newPassword, const wchar_t *function, FSObject *transformed);
    // Deletes the old file and moves the new one to its name.
    bool ReplaceWithTransformed(FSObject transformed, const wchar_t *function);

    CArchiveObject *object_;
    CArchive *archive_;
};
