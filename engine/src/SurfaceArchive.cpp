// The C surface: archives, their items, iterators, properties and forks.
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "Archive.h"
#include "Changes.h"
#include "Operation.h"
#include "Surface.h"

using namespace engine;

namespace {

struct stat StatOf(const OpaqueEngineArchive &archive) {
    struct stat info {};
    stat(archive.CurrentPath().c_str(), &info);
    return info;
}

std::uint64_t SubtreeSize(const Node &node) {
    if (!node.IsFolder()) return node.info.size;
    std::uint64_t total = 0;
    for (const auto &child : node.children)
        if (!child->removed) total += SubtreeSize(*child);
    return total;
}

bool IsRoot(const OpaqueArchiveObject &item) { return item.node->isRoot; }

Result OpenWithMode(Session &session, OpaqueEngineArchive &archive, uint16_t mode) {
    std::lock_guard lock(archive.mutex);
    if (mode != kEngineAccessRead && mode != kEngineAccessChange) return kEngineInvalidParameter;
    Operation operation(session);
    if (access(archive.file->Native().c_str(), R_OK) != 0) return LastErrno();
    if (Result result = LoadCatalogue(archive, operation)) return result;
    if (mode == kEngineAccessChange) {
        if (Result refused = Changeable(archive)) return refused;
    }
    archive.open = true;
    archive.mode = mode;
    return kEngineOK;
}

// A property the item has: its value as text, flag or number.
enum class Has { Absent, Yes };

Has StringProperty(const OpaqueArchiveObject &item, std::string_view name, std::wstring &value) {
    const Node &node = *item.node;
    if (name == kItemPropName) {
        value = IsRoot(item) ? item.archive->file->Name() : node.name;
        return Has::Yes;
    }
    if (name == kItemPropComments) {
        const auto &comment = IsRoot(item) ? item.archive->catalogue.comment : node.info.comment;
        if (!comment) return Has::Absent;
        value = *comment;
        return Has::Yes;
    }
    return Has::Absent;
}

Has BooleanProperty(const OpaqueArchiveObject &item, std::string_view name, bool &value) {
    if (name == kItemPropFolder) {
        value = item.node->IsFolder();
        return Has::Yes;
    }
    if (name == kItemPropEncrypted) {
        value = IsRoot(item) ? item.archive->catalogue.anyEncrypted : item.node->info.encrypted;
        return Has::Yes;
    }
    return Has::Absent;
}

Has IntegerProperty(const OpaqueArchiveObject &item, std::string_view name, int64_t &value) {
    const Node &node = *item.node;
    if (name == kItemPropCompressedSize) {
        if (IsRoot(item)) {
            value = StatOf(*item.archive).st_size;
            return Has::Yes;
        }
        if (!node.info.compressedSize) return Has::Absent;
        value = static_cast<int64_t>(*node.info.compressedSize);
        return Has::Yes;
    }
    if (name == kItemPropExpandedSize) {
        if (!node.IsFolder() && !node.info.sizeKnown) return Has::Absent;
        value = static_cast<int64_t>(SubtreeSize(node));
        return Has::Yes;
    }
    return Has::Absent;
}

Has DateProperty(const OpaqueArchiveObject &item, std::string_view name, EngineDateTime &value) {
    if (name != kItemPropModificationDate) return Has::Absent;
    if (IsRoot(item)) {
        struct stat info = StatOf(*item.archive);
        value = static_cast<EngineDateTime>((info.st_mtim.tv_sec + 11644473600LL) * 10000000LL +
                                            info.st_mtim.tv_nsec / 100);
        return Has::Yes;
    }
    if (!item.node->info.modified) return Has::Absent;
    value = *item.node->info.modified;
    return Has::Yes;
}

bool PropertyThere(const OpaqueArchiveObject &item, const char *name) {
    std::wstring text;
    bool flag;
    int64_t number;
    EngineDateTime date;
    return StringProperty(item, name, text) == Has::Yes ||
           BooleanProperty(item, name, flag) == Has::Yes ||
           IntegerProperty(item, name, number) == Has::Yes ||
           DateProperty(item, name, date) == Has::Yes;
}

}  // namespace

extern "C" {

EngineResult AcquireArchive(OpaqueEngineObject *engine, FSObject file, EngineArchive *archive) {
    Session *session = SessionOf(engine);
    OpaqueFSObject *path = Checked(file);
    if (!session || !path || !archive) return kEngineInvalidParameter;
    struct stat info {};
    if (stat(path->Native().c_str(), &info) != 0) return LastErrno();
    if (S_ISDIR(info.st_mode)) return kEngineNotAnArchive;
    *archive =
        new OpaqueEngineArchive(Ref<Session>::Share(session), Ref<OpaqueFSObject>::Share(path));
    return kEngineOK;
}

EngineResult AcquireNewArchiveFromFSObject(OpaqueEngineObject *engine, FSObject file,
                                           const char *formatId, EngineArchive *archive) {
    Session *session = SessionOf(engine);
    OpaqueFSObject *path = Checked(file);
    if (!session || !path || !archive || !formatId) return kEngineInvalidParameter;
    const Driver *driver = DriverFor(formatId);
    if (!driver) return kEngineWrongFormat;
    Operation operation(*session);
    if (Result result = CreateEmptyArchive(operation, formatId, path->Native())) return result;
    auto *made =
        new OpaqueEngineArchive(Ref<Session>::Share(session), Ref<OpaqueFSObject>::Share(path));
    made->formatId = formatId;
    made->driver = driver;
    *archive = made;
    return kEngineOK;
}

EngineResult OpenArchive(OpaqueEngineObject *engine, EngineArchive archive, uint16_t mode) {
    Session *session = SessionOf(engine);
    OpaqueEngineArchive *bound = Checked(archive);
    if (!session || !bound) return kEngineInvalidParameter;
    return OpenWithMode(*session, *bound, mode);
}

EngineResult OpenEncryptedArchive(OpaqueEngineObject *engine, EngineArchive archive, uint16_t mode,
                                  StringRef password) {
    Session *session = SessionOf(engine);
    OpaqueEngineArchive *bound = Checked(archive);
    if (!session || !bound) return kEngineInvalidParameter;
    std::wstring text = TextOf(password);
    if (!text.empty()) bound->password = text;
    return OpenWithMode(*session, *bound, mode);
}

EngineResult CloseArchive(EngineArchive archive) {
    OpaqueEngineArchive *bound = Checked(archive);
    if (!bound) return kEngineInvalidParameter;
    std::lock_guard lock(bound->mutex);
    Result result = kEngineOK;
    if (!bound->pending.empty()) {
        if (rename(bound->pending.c_str(), bound->file->Native().c_str()) != 0) {
            result = LastErrno();
            unlink(bound->pending.c_str());
        }
        bound->pending.clear();
    }
    bound->open = false;
    return result;
}

EngineResult ReleaseArchive(EngineArchive archive) {
    OpaqueEngineArchive *bound = Checked(archive);
    if (!bound) return kEngineInvalidParameter;
    Result result = bound->open ? CloseArchive(archive) : kEngineOK;
    bound->Release();
    return result;
}

EngineResult VerifyArchivePassword(OpaqueEngineObject *engine, EngineArchive archive,
                                   StringRef password) {
    Session *session = SessionOf(engine);
    OpaqueEngineArchive *bound = Checked(archive);
    if (!session || !bound) return kEngineInvalidParameter;
    std::lock_guard lock(bound->mutex);
    Operation operation(*session);
    if (!bound->open) {
        if (Result result = LoadCatalogue(*bound, operation)) return result;
    }
    // The smallest enciphered item tells whether the password fits.
    std::shared_ptr<Node> probe;
    for (const auto &node : bound->catalogue.Stored())
        if (node && node->info.encrypted && !node->IsFolder() &&
            (!probe || node->info.size < probe->info.size))
            probe = node;
    if (!probe) return kEnginePasswordOnEncryptedItem;
    std::wstring text = TextOf(password);
    if (text.empty()) return kEnginePasswordNeeded;

    class OnlyThis final : public PasswordSource {
    public:
        explicit OnlyThis(std::string password) : password_(std::move(password)) {}
        Result Next(std::size_t, std::string &password) override {
            if (given_) return kEnginePasswordOnPlainArchive;
            given_ = true;
            password = password_;
            return kEngineOK;
        }
        void Accepted() override { accepted_ = true; }
        bool accepted() const { return accepted_; }

    private:
        std::string password_;
        bool given_ = false, accepted_ = false;
    } only(Utf8(text));
    std::vector<bool> wanted(bound->catalogue.Stored().size(), false);
    wanted[probe->storedIndex] = true;
    std::vector<char> buffer(64 * 1024);
    Result result = ReadStored(*bound, operation, &only, wanted,
                               [&](std::size_t, const ItemInfo &, ReadCursor &data) -> Result {
                                   for (;;) {
                                       std::size_t got = 0;
                                       if (Result r = data.Read(buffer.data(), buffer.size(), got))
                                           return r;
                                       if (got == 0) return kEngineOK;
                                   }
                               });
    if (result == kEngineOK) {
        bound->password = text;
        return kEngineOK;
    }
    // Data that fails after the item's own check took the password is
    // damaged; before that, failing data is what a wrong key makes.
    if (result == kEngineItemDataDamaged && only.accepted()) return result;
    if (result == kEnginePasswordOnPlainArchive || result == kEnginePasswordNeeded ||
        result == kEngineItemDataDamaged)
        return kEnginePasswordOnPlainArchive;
    return result;
}

EngineResult AcquireRootArchiveObject(EngineArchive archive, ArchiveObject *root) {
    OpaqueEngineArchive *bound = Checked(archive);
    if (!bound || !root) return kEngineInvalidParameter;
    std::lock_guard lock(bound->mutex);
    if (!bound->open) return kEngineOpenFailed;
    *root = NewItem(*bound, bound->catalogue.Root()).Detach();
    return kEngineOK;
}

EngineResult AcquireArchiveObjectFromPath(EngineArchive archive, StringRef path,
                                          ArchiveObject *item) {
    OpaqueEngineArchive *bound = Checked(archive);
    if (!bound || !Checked(path) || !item) return kEngineInvalidParameter;
    std::lock_guard lock(bound->mutex);
    if (!bound->open) return kEngineOpenFailed;
    std::shared_ptr<Node> node = bound->catalogue.Find(TextOf(path));
    if (!node) return kEngineNoMoreObjects;
    *item = NewItem(*bound, node).Detach();
    return kEngineOK;
}

EngineResult NewArchiveIterator(ArchiveObject folder, ArchiveIterator *iterator) {
    OpaqueArchiveObject *item = Checked(folder);
    if (!item || !iterator) return kEngineInvalidParameter;
    std::lock_guard lock(item->archive->mutex);
    *iterator = new OpaqueArchiveIterator(Ref<OpaqueArchiveObject>::Share(item));
    return kEngineOK;
}

EngineResult AcquireCurrentArchiveObject(ArchiveIterator iterator, ArchiveObject *item) {
    OpaqueArchiveIterator *walk = Checked(iterator);
    if (!walk || !item) return kEngineInvalidParameter;
    walk->started = true;
    if (walk->position >= walk->children.size()) return kEngineNoMoreObjects;
    *item = NewItem(*walk->folder->archive, walk->children[walk->position]).Detach();
    return kEngineOK;
}

EngineResult AcquireNextArchiveObject(ArchiveIterator iterator, ArchiveObject *item) {
    OpaqueArchiveIterator *walk = Checked(iterator);
    if (!walk || !item) return kEngineInvalidParameter;
    if (walk->started && walk->position < walk->children.size()) ++walk->position;
    walk->started = true;
    if (walk->position >= walk->children.size()) return kEngineNoMoreObjects;
    *item = NewItem(*walk->folder->archive, walk->children[walk->position]).Detach();
    return kEngineOK;
}

EngineResult DisposeArchiveIterator(ArchiveIterator iterator) {
    OpaqueArchiveIterator *walk = Checked(iterator);
    if (!walk) return kEngineInvalidParameter;
    walk->Release();
    return kEngineOK;
}

EngineResult ReleaseArchiveObject(ArchiveObject item) {
    OpaqueArchiveObject *object = Checked(item);
    if (!object) return kEngineInvalidParameter;
    object->Release();
    return kEngineOK;
}

EngineResult AcquireArchiveObjectName(ArchiveObject item, StringRef *name) {
    return AcquireArchiveObjectStringProperty(item, kItemPropName, name);
}

EngineResult GetArchiveObjectIsFolder(ArchiveObject item, bool *folder) {
    return GetArchiveObjectBooleanProperty(item, kItemPropFolder, folder);
}

bool ArchiveObjectPropertyAvailable(ArchiveObject item, const char *name) {
    OpaqueArchiveObject *object = Checked(item);
    if (!object || !name) return false;
    std::lock_guard lock(object->archive->mutex);
    return PropertyThere(*object, name);
}

bool ArchiveObjectHasProperty(ArchiveObject item, const char *name) {
    return ArchiveObjectPropertyAvailable(item, name);
}

bool ArchiveObjectHasComments(ArchiveObject item) {
    OpaqueArchiveObject *object = Checked(item);
    if (!object) return false;
    std::lock_guard lock(object->archive->mutex);
    std::wstring comment;
    return StringProperty(*object, kItemPropComments, comment) == Has::Yes && !comment.empty();
}

EngineResult GetArchiveObjectBooleanProperty(ArchiveObject item, const char *name, bool *value) {
    OpaqueArchiveObject *object = Checked(item);
    if (!object || !name || !value) return kEngineInvalidParameter;
    std::lock_guard lock(object->archive->mutex);
    return BooleanProperty(*object, name, *value) == Has::Yes ? kEngineOK : kEnginePropertyAbsent;
}

EngineResult GetArchiveObjectIntegerProperty(ArchiveObject item, const char *name, int64_t *value) {
    OpaqueArchiveObject *object = Checked(item);
    if (!object || !name || !value) return kEngineInvalidParameter;
    std::lock_guard lock(object->archive->mutex);
    return IntegerProperty(*object, name, *value) == Has::Yes ? kEngineOK : kEnginePropertyAbsent;
}

EngineResult GetArchiveObjectDateTimeProperty(ArchiveObject item, const char *name,
                                              EngineDateTime *value) {
    OpaqueArchiveObject *object = Checked(item);
    if (!object || !name || !value) return kEngineInvalidParameter;
    std::lock_guard lock(object->archive->mutex);
    return DateProperty(*object, name, *value) == Has::Yes ? kEngineOK : kEnginePropertyAbsent;
}

EngineResult AcquireArchiveObjectStringProperty(ArchiveObject item, const char *name,
                                                StringRef *value) {
    OpaqueArchiveObject *object = Checked(item);
    if (!object || !name || !value) return kEngineInvalidParameter;
    std::lock_guard lock(object->archive->mutex);
    std::wstring text;
    if (StringProperty(*object, name, text) != Has::Yes) return kEnginePropertyAbsent;
    *value = NewString(text).Detach();
    return kEngineOK;
}

EngineResult SetArchiveObjectStringProperty(ArchiveObject item, const char *name, StringRef value) {
    OpaqueArchiveObject *object = Checked(item);
    if (!object || !name || !Checked(value)) return kEngineInvalidParameter;
    OpaqueEngineArchive &archive = *object->archive;
    std::lock_guard lock(archive.mutex);
    if (!archive.open || archive.mode != kEngineAccessChange) return kEngineReadOnlyMedium;
    Operation operation(*archive.session);
    if (std::strcmp(name, kItemPropName) == 0) {
        if (IsRoot(*object)) return kEnginePropertyNotApplicable;
        return RenameItem(archive, operation, object->node, TextOf(value));
    }
    if (std::strcmp(name, kItemPropComments) == 0)
        return SetComment(archive, operation, object->node, TextOf(value));
    return kEnginePropertyNotApplicable;
}

EngineResult GetArchiveObjectFork(ArchiveObject item, const char *forkName,
                                  ArchiveObjectFork *fork) {
    OpaqueArchiveObject *object = Checked(item);
    if (!object || !forkName || !fork) return kEngineInvalidParameter;
    bool data = std::strcmp(forkName, kForkData) == 0 && !object->node->IsFolder();
    bool resource = std::strcmp(forkName, kForkResource) == 0 && object->node->info.resourceFork;
    bool thumbnail = std::strcmp(forkName, kForkThumbnail) == 0 && object->node->info.thumbnailSize;
    if (!data && !resource && !thumbnail) return kEngineNoSuchFork;
    for (const auto &known : object->forks) {
        if (known->name == forkName) {
            *fork = known.get();
            return kEngineOK;
        }
    }
    object->forks.push_back(MakeRef<OpaqueArchiveObjectFork>(object, forkName));
    *fork = object->forks.back().get();
    return kEngineOK;
}

EngineResult GetArchiveObjectForkSize(ArchiveObjectFork fork, uint64_t *size) {
    OpaqueArchiveObjectFork *data = Checked(fork);
    if (!data || !size || !IsLive(data->owner, Kind::ArchiveObject)) return kEngineInvalidParameter;
    const ItemInfo &info = data->owner->node->info;
    if (data->name == kForkResource)
        *size = info.resourceFork ? info.resourceFork->size() : 0;
    else if (data->name == kForkThumbnail)
        *size = info.thumbnailSize.value_or(0);
    else
        *size = info.size;
    return kEngineOK;
}

EngineResult GetArchiveObjectForkData(OpaqueEngineObject *engine, ArchiveObjectFork fork,
                                      void *buffer, uint32_t sizeLow, uint32_t sizeHigh,
                                      uint64_t *count, StringRef password) {
    Session *session = SessionOf(engine);
    OpaqueArchiveObjectFork *data = Checked(fork);
    if (!session || !data || !buffer || !count || !IsLive(data->owner, Kind::ArchiveObject))
        return kEngineInvalidParameter;
    *count = 0;
    OpaqueArchiveObject &owner = *data->owner;
    OpaqueEngineArchive &archive = *owner.archive;
    std::lock_guard lock(archive.mutex);
    std::uint64_t capacity = (static_cast<std::uint64_t>(sizeHigh) << 32) | sizeLow;
    if (data->name == kForkResource) {
        const auto &resource = owner.node->info.resourceFork;
        if (!resource) return kEngineNoSuchFork;
        *count = std::min<std::uint64_t>(capacity, resource->size());
        std::memcpy(buffer, resource->data(), static_cast<std::size_t>(*count));
        return kEngineOK;
    }
    if (owner.node->removed || owner.node->Implicit()) return kEngineNoMoreObjects;
    Operation operation(*session);
    ItemPasswords passwords(archive, operation, TextOf(password));
    std::vector<bool> wanted(archive.catalogue.Stored().size(), false);
    wanted[owner.node->storedIndex] = true;
    auto *bytes = static_cast<char *>(buffer);
    return ReadStored(archive, operation, &passwords, wanted,
                      [&](std::size_t, const ItemInfo &, ReadCursor &cursor) -> Result {
                          if (Result r = cursor.SelectFork(data->name)) return r;
                          while (*count < capacity) {
                              std::size_t got = 0;
                              std::size_t ask = static_cast<std::size_t>(
                                  std::min<std::uint64_t>(capacity - *count, 1 << 20));
                              if (Result r = cursor.Read(bytes + *count, ask, got)) return r;
                              if (got == 0) break;
                              *count += got;
                          }
                          return kEngineOK;
                      });
}

EngineResult NewArchiveObjectList(OpaqueEngineObject *engine, ArchiveObjectList *list) {
    if (!SessionOf(engine) || !list) return kEngineInvalidParameter;
    *list = new OpaqueArchiveObjectList();
    return kEngineOK;
}

EngineResult AddToArchiveObjectList(ArchiveObject item, ArchiveObjectList list) {
    OpaqueArchiveObject *object = Checked(item);
    OpaqueArchiveObjectList *items = Checked(list);
    if (!object || !items) return kEngineInvalidParameter;
    std::lock_guard lock(items->mutex);
    items->items.push_back(Ref<OpaqueArchiveObject>::Share(object));
    return kEngineOK;
}

uint32_t CountArchiveObjectList(ArchiveObjectList list) {
    OpaqueArchiveObjectList *items = Checked(list);
    if (!items) return 0;
    std::lock_guard lock(items->mutex);
    return static_cast<uint32_t>(items->items.size());
}

EngineResult DisposeArchiveObjectList(ArchiveObjectList list) {
    OpaqueArchiveObjectList *items = Checked(list);
    if (!items) return kEngineInvalidParameter;
    items->Release();
    return kEngineOK;
}

}  // extern "C"
