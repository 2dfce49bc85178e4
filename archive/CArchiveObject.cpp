#include "CArchiveObject.h"

#include "CAppUtils.h"
#include "CArchive.h"
#include "CArchiveCompress.h"
#include "CArchiveEncrypt.h"
#include "CArchiveExpand.h"
#include "CArchiveExtract.h"
#include "CArchiveInfo.h"
#include "CArchiveMakeSeaVnkx.h"
#include "CArchiveVerifyRecover.h"
#include "CEngine.h"
#include "CNewArchiveContentList.h"
#include "CProgressDialog.h"
#include "platform/Win32.h"

namespace {

constexpr unsigned kRunTitleText = 508;
constexpr LONG kEndOfRun = 3;

}  // namespace

CArchiveObject::CArchiveObject(CArchive *ownerIn)
    : owner(ownerIn), notificationProc(NotificationProc) {
    // In the body: the information object clears the listing, a member
    // declared after the operation objects.
    info = new CArchiveInfo(this, ownerIn);
    expand = new CArchiveExpand(this, ownerIn);
    extract = new CArchiveExtract(this, ownerIn);
    compress = new CArchiveCompress(this, ownerIn);
    seaMaker = new CArchiveMakeSeaVnkx(this, ownerIn);
    verifyRecover = new CArchiveVerifyRecover(this, ownerIn);
    encrypt = new CArchiveEncrypt(this, ownerIn);
}

CArchiveObject::~CArchiveObject() {
    notificationProc = nullptr;
    delete info;
    delete extract;
    delete expand;
    delete compress;
    delete verifyRecover;
    delete encrypt;
    delete seaMaker;
    delete progressDialog;
}

OpaqueEngineObject *CArchiveObject::Engine() const {
    return owner && owner->engine ? owner->engine->GetEngine() : nullptr;
}

void CArchiveObject::InstallNotifications(const std::vector<NotificationPair> &pairs) {
    for (const auto &[category, event] : pairs) {
        InstallNotification(Engine(), category, event, notificationProc, this);
    }
}

void CArchiveObject::RemoveNotifications(const std::vector<NotificationPair> &pairs) {
    for (const auto &[category, event] : pairs) RemoveNotification(Engine(), category, event);
}

std::vector<NotificationPair> CArchiveObject::CommonNotifications() const {
    std::vector<NotificationPair> pairs{{100, 6}, {100, 7}, {100, 4}, {100, 5}, {100, 8}, {1, 1}};
    if (contentList && contentList->SegmentSize > 0 && owner->formatType == format::vnkx) {
        pairs.push_back({1, 2});
    }
    pairs.insert(pairs.end(), {{200, 9}, {200, 10}, {200, 11}});
    return pairs;
}

void CArchiveObject::EndBlockingCall(const std::vector<NotificationPair> &pairs) {
    RemoveNotifications(pairs);
    lastPasswordItem.clear();
    owner->passwordRefused = false;
}

bool CArchiveObject::StartRun(const ARCHIVE_RUN &next) {
    run = next;
    if (run.withDialog) {
        progressDialog = new CProgressDialog;
        progressDialog->SetDlgString(PROGRESSDLG_TITLE,
                                     CAppUtils::LoadString(kRunTitleText).c_str());
        progressDialog->SetDlgString(PROGRESSDLG_OPERATION,
                                     CAppUtils::LoadString(run.textId).c_str());
        progressDialog->SetDlgString(PROGRESSDLG_DETAIL, owner->name.c_str());
        progressDialog->endCallback = owner->endCallback;
        progressDialog->endContext = owner->endContext;
        progressDialog->segmentCallback = owner->segmentCallback;
        progressDialog->segmentContext = owner->segmentContext;
        if (owner->showProgress) EnableWindow(owner->parentWindow, FALSE);
        progressDialog->Run(owner);
    }
    // Busy from here, so that a caller who looks at once does not find the
    // run over before its worker began; the worker sets it again.
    busy = true;
    HANDLE thread = CreateThread(nullptr, 0, WorkerProc, this, 0, nullptr);
    if (!thread) {
        busy = false;
        return false;
    }
    CloseHandle(thread);
    return true;
}

DWORD CArchiveObject::WorkerProc(LPVOID parameter) {
    auto &object = *static_cast<CArchiveObject *>(parameter);
    CArchive &archive = *object.owner;
    object.busy = true;
    object.cancel = false;
    archive.applyToAll = false;
    archive.cancelled = false;

    const std::vector<NotificationPair> common = object.CommonNotifications();
    object.InstallNotifications(common);
    object.RemoveNotifications(object.run.without);
    object.InstallNotifications(object.run.with);

    if (object.run.work) object.run.work(object);

    object.InstallNotifications(object.run.without);
    object.RemoveNotifications(object.run.with);
    object.RemoveNotifications(common);

    const bool cancelled = object.cancel;
    if (cancelled) archive.cancelled = true;
    if (object.progressDialog) {
        PostMessageW(object.progressDialog->window, WM_PROGRESS_EVENT, kEndOfRun,
                     cancelled ? 1 : 0);
    } else if (archive.endCallback) {
        archive.endCallback(archive.endContext, false);
    }
    if (object.run.restoreShowProgress) archive.showProgress = true;

    archive.passwordRefused = false;
    object.lastPasswordItem.clear();
    object.busy = false;
    return 0;
}
