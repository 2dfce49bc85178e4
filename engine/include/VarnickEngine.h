/*
 * VarnickEngine: the compression engine's C surface.
 *
 * Every call that reports a status returns an EngineResult: 0 is success,
 * 17000 and above are the engine's own codes (table below), any other value
 * is a Windows error code handed through (2 not found, 3 path not found,
 * 5 access denied, 32 sharing violation, 80 file exists, 112 disk full, ...).
 *
 * Handles are opaque pointers. A handle that the caller acquires (New...,
 * Acquire..., an "out" argument) is the caller's reference and is given back
 * with the matching Dispose/Release call; lists keep references of their
 * own. A handle of the wrong kind, or one already given back, is refused with
 * kEngineInvalidParameter rather than followed.
 *
 * Text crossing the surface is wide (wchar_t); property, fork and format
 * names are narrow ASCII. Paths inside an archive use "/" as the separator.
 *
 * Plain C: usable from C and C++.
 */
#ifndef VARNICK_ENGINE_H
#define VARNICK_ENGINE_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <wchar.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define VARNICK_ENGINE_API __attribute__((visibility("default")))
#else
#define VARNICK_ENGINE_API
#endif

/* ------------------------------------------------------------------------ */
/* Handle kinds                                                              */
/* ------------------------------------------------------------------------ */

/* One open engine session. Also the kind of the answer handle given with key 2
 * of the (1,3) notification, on which the caller sets "conflictResolution"
 * with SetEngineIntegerProperty. */
typedef struct OpaqueEngineObject OpaqueEngineObject;

typedef struct OpaqueFSObject *FSObject;                       /* a path, existing or not */
typedef struct OpaqueFSObjectList *FSObjectList;               /* list of paths */
typedef struct OpaqueEngineArchive *EngineArchive;             /* an archive bound to a file */
typedef struct OpaqueArchiveObject *ArchiveObject;             /* an item, or the root folder */
typedef struct OpaqueArchiveObjectList *ArchiveObjectList;     /* list of items */
typedef struct OpaqueArchiveIterator *ArchiveIterator;         /* walk over direct children */
typedef struct OpaqueArchiveObjectFork *ArchiveObjectFork;     /* lives as long as its item */
typedef struct OpaqueStringRef *StringRef;                     /* engine-owned wide string */
typedef struct OpaqueNotificationContext *NotificationContext; /* data of one notification */
typedef struct OpaqueCompressionFilter *CompressionFilter;     /* an installed filter */

typedef int32_t EngineResult;

/* A format id ("zip", "tar", "sevenz", ...): at most 49 characters and a
 * terminator. DetermineFileFormat writes into a buffer of this size. */
#define kEngineFormatIdSize 50
typedef char EngineFormatId[kEngineFormatIdSize];

/* "modificationDate": FILETIME ticks, 100 ns units since 1601-01-01 UTC. */
typedef uint64_t EngineDateTime;

/* Access modes of OpenArchive and GetArchiveFormatMaximumAccessMode. */
#define kEngineAccessRead ((uint16_t)7)
#define kEngineAccessChange ((uint16_t)255)

/* ------------------------------------------------------------------------ */
/* Procedures the caller installs                                            */
/* ------------------------------------------------------------------------ */

/* Answers of a notification procedure. */
#define kNotificationNotHandled 0
#define kNotificationHandled 1
#define kNotificationStop 2

/* Called for an installed (category, event) pair; returns one of the three
 * answers above. The context is valid only during the call. */
typedef int32_t (*EngineNotificationProc)(int32_t category, int32_t event,
                                          NotificationContext context, void *userData);

/* Asked once for each candidate file or folder of a compression; false
 * leaves it (and, for a folder, everything below it) out. The FSObject
 * belongs to the engine. */
typedef bool (*EngineCompressionFilterProc)(FSObject candidate, void *userData);

/* Notification pairs (category, event). */
#define kNotifyWorkCategory 1
#define kNotifyWorkUnit 1     /* (1,1) often during work; answer: stop */
#define kNotifySegmentBegun 2 /* (1,2) key 1: FSObject of the new segment */
#define kNotifyTargetExists 3 /* (1,3) keys 1, 2, 3; answer "conflictResolution" on key 2 */
#define kNotifyProgressCategory 100
#define kNotifyScanning 4         /* (100,4) sources are being scanned */
#define kNotifyWritingCatalogue 5 /* (100,5) the catalogue or the archive's end is written */
#define kNotifyCurrentItem 6      /* (100,6) key 4: StringRef of the item's name */
#define kNotifyCounters 7         /* (100,7) keys 5 to 9 */
#define kNotifyVerifying 8        /* (100,8) verifying or testing data */
#define kNotifyRequestCategory 200
#define kNotifyPasswordNeeded 9  /* (200,9) key 3 in; key 11 StringRef out */
#define kNotifySegmentMissing 10 /* (200,10) key 4 in; key 12 FSObject out */
#define kNotifyOtherRequest 11   /* (200,11) */

/* Context keys. Handle keys (1, 2, 3, 4, 11, 12) take sizeof(void *) bytes;
 * counter keys (5 to 9) take 8 bytes (uint64_t). Whatever the procedure
 * writes under key 11 or 12 belongs to the engine from then on. */
#define kContextFSObject 1      /* FSObject */
#define kContextAnswerHandle 2  /* OpaqueEngineObject * */
#define kContextArchiveObject 3 /* ArchiveObject */
#define kContextName 4          /* StringRef */
#define kContextFilesDone 5     /* uint64_t */
#define kContextFilesTotal 6    /* uint64_t */
#define kContextBytesRead 7     /* uint64_t */
#define kContextBytesWritten 8  /* uint64_t */
#define kContextBytesTotal 9    /* uint64_t */
#define kContextPassword 11     /* StringRef, written by the procedure */
#define kContextLocation 12     /* FSObject, written by the procedure */

/* ------------------------------------------------------------------------ */
/* Property names                                                            */
/* ------------------------------------------------------------------------ */

/* Engine properties (SetEngineBooleanProperty / SetEngineIntegerProperty /
 * SetEngineFormatIDProperty). They persist in the session. */
#define kEnginePropUseThreads "useThreads"
#define kEnginePropIgnoreReturnReceipts "ignoreReturnReceipts"
#define kEnginePropSaveComments "saveComments"
#define kEnginePropNoRecompression "noRecompression"
#define kEnginePropExpansionOptions "expansionOptions"
#define kEnginePropConflictResolution "conflictResolution"
#define kEnginePropDuplicateResolution "duplicateResolution"
#define kEnginePropDeleteAction "deleteAction"
#define kEnginePropPreserveMacResource "preserveMacResource"
#define kEnginePropCreateFolderMethod "createFolderMethod"
#define kEnginePropPostEncodingFormat "postEncodingFormat"

/* Values of "conflictResolution" and "duplicateResolution". */
#define kResolutionReplace 1
#define kResolutionAsk 2  /* conflict: ask through (1,3); as an answer: keep the existing target */
#define kResolutionSkip 2 /* duplicates: skip the incoming item */
#define kResolutionKeepBoth 3
#define kResolutionReplaceIfNewer 4
#define kResolutionAskDuplicate 7 /* duplicates only: ask through (1,3) */
#define kResolutionMergeFolders 32768

/* Values of "createFolderMethod". */
#define kCreateFolderNever 0
#define kCreateFolderAlways 1
#define kCreateFolderIfSeveral 2

/* Format properties (SetFormatIntegerProperty / SetFormatBooleanProperty). */
#define kFormatPropCompMethod "compMethod"
#define kFormatPropCompressionLevel "compressionLevel"
#define kFormatPropCompExtent "compExtent"
#define kFormatPropEncodeLevel "encodeLevel"
#define kFormatPropRedundancyLevel "redundancyLevel"
#define kFormatPropMaxVersion "maxVersion"
#define kFormatPropCompressionDegree "compressionDegree"
#define kFormatPropRecompression "recompression"
#define kFormatPropRecompressionLevel "recompressionLevel"
#define kFormatPropEncryptMethod "encryptMethod"
#define kFormatPropKeySize "keySize"
#define kFormatPropThumbNails "thumbNails"
#define kFormatPropFoldDuplicates "foldDuplicates"
#define kFormatPropFilters "filters"
#define kFormatPropRecompressArchives "recompressArchives"
#define kFormatPropBlockMode "blockMode"
#define kFormatPropEncryptArchive "encryptArchive"
#define kFormatPropSelfExtracting "selfExtracting"
/* Read-only ranges and defaults (GetFormatIntegerProperty), for the format's
 * current "compMethod". */
#define kFormatPropCompExtentLeast "compExtentLeast"
#define kFormatPropCompExtentMost "compExtentMost"
#define kFormatPropCompExtentDefault "compExtentDefault"
#define kFormatPropCompressionLeast "compressionLeast"
#define kFormatPropCompressionMost "compressionMost"
#define kFormatPropCompressionDefault "compressionDefault"
#define kFormatPropKeySizeDefault "keySizeDefault"

/* Item properties. */
#define kItemPropName "name"                     /* string; writable: rename */
#define kItemPropComments "comments"             /* string; on the root: the archive's comment */
#define kItemPropFolder "folder"                 /* bool */
#define kItemPropEncrypted "encrypted"           /* bool */
#define kItemPropCompressedSize "compressedSize" /* 64-bit */
#define kItemPropExpandedSize "expandedSize"     /* 64-bit */
#define kItemPropModificationDate "modificationDate" /* EngineDateTime */

/* Fork names. "data" is every item's contents. */
#define kForkData "data"
#define kForkResource "rsrc"
#define kForkThumbnail "thumb"

/* ------------------------------------------------------------------------ */
/* Result codes                                                              */
/* ------------------------------------------------------------------------ */

enum {
    kEngineOK = 0,
    kEngineCancelled = 17501,               /* a notification answered 2; the run ended */
    kEngineStartFailed = 17502,             /* the session could not be opened */
    kEngineOutOfMemory = 17503,             /* memory ran out */
    kEngineInvalidParameter = 17504,        /* a null, stale or wrong-kind handle, a bad value */
    kEngineNotImplemented = 17505,          /* this engine does not do this (yet) */
    kEngineArchiveDamaged = 17506,          /* the archive's structure is damaged */
    kEnginePasswordNeeded = 17507,          /* a password is needed and none was given */
    kEngineArchiveTruncated = 17508,        /* the archive ends early or cannot be read whole */
    kEngineNoMoreObjects = 17509,           /* end of an iteration, or no such item */
    kEngineNotAnArchive = 17510,            /* the file is of no kind the engine knows */
    kEngineOpenFailed = 17511,              /* the archive could not be opened */
    kEngineWriteFailed = 17512,             /* the archive could not be written */
    kEnginePropertyAbsent = 17513,          /* the item or format lacks this property */
    kEngineWrongFormat = 17514,             /* the archive is not of the format expected */
    kEngineWrongPassword = 17515,           /* the password given does not fit */
    kEngineSegmentMissing = 17516,          /* a segment of the archive is missing */
    kEngineFileReadFailed = 17517,          /* a source file could not be read */
    kEngineFileWriteFailed = 17518,         /* an expanded file could not be written */
    kEngineFileCreateFailed = 17519,        /* a file could not be created */
    kEngineFolderCreateFailed = 17520,      /* a folder could not be created */
    kEngineDiskFull = 17521,                /* no space left for the output */
    kEngineArchiveTooLarge = 17522,         /* the format cannot hold this much */
    kEngineNameTooLong = 17523,             /* an item name is too long for the format */
    kEngineExtentTooHigh = 17524,           /* "compExtent" needs more memory than there is */
    kEngineMethodUnsupported = 17525,       /* a compression method the engine cannot do */
    kEngineEncryptionUnsupported = 17526,   /* an encryption the engine cannot do */
    kEngineDestinationRefused = 17527,      /* the destination folder cannot be written */
    kEngineDestinationExists = 17528,       /* the output file exists and may not be replaced */
    kEngineDuplicateItem = 17529,           /* an item of this name is already in the archive */
    kEngineArchiveBusy = 17530,             /* the archive is in use */
    kEngineIntegrityFailed = 17531,         /* a check value other than an item's data failed */
    kEngineArchiveEmpty = 17532,            /* the archive has no items */
    kEngineItemKindUnsupported = 17533,     /* the format cannot hold this kind of item */
    kEngineNeedsNewerEngine = 17534,        /* the operation needs a newer engine */
    kEngineArchiveTooNew = 17535,           /* the archive was made by a newer version */
    kEngineLicenceInvalid = 17536,          /* the licence string was refused */
    kEngineItemDataDamaged = 17537,         /* an item's data is damaged (bad CRC or hash) */
    kEngineCatalogueDamaged = 17538,        /* the catalogue cannot be read */
    kEngineSfxModuleMissing = 17539,        /* the self-extracting stub is missing */
    kEngineTransformFailed = 17540,         /* the archive could not be converted */
    kEngineReadOnlyMedium = 17541,          /* the archive cannot be changed where it lies */
    kEngineIndexReadFailed = 17542,         /* an index file could not be read */
    kEngineIndexWriteFailed = 17543,        /* an index file could not be written */
    kEngineRecoveryDataDamaged = 17544,     /* the recovery data is damaged */
    kEnginePasswordOnEncryptedItem = 17545, /* VerifyArchivePassword: the archive is not
                                               encrypted, no password is needed */
    kEnginePasswordOnPlainArchive = 17546,  /* VerifyArchivePassword: the password is wrong */
    kEngineNotRecoverable = 17547,          /* the archive cannot be repaired */
    kEngineForeignSegment = 17548,          /* a segment belongs to another archive */
    kEngineSegmentOrder = 17549,            /* segments are not in order */
    kEngineMediumFull = 17550,              /* the medium is full; another one is needed */
    kEnginePropertyNotApplicable = 17551,   /* the property does not apply to the format */
    kEngineUnsafeItemPath = 17552,          /* an item's path or link leads outside the destination;
                                               the item was not expanded */
    kEngineCommentNotSaved = 17553,         /* the comment could not be stored */
    kEngineThumbnailFailed = 17554,         /* a thumbnail could not be made */
    kEngineEncryptFailed = 17555,           /* encryption could not be added */
    kEngineDecryptFailed = 17556,           /* encryption could not be removed */
    kEngineVerifyFailed = 17557,            /* the archive could not be verified */
    kEngineNoSuchFork = 17558,              /* the item has no fork of this name */
    kEngineSegmentingFailed = 17559,        /* the archive could not be split */
    kEngineIndexMismatch = 17560,           /* the index does not belong to the archive */
    kEngineTimedOut = 17561,                /* the operation took too long */
    kEngineFileLocked = 17562,              /* a file is locked by another program */
    kEngineTooManyItems = 17563,            /* the format cannot hold this many items */
    kEngineNameUnrepresentable = 17564,     /* a name holds characters the format cannot store */
    kEngineSfxUnsupported = 17565,          /* no self-extracting form of this format */
    kEngineAccessDenied = 17998,            /* access to the archive or a property was denied */
    kEngineInternalError = 17999            /* an unexpected failure inside the engine */
};

/* ------------------------------------------------------------------------ */
/* Session and version                                                       */
/* ------------------------------------------------------------------------ */

VARNICK_ENGINE_API EngineResult OpenVarnickEngine(OpaqueEngineObject **engine, const char *licence);
VARNICK_ENGINE_API EngineResult CloseVarnickEngine(OpaqueEngineObject *engine);
/* engine may be null. */
VARNICK_ENGINE_API EngineResult GetVersionInfo(OpaqueEngineObject *engine, uint16_t *major,
                                               uint16_t *minor, uint16_t *revision,
                                               uint16_t *build);
VARNICK_ENGINE_API EngineResult SetEngineBooleanProperty(OpaqueEngineObject *engine,
                                                         const char *name, bool value);
/* Also takes the answer handle of the (1,3) notification, for
 * "conflictResolution". */
VARNICK_ENGINE_API EngineResult SetEngineIntegerProperty(OpaqueEngineObject *engine,
                                                         const char *name, int32_t value);
VARNICK_ENGINE_API EngineResult SetEngineFormatIDProperty(OpaqueEngineObject *engine,
                                                          const char *name, const char *formatId);
VARNICK_ENGINE_API EngineResult SetFormatBooleanProperty(OpaqueEngineObject *engine,
                                                         const char *formatId, const char *name,
                                                         bool value);
VARNICK_ENGINE_API EngineResult SetFormatIntegerProperty(OpaqueEngineObject *engine,
                                                         const char *formatId, const char *name,
                                                         int32_t value);
VARNICK_ENGINE_API EngineResult GetFormatIntegerProperty(OpaqueEngineObject *engine,
                                                         const char *formatId, const char *name,
                                                         int32_t *value);
VARNICK_ENGINE_API EngineResult DetermineFileFormat(OpaqueEngineObject *engine, FSObject file,
                                                    EngineFormatId formatId);
VARNICK_ENGINE_API EngineResult GetArchiveFormatMaximumAccessMode(OpaqueEngineObject *engine,
                                                                  const char *formatId,
                                                                  uint16_t *mode);

/* ------------------------------------------------------------------------ */
/* Paths and strings                                                         */
/* ------------------------------------------------------------------------ */

VARNICK_ENGINE_API EngineResult NewFSObjectFromUnicodePath(const wchar_t *path, FSObject *object);
VARNICK_ENGINE_API EngineResult DisposeFSObject(FSObject object);
VARNICK_ENGINE_API EngineResult AcquirePathFromFSObject(FSObject object, StringRef *path);
VARNICK_ENGINE_API EngineResult AcquireFSObjectName(FSObject object, StringRef *name);
VARNICK_ENGINE_API bool IsFirstSegmentFSObject(OpaqueEngineObject *engine, FSObject object);
VARNICK_ENGINE_API EngineResult NewFSObjectList(OpaqueEngineObject *engine, FSObjectList *list);
/* The list keeps its own reference. */
VARNICK_ENGINE_API EngineResult AddFSObjectToFSObjectList(OpaqueEngineObject *engine,
                                                          FSObject object, FSObjectList list);
VARNICK_ENGINE_API uint32_t CountFSObjectList(FSObjectList list);
/* The caller disposes the object it gets. */
VARNICK_ENGINE_API EngineResult GetNthFSObject(FSObjectList list, uint32_t index, FSObject *object);
VARNICK_ENGINE_API EngineResult DisposeFSObjectList(FSObjectList list);
VARNICK_ENGINE_API EngineResult NewStringRefFromUnicodeString(const wchar_t *text,
                                                              StringRef *string);
/* Valid until the reference is disposed; null for an invalid handle. */
VARNICK_ENGINE_API const wchar_t *GetUnicodeStringFromStringRef(StringRef string);
VARNICK_ENGINE_API EngineResult DisposeStringRef(StringRef string);

/* ------------------------------------------------------------------------ */
/* Opening and walking an archive                                            */
/* ------------------------------------------------------------------------ */

VARNICK_ENGINE_API EngineResult AcquireArchive(OpaqueEngineObject *engine, FSObject file,
                                               EngineArchive *archive);
VARNICK_ENGINE_API EngineResult AcquireNewArchiveFromFSObject(OpaqueEngineObject *engine,
                                                              FSObject file, const char *formatId,
                                                              EngineArchive *archive);
VARNICK_ENGINE_API EngineResult OpenArchive(OpaqueEngineObject *engine, EngineArchive archive,
                                            uint16_t mode);
VARNICK_ENGINE_API EngineResult OpenEncryptedArchive(OpaqueEngineObject *engine,
                                                     EngineArchive archive, uint16_t mode,
                                                     StringRef password);
/* Commits the changes made in mode 255 (the temporary file replaces the
 * archive). */
VARNICK_ENGINE_API EngineResult CloseArchive(EngineArchive archive);
VARNICK_ENGINE_API EngineResult ReleaseArchive(EngineArchive archive);
VARNICK_ENGINE_API EngineResult VerifyArchivePassword(OpaqueEngineObject *engine,
                                                      EngineArchive archive, StringRef password);
VARNICK_ENGINE_API EngineResult AcquireRootArchiveObject(EngineArchive archive,
                                                         ArchiveObject *root);
VARNICK_ENGINE_API EngineResult AcquireArchiveObjectFromPath(EngineArchive archive, StringRef path,
                                                             ArchiveObject *item);
VARNICK_ENGINE_API EngineResult NewArchiveIterator(ArchiveObject folder, ArchiveIterator *iterator);
/* On a fresh iterator both calls give the first child; after that Current
 * repeats the present child and Next moves on. */
VARNICK_ENGINE_API EngineResult AcquireCurrentArchiveObject(ArchiveIterator iterator,
                                                            ArchiveObject *item);
VARNICK_ENGINE_API EngineResult AcquireNextArchiveObject(ArchiveIterator iterator,
                                                         ArchiveObject *item);
VARNICK_ENGINE_API EngineResult DisposeArchiveIterator(ArchiveIterator iterator);
VARNICK_ENGINE_API EngineResult ReleaseArchiveObject(ArchiveObject item);
VARNICK_ENGINE_API EngineResult AcquireArchiveObjectName(ArchiveObject item, StringRef *name);
VARNICK_ENGINE_API EngineResult GetArchiveObjectIsFolder(ArchiveObject item, bool *folder);
VARNICK_ENGINE_API bool ArchiveObjectPropertyAvailable(ArchiveObject item, const char *name);
VARNICK_ENGINE_API bool ArchiveObjectHasProperty(ArchiveObject item, const char *name);
VARNICK_ENGINE_API bool ArchiveObjectHasComments(ArchiveObject item);
VARNICK_ENGINE_API EngineResult GetArchiveObjectBooleanProperty(ArchiveObject item,
                                                                const char *name, bool *value);
VARNICK_ENGINE_API EngineResult GetArchiveObjectIntegerProperty(ArchiveObject item,
                                                                const char *name, int64_t *value);
VARNICK_ENGINE_API EngineResult GetArchiveObjectDateTimeProperty(ArchiveObject item,
                                                                 const char *name,
                                                                 EngineDateTime *value);
VARNICK_ENGINE_API EngineResult AcquireArchiveObjectStringProperty(ArchiveObject item,
                                                                   const char *name,
                                                                   StringRef *value);
VARNICK_ENGINE_API EngineResult SetArchiveObjectStringProperty(ArchiveObject item, const char *name,
                                                               StringRef value);
VARNICK_ENGINE_API EngineResult GetArchiveObjectFork(ArchiveObject item, const char *forkName,
                                                     ArchiveObjectFork *fork);
VARNICK_ENGINE_API EngineResult GetArchiveObjectForkSize(ArchiveObjectFork fork, uint64_t *size);
/* Reads at most sizeLow + (sizeHigh << 32) bytes of the fork into buffer. */
VARNICK_ENGINE_API EngineResult GetArchiveObjectForkData(OpaqueEngineObject *engine,
                                                         ArchiveObjectFork fork, void *buffer,
                                                         uint32_t sizeLow, uint32_t sizeHigh,
                                                         uint64_t *count, StringRef password);

/* ------------------------------------------------------------------------ */
/* Archive operations: each runs to its end inside the call                  */
/* ------------------------------------------------------------------------ */

VARNICK_ENGINE_API EngineResult ArchiveFSObjectList(OpaqueEngineObject *engine,
                                                    const char *formatId, FSObjectList sources,
                                                    FSObject output, FSObject *result,
                                                    StringRef password);
VARNICK_ENGINE_API EngineResult ArchiveFSObjectListCreatingIndex(
    OpaqueEngineObject *engine, const char *formatId, FSObjectList sources, FSObject output,
    FSObject *result, StringRef password, FSObject index);
/* Note the order: sources and output come before the format id. */
VARNICK_ENGINE_API EngineResult CreateSegmentsWithFormat(
    OpaqueEngineObject *engine, FSObjectList sources, FSObject output, FSObjectList *result,
    const char *formatId, uint32_t segmentSizeLow, uint32_t segmentSizeHigh, StringRef password);
VARNICK_ENGINE_API EngineResult CreateSegmentsWithFormatAndIndex(
    OpaqueEngineObject *engine, FSObjectList sources, FSObject output, FSObjectList *result,
    const char *formatId, uint32_t segmentSizeLow, uint32_t segmentSizeHigh, StringRef password,
    FSObject index);
VARNICK_ENGINE_API EngineResult CreateArchiveIndex(OpaqueEngineObject *engine, FSObject archive,
                                                   FSObject index);
VARNICK_ENGINE_API EngineResult AddItemsToArchive(OpaqueEngineObject *engine, ArchiveObject folder,
                                                  FSObjectList sources, ArchiveObjectList *added,
                                                  StringRef password);
/* reserved is 0. */
VARNICK_ENGINE_API EngineResult AcquireNewFolderInArchive(OpaqueEngineObject *engine,
                                                          ArchiveObject parent, StringRef name,
                                                          int32_t reserved, ArchiveObject *folder);
VARNICK_ENGINE_API EngineResult DeleteArchiveObjects(OpaqueEngineObject *engine,
                                                     ArchiveObjectList items, StringRef password);
/* destination may be null: the archive's own folder. */
VARNICK_ENGINE_API EngineResult ExpandOrDecodeFile(OpaqueEngineObject *engine, FSObject archive,
                                                   FSObject destination, FSObjectList *result,
                                                   StringRef password);
VARNICK_ENGINE_API EngineResult ExpandArchiveObjects(OpaqueEngineObject *engine,
                                                     ArchiveObjectList items, FSObject destination,
                                                     FSObjectList *result, StringRef password);
VARNICK_ENGINE_API EngineResult NewArchiveObjectList(OpaqueEngineObject *engine,
                                                     ArchiveObjectList *list);
/* The item comes first here; the list keeps its own reference. */
VARNICK_ENGINE_API EngineResult AddToArchiveObjectList(ArchiveObject item, ArchiveObjectList list);
VARNICK_ENGINE_API uint32_t CountArchiveObjectList(ArchiveObjectList list);
VARNICK_ENGINE_API EngineResult DisposeArchiveObjectList(ArchiveObjectList list);
VARNICK_ENGINE_API EngineResult VerifyArchive(OpaqueEngineObject *engine, FSObject archive,
                                              StringRef password);
/* reserved is 0. */
VARNICK_ENGINE_API EngineResult RecoverArchive(OpaqueEngineObject *engine, FSObject archive,
                                               FSObject destination, int32_t reserved,
                                               StringRef password);
/* destination may be null: beside the source. The two last values are 1 and 0. */
VARNICK_ENGINE_API EngineResult TransformArchive(OpaqueEngineObject *engine, FSObject source,
                                                 FSObject destination, FSObject *result,
                                                 const char *formatId, StringRef oldPassword,
                                                 StringRef newPassword, int32_t option1,
                                                 int32_t option2);
/* option is 2. */
VARNICK_ENGINE_API EngineResult AddSelfExtractingToArchive(OpaqueEngineObject *engine,
                                                           FSObject archive, FSObject *result,
                                                           int32_t option);
VARNICK_ENGINE_API EngineResult AddCompressionFilter(OpaqueEngineObject *engine,
                                                     EngineCompressionFilterProc procedure,
                                                     void *userData, CompressionFilter *filter);
VARNICK_ENGINE_API EngineResult RemoveCompressionFilter(OpaqueEngineObject *engine,
                                                        CompressionFilter filter);

/* ------------------------------------------------------------------------ */
/* Notifications                                                             */
/* ------------------------------------------------------------------------ */

/* One procedure a pair; installing again replaces it. */
VARNICK_ENGINE_API EngineResult InstallNotification(OpaqueEngineObject *engine, int32_t category,
                                                    int32_t event, EngineNotificationProc procedure,
                                                    void *userData);
VARNICK_ENGINE_API EngineResult RemoveNotification(OpaqueEngineObject *engine, int32_t category,
                                                   int32_t event);
/* size must be the size of the key's value (see the context keys above);
 * a key the notification does not carry gives kEnginePropertyAbsent. */
VARNICK_ENGINE_API EngineResult GetDataFromContext(NotificationContext context, int32_t key,
                                                   void *buffer, uint32_t size);
VARNICK_ENGINE_API EngineResult SetDataInContext(NotificationContext context, int32_t key,
                                                 const void *buffer, uint32_t size);

/* The engine's version as text, for example "1.0.0.0". Not part of the
 * described surface; kept for hosts that load the library by name. */
VARNICK_ENGINE_API const char *VarnickEngineVersionText(void);

#ifdef __cplusplus
}
#endif

#endif /* VARNICK_ENGINE_H */
