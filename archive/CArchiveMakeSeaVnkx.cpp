#include "CArchiveMakeSeaVnkx.h"

#include "CArchive.h"

CArchiveMakeSeaVnkx::CArchiveMakeSeaVnkx(CArchiveObject *object, CArchive *archive)
    : object_(object), archive_(archive) {}

CArchiveMakeSeaVnkx::~CArchiveMakeSeaVnkx() = default;

void CArchiveMakeSeaVnkx::NotYetWritten() { archive_->lastResult = kEngineNotImplemented; }

bool CArchiveMakeSeaVnkx::MakeSDKSea() {
    NotYetWritten();
    return false;
}

bool CArchiveMakeSeaVnkx::TransformZip() {
    NotYetWritten();
    return false;
}

bool CArchiveMakeSeaVnkx::TransformVnkx() {
    NotYetWritten();
    return false;
}
