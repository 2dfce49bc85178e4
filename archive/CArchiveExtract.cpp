#include "CArchiveExtract.h"

#include "CArchive.h"

CArchiveExtract::CArchiveExtract(CArchiveObject *object, CArchive *archive)
    : object_(object), archive_(archive) {}

CArchiveExtract::~CArchiveExtract() = default;

void CArchiveExtract::NotYetWritten() { archive_->lastResult = kEngineNotImplemented; }

void CArchiveExtract::Extract(std::vector<std::wstring> *, const wchar_t *) { NotYetWritten(); }

bool CArchiveExtract::Remove(std::vector<std::wstring> *) {
    NotYetWritten();
    return false;
}

bool CArchiveExtract::ExtractToTemp(const wchar_t *) {
    NotYetWritten();
    return false;
}

std::uint64_t CArchiveExtract::ExtractForkObjectData(const wchar_t *, const char *, BYTE **,
                                                     std::uint64_t) {
    NotYetWritten();
    return 0;
}

void CArchiveExtract::CloseExtract() {}
