// Making archives and changing them: every change writes a whole new
// archive from a plan of items (sources on disk, items of the present
// archive, new folders), into a temporary file beside the target.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Archive.h"
#include "Operation.h"

namespace engine {

// ArchiveFSObjectList: a new archive of `formatId` from the sources.
Result CreateArchive(Operation &operation, const std::string &formatId,
                     const std::vector<Ref<OpaqueFSObject>> &sources, const std::wstring &output,
                     const std::wstring &password, std::wstring &written);
// AcquireNewArchiveFromFSObject: an archive of no items.
Result CreateEmptyArchive(Operation &operation, const std::string &formatId,
                          const std::string &path);

// Changes of an archive open in mode 255. Each writes the archive anew into
// its pending file; the archive's close puts that in place.
Result AddItems(OpaqueEngineArchive &archive, Operation &operation,
                const std::shared_ptr<Node> &folder,
                const std::vector<Ref<OpaqueFSObject>> &sources, const std::wstring &password,
                std::vector<std::shared_ptr<Node>> &added);
Result AddFolder(OpaqueEngineArchive &archive, Operation &operation,
                 const std::shared_ptr<Node> &parent, const std::wstring &name,
                 std::shared_ptr<Node> &created);
Result DeleteItems(OpaqueEngineArchive &archive, Operation &operation,
                   const std::vector<std::shared_ptr<Node>> &items, const std::wstring &password);
Result RenameItem(OpaqueEngineArchive &archive, Operation &operation,
                  const std::shared_ptr<Node> &item, const std::wstring &name);

// "comments" of an item, or of the archive on the root.
Result SetComment(OpaqueEngineArchive &archive, Operation &operation,
                  const std::shared_ptr<Node> &item, const std::wstring &comment);

// TransformArchive: the items of any readable archive written anew in
// `formatId`.
Result Transform(Operation &operation, const std::wstring &source, const std::wstring &destination,
                 const std::string &formatId, const std::wstring &oldPassword,
                 const std::wstring &newPassword, std::wstring &written);

// Expanding. `chosen` empty means the whole archive.
Result ExpandItems(OpaqueEngineArchive &archive, Operation &operation,
                   const std::vector<std::shared_ptr<Node>> &chosen,
                   const std::wstring &destination, const std::wstring &password,
                   std::vector<std::wstring> &outputs);

// VerifyArchive: every item's data read and checked.
Result VerifyItems(OpaqueEngineArchive &archive, Operation &operation,
                   const std::wstring &password);

// RecoverArchive of a zip: the items whose data is intact, into a new zip of
// the archive's name in `folder`. kEngineItemDataDamaged when items had to
// be left out, kEngineNotRecoverable when none could be kept.
Result RecoverZip(Operation &operation, const std::string &archive, const std::string &folder);

// The writer that may change archives of the archive's format in place.
Result Changeable(const OpaqueEngineArchive &archive);

}  // namespace engine
