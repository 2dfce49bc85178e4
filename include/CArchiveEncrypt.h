// Adding encryption to an archive, removing it, checking a password.
// Runs on the archive worker of CArchiveObject and keeps its result code in
// the archive's last result. Not written yet: every operation answers the
// engine's "not implemented" (kEngineNotImplemented).
#pragma once

class CArchive;
class CArchiveObject;

class CArchiveEncrypt {
public:
    CArchiveEncrypt(CArchiveObject *object, CArchive *archive);
    virtual ~CArchiveEncrypt();
    CArchiveEncrypt(const CArchiveEncrypt &) = delete;
    CArchiveEncrypt &operator=(const CArchiveEncrypt &) = delete;

    // Whether `password` opens the archive.
    bool VerifyPassword(const wchar_t *password);
    // Whether the archive is now encrypted with `password`.
    bool Encrypt(const wchar_t *password);
    // Whether the archive is now without encryption.
    bool RemoveEncryption(const wchar_t *password);

private:
    // Records the not-implemented result in the archive.
    void NotYetWritten();

    CArchiveObject *object_;
    CArchive *archive_;
};
