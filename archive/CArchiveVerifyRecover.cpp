#include "CArchiveVerifyRecover.h"

#include <string>

#include "CAppUtils.h"
#include "CArchive.h"
#include "CArchiveObject.h"
#include "CCommonDlgs.h"
#include "CEngine.h"
#include "CLogging.h"
#include "CProgressDialog.h"
#include "EngineHandles.h"
#include "platform/Win32.h"

namespace {

constexpr const wchar_t *kUnit = L".\\CArchiveVerifyRecover";
constexpr unsigned kPasswordNeededText = 2202;
constexpr unsigned kNotEncryptedText = 2203;
constexpr unsigned kPasswordWrongText = 975;
constexpr unsigned kChooseRecoveryFolderText = 2206;

void LogFailure(const wchar_t *function, unsigned line, EngineResult code, const wchar_t *call) {
    CLogging::Err(function, line, kUnit, static_cast<unsigned>(code), true, call);
}

bool HasText(const wchar_t *text) { return text && *text; }

}  // namespace

CArchiveVerifyRecover::CArchiveVerifyRecover(CArchiveObject *object, CArchive *archive)
    : object_(object), archive_(archive) {}

CArchiveVerifyRecover::~CArchiveVerifyRecover() = default;

OpaqueEngineObject *CArchiveVerifyRecover::Engine() const {
    return archive_->engine ? archive_->engine->GetEngine() : nullptr;
}

bool CArchiveVerifyRecover::Verify(const wchar_t *path, const wchar_t *password) {
    static constexpr const wchar_t *kFunction = L"CArchiveVerifyRecover::Verify";
    archive::ScopedStringRef passwordRef;
    EngineResult status = 0;
    if (HasText(password)) {
        status = NewStringRefFromUnicodeString(password, passwordRef.Out());
        if (status) LogFailure(kFunction, __LINE__, status, L"NewStringRefFromUnicodeString()");
    }
    if (!path) {
        CLogging::Err(kFunction, __LINE__, kUnit, 0, false, L"szArchive is NULL");
        archive_->lastResult = kEngineInvalidParameter;
        return false;
    }
    archive::ScopedFSObject file;
    archive::ScopedArchive opened;
    archive::OpenedArchive open;
    archive::ScopedArchiveObject root;
    status = NewFSObjectFromUnicodePath(path, file.Out());
    if (status == 0) status = AcquireArchive(Engine(), file.Get(), opened.Out());
    if (status == 0) {
        status = OpenEncryptedArchive(Engine(), opened.Get(), kEngineAccessRead, passwordRef.Get());
        if (status == 0) open.Opened(opened.Get());
    }
    if (status) {
        LogFailure(kFunction, __LINE__, status, L"OpenEncryptedArchive()");
        archive_->lastResult = status;
        return false;
    }
    archive_->password.clear();
    status = AcquireRootArchiveObject(opened.Get(), root.Out());
    if (status) LogFailure(kFunction, __LINE__, status, L"AcquireRootArchiveObject()");

    if (passwordRef) {
        EngineResult check = VerifyArchivePassword(Engine(), opened.Get(), passwordRef.Get());
        unsigned notice = 0;
        if (check == kEnginePasswordNeeded) notice = kPasswordNeededText;
        if (check == kEnginePasswordOnPlainArchive) notice = kPasswordWrongText;
        if (check == kEnginePasswordOnEncryptedItem) notice = kNotEncryptedText;
        if (notice) {
            if (object_->progressDialog) object_->progressDialog->StopTimer();
            CAppUtils::MsgBox(notice, 230, MB_OK, archive_->parentWindow);
        }
        if (check == kEnginePasswordNeeded || check == kEnginePasswordOnPlainArchive) {
            archive_->lastResult = check;
            return false;
        }
        if (check == kEnginePasswordOnEncryptedItem) passwordRef.Reset();
    }
    status = VerifyArchive(Engine(), file.Get(), passwordRef.Get());
    if (status && status != kEngineCancelled)
        LogFailure(kFunction, __LINE__, status, L"VerifyArchive()");
    archive_->lastResult = status;
    return status == 0;
}

bool CArchiveVerifyRecover::Recover(const wchar_t *path, const wchar_t *password) {
    static constexpr const wchar_t *kFunction = L"CArchiveVerifyRecover::Recover";
    std::wstring folder =
        CCommonDlgs::RunChooseDirectory(archive_->parentWindow, kChooseRecoveryFolderText);
    if (folder.empty()) {
        archive_->lastResult = 0;
        return false;
    }
    archive::ScopedFSObject destination;
    archive::ScopedStringRef passwordRef;
    archive::ScopedFSObject file;
    EngineResult status = NewFSObjectFromUnicodePath(folder.c_str(), destination.Out());
    if (status == 0 && HasText(password)) {
        status = NewStringRefFromUnicodeString(password, passwordRef.Out());
    }
    if (!path) {
        CLogging::Err(kFunction, __LINE__, kUnit, 0, false, L"szArchive is NULL");
        archive_->lastResult = kEngineInvalidParameter;
        return false;
    }
    if (status == 0) status = NewFSObjectFromUnicodePath(path, file.Out());
    if (status == 0) {
        status = RecoverArchive(Engine(), file.Get(), destination.Get(), 0, passwordRef.Get());
    }
    if (status && status != kEngineCancelled)
        LogFailure(kFunction, __LINE__, status, L"RecoverArchive()");
    archive_->lastResult = status;
    return status == 0;
}
