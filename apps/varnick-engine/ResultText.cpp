#include "ResultText.h"

#include "platform/WideText.h"
#include "platform/WinError.h"

namespace varnickengine {

namespace {

struct ResultMeaning {
    EngineResult code;
    const wchar_t *meaning;
};

// The engine's own codes, worded as its header words them.
constexpr ResultMeaning kMeanings[] = {
    {kEngineCancelled, L"the run was cancelled"},
    {kEngineStartFailed, L"the session could not be opened"},
    {kEngineOutOfMemory, L"memory ran out"},
    {kEngineInvalidParameter, L"a null, stale or wrong-kind handle, a bad value"},
    {kEngineNotImplemented, L"this engine does not do this (yet)"},
    {kEngineArchiveDamaged, L"the archive's structure is damaged"},
    {kEnginePasswordNeeded, L"a password is needed and none was given"},
    {kEngineArchiveTruncated, L"the archive ends early or cannot be read whole"},
    {kEngineNoMoreObjects, L"end of an iteration, or no such item"},
    {kEngineNotAnArchive, L"the file is of no kind the engine knows"},
    {kEngineOpenFailed, L"the archive could not be opened"},
    {kEngineWriteFailed, L"the archive could not be written"},
    {kEnginePropertyAbsent, L"the item or format lacks this property"},
    {kEngineWrongFormat, L"the archive is not of the format expected"},
    {kEngineWrongPassword, L"the password given does not fit"},
    {kEngineSegmentMissing, L"a segment of the archive is missing"},
    {kEngineFileReadFailed, L"a source file could not be read"},
    {kEngineFileWriteFailed, L"an expanded file could not be written"},
    {kEngineFileCreateFailed, L"a file could not be created"},
    {kEngineFolderCreateFailed, L"a folder could not be created"},
    {kEngineDiskFull, L"no space left for the output"},
    {kEngineArchiveTooLarge, L"the format cannot hold this much"},
    {kEngineNameTooLong, L"an item name is too long for the format"},
    {kEngineExtentTooHigh, L"\"compExtent\" needs more memory than there is"},
    {kEngineMethodUnsupported, L"a compression method the engine cannot do"},
    {kEngineEncryptionUnsupported, L"an encryption the engine cannot do"},
    {kEngineDestinationRefused, L"the destination folder cannot be written"},
    {kEngineDestinationExists, L"the output file exists and may not be replaced"},
    {kEngineDuplicateItem, L"an item of this name is already in the archive"},
    {kEngineArchiveBusy, L"the archive is in use"},
    {kEngineIntegrityFailed, L"a check value other than an item's data failed"},
    {kEngineArchiveEmpty, L"the archive has no items"},
    {kEngineItemKindUnsupported, L"the format cannot hold this kind of item"},
    {kEngineNeedsNewerEngine, L"the operation needs a newer engine"},
    {kEngineArchiveTooNew, L"the archive was made by a newer version"},
    {kEngineLicenceInvalid, L"the licence string was refused"},
    {kEngineItemDataDamaged, L"an item's data is damaged (bad CRC or hash)"},
    {kEngineCatalogueDamaged, L"the catalogue cannot be read"},
    {kEngineSfxModuleMissing, L"the self-extracting stub is missing"},
    {kEngineTransformFailed, L"the archive could not be converted"},
    {kEngineReadOnlyMedium, L"the archive cannot be changed where it lies"},
    {kEngineIndexReadFailed, L"an index file could not be read"},
    {kEngineIndexWriteFailed, L"an index file could not be written"},
    {kEngineRecoveryDataDamaged, L"the recovery data is damaged"},
    {kEnginePasswordOnEncryptedItem, L"the archive is not encrypted, no password is needed"},
    {kEnginePasswordOnPlainArchive, L"the password is wrong"},
    {kEngineNotRecoverable, L"the archive cannot be repaired"},
    {kEngineForeignSegment, L"a segment belongs to another archive"},
    {kEngineSegmentOrder, L"segments are not in order"},
    {kEngineMediumFull, L"the medium is full; another one is needed"},
    {kEnginePropertyNotApplicable, L"the property does not apply to the format"},
    {kEngineUnsafeItemPath,
     L"an item's path or link leads outside the destination; the item was not expanded"},
    {kEngineCommentNotSaved, L"the comment could not be stored"},
    {kEngineThumbnailFailed, L"a thumbnail could not be made"},
    {kEngineEncryptFailed, L"encryption could not be added"},
    {kEngineDecryptFailed, L"encryption could not be removed"},
    {kEngineVerifyFailed, L"the archive could not be verified"},
    {kEngineNoSuchFork, L"the item has no fork of this name"},
    {kEngineSegmentingFailed, L"the archive could not be split"},
    {kEngineIndexMismatch, L"the index does not belong to the archive"},
    {kEngineTimedOut, L"the operation took too long"},
    {kEngineFileLocked, L"a file is locked by another program"},
    {kEngineTooManyItems, L"the format cannot hold this many items"},
    {kEngineNameUnrepresentable, L"a name holds characters the format cannot store"},
    {kEngineSfxUnsupported, L"no self-extracting form of this format"},
    {kEngineAccessDenied, L"access to the archive or a property was denied"},
    {kEngineInternalError, L"an unexpected failure inside the engine"},
};

const wchar_t *EngineMeaning(EngineResult result) {
    for (const ResultMeaning &entry : kMeanings)
        if (entry.code == result) return entry.meaning;
    return nullptr;
}

}  // namespace

std::wstring DescribeResult(EngineResult result) {
    std::wstring text = std::to_wstring(result) + L" (";
    if (const wchar_t *meaning = EngineMeaning(result)) {
        text += meaning;
    } else {
        std::wstring system = platform::SystemMessageText(static_cast<DWORD>(result));
        // The system's sentences end with a full stop; the message goes on.
        if (!system.empty() && system.back() == L'.') system.pop_back();
        text += platform::ToLower(system.substr(0, 1)) + system.substr(1);
    }
    return text + L")";
}

}  // namespace varnickengine
