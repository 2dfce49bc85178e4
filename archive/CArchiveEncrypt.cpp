#include "CArchiveEncrypt.h"

#include "CArchive.h"

CArchiveEncrypt::CArchiveEncrypt(CArchiveObject *object, CArchive *archive)
    : object_(object), archive_(archive) {}

CArchiveEncrypt::~CArchiveEncrypt() = default;

void CArchiveEncrypt::NotYetWritten() { archive_->lastResult = kEngineNotImplemented; }

bool CArchiveEncrypt::VerifyPassword(const wchar_t *) {
    NotYetWritten();
    return false;
}

bool CArchiveEncrypt::Encrypt(const wchar_t *) {
    NotYetWritten();
    return false;
}

bool CArchiveEncrypt::RemoveEncryption(const wchar_t *) {
    NotYetWritten();
    return false;
}
