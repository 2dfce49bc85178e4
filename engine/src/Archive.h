// The archive kinds of handles: an archive bound to a file, its items, item
// lists, iterators and forks.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Catalogue.h"
#include "Driver.h"
#include "Handles.h"
#include "Object.h"
#include "Session.h"

struct OpaqueArchiveObject;

struct OpaqueEngineArchive : engine::Object {
    static constexpr engine::Kind kKind = engine::Kind::Archive;
    OpaqueEngineArchive(engine::Ref<engine::Session> session, engine::Ref<OpaqueFSObject> file)
        : Object(kKind), session(std::move(session)), file(std::move(file)) {}
    ~OpaqueEngineArchive() override;

    std::recursive_mutex mutex;
    engine::Ref<engine::Session> session;
    engine::Ref<OpaqueFSObject> file;
    std::string formatId;
    const engine::Driver *driver = nullptr;
    bool open = false;
    std::uint16_t mode = 0;
    std::wstring password;  // the last one known to fit
    engine::Catalogue catalogue;
    // Changes made in mode 255 lie in this file beside the archive until the
    // archive is closed; empty when there are none.
    std::string pending;

    // Where the archive's present bytes are: the pending file or the archive.
    std::string CurrentPath() const { return pending.empty() ? file->Native() : pending; }
};

struct OpaqueArchiveObjectFork : engine::Object {
    static constexpr engine::Kind kKind = engine::Kind::Fork;
    OpaqueArchiveObjectFork(OpaqueArchiveObject *owner, std::string name)
        : Object(kKind), owner(owner), name(std::move(name)) {}
    OpaqueArchiveObject *owner;  // the fork lives as long as its item
    std::string name;
};

struct OpaqueArchiveObject : engine::Object {
    static constexpr engine::Kind kKind = engine::Kind::ArchiveObject;
    OpaqueArchiveObject(engine::Ref<OpaqueEngineArchive> archive,
                        std::shared_ptr<engine::Node> node)
        : Object(kKind), archive(std::move(archive)), node(std::move(node)) {}

    engine::Ref<OpaqueEngineArchive> archive;
    std::shared_ptr<engine::Node> node;
    std::vector<engine::Ref<OpaqueArchiveObjectFork>> forks;
};

struct OpaqueArchiveObjectList : engine::Object {
    static constexpr engine::Kind kKind = engine::Kind::ArchiveObjectList;
    OpaqueArchiveObjectList() : Object(kKind) {}
    std::mutex mutex;
    std::vector<engine::Ref<OpaqueArchiveObject>> items;
};

struct OpaqueArchiveIterator : engine::Object {
    static constexpr engine::Kind kKind = engine::Kind::Iterator;
    explicit OpaqueArchiveIterator(engine::Ref<OpaqueArchiveObject> folder);
    engine::Ref<OpaqueArchiveObject> folder;
    std::vector<std::shared_ptr<engine::Node>> children;  // as they were when the walk began
    std::size_t position = 0;
    bool started = false;
};

namespace engine {

Ref<OpaqueArchiveObject> NewItem(OpaqueEngineArchive &archive, std::shared_ptr<Node> node);

// Reads the catalogue of the archive's present bytes; sets format and
// driver first when they are not known.
Result LoadCatalogue(OpaqueEngineArchive &archive, Operation &operation);
// The items stored in `path`, a file of the archive's format.
Result ListItems(OpaqueEngineArchive &archive, Operation &operation, const std::string &path,
                 std::vector<ItemInfo> &items, std::optional<std::wstring> *comment = nullptr);

// Asks for passwords item by item: the archive's known password (or the one
// given to the call) first, then the (200,9) notification, again for the
// same item until one fits. A password that fitted is kept by the archive.
class ItemPasswords final : public PasswordSource {
public:
    ItemPasswords(OpaqueEngineArchive &archive, Operation &operation, std::wstring given);
    Result Next(std::size_t storedIndex, std::string &password) override;
    void Accepted() override;
    Result failure() const { return failure_; }

private:
    OpaqueEngineArchive &archive_;
    Operation &operation_;
    std::vector<std::wstring> known_;
    std::size_t nextKnown_ = 0;
    std::size_t lastIndex_ = kNoIndex;
    std::wstring lastGiven_;
    Result failure_ = kEngineOK;
};

}  // namespace engine

namespace engine {

using StoredVisitor =
    std::function<Result(std::size_t index, const ItemInfo &info, ReadCursor &data)>;

// Walks the stored items of the archive's present bytes and calls `visit`
// for each index `wanted` marks, with the cursor on its data. A non-zero
// result of `visit` ends the walk with that result.
Result ReadStored(OpaqueEngineArchive &archive, Operation &operation, PasswordSource *passwords,
                  const std::vector<bool> &wanted, const StoredVisitor &visit);

}  // namespace engine
