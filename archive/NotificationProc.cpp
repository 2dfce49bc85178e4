// The answers to the engine's notifications during a run: the progress
// window's fields and messages, conflicts, passwords, missing segments, and
// stopping the run.
#include <atomic>
#include <cstdint>
#include <string>

#include "CAppOptionsRepository.h"
#include "CAppUtils.h"
#include "CArchive.h"
#include "CArchiveObject.h"
#include "CCommonDlgs.h"
#include "CConfirmFolderDelete.h"
#include "CExpandConflictAction.h"
#include "CLogging.h"
#include "CPassword.h"
#include "CProgressDialog.h"
#include "EngineHandles.h"
#include "platform/Win32.h"

namespace {

constexpr const wchar_t *kFunction = L"NotificationProc";
constexpr const wchar_t *kUnit = L".\\NotificationProc";
constexpr unsigned kIndexPrefixText = 763;
constexpr unsigned kChooseSegmentFolderText = 1123;
constexpr int32_t kMergeFolders = 32768;
constexpr int32_t kReplace = 1;
constexpr int32_t kKeepExisting = 2;
constexpr int32_t kKeepBoth = 3;
constexpr int32_t kReplaceIfNewer = 4;
constexpr const wchar_t *kSegmentMarker = L".part";
constexpr std::size_t kSegmentMarkerOffset = 12;  // ".part01.vnkx"

// Debug heaps fill freed memory with this pattern; an owner pointer that
// reads it belongs to an archive that is gone.
constexpr std::uintptr_t kFreedMarker32 = 0xFEEEFEEEu;
constexpr std::uintptr_t kFreedMarker64 = static_cast<std::uintptr_t>(0xFEEEFEEEFEEEFEEEull);

std::atomic<bool> passwordRetryMark{false};

void LogFailure(unsigned line, EngineResult code, const wchar_t *call) {
    CLogging::Err(kFunction, line, kUnit, static_cast<unsigned>(code), true, call);
}

template <typename Value>
EngineResult ReadKey(NotificationContext context, int32_t key, Value &value) {
    return GetDataFromContext(context, key, &value, sizeof(value));
}

bool OwnerIsGone(const CArchiveObject *object) {
    auto owner = reinterpret_cast<std::uintptr_t>(object->owner);
    return owner == kFreedMarker32 || owner == kFreedMarker64;
}

void Post(const CProgressDialog *dialog, WPARAM event) {
    if (dialog->window) PostMessageW(dialog->window, WM_PROGRESS_EVENT, event, 0);
}

// 2 when the run is to stop (the window told first), else 1.
int32_t CancelTest(CArchiveObject &object) {
    CProgressDialog *dialog = object.progressDialog;
    if (dialog) {
        if (dialog->cancelRequested || object.cancel) {
            Post(dialog, PROGRESS_EVENT_CANCELLING);
            return kNotificationStop;
        }
    } else if (object.cancel) {
        return kNotificationStop;
    }
    return kNotificationHandled;
}

int32_t Stop(CArchiveObject &object) {
    object.cancel = true;
    return kNotificationStop;
}

// The path of a path object, or "" when it cannot be read (logged).
std::wstring PathOf(FSObject file, unsigned line) {
    archive::ScopedStringRef path;
    EngineResult status = AcquirePathFromFSObject(file, path.Out());
    if (status) {
        LogFailure(line, status, L"AcquirePathFromFSObject()");
        return {};
    }
    const wchar_t *text = GetUnicodeStringFromStringRef(path.Get());
    return text ? text : L"";
}

// Hands a new path object to the engine under key 12. Failures are not
// reported: the engine goes on without it.
int32_t GiveLocation(NotificationContext context, const std::wstring &path) {
    FSObject location = nullptr;
    if (NewFSObjectFromUnicodePath(path.c_str(), &location) == 0 &&
        SetDataInContext(context, kContextLocation, &location, sizeof(location)) != 0) {
        DisposeFSObject(location);
    }
    return kNotificationHandled;
}

void SetResolution(OpaqueEngineObject *answer, int32_t value) {
    EngineResult status = SetEngineIntegerProperty(answer, kEnginePropConflictResolution, value);
    if (status) LogFailure(__LINE__, status, L"SetEngineIntegerProperty()");
}

// (100,6)
int32_t CurrentItem(CArchiveObject &object, NotificationContext context) {
    CProgressDialog *dialog = object.progressDialog;
    if (!dialog) return kNotificationNotHandled;
    StringRef itemName = nullptr;
    EngineResult status = ReadKey(context, kContextName, itemName);
    if (status) {
        LogFailure(__LINE__, status, L"GetDataFromContext()");
        return kNotificationHandled;
    }
    const wchar_t *text = GetUnicodeStringFromStringRef(itemName);
    dialog->SetFileName(text ? text : L"");
    Post(dialog, PROGRESS_EVENT_FILE_NAME);
    return kNotificationHandled;
}

// (100,7): often, so it only reads, stores and posts.
int32_t Counters(CArchiveObject &object, NotificationContext context) {
    CProgressDialog *dialog = object.progressDialog;
    if (!dialog) return kNotificationHandled;
    std::uint64_t filesDone = 0, filesTotal = 0, bytesRead = 0, bytesWritten = 0, bytesTotal = 0;
    ReadKey(context, kContextFilesDone, filesDone);
    ReadKey(context, kContextFilesTotal, filesTotal);
    ReadKey(context, kContextBytesRead, bytesRead);
    ReadKey(context, kContextBytesWritten, bytesWritten);
    ReadKey(context, kContextBytesTotal, bytesTotal);
    dialog->filesTotal = static_cast<LONGLONG>(filesTotal);
    dialog->filesDone = static_cast<LONGLONG>(filesDone);
    dialog->bytesTotal = static_cast<LONGLONG>(bytesTotal);
    dialog->bytesRead = static_cast<LONGLONG>(bytesRead);
    dialog->timeBase = static_cast<LONGLONG>(bytesRead);
    dialog->bytesDone = static_cast<LONGLONG>(bytesRead + bytesWritten);
    Post(dialog, PROGRESS_EVENT_COUNTERS);
    return kNotificationHandled;
}

// (1,2)
int32_t SegmentBegun(CArchiveObject &object, NotificationContext context) {
    FSObject segment = nullptr;
    EngineResult status = ReadKey(context, kContextFSObject, segment);
    if (status) {
        LogFailure(__LINE__, status, L"GetDataFromContext()");
        return kNotificationHandled;
    }
    std::wstring path = PathOf(segment, __LINE__);
    if (CProgressDialog *dialog = object.progressDialog) {
        dialog->SetNewestSegment(path.c_str());
        Post(dialog, PROGRESS_EVENT_SEGMENT);
    }
    return kNotificationHandled;
}

bool ItemIsFolder(NotificationContext context) {
    ArchiveObject item = nullptr;
    bool folder = false;
    EngineResult status = ReadKey(context, kContextArchiveObject, item);
    if (status == 0) status = GetArchiveObjectBooleanProperty(item, kItemPropFolder, &folder);
    if (status) {
        LogFailure(__LINE__, status, L"GetArchiveObjectBooleanProperty()");
        return false;
    }
    return folder;
}

bool AnswerIsForAll(int action) {
    return action == CExpandConflictAction::ReplaceAll || action == CExpandConflictAction::SkipAll;
}

// Adding: every answer but keep-both is a replace or a skip; the merge flag
// goes with every answer.
int32_t AddingResolution(int action) {
    switch (action) {
        case CExpandConflictAction::Replace:
        case CExpandConflictAction::ReplaceAll:
            return kReplace;
        case CExpandConflictAction::Skip:
        case CExpandConflictAction::SkipAll:
            return kKeepExisting;
        case CExpandConflictAction::KeepBoth:
            return kKeepBoth;
        default:
            return 0;
    }
}

void ConflictWhenAdding(CArchiveObject &object, NotificationContext context, bool folder) {
    CArchive &archive = *object.owner;
    const bool merge = archive.appOptions && archive.appOptions->AddMergeContents;
    FSObject target = nullptr;
    EngineResult status = ReadKey(context, kContextFSObject, target);
    if (status) LogFailure(__LINE__, status, L"GetDataFromContext()");
    std::wstring path = status ? std::wstring() : PathOf(target, __LINE__);
    int32_t value = kKeepExisting;
    if (CProgressDialog *dialog = object.progressDialog) {
        CExpandConflictAction prompt(dialog->window, path.c_str(), folder);
        prompt.Run();
        if (AnswerIsForAll(prompt.action)) archive.applyToAll = true;
        value = AddingResolution(prompt.action);
    }
    if (merge) value |= kMergeFolders;
    OpaqueEngineObject *answer = nullptr;
    status = ReadKey(context, kContextAnswerHandle, answer);
    if (status) {
        LogFailure(__LINE__, status, L"GetDataFromContext()");
        return;
    }
    SetResolution(answer, value);
}

// Expanding. 2 when the run is to stop, else 1.
int32_t ConflictWhenExpanding(CArchiveObject &object, NotificationContext context, bool folder) {
    CArchive &archive = *object.owner;
    FSObject target = nullptr;
    OpaqueEngineObject *answer = nullptr;
    EngineResult status = ReadKey(context, kContextFSObject, target);
    std::wstring path;
    if (status == 0) path = PathOf(target, __LINE__);
    if (status == 0) status = ReadKey(context, kContextAnswerHandle, answer);
    if (status) {
        LogFailure(__LINE__, status, L"GetDataFromContext()");
        return kNotificationHandled;
    }
    CProgressDialog *dialog = object.progressDialog;
    if (!archive.showProgress || !dialog) {
        SetResolution(answer, kReplace);
        return kNotificationHandled;
    }
    CExpandConflictAction prompt(dialog->window, path.c_str(), folder);
    if (!prompt.Run()) return Stop(object);
    if (AnswerIsForAll(prompt.action)) archive.applyToAll = true;
    int32_t value = 0;
    switch (prompt.action) {
        case CExpandConflictAction::Replace:
        case CExpandConflictAction::ReplaceAll:
            value = kReplace;
            break;
        case CExpandConflictAction::Skip:
        case CExpandConflictAction::SkipAll:
            value = kKeepExisting;
            break;
        case CExpandConflictAction::ReplaceIfNewer:
            value = kReplaceIfNewer;
            break;
        case CExpandConflictAction::KeepBoth:
            value = kKeepBoth;
            break;
        default:
            return Stop(object);
    }
    if (value == kReplace && folder) {
        CAppOptionsRepository *options = archive.appOptions;
        if (options && options->ExpandMergeContents) {
            value = kMergeFolders | kReplace;
        } else if (object.askOnFolderReplace) {
            // The answer only changes what later conflicts do; this one
            // stays a replace.
            CConfirmFolderDelete confirm(dialog->window, path.c_str());
            confirm.Run();
            object.askOnFolderReplace = !confirm.dontAskAgain;
            if (options) options->ExpandMergeContents = confirm.mergeContents;
        }
    }
    SetResolution(answer, value);
    return kNotificationHandled;
}

// (1,3)
int32_t TargetExists(CArchiveObject &object, NotificationContext context) {
    bool folder = ItemIsFolder(context);
    CArchive &archive = *object.owner;
    if (archive.applyToAll) return kNotificationHandled;
    switch (archive.operationKind) {
        case ARCHIVE_OPERATION_ADDING:
            ConflictWhenAdding(object, context, folder);
            return kNotificationHandled;
        case ARCHIVE_OPERATION_EXPANDING:
            return ConflictWhenExpanding(object, context, folder);
        default:
            return kNotificationHandled;
    }
}

// The name of the item that asks for a password; "" for a ".pf" archive or
// when it cannot be read.
std::wstring PasswordItem(const CArchive &archive, NotificationContext context) {
    if (platform::EqualsNoCase(PathFindExtensionW(archive.name.c_str()), L".pf")) return {};
    ArchiveObject item = nullptr;
    archive::ScopedStringRef itemName;
    EngineResult status = ReadKey(context, kContextArchiveObject, item);
    if (status == 0)
        status = AcquireArchiveObjectStringProperty(item, kItemPropName, itemName.Out());
    if (status) {
        CLogging::Err(kFunction, __LINE__, kUnit, 1, true, L"AcquireArchiveObjectStringProperty()");
        return {};
    }
    const wchar_t *text = GetUnicodeStringFromStringRef(itemName.Get());
    return text ? text : L"";
}

int32_t GivePassword(const CArchive &archive, NotificationContext context) {
    StringRef given = nullptr;
    EngineResult status = NewStringRefFromUnicodeString(archive.password.c_str(), &given);
    if (status == 0) status = SetDataInContext(context, kContextPassword, &given, sizeof(given));
    if (status) {
        LogFailure(__LINE__, status, L"SetDataInContext()");
        if (given) DisposeStringRef(given);
    }
    return kNotificationHandled;
}

// (200,9): the stored password is offered twice to the same item before the
// user is asked; a refusal ends every further request of the run.
int32_t PasswordNeeded(CArchiveObject &object, NotificationContext context) {
    CArchive &archive = *object.owner;
    std::wstring item = PasswordItem(archive, context);
    if (archive.passwordRefused) return Stop(object);
    bool ask = false;
    if (archive.password.empty()) {
        object.lastPasswordItem = item;
        ask = true;
    } else if (object.lastPasswordItem.empty()) {
        passwordRetryMark = false;
        object.lastPasswordItem = item;
    } else if (platform::EqualsNoCase(item, object.lastPasswordItem)) {
        if (passwordRetryMark) {
            archive.passwordWrong = true;
            ask = true;
        } else {
            passwordRetryMark = true;
            archive.passwordWrong = false;
            object.lastPasswordItem = item;
        }
    } else {
        archive.passwordWrong = false;
        object.lastPasswordItem = item;
    }
    if (ask) {
        if (archive.noPrompts && archive.hasWindow) {
            archive.passwordRefused = true;
            return Stop(object);
        }
        CPassword prompt(archive.parentWindow, archive.name.c_str(), false, archive.passwordWrong);
        if (!prompt.Run()) {
            archive.passwordRefused = true;
            return Stop(object);
        }
        archive.password = prompt.password;
    }
    return GivePassword(archive, context);
}

bool IsIndexFileName(const std::wstring &archiveName) {
    std::wstring prefix = CAppUtils::LoadString(kIndexPrefixText);
    std::size_t separator = archiveName.rfind(kPathSep);
    if (separator == std::wstring::npos || prefix.empty()) return false;
    std::wstring file = archiveName.substr(separator + 1);
    return !file.empty() && _wcsnicmp(file.c_str(), prefix.c_str(), prefix.size()) == 0;
}

// (200,10)
int32_t SegmentMissing(CArchiveObject &object, NotificationContext context) {
    CArchive &archive = *object.owner;
    if (IsIndexFileName(archive.name)) {
        std::wstring located;
        if (!CCommonDlgs::GetIndexArchiveRealArchiveLocation(archive.parentWindow, L"*.vnkx",
                                                             located)) {
            return Stop(object);
        }
        return GiveLocation(context, located);
    }
    StringRef segmentName = nullptr;
    EngineResult status = ReadKey(context, kContextName, segmentName);
    if (status) {
        LogFailure(__LINE__, status, L"GetDataFromContext()");
        return Stop(object);
    }
    if (archive.formatType == format::unknown) {
        archive.formatType = GetFormatType(static_cast<const char *>(archive.formatId));
    }
    if (archive.formatType == format::vnkx && !IsSegmentName(archive)) {
        return GiveLocation(context, archive.indexArchiveFolder);
    }
    const wchar_t *segment = GetUnicodeStringFromStringRef(segmentName);
    std::wstring text =
        FormatW(CAppUtils::LoadString(kChooseSegmentFolderText).c_str(), segment ? segment : L"");
    std::wstring folder = CCommonDlgs::RunChooseDirectory(archive.parentWindow, text.c_str());
    if (folder.empty()) return Stop(object);
    return GiveLocation(context, folder);
}

}  // namespace

bool PasswordRetryMark() { return passwordRetryMark; }

void SetPasswordRetryMark(bool set) { passwordRetryMark = set; }

bool IsSegmentName(CArchive &archive) {
    archive.lastResult = 0;
    if (archive.formatType == format::unknown) {
        archive.formatType = GetFormatType(archive.name.c_str());
    }
    const std::wstring &name = archive.name;
    return archive.formatType == format::vnkx && name.size() >= kSegmentMarkerOffset &&
           _wcsnicmp(name.c_str() + name.size() - kSegmentMarkerOffset, kSegmentMarker,
                     wcslen(kSegmentMarker)) == 0;
}

int32_t NotificationProc(int32_t category, int32_t event, NotificationContext context,
                         void *userData) {
    auto *object = static_cast<CArchiveObject *>(userData);
    if (!object || OwnerIsGone(object)) return kNotificationNotHandled;
    if (CancelTest(*object) == kNotificationStop) return kNotificationStop;
    switch (category) {
        case kNotifyWorkCategory:
            if (event == kNotifySegmentBegun) return SegmentBegun(*object, context);
            if (event == kNotifyTargetExists) return TargetExists(*object, context);
            return kNotificationHandled;
        case kNotifyProgressCategory:
            if (event == kNotifyCurrentItem) return CurrentItem(*object, context);
            if (event == kNotifyCounters) return Counters(*object, context);
            return kNotificationHandled;
        case kNotifyRequestCategory:
            if (event == kNotifyPasswordNeeded) return PasswordNeeded(*object, context);
            if (event == kNotifySegmentMissing) return SegmentMissing(*object, context);
            return kNotificationHandled;
        default:
            return kNotificationNotHandled;
    }
}
