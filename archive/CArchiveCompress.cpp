#include "CArchiveCompress.h"

#include "CArchive.h"
#include "CNewArchiveContentList.h"

CArchiveCompress::CArchiveCompress(CArchiveObject *object, CArchive *archive)
    : object_(object), archive_(archive) {}

CArchiveCompress::~CArchiveCompress() = default;

void CArchiveCompress::NotYetWritten() { archive_->lastResult = kEngineNotImplemented; }

bool CArchiveCompress::Compress(CNewArchiveContentList *) {
    NotYetWritten();
    return false;
}

bool CArchiveCompress::Add(CNewArchiveContentList *) {
    NotYetWritten();
    return false;
}

bool CArchiveCompress::AddFolder(const wchar_t *, const wchar_t *) {
    NotYetWritten();
    return false;
}

bool CArchiveCompress::MakeIndexFromVnkx(const wchar_t *, const wchar_t *) {
    NotYetWritten();
    return false;
}
