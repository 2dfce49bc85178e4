// The C surface: the archive operations, each run to its end inside the call.
#include <unistd.h>

#include "Archive.h"
#include "Changes.h"
#include "FileSystem.h"
#include "Operation.h"
#include "SelfExtracting.h"
#include "Surface.h"
#include "VnkxArchive.h"
#include "VnkxIndex.h"

using namespace engine;

namespace {

std::vector<Ref<OpaqueFSObject>> Members(OpaqueFSObjectList &list) {
    std::lock_guard lock(list.mutex);
    return list.items;
}

std::vector<Ref<OpaqueArchiveObject>> Members(OpaqueArchiveObjectList &list) {
    std::lock_guard lock(list.mutex);
    return list.items;
}

FSObjectList ListOf(const std::vector<std::wstring> &paths) {
    auto *list = new OpaqueFSObjectList();
    for (const auto &path : paths) list->items.push_back(NewFSObject(path));
    return list;
}

// The one archive all listed items belong to, or null.
OpaqueEngineArchive *CommonArchive(const std::vector<Ref<OpaqueArchiveObject>> &items) {
    OpaqueEngineArchive *archive = nullptr;
    for (const auto &item : items) {
        if (archive && item->archive.get() != archive) return nullptr;
        archive = item->archive.get();
    }
    return archive;
}

// "deleteAction" 1 after an expansion: the archive, or every part of a set
// that lies beside the part given.
void RemoveExpanded(const std::string &path) {
    std::optional<vnkx::SegmentHeader> header = vnkx::ReadSegmentHeader(path);
    std::optional<std::string> base = vnkx::SegmentBase(path);
    if (header && base) {
        for (std::uint32_t number = 1; number <= header->count; ++number)
            unlink(vnkx::SegmentPath(*base, number, header->count).c_str());
    }
    unlink(path.c_str());
}

// Segments and index files are written once: a change would have to
// rewrite every part, or describe an archive that is not there.
bool WrittenOnce(const std::string &path) {
    if (vnkx::ReadSegmentHeader(path)) return true;
    SniffInput input(path);
    const std::vector<std::uint8_t> &tail = input.Tail();
    vnkx::Trailer trailer;
    return tail.size() >= vnkx::kTrailerSize &&
           vnkx::DecodeTrailer(tail.data() + tail.size() - vnkx::kTrailerSize, vnkx::kTrailerSize,
                               trailer) &&
           (trailer.flags & vnkx::kFlagIndexFile);
}

Result RequireChangeable(const OpaqueEngineArchive &archive) {
    if (!archive.open || archive.mode != kEngineAccessChange) return kEngineReadOnlyMedium;
    if (WrittenOnce(archive.file->Native())) return kEngineReadOnlyMedium;
    return kEngineOK;
}

// Writes the archive whole into a hidden file beside its first part, then
// cuts it into parts; the index, when asked for, describes the parts.
Result CreateSegmented(Operation &operation, const std::vector<Ref<OpaqueFSObject>> &sources,
                       const OpaqueFSObject &output, std::uint64_t partSize,
                       const std::wstring &password, const OpaqueFSObject *index,
                       std::vector<std::string> &parts) {
    if (partSize <= vnkx::kSegmentHeaderSize) return kEngineInvalidParameter;
    std::string base = vnkx::SegmentBaseOfOutput(output.Native());
    std::string whole;
    if (Result result = TemporaryBeside(base + ".vnkx", whole)) return result;
    std::wstring written;
    Result outcome = CreateArchive(operation, "vnkx", sources, Wide(whole), password, written);
    if (outcome != kEngineOK) {
        unlink(whole.c_str());
        return outcome;
    }
    outcome = vnkx::WriteSegments(operation, whole, base, partSize, parts);
    if (outcome != kEngineOK && operation.settings().deleteAction == 1) {
        // The sources are gone already: the archive stays, uncut.
        PutInPlace(whole, base + ".vnkx");
        return outcome;
    }
    unlink(whole.c_str());
    if (outcome == kEngineOK && index)
        outcome = vnkx::WriteIndex(operation, parts.front(), vnkx::IndexPathFor(index->Native()));
    return outcome;
}

EngineResult CreateSegmentsOf(OpaqueEngineObject *engine, FSObjectList sources, FSObject output,
                              FSObjectList *result, const char *formatId, std::uint64_t partSize,
                              StringRef password, OpaqueFSObject *index) {
    Session *session = SessionOf(engine);
    OpaqueFSObjectList *list = Checked(sources);
    OpaqueFSObject *target = Checked(output);
    if (!session || !list || !target || !result || !formatId) return kEngineInvalidParameter;
    // Only the project's own format is split.
    if (std::string(formatId) != "vnkx") return kEngineNotAnArchive;
    Operation operation(*session);
    std::vector<std::string> parts;
    if (Result outcome = CreateSegmented(operation, Members(*list), *target, partSize,
                                         TextOf(password), index, parts))
        return outcome;
    auto *made = new OpaqueFSObjectList();
    for (const std::string &part : parts) made->items.push_back(NewFSObjectNative(part));
    *result = made;
    return kEngineOK;
}

// With "selfExtracting" on for the format, a newly written archive gets the
// stub in front of it, whichever call wrote it.
Result SelfExtractingIfAsked(Session &session, const char *formatId, const std::wstring &written) {
    if (!sfx::Supports(formatId) ||
        !BooleanOf(session.FormatProperties(formatId), kFormatPropSelfExtracting, false))
        return kEngineOK;
    return sfx::MakeSelfExtracting(Utf8(written), formatId);
}

}  // namespace

extern "C" {

EngineResult ArchiveFSObjectList(OpaqueEngineObject *engine, const char *formatId,
                                 FSObjectList sources, FSObject output, FSObject *result,
                                 StringRef password) {
    Session *session = SessionOf(engine);
    OpaqueFSObjectList *list = Checked(sources);
    OpaqueFSObject *target = Checked(output);
    if (!session || !formatId || !list || !target || !result) return kEngineInvalidParameter;
    Operation operation(*session);
    std::wstring written;
    Result outcome =
        CreateArchive(operation, formatId, Members(*list), target->path, TextOf(password), written);
    if (outcome == kEngineOK) outcome = SelfExtractingIfAsked(*session, formatId, written);
    if (outcome == kEngineOK) *result = NewFSObject(written).Detach();
    return outcome;
}

EngineResult ArchiveFSObjectListCreatingIndex(OpaqueEngineObject *engine, const char *formatId,
                                              FSObjectList sources, FSObject output,
                                              FSObject *result, StringRef password,
                                              FSObject index) {
    Session *session = SessionOf(engine);
    OpaqueFSObjectList *list = Checked(sources);
    OpaqueFSObject *target = Checked(output);
    OpaqueFSObject *indexFile = Checked(index);
    if (!session || !formatId || !list || !target || !result || !indexFile)
        return kEngineInvalidParameter;
    // Indexes belong to the project's own format.
    if (std::string(formatId) != "vnkx") return kEngineWrongFormat;
    Operation operation(*session);
    std::wstring written;
    if (Result outcome = CreateArchive(operation, formatId, Members(*list), target->path,
                                       TextOf(password), written))
        return outcome;
    // A failed index leaves the archive, which is whole without it.
    if (Result outcome =
            vnkx::WriteIndex(operation, Utf8(written), vnkx::IndexPathFor(indexFile->Native())))
        return outcome;
    *result = NewFSObject(written).Detach();
    return kEngineOK;
}

EngineResult CreateSegmentsWithFormat(OpaqueEngineObject *engine, FSObjectList sources,
                                      FSObject output, FSObjectList *result, const char *formatId,
                                      uint32_t sizeLow, uint32_t sizeHigh, StringRef password) {
    return CreateSegmentsOf(engine, sources, output, result, formatId,
                            std::uint64_t{sizeHigh} << 32 | sizeLow, password, nullptr);
}

EngineResult CreateSegmentsWithFormatAndIndex(OpaqueEngineObject *engine, FSObjectList sources,
                                              FSObject output, FSObjectList *result,
                                              const char *formatId, uint32_t sizeLow,
                                              uint32_t sizeHigh, StringRef password,
                                              FSObject index) {
    OpaqueFSObject *indexFile = Checked(index);
    if (!indexFile) return kEngineInvalidParameter;
    return CreateSegmentsOf(engine, sources, output, result, formatId,
                            std::uint64_t{sizeHigh} << 32 | sizeLow, password, indexFile);
}

EngineResult CreateArchiveIndex(OpaqueEngineObject *engine, FSObject archive, FSObject index) {
    Session *session = SessionOf(engine);
    OpaqueFSObject *file = Checked(archive);
    OpaqueFSObject *indexFile = Checked(index);
    if (!session || !file || !indexFile) return kEngineInvalidParameter;
    Operation operation(*session);
    std::string id;
    if (Result result = DetermineFormat(file->Native(), id)) return result;
    if (id != "vnkx") return kEngineWrongFormat;
    return vnkx::WriteIndex(operation, file->Native(), vnkx::IndexPathFor(indexFile->Native()));
}

EngineResult AddItemsToArchive(OpaqueEngineObject *engine, ArchiveObject folder,
                               FSObjectList sources, ArchiveObjectList *added, StringRef password) {
    Session *session = SessionOf(engine);
    OpaqueArchiveObject *target = Checked(folder);
    OpaqueFSObjectList *list = Checked(sources);
    if (!session || !target || !list || !added) return kEngineInvalidParameter;
    OpaqueEngineArchive &archive = *target->archive;
    std::lock_guard lock(archive.mutex);
    if (Result refused = RequireChangeable(archive)) return refused;
    Operation operation(*session);
    std::vector<std::shared_ptr<Node>> nodes;
    Result outcome =
        AddItems(archive, operation, target->node, Members(*list), TextOf(password), nodes);
    if (outcome != kEngineOK) return outcome;
    auto *made = new OpaqueArchiveObjectList();
    for (const auto &node : nodes) made->items.push_back(NewItem(archive, node));
    *added = made;
    return kEngineOK;
}

EngineResult AcquireNewFolderInArchive(OpaqueEngineObject *engine, ArchiveObject parent,
                                       StringRef name, int32_t, ArchiveObject *folder) {
    Session *session = SessionOf(engine);
    OpaqueArchiveObject *into = Checked(parent);
    if (!session || !into || !Checked(name) || !folder) return kEngineInvalidParameter;
    OpaqueEngineArchive &archive = *into->archive;
    std::lock_guard lock(archive.mutex);
    if (Result refused = RequireChangeable(archive)) return refused;
    Operation operation(*session);
    std::shared_ptr<Node> created;
    if (Result outcome = AddFolder(archive, operation, into->node, TextOf(name), created))
        return outcome;
    *folder = NewItem(archive, created).Detach();
    return kEngineOK;
}

EngineResult DeleteArchiveObjects(OpaqueEngineObject *engine, ArchiveObjectList items,
                                  StringRef password) {
    Session *session = SessionOf(engine);
    OpaqueArchiveObjectList *list = Checked(items);
    if (!session || !list) return kEngineInvalidParameter;
    std::vector<Ref<OpaqueArchiveObject>> members = Members(*list);
    if (members.empty()) return kEngineOK;
    OpaqueEngineArchive *archive = CommonArchive(members);
    if (!archive) return kEngineInvalidParameter;
    std::lock_guard lock(archive->mutex);
    if (Result refused = RequireChangeable(*archive)) return refused;
    Operation operation(*session);
    std::vector<std::shared_ptr<Node>> nodes;
    for (const auto &item : members) nodes.push_back(item->node);
    return DeleteItems(*archive, operation, nodes, TextOf(password));
}

EngineResult ExpandOrDecodeFile(OpaqueEngineObject *engine, FSObject archive, FSObject destination,
                                FSObjectList *result, StringRef password) {
    Session *session = SessionOf(engine);
    OpaqueFSObject *file = Checked(archive);
    OpaqueFSObject *folder = destination ? Checked(destination) : nullptr;
    if (!session || !file || !result || (destination && !folder)) return kEngineInvalidParameter;
    Operation operation(*session);
    Ref<OpaqueEngineArchive> opened = MakeRef<OpaqueEngineArchive>(
        Ref<Session>::Share(session), Ref<OpaqueFSObject>::Share(file));
    opened->password = TextOf(password);
    if (Result outcome = LoadCatalogue(*opened, operation)) return outcome;
    std::vector<std::wstring> outputs;
    Result outcome = ExpandItems(*opened, operation, {}, folder ? folder->path : std::wstring(),
                                 TextOf(password), outputs);
    if (outcome != kEngineOK) return outcome;
    if (operation.settings().deleteAction == 1) RemoveExpanded(file->Native());
    *result = ListOf(outputs);
    return kEngineOK;
}

EngineResult ExpandArchiveObjects(OpaqueEngineObject *engine, ArchiveObjectList items,
                                  FSObject destination, FSObjectList *result, StringRef password) {
    Session *session = SessionOf(engine);
    OpaqueArchiveObjectList *list = Checked(items);
    OpaqueFSObject *folder = destination ? Checked(destination) : nullptr;
    if (!session || !list || !result || (destination && !folder)) return kEngineInvalidParameter;
    std::vector<Ref<OpaqueArchiveObject>> members = Members(*list);
    if (members.empty()) {
        *result = ListOf({});
        return kEngineOK;
    }
    OpaqueEngineArchive *archive = CommonArchive(members);
    if (!archive) return kEngineInvalidParameter;
    std::lock_guard lock(archive->mutex);
    Operation operation(*session);
    std::vector<std::shared_ptr<Node>> chosen;
    for (const auto &item : members) {
        if (item->node->isRoot) {
            chosen.clear();  // the root stands for the whole archive
            break;
        }
        chosen.push_back(item->node);
    }
    std::vector<std::wstring> outputs;
    Result outcome = ExpandItems(*archive, operation, chosen,
                                 folder ? folder->path : std::wstring(), TextOf(password), outputs);
    if (outcome != kEngineOK) return outcome;
    *result = ListOf(outputs);
    return kEngineOK;
}

EngineResult VerifyArchive(OpaqueEngineObject *engine, FSObject archive, StringRef password) {
    Session *session = SessionOf(engine);
    OpaqueFSObject *file = Checked(archive);
    if (!session || !file) return kEngineInvalidParameter;
    Operation operation(*session);
    Ref<OpaqueEngineArchive> opened = MakeRef<OpaqueEngineArchive>(
        Ref<Session>::Share(session), Ref<OpaqueFSObject>::Share(file));
    opened->password = TextOf(password);
    return VerifyItems(*opened, operation, TextOf(password));
}

EngineResult RecoverArchive(OpaqueEngineObject *engine, FSObject archive, FSObject destination,
                            int32_t, StringRef) {
    Session *session = SessionOf(engine);
    OpaqueFSObject *file = Checked(archive);
    OpaqueFSObject *folder = Checked(destination);
    if (!session || !file || !folder) return kEngineInvalidParameter;
    Operation operation(*session);
    std::string id;
    if (Result result = DetermineFormat(file->Native(), id)) return result;
    if (id != "zip" && id != "vnkx") return kEngineNotImplemented;
    if (Result result = MakeFolders(folder->Native())) return result;
    if (id == "vnkx" && vnkx::ReadSegmentHeader(file->Native()))
        return vnkx::RecoverSegments(operation, file->Native(), folder->Native());
    if (id == "vnkx") return vnkx::RecoverArchiveFile(file->Native(), folder->Native());
    return RecoverZip(operation, file->Native(), folder->Native());
}

EngineResult TransformArchive(OpaqueEngineObject *engine, FSObject source, FSObject destination,
                              FSObject *result, const char *formatId, StringRef oldPassword,
                              StringRef newPassword, int32_t, int32_t) {
    Session *session = SessionOf(engine);
    OpaqueFSObject *file = Checked(source);
    OpaqueFSObject *target = destination ? Checked(destination) : nullptr;
    if (!session || !file || !result || !formatId || (destination && !target))
        return kEngineInvalidParameter;
    Operation operation(*session);
    std::wstring written;
    Result outcome = Transform(operation, file->path, target ? target->path : std::wstring(),
                               formatId, TextOf(oldPassword), TextOf(newPassword), written);
    if (outcome == kEngineOK) outcome = SelfExtractingIfAsked(*session, formatId, written);
    if (outcome == kEngineOK) *result = NewFSObject(written).Detach();
    return outcome;
}

EngineResult AddSelfExtractingToArchive(OpaqueEngineObject *engine, FSObject archive,
                                        FSObject *result, int32_t) {
    OpaqueFSObject *source = Checked(archive);
    if (!SessionOf(engine) || !source || !result) return kEngineInvalidParameter;
    std::string written;
    if (Result r = sfx::AddSelfExtracting(Utf8(source->path), written)) return r;
    *result = NewFSObjectNative(written).Detach();
    return kEngineOK;
}

}  // extern "C"
