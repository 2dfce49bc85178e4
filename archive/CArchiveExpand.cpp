#include "CArchiveExpand.h"

#include "CArchive.h"

CArchiveExpand::CArchiveExpand(CArchiveObject *object, CArchive *archive)
    : object_(object), archive_(archive) {}

CArchiveExpand::~CArchiveExpand() = default;

void CArchiveExpand::NotYetWritten() { archive_->lastResult = kEngineNotImplemented; }

void CArchiveExpand::Expand(const wchar_t *) { NotYetWritten(); }
