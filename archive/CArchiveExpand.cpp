#include "CArchiveExpand.h"

#include <algorithm>

#include "CAppOptionsRepository.h"
#include "CAppUtils.h"
#include "CArchive.h"
#include "CArchiveObject.h"
#include "CCommonDlgs.h"
#include "CLogging.h"
#include "CProgressDialog.h"
#include "CVirusScanHandling.h"
#include "EngineHandles.h"
#include "SDKUtils.h"
#include "platform/Win32.h"

namespace {

constexpr const wchar_t *kUnit = L".\\CArchiveExpand";
constexpr const wchar_t *kFunction = L"CArchiveExpand::Expand";
constexpr unsigned kDestinationRefusedText = 903;
constexpr unsigned kChooseDestinationText = 904;
constexpr unsigned kTitleText = 230;
constexpr UINT kYesNoStop = MB_YESNO | MB_ICONHAND;

void LogFailure(const wchar_t *function, unsigned line, EngineResult code, const wchar_t *call) {
    CLogging::Err(function, line, kUnit, static_cast<unsigned>(code), true, call);
}

// Only "not applicable" is no failure: some formats have no such setting.
void LogUnlessNotApplicable(const wchar_t *function, unsigned line, EngineResult code,
                            const wchar_t *call) {
    if (code && code != kEnginePropertyNotApplicable) LogFailure(function, line, code, call);
}

}  // namespace

namespace expanding {

std::int32_t ConflictResolutionValue(const CAppOptionsRepository &options) {
    std::int32_t value = static_cast<std::int32_t>(options.ExpandConflictMethod);
    if (value == 0) value = kResolutionAsk;
    if (options.ExpandMergeContents) value |= kResolutionMergeFolders;
    return value;
}

void SetExpandProperties(OpaqueEngineObject *engine, const CAppOptionsRepository *options,
                         const wchar_t *function) {
    if (!options) return;
    EngineResult status = SetEngineIntegerProperty(engine, kEnginePropPreserveMacResource,
                                                   static_cast<int32_t>(options->ForkHandling));
    LogUnlessNotApplicable(function, __LINE__, status, L"SetEngineIntegerProperty()");
    status = SetEngineIntegerProperty(engine, kEnginePropConflictResolution,
                                      ConflictResolutionValue(*options));
    LogUnlessNotApplicable(function, __LINE__, status, L"SetEngineIntegerProperty()");
    status = SetEngineIntegerProperty(engine, kEnginePropCreateFolderMethod,
                                      static_cast<int32_t>(options->ExpandFolderOptions));
    LogUnlessNotApplicable(function, __LINE__, status, L"SetEngineIntegerProperty()");
}

void ScanExpanded(FSObjectList expanded, CAppOptionsRepository *options) {
    STDStringList files;
    uint32_t count = CountFSObjectList(expanded);
    for (uint32_t index = 0; index < count; ++index) {
        archive::ScopedFSObject file;
        archive::ScopedStringRef path;
        if (GetNthFSObject(expanded, index, file.Out()) != 0) continue;
        if (AcquirePathFromFSObject(file.Get(), path.Out()) != 0) continue;
        const wchar_t *text = GetUnicodeStringFromStringRef(path.Get());
        if (text && *text) files.emplace_back(text);
    }
    CVirusScanHandling scanner(options);
    scanner.Scan(&files);
}

std::wstring EnginePath(const wchar_t *item) {
    std::wstring path = item ? item : L"";
    std::replace(path.begin(), path.end(), L'\\', L'/');
    return path;
}

}  // namespace expanding

CArchiveExpand::CArchiveExpand(CArchiveObject *object, CArchive *archive)
    : object_(object), archive_(archive) {}

CArchiveExpand::~CArchiveExpand() = default;

void CArchiveExpand::Expand(const wchar_t *destination) {
    if (archive_->name.empty()) {
        archive_->lastResult = 0;
        return;
    }
    OpaqueEngineObject *engine = object_->Engine();
    bool deleteArchive = archive_->appOptions && archive_->appOptions->DeleteArcAfterExpand;
    LogUnlessNotApplicable(
        kFunction, __LINE__,
        SetEngineIntegerProperty(engine, kEnginePropDeleteAction, deleteArchive ? 1 : 0),
        L"SetEngineIntegerProperty()");

    archive::ScopedFSObject file;
    archive::ScopedStringRef pathText;
    archive::ScopedFSObject target;
    archive::ScopedStringRef password;
    EngineResult status = NewFSObjectFromUnicodePath(archive_->name.c_str(), file.Out());
    if (status == 0) status = AcquirePathFromFSObject(file.Get(), pathText.Out());
    if (status == 0) archivePath_ = GetUnicodeStringFromStringRef(pathText.Get());
    if (status == 0 && destination && *destination)
        status = NewFSObjectFromUnicodePath(destination, target.Out());
    if (status == 0 && !archive_->password.empty())
        status = NewStringRefFromUnicodeString(archive_->password.c_str(), password.Out());
    if (status) LogFailure(kFunction, __LINE__, status, L"NewFSObjectFromUnicodePath()");

    if (status == 0) {
        expanding::SetExpandProperties(engine, archive_->appOptions, kFunction);
        EngineFormatId formatId = {};
        status = DetermineFileFormat(engine, file.Get(), formatId);
        if (status) LogFailure(kFunction, __LINE__, status, L"DetermineFileFormat()");
    }
    if (status == 0) {
        FSObject chosen = target.Get();
        *target.Out() = nullptr;  // the loop owns it from here
        status = ExpandAskingForDestination(file.Get(), &chosen, password.Get());
        if (chosen) DisposeFSObject(chosen);
    }
    archive_->lastResult = status;
    if (status) ShowFailure(status);
}

EngineResult CArchiveExpand::ExpandAskingForDestination(FSObject archive, FSObject *destination,
                                                        StringRef password) {
    OpaqueEngineObject *engine = object_->Engine();
    for (;;) {
        archive::ScopedFSObjectList expanded;
        EngineResult status =
            ExpandOrDecodeFile(engine, archive, *destination, expanded.Out(), password);
        if (status == 0) {
            expanding::ScanExpanded(expanded.Get(), archive_->appOptions);
            return 0;
        }
        if (status == kEngineCancelled) return 0;
        if (status != kEngineDestinationRefused) {
            LogFailure(kFunction, __LINE__, status, L"ExpandOrDecodeFile()");
            return status;
        }
        if (CAppUtils::MsgBox(kDestinationRefusedText, kTitleText, kYesNoStop,
                              archive_->parentWindow) != IDYES)
            return 0;
        std::wstring folder =
            CCommonDlgs::RunChooseDirectory(archive_->parentWindow, kChooseDestinationText);
        if (folder.empty()) return 0;
        if (*destination) DisposeFSObject(*destination);
        *destination = nullptr;
        status = NewFSObjectFromUnicodePath(folder.c_str(), destination);
        if (status) {
            LogFailure(kFunction, __LINE__, status, L"NewFSObjectFromUnicodePath()");
            return status;
        }
    }
}

void CArchiveExpand::ShowFailure(EngineResult code) const {
    if (object_->progressDialog) object_->progressDialog->StopTimer();
    EngineErrorDialog(archive_->name.c_str(), code, false);
}
