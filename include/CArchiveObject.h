// The machinery behind a CArchive: one object of each operation class, the
// progress window of a run, and the worker thread that installs the engine's
// notifications around the work.
//
// A threaded run: StartRun opens the progress window on the calling thread
// (which must pump its messages) and starts a detached worker. The worker
// sets busy, installs the notifications, does the work, removes them and
// tells the window that the run has ended (or, without a window, calls the
// end callback itself), then clears busy.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "CArchiveItem.h"
#include "VarnickEngine.h"
#include "platform/WinTypes.h"

class CArchive;
class CArchiveCompress;
class CArchiveEncrypt;
class CArchiveExpand;
class CArchiveExtract;
class CArchiveInfo;
class CArchiveMakeSeaVnkx;
class CArchiveObject;
class CArchiveVerifyRecover;
class CNewArchiveContentList;
class CProgressDialog;

// The one procedure that answers every notification of the engine; the user
// data is the CArchiveObject of the run. 0 not handled, 1 handled, 2 stop.
int32_t NotificationProc(int32_t category, int32_t event, NotificationContext context,
                         void *userData);

// The process-wide retry mark of the password answers: set once the stored
// password was offered a second time to the same item.
bool PasswordRetryMark();
void SetPasswordRetryMark(bool set);

// Whether the archive's name has the form of a segment ("name.part01.vnkx").
// Sets an unknown format from the name first, and clears the last result.
bool IsSegmentName(CArchive &archive);

// A notification pair (category, event).
using NotificationPair = std::pair<int32_t, int32_t>;

// One threaded run: its text, its work, and how its notifications differ
// from the common ones.
struct ARCHIVE_RUN {
    unsigned textId = 0;
    void (*work)(CArchiveObject &object) = nullptr;
    std::vector<NotificationPair> without = {};
    std::vector<NotificationPair> with = {};
    // Without a dialog the worker ends the run by calling the end callback.
    bool withDialog = true;
    // Show progress becomes true again after the end message.
    bool restoreShowProgress = false;
};

class CArchiveObject {
public:
    explicit CArchiveObject(CArchive *owner);
    virtual ~CArchiveObject();
    CArchiveObject(const CArchiveObject &) = delete;
    CArchiveObject &operator=(const CArchiveObject &) = delete;

    // Opens the progress window and starts the worker for `run`. True when
    // the thread started; a failure leaves the window up and the parent
    // disabled.
    bool StartRun(const ARCHIVE_RUN &run);
    // The worker's procedure, started by StartRun; public so that a test
    // can run a worker on a thread of its own.
    static DWORD WorkerProc(LPVOID parameter);

    // Installs `pairs` to the notification procedure, or removes them.
    void InstallNotifications(const std::vector<NotificationPair> &pairs);
    void RemoveNotifications(const std::vector<NotificationPair> &pairs);
    // The pairs every threaded run installs, in their order.
    std::vector<NotificationPair> CommonNotifications() const;
    // After a blocking call that installed notifications: removes them and
    // forgets the password state of the call.
    void EndBlockingCall(const std::vector<NotificationPair> &pairs);

    OpaqueEngineObject *Engine() const;

    CArchive *owner;  // not owned
    CProgressDialog *progressDialog = nullptr;
    CNewArchiveContentList *contentList = nullptr;  // not owned
    std::wstring destination;
    std::wstring unusedText;  // read by nothing here
    std::wstring indexPath;
    std::wstring newPassword;
    std::vector<std::wstring> *itemSelection = nullptr;  // not owned
    CArchiveInfo *info = nullptr;
    CArchiveExpand *expand = nullptr;
    CArchiveExtract *extract = nullptr;
    CArchiveCompress *compress = nullptr;
    CArchiveMakeSeaVnkx *seaMaker = nullptr;
    CArchiveVerifyRecover *verifyRecover = nullptr;
    CArchiveEncrypt *encrypt = nullptr;
    // Written by the caller's thread and read by the worker's notifications.
    std::atomic<bool> cancel{false};
    // Written by the worker and read by the caller.
    std::atomic<bool> busy{false};
    EngineNotificationProc notificationProc = nullptr;
    std::wstring lastPasswordItem;
    bool askOnFolderReplace = true;

    // What the inspection of the archive found beyond the CArchive's fields.
    std::vector<CArchiveItem> items;
    FILETIME archiveDate = {};
    bool stop = false;
    bool passwordPromptCancelled = false;

    // The run being started or running.
    ARCHIVE_RUN run;
};
