// Making archives and adding to them. Runs on the archive worker of
// CArchiveObject (AddFolder on the caller's thread) and keeps its result
// code in the archive's last result. The options, format options and the
// content list become engine properties in a fixed order before the engine
// is asked to do the work.
#pragma once

#include <string>
#include <vector>

#include "VarnickEngine.h"
#include "platform/WinTypes.h"

class CArchive;
class CArchiveObject;
class CFilterObject;
class CNewArchiveContentList;

class CArchiveCompress {
public:
    CArchiveCompress(CArchiveObject *object, CArchive *archive);
    virtual ~CArchiveCompress();
    CArchiveCompress(const CArchiveCompress &) = delete;
    CArchiveCompress &operator=(const CArchiveCompress &) = delete;

    // A new archive from `list` (null: an empty one). True once any archive
    // was made.
    bool Compress(CNewArchiveContentList *list);
    // Adds the list to the archive, below the archive object's destination.
    bool Add(CNewArchiveContentList *list);
    // A new folder `name` in the archive, below `parent`.
    bool AddFolder(const wchar_t *parent, const wchar_t *name);
    // An index file of a vnkx archive.
    bool MakeIndexFromVnkx(const wchar_t *archivePath, const wchar_t *indexPath);

    // One engine run for `sources` into `output`: whole, with an index, or
    // in segments, as the content list asks.
    EngineResult DoCompression(FSObject output, StringRef password, FSObjectList sources,
                               const char *formatId);
    // The item at `target` ("docs\sub") below `parent`, searched depth first;
    // kEngineNoMoreObjects when there is none. The caller releases `item`.
    EngineResult GetArchiveObjectFromString(ArchiveObject parent, const std::wstring &target,
                                            const std::wstring &prefix, ArchiveObject *item);

private:
    OpaqueEngineObject *Engine() const;
    // Records a failed engine call in the error file, and in the silent log
    // when the archive runs silent.
    void LogFailure(const wchar_t *function, unsigned line, EngineResult code,
                    const wchar_t *call) const;
    void DebugLine(const wchar_t *format, long value) const;

    EngineResult SetEncryption(int formatType, const char *formatId);
    EngineResult SetFormatProperties(int formatType, bool adding);
    EngineResult SetVnkxDetailed();
    EngineResult SetVnkxDetailedForAdding();
    EngineResult SetVnkxSimple(bool adding);
    EngineResult SetSourceHandling(bool adding);
    EngineResult SetInteger(const char *formatId, const char *name, long value);
    EngineResult SetBoolean(const char *formatId, const char *name, bool value);

    EngineResult MakeEmptyArchive(const char *formatId);
    EngineResult CompressAll(const char *formatId, StringRef password, bool &made);
    EngineResult CompressEach(const char *formatId, StringRef password, bool &made);
    EngineResult CompressWithExtentRetry(FSObject output, StringRef password, FSObjectList sources,
                                         const char *formatId);
    EngineResult CompressWhole(FSObject output, StringRef password, FSObjectList sources,
                               const char *formatId);
    EngineResult CompressSegments(FSObject output, StringRef password, FSObjectList sources,
                                  const char *formatId);
    void ShowNewArchiveOnDesktop();
    void LogArchiveSize() const;
    // The folder at `path` below `root`; `target` stays null for the root.
    EngineResult FindTargetFolder(ArchiveObject root, const std::wstring &path,
                                  ArchiveObject *target);

    void BuildMaskList(const CFilterObject &filter);
    static bool FilterProc(FSObject candidate, void *userData);
    bool Passes(const std::wstring &path);
    bool FilePasses(const std::wstring &path, DWORD attributes);
    bool DatePasses(const std::wstring &path);

    CArchiveObject *object_;
    CArchive *archive_;
    CNewArchiveContentList *list_ = nullptr;  // not owned; set for one run
    std::vector<std::wstring> masks_;
    SYSTEMTIME dateLimit_ = {};  // wYear 0: not computed in this run
    FILE *log_ = nullptr;        // the application's log during a run
};
