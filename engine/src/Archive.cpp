#include "Archive.h"

#include <sys/stat.h>
#include <unistd.h>

#include "Operation.h"

OpaqueEngineArchive::~OpaqueEngineArchive() {
    // Changes never committed by a close are dropped.
    if (!pending.empty()) unlink(pending.c_str());
}

OpaqueArchiveIterator::OpaqueArchiveIterator(engine::Ref<OpaqueArchiveObject> folderItem)
    : Object(kKind), folder(std::move(folderItem)) {
    for (const auto &child : folder->node->children)
        if (!child->removed) children.push_back(child);
}

namespace engine {

Ref<OpaqueArchiveObject> NewItem(OpaqueEngineArchive &archive, std::shared_ptr<Node> node) {
    return MakeRef<OpaqueArchiveObject>(Ref<OpaqueEngineArchive>::Share(&archive), std::move(node));
}

Result LoadCatalogue(OpaqueEngineArchive &archive, Operation &operation) {
    std::string path = archive.CurrentPath();
    if (archive.formatId.empty() || !archive.driver) {
        std::string id;
        if (Result result = DetermineFormat(path, id)) return result;
        archive.formatId = id;
        archive.driver = DriverFor(id);
        if (!archive.driver) return kEngineNotAnArchive;
    }
    std::vector<ItemInfo> items;
    std::optional<std::wstring> comment;
    if (Result result = ListItems(archive, operation, path, items, &comment)) return result;
    archive.catalogue.Build(std::move(items));
    archive.catalogue.comment = comment;
    return kEngineOK;
}

Result ListItems(OpaqueEngineArchive &archive, Operation &operation, const std::string &path,
                 std::vector<ItemInfo> &items, std::optional<std::wstring> *comment) {
    ItemPasswords passwords(archive, operation, archive.password);
    ReadRequest request;
    request.path = path;
    request.formatId = archive.formatId;
    request.archiveName = archive.file->Name();
    request.passwords = &passwords;
    request.operation = &operation;
    std::unique_ptr<ReadCursor> cursor;
    if (Result result = archive.driver->OpenReader(request, cursor)) return result;
    for (;;) {
        ItemInfo info;
        Result result = cursor->Next(info);
        if (result == kEngineNoMoreObjects) break;
        if (result != kEngineOK) return result;
        items.push_back(std::move(info));
        if (Result stop = operation.Work(0)) return stop;
    }
    if (comment) *comment = cursor->Comment();
    return kEngineOK;
}

ItemPasswords::ItemPasswords(OpaqueEngineArchive &archive, Operation &operation, std::wstring given)
    : archive_(archive), operation_(operation) {
    if (!given.empty()) known_.push_back(given);
    if (!archive.password.empty() && archive.password != given) known_.push_back(archive.password);
}

Result ItemPasswords::Next(std::size_t storedIndex, std::string &password) {
    if (storedIndex != lastIndex_) {
        lastIndex_ = storedIndex;
        nextKnown_ = 0;
    }
    if (nextKnown_ < known_.size()) {
        lastGiven_ = known_[nextKnown_++];
        password = Utf8(lastGiven_);
        return kEngineOK;
    }
    std::shared_ptr<Node> node = archive_.catalogue.StoredNode(storedIndex);
    Ref<OpaqueArchiveObject> item = NewItem(archive_, node ? node : archive_.catalogue.Root());
    std::wstring answer;
    failure_ = operation_.AskPassword(item.get(), answer);
    if (failure_ != kEngineOK) return failure_;
    lastGiven_ = answer;
    password = Utf8(answer);
    return kEngineOK;
}

void ItemPasswords::Accepted() {
    if (lastGiven_.empty()) return;
    archive_.password = lastGiven_;
    // A later item tries the password that fitted first.
    if (known_.empty() || known_.front() != lastGiven_) known_.insert(known_.begin(), lastGiven_);
}

Result ReadStored(OpaqueEngineArchive &archive, Operation &operation, PasswordSource *passwords,
                  const std::vector<bool> &wanted, const StoredVisitor &visit) {
    std::size_t last = wanted.size();
    while (last > 0 && !wanted[last - 1]) --last;
    if (last == 0) return kEngineOK;
    ReadRequest request;
    request.path = archive.CurrentPath();
    request.formatId = archive.formatId;
    request.archiveName = archive.file->Name();
    request.passwords = passwords;
    request.operation = &operation;
    std::unique_ptr<ReadCursor> cursor;
    if (Result result = archive.driver->OpenReader(request, cursor)) return result;
    for (std::size_t index = 0; index < last; ++index) {
        ItemInfo info;
        Result result = cursor->Next(info);
        if (result == kEngineNoMoreObjects) return kEngineArchiveTruncated;
        if (result != kEngineOK) return result;
        if (!wanted[index]) continue;
        if (Result stop = visit(index, info, *cursor)) return stop;
    }
    return kEngineOK;
}

}  // namespace engine
