// Expanding a whole archive, and the setup every expanding operation shares.
// Expand runs on the archive worker of CArchiveObject and keeps its result
// code in the archive's last result.
#pragma once

#include <cstdint>
#include <string>

#include "VarnickEngine.h"

class CAppOptionsRepository;
class CArchive;
class CArchiveObject;

namespace expanding {

// The "conflictResolution" value of the options: the chosen method, where 0
// (ask) becomes the engine's asking value, with the merge bit when folders
// are merged.
std::int32_t ConflictResolutionValue(const CAppOptionsRepository &options);
// Sets "preserveMacResource", "conflictResolution" and "createFolderMethod"
// on the engine; failures are logged under `function` and passed over.
void SetExpandProperties(OpaqueEngineObject *engine, const CAppOptionsRepository *options,
                         const wchar_t *function);
// Hands the non-empty paths of `expanded`, in order, to the virus scan.
void ScanExpanded(FSObjectList expanded, CAppOptionsRepository *options);
// Turns an item path of the listing ("a\b") into the engine's ("a/b").
std::wstring EnginePath(const wchar_t *item);

}  // namespace expanding

class CArchiveExpand {
public:
    CArchiveExpand(CArchiveObject *object, CArchive *archive);
    virtual ~CArchiveExpand();
    CArchiveExpand(const CArchiveExpand &) = delete;
    CArchiveExpand &operator=(const CArchiveExpand &) = delete;

    // Expands into `destination`, or where the engine chooses when it is
    // null or empty; the result goes into the last result.
    void Expand(const wchar_t *destination);

private:
    // Runs the expansion, asking for another folder while the destination
    // is refused; the engine's code (0 when the user gave up).
    EngineResult ExpandAskingForDestination(FSObject archive, FSObject *destination,
                                            StringRef password);
    void ShowFailure(EngineResult code) const;

    CArchiveObject *object_;
    CArchive *archive_;
    std::wstring archivePath_;
};
