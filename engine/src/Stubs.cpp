// Calls not yet implemented answer kEngineNotImplemented.
#include "VarnickEngine.h"

extern "C" EngineResult OpenVarnickEngine(OpaqueEngineObject ** /*engine*/,
                                          const char * /*licence*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult CloseVarnickEngine(OpaqueEngineObject * /*engine*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult GetVersionInfo(OpaqueEngineObject * /*engine*/, uint16_t * /*major*/,
                                       uint16_t * /*minor*/, uint16_t * /*revision*/,
                                       uint16_t * /*build*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult SetEngineBooleanProperty(OpaqueEngineObject * /*engine*/,
                                                 const char * /*name*/, bool /*value*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult SetEngineIntegerProperty(OpaqueEngineObject * /*engine*/,
                                                 const char * /*name*/, int32_t /*value*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult SetEngineFormatIDProperty(OpaqueEngineObject * /*engine*/,
                                                  const char * /*name*/,
                                                  const char * /*formatId*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult SetFormatBooleanProperty(OpaqueEngineObject * /*engine*/,
                                                 const char * /*formatId*/, const char * /*name*/,
                                                 bool /*value*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult SetFormatIntegerProperty(OpaqueEngineObject * /*engine*/,
                                                 const char * /*formatId*/, const char * /*name*/,
                                                 int32_t /*value*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult GetFormatIntegerProperty(OpaqueEngineObject * /*engine*/,
                                                 const char * /*formatId*/, const char * /*name*/,
                                                 int32_t * /*value*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult DetermineFileFormat(OpaqueEngineObject * /*engine*/, FSObject /*file*/,
                                            EngineFormatId /*formatId*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult GetArchiveFormatMaximumAccessMode(OpaqueEngineObject * /*engine*/,
                                                          const char * /*formatId*/,
                                                          uint16_t * /*mode*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult NewFSObjectFromUnicodePath(const wchar_t * /*path*/,
                                                   FSObject * /*object*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult DisposeFSObject(FSObject /*object*/) { return kEngineNotImplemented; }
extern "C" EngineResult AcquirePathFromFSObject(FSObject /*object*/, StringRef * /*path*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult AcquireFSObjectName(FSObject /*object*/, StringRef * /*name*/) {
    return kEngineNotImplemented;
}
extern "C" bool IsFirstSegmentFSObject(OpaqueEngineObject * /*engine*/, FSObject /*object*/) {
    return false;
}
extern "C" EngineResult NewFSObjectList(OpaqueEngineObject * /*engine*/, FSObjectList * /*list*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult AddFSObjectToFSObjectList(OpaqueEngineObject * /*engine*/,
                                                  FSObject /*object*/, FSObjectList /*list*/) {
    return kEngineNotImplemented;
}
extern "C" uint32_t CountFSObjectList(FSObjectList /*list*/) { return 0; }
extern "C" EngineResult GetNthFSObject(FSObjectList /*list*/, uint32_t /*index*/,
                                       FSObject * /*object*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult DisposeFSObjectList(FSObjectList /*list*/) { return kEngineNotImplemented; }
extern "C" EngineResult NewStringRefFromUnicodeString(const wchar_t * /*text*/,
                                                      StringRef * /*string*/) {
    return kEngineNotImplemented;
}
extern "C" const wchar_t *GetUnicodeStringFromStringRef(StringRef /*string*/) { return nullptr; }
extern "C" EngineResult DisposeStringRef(StringRef /*string*/) { return kEngineNotImplemented; }
extern "C" EngineResult AcquireArchive(OpaqueEngineObject * /*engine*/, FSObject /*file*/,
                                       EngineArchive * /*archive*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult AcquireNewArchiveFromFSObject(OpaqueEngineObject * /*engine*/,
                                                      FSObject /*file*/, const char * /*formatId*/,
                                                      EngineArchive * /*archive*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult OpenArchive(OpaqueEngineObject * /*engine*/, EngineArchive /*archive*/,
                                    uint16_t /*mode*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult OpenEncryptedArchive(OpaqueEngineObject * /*engine*/,
                                             EngineArchive /*archive*/, uint16_t /*mode*/,
                                             StringRef /*password*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult CloseArchive(EngineArchive /*archive*/) { return kEngineNotImplemented; }
extern "C" EngineResult ReleaseArchive(EngineArchive /*archive*/) { return kEngineNotImplemented; }
extern "C" EngineResult VerifyArchivePassword(OpaqueEngineObject * /*engine*/,
                                              EngineArchive /*archive*/, StringRef /*password*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult AcquireRootArchiveObject(EngineArchive /*archive*/,
                                                 ArchiveObject * /*root*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult AcquireArchiveObjectFromPath(EngineArchive /*archive*/, StringRef /*path*/,
                                                     ArchiveObject * /*item*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult NewArchiveIterator(ArchiveObject /*folder*/,
                                           ArchiveIterator * /*iterator*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult AcquireCurrentArchiveObject(ArchiveIterator /*iterator*/,
                                                    ArchiveObject * /*item*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult AcquireNextArchiveObject(ArchiveIterator /*iterator*/,
                                                 ArchiveObject * /*item*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult DisposeArchiveIterator(ArchiveIterator /*iterator*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult ReleaseArchiveObject(ArchiveObject /*item*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult AcquireArchiveObjectName(ArchiveObject /*item*/, StringRef * /*name*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult GetArchiveObjectIsFolder(ArchiveObject /*item*/, bool * /*folder*/) {
    return kEngineNotImplemented;
}
extern "C" bool ArchiveObjectPropertyAvailable(ArchiveObject /*item*/, const char * /*name*/) {
    return false;
}
extern "C" bool ArchiveObjectHasProperty(ArchiveObject /*item*/, const char * /*name*/) {
    return false;
}
extern "C" bool ArchiveObjectHasComments(ArchiveObject /*item*/) { return false; }
extern "C" EngineResult GetArchiveObjectBooleanProperty(ArchiveObject /*item*/,
                                                        const char * /*name*/, bool * /*value*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult GetArchiveObjectIntegerProperty(ArchiveObject /*item*/,
                                                        const char * /*name*/,
                                                        int64_t * /*value*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult GetArchiveObjectDateTimeProperty(ArchiveObject /*item*/,
                                                         const char * /*name*/,
                                                         EngineDateTime * /*value*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult AcquireArchiveObjectStringProperty(ArchiveObject /*item*/,
                                                           const char * /*name*/,
                                                           StringRef * /*value*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult SetArchiveObjectStringProperty(ArchiveObject /*item*/,
                                                       const char * /*name*/, StringRef /*value*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult GetArchiveObjectFork(ArchiveObject /*item*/, const char * /*forkName*/,
                                             ArchiveObjectFork * /*fork*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult GetArchiveObjectForkSize(ArchiveObjectFork /*fork*/, uint64_t * /*size*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult GetArchiveObjectForkData(OpaqueEngineObject * /*engine*/,
                                                 ArchiveObjectFork /*fork*/, void * /*buffer*/,
                                                 uint32_t /*sizeLow*/, uint32_t /*sizeHigh*/,
                                                 uint64_t * /*count*/, StringRef /*password*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult ArchiveFSObjectList(OpaqueEngineObject * /*engine*/,
                                            const char * /*formatId*/, FSObjectList /*sources*/,
                                            FSObject /*output*/, FSObject * /*result*/,
                                            StringRef /*password*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult ArchiveFSObjectListCreatingIndex(
    OpaqueEngineObject * /*engine*/, const char * /*formatId*/, FSObjectList /*sources*/,
    FSObject /*output*/, FSObject * /*result*/, StringRef /*password*/, FSObject /*index*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult CreateSegmentsWithFormat(
    OpaqueEngineObject * /*engine*/, FSObjectList /*sources*/, FSObject /*output*/,
    FSObjectList * /*result*/, const char * /*formatId*/, uint32_t /*segmentSizeLow*/,
    uint32_t /*segmentSizeHigh*/, StringRef /*password*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult CreateSegmentsWithFormatAndIndex(
    OpaqueEngineObject * /*engine*/, FSObjectList /*sources*/, FSObject /*output*/,
    FSObjectList * /*result*/, const char * /*formatId*/, uint32_t /*segmentSizeLow*/,
    uint32_t /*segmentSizeHigh*/, StringRef /*password*/, FSObject /*index*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult CreateArchiveIndex(OpaqueEngineObject * /*engine*/, FSObject /*archive*/,
                                           FSObject /*index*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult AddItemsToArchive(OpaqueEngineObject * /*engine*/, ArchiveObject /*folder*/,
                                          FSObjectList /*sources*/, ArchiveObjectList * /*added*/,
                                          StringRef /*password*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult AcquireNewFolderInArchive(OpaqueEngineObject * /*engine*/,
                                                  ArchiveObject /*parent*/, StringRef /*name*/,
                                                  int32_t /*reserved*/,
                                                  ArchiveObject * /*folder*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult DeleteArchiveObjects(OpaqueEngineObject * /*engine*/,
                                             ArchiveObjectList /*items*/, StringRef /*password*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult ExpandOrDecodeFile(OpaqueEngineObject * /*engine*/, FSObject /*archive*/,
                                           FSObject /*destination*/, FSObjectList * /*result*/,
                                           StringRef /*password*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult ExpandArchiveObjects(OpaqueEngineObject * /*engine*/,
                                             ArchiveObjectList /*items*/, FSObject /*destination*/,
                                             FSObjectList * /*result*/, StringRef /*password*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult NewArchiveObjectList(OpaqueEngineObject * /*engine*/,
                                             ArchiveObjectList * /*list*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult AddToArchiveObjectList(ArchiveObject /*item*/, ArchiveObjectList /*list*/) {
    return kEngineNotImplemented;
}
extern "C" uint32_t CountArchiveObjectList(ArchiveObjectList /*list*/) { return 0; }
extern "C" EngineResult DisposeArchiveObjectList(ArchiveObjectList /*list*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult VerifyArchive(OpaqueEngineObject * /*engine*/, FSObject /*archive*/,
                                      StringRef /*password*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult RecoverArchive(OpaqueEngineObject * /*engine*/, FSObject /*archive*/,
                                       FSObject /*destination*/, int32_t /*reserved*/,
                                       StringRef /*password*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult TransformArchive(OpaqueEngineObject * /*engine*/, FSObject /*source*/,
                                         FSObject /*destination*/, FSObject * /*result*/,
                                         const char * /*formatId*/, StringRef /*oldPassword*/,
                                         StringRef /*newPassword*/, int32_t /*option1*/,
                                         int32_t /*option2*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult AddSelfExtractingToArchive(OpaqueEngineObject * /*engine*/,
                                                   FSObject /*archive*/, FSObject * /*result*/,
                                                   int32_t /*option*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult AddCompressionFilter(OpaqueEngineObject * /*engine*/,
                                             EngineCompressionFilterProc /*procedure*/,
                                             void * /*userData*/, CompressionFilter * /*filter*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult RemoveCompressionFilter(OpaqueEngineObject * /*engine*/,
                                                CompressionFilter /*filter*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult InstallNotification(OpaqueEngineObject * /*engine*/, int32_t /*category*/,
                                            int32_t /*event*/, EngineNotificationProc /*procedure*/,
                                            void * /*userData*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult RemoveNotification(OpaqueEngineObject * /*engine*/, int32_t /*category*/,
                                           int32_t /*event*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult GetDataFromContext(NotificationContext /*context*/, int32_t /*key*/,
                                           void * /*buffer*/, uint32_t /*size*/) {
    return kEngineNotImplemented;
}
extern "C" EngineResult SetDataInContext(NotificationContext /*context*/, int32_t /*key*/,
                                         const void * /*buffer*/, uint32_t /*size*/) {
    return kEngineNotImplemented;
}
