#include "Plan.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <numeric>

#include "LibArchive.h"
#include "platform/WideText.h"

namespace engine {
namespace {

// Content that is compressed already: stored as it is unless
// "noRecompression" asks for a new attempt.
const wchar_t *const kCompressedExtensions[] = {
    L".zip",  L".7z",   L".rar",  L".gz",   L".tgz",  L".bz2", L".xz",   L".zst",  L".lz4",
    L".lzma", L".cab",  L".jpg",  L".jpeg", L".png",  L".gif", L".webp", L".heic", L".mp3",
    L".m4a",  L".aac",  L".ogg",  L".opus", L".flac", L".mp4", L".m4v",  L".mkv",  L".mov",
    L".avi",  L".webm", L".docx", L".xlsx", L".pptx", L".odt", L".jar",  L".apk",  L".vnkx",
};

bool AlreadyCompressed(const std::wstring &name) {
    return std::any_of(
        std::begin(kCompressedExtensions), std::end(kCompressedExtensions),
        [&](const wchar_t *extension) { return platform::EndsWithNoCase(name, extension); });
}

std::wstring NumberedName(const std::wstring &name, int n) {
    std::size_t dot = name.find_last_of(L'.');
    std::wstring number = L"_" + std::to_wstring(n);
    if (dot == std::wstring::npos || dot == 0) return name + number;
    return name.substr(0, dot) + number + name.substr(dot);
}

bool Newer(const struct stat &incoming, const ItemInfo &existing) {
    if (!existing.modified) return true;
    return FileTimeFromUnix(incoming.st_mtim.tv_sec, incoming.st_mtim.tv_nsec) > *existing.modified;
}

}  // namespace

std::wstring PlanNode::Path() const {
    if (!parent) return {};
    std::wstring above = parent->Path();
    return above.empty() ? name : above + L"/" + name;
}

PlanNode *PlanNode::Child(const std::wstring &childName) const {
    for (const auto &child : children)
        if (child->name == childName) return child.get();
    return nullptr;
}

Plan::Plan(Operation &operation, OpaqueEngineArchive *archive)
    : operation_(operation), archive_(archive), filters_(operation.session().Filters()) {
    root_.info.folder = true;
    if (archive) root_.node = archive->catalogue.Root();
}

void Plan::TakeCatalogue(const Catalogue &catalogue) {
    comment = catalogue.comment;
    std::function<void(PlanNode &, const Node &)> copy = [&](PlanNode &into, const Node &from) {
        for (const auto &child : from.children) {
            if (child->removed) continue;
            auto node = std::make_unique<PlanNode>();
            node->name = child->name;
            node->parent = &into;
            node->info = child->info;
            node->node = child;
            if (!child->Implicit()) {
                node->entry = true;
                node->source = PlanNode::Source::Stored;
                node->storedIndex = child->storedIndex;
                node->order = {0, child->storedIndex};
            }
            copy(*node, *child);
            into.children.push_back(std::move(node));
        }
    };
    copy(root_, *catalogue.Root());
}

PlanNode &Plan::AddFolder(PlanNode &parent, const std::wstring &name) {
    auto node = std::make_unique<PlanNode>();
    node->name = name;
    node->parent = &parent;
    node->entry = true;
    node->info.folder = true;
    node->info.modified = FileTimeFromUnix(time(nullptr), 0);
    node->order = {1, sequence_++};
    parent.children.push_back(std::move(node));
    return *parent.children.back();
}

void Plan::Remove(PlanNode &node) {
    PlanNode *parent = node.parent;
    if (!parent) return;
    auto &siblings = parent->children;
    siblings.erase(std::remove_if(siblings.begin(), siblings.end(),
                                  [&](const std::unique_ptr<PlanNode> &child) {
                                      return child.get() == &node;
                                  }),
                   siblings.end());
}

PlanNode *Plan::Find(const std::shared_ptr<Node> &node) {
    PlanNode *found = nullptr;
    std::function<void(PlanNode &)> search = [&](PlanNode &at) {
        if (found) return;
        if (at.node == node) {
            found = &at;
            return;
        }
        for (auto &child : at.children) search(*child);
    };
    search(root_);
    return found;
}

Result Plan::Admitted(const std::string &path, bool &admitted) {
    admitted = true;
    for (const auto &filter : filters_) {
        Ref<OpaqueFSObject> candidate = NewFSObjectNative(path);
        if (!filter->procedure(candidate.get(), filter->userData)) {
            admitted = false;
            break;
        }
    }
    return operation_.Scanning();
}

std::unique_ptr<PlanNode> Plan::FromDisk(const std::string &path, const std::wstring &name,
                                         const struct stat &info) {
    auto node = std::make_unique<PlanNode>();
    node->name = name;
    node->entry = true;
    node->source = PlanNode::Source::Disk;
    node->diskPath = path;
    node->info.folder = S_ISDIR(info.st_mode);
    node->info.symlink = S_ISLNK(info.st_mode);
    node->info.size = S_ISREG(info.st_mode) ? static_cast<std::uint64_t>(info.st_size) : 0;
    node->info.modified = FileTimeFromUnix(info.st_mtim.tv_sec, info.st_mtim.tv_nsec);
    node->info.mode = info.st_mode & 07777;
    if (node->info.symlink) {
        std::vector<char> target(4096);
        ssize_t length = readlink(path.c_str(), target.data(), target.size() - 1);
        if (length > 0)
            node->info.linkTarget = WideFromStoredName(std::string(target.data(), length));
    }
    node->storeOnly =
        !node->info.folder && !operation_.settings().noRecompression && AlreadyCompressed(name);
    node->order = {1, sequence_++};
    return node;
}

Result Plan::AddSources(PlanNode &folder, const std::vector<Ref<OpaqueFSObject>> &sources) {
    for (const auto &source : sources) {
        std::string path = source->Native();
        if (Result result = AddOne(folder, path, source->Name(), true)) return result;
    }
    return kEngineOK;
}

Result Plan::Duplicate(PlanNode &existing, const std::string &path, const struct stat &incoming,
                       std::int32_t &resolution) {
    resolution = operation_.settings().duplicateResolution;
    if ((resolution & ~kResolutionMergeFolders) != kResolutionAskDuplicate) return kEngineOK;
    // The item concerned: the archive's own when it has one, else a stand-in
    // describing what is planned under that name.
    std::shared_ptr<Node> node = existing.node;
    if (!node) {
        node = std::make_shared<Node>();
        node->name = existing.name;
        node->info = existing.info;
    }
    if (!archive_ && !transient_)
        transient_ = MakeRef<OpaqueEngineArchive>(Ref<Session>::Share(&operation_.session()),
                                                  NewFSObject(L"/"));
    OpaqueEngineArchive &owner = archive_ ? *archive_ : *transient_;
    Ref<OpaqueArchiveObject> item = NewItem(owner, node);
    (void)incoming;
    return operation_.AskConflict(Wide(path), item.get(), kResolutionSkip, resolution);
}

Result Plan::AddOne(PlanNode &folder, const std::string &path, const std::wstring &name, bool top) {
    struct stat info {};
    if (lstat(path.c_str(), &info) != 0) return LastErrno();
    bool kept = S_ISREG(info.st_mode) || S_ISDIR(info.st_mode) || S_ISLNK(info.st_mode);
    if (!kept) return kEngineOK;  // devices, sockets and pipes hold no data to keep
    bool admitted = true;
    if (Result result = Admitted(path, admitted)) return result;
    if (!admitted) return kEngineOK;
    (void)top;
    PlanNode *existing = folder.Child(name);
    std::wstring placedName = name;
    if (existing) {
        std::int32_t resolution = 0;
        if (Result result = Duplicate(*existing, path, info, resolution)) return result;
        bool merge = (resolution & kResolutionMergeFolders) != 0;
        std::int32_t method = resolution & ~kResolutionMergeFolders;
        if (merge && existing->Folder() && S_ISDIR(info.st_mode)) {
            diskSources_.push_back(path);
            return AddChildren(*existing, path);
        }
        if (method == kResolutionSkip || method == kResolutionAskDuplicate ||
            (method == kResolutionReplaceIfNewer && !Newer(info, existing->info)))
            return kEngineOK;
        if (method == kResolutionKeepBoth) {
            for (int n = 1; folder.Child(placedName); ++n) placedName = NumberedName(name, n);
        } else {
            Remove(*existing);  // replace, or replace with the newer
        }
    }
    std::unique_ptr<PlanNode> node = FromDisk(path, placedName, info);
    node->parent = &folder;
    PlanNode &added = *node;
    folder.children.push_back(std::move(node));
    diskSources_.push_back(path);
    if (S_ISDIR(info.st_mode)) return AddChildren(added, path);
    return kEngineOK;
}

Result Plan::AddChildren(PlanNode &folder, const std::string &path) {
    DIR *listing = opendir(path.c_str());
    if (!listing) return LastErrno();
    std::vector<std::string> names;
    while (dirent *entry = readdir(listing)) {
        std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    closedir(listing);
    std::sort(names.begin(), names.end());
    for (const auto &name : names) {
        if (Result result = AddOne(folder, path + "/" + name, WideFromStoredName(name), false))
            return result;
    }
    return kEngineOK;
}

std::vector<PlanNode *> Plan::Flatten() {
    std::vector<PlanNode *> items;
    std::function<void(PlanNode &)> collect = [&](PlanNode &node) {
        for (auto &child : node.children) {
            if (child->entry) items.push_back(child.get());
            collect(*child);
        }
    };
    collect(root_);
    std::stable_sort(items.begin(), items.end(),
                     [](const PlanNode *a, const PlanNode *b) { return a->order < b->order; });
    return items;
}

// ---------------------------------------------------------------------------

class PlanFeed::DiskData final : public DataSource {
public:
    DiskData(int fd, Operation &operation) : fd_(fd), operation_(operation) {}
    Result Read(void *buffer, std::size_t size, std::size_t &got) override {
        got = 0;
        for (;;) {
            ssize_t count = read(fd_, buffer, size);
            if (count < 0 && errno == EINTR) continue;
            if (count < 0) return LastErrno();
            got = static_cast<std::size_t>(count);
            operation_.AddRead(got);
            return kEngineOK;
        }
    }

private:
    int fd_;
    Operation &operation_;
};

class PlanFeed::StoredData final : public DataSource {
public:
    StoredData(ReadCursor &cursor, Operation &operation) : cursor_(cursor), operation_(operation) {}
    Result Read(void *buffer, std::size_t size, std::size_t &got) override {
        Result result = cursor_.Read(buffer, size, got);
        if (result == kEngineOK) operation_.AddRead(got);
        return result;
    }

private:
    ReadCursor &cursor_;
    Operation &operation_;
};

PlanFeed::PlanFeed(std::vector<PlanNode *> items, Operation &operation,
                   OpaqueEngineArchive *archive, PasswordSource *passwords, bool copyStored,
                   std::uint64_t largeFirstFrom)
    : items_(std::move(items)),
      order_(items_.size()),
      operation_(operation),
      archive_(archive),
      passwords_(passwords),
      copyStored_(copyStored) {
    std::iota(order_.begin(), order_.end(), std::size_t{0});
    // Stored items are read by a cursor that only moves forward: they keep
    // their order, and only files from disk move ahead.
    if (largeFirstFrom > 0)
        std::stable_partition(order_.begin(), order_.end(), [&](std::size_t index) {
            const PlanNode &node = *items_[index];
            return node.source == PlanNode::Source::Disk && node.HasData() &&
                   node.info.size >= largeFirstFrom;
        });
    ahead_.assign(order_.size() + 1, 0);
    for (std::size_t k = order_.size(); k-- > 0;) {
        const PlanNode &node = *items_[order_[k]];
        ahead_[k] = ahead_[k + 1] + (node.HasData() ? node.info.size : 0);
    }
}

PlanFeed::~PlanFeed() {
    if (fd_ >= 0) close(fd_);
}

Result PlanFeed::MoveCursorTo(std::size_t index) {
    if (!cursor_) {
        ReadRequest request;
        request.path = archive_->CurrentPath();
        request.formatId = archive_->formatId;
        request.archiveName = archive_->file->Name();
        request.passwords = passwords_;
        request.operation = &operation_;
        if (Result result = archive_->driver->OpenReader(request, cursor_)) return result;
    }
    while (cursorIndex_ == kNoIndex || cursorIndex_ < index) {
        ItemInfo info;
        Result result = cursor_->Next(info);
        if (result == kEngineNoMoreObjects) return kEngineArchiveTruncated;
        if (result != kEngineOK) return result;
        cursorIndex_ = cursorIndex_ == kNoIndex ? 0 : cursorIndex_ + 1;
    }
    return cursorIndex_ == index ? kEngineOK : kEngineInternalError;
}

Result PlanFeed::Next(WriteItem &item) {
    if (fd_ >= 0) {
        close(fd_);
        fd_ = -1;
    }
    data_.reset();
    if (next_ > 0 && !items_[order_[next_ - 1]]->Folder()) operation_.FileDone();
    if (Result stop = operation_.Counters()) return stop;
    if (next_ >= items_.size()) return kEngineNoMoreObjects;
    item.position = order_[next_++];
    PlanNode &node = *items_[item.position];
    item.info = node.info;
    item.info.path = node.Path();
    item.storeOnly = node.storeOnly;
    item.data = nullptr;
    if (Result stop = operation_.CurrentItem(item.info.path)) return stop;
    const bool hasData = node.HasData();
    if (node.source == PlanNode::Source::Disk && hasData) {
        fd_ = open(node.diskPath.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
        if (fd_ < 0) return LastErrno();
        struct stat info {};
        if (fstat(fd_, &info) == 0) item.info.size = static_cast<std::uint64_t>(info.st_size);
        data_ = std::make_unique<DiskData>(fd_, operation_);
        item.data = data_.get();
    } else if (node.source == PlanNode::Source::Stored && copyStored_ && node.info.stored) {
        item.copy = node.info.stored.get();
        item.copyFrom = archive_->CurrentPath();
        operation_.AddRead(node.info.size);
    } else if (node.source == PlanNode::Source::Stored && hasData) {
        if (Result result = MoveCursorTo(node.storedIndex)) return result;
        data_ = std::make_unique<StoredData>(*cursor_, operation_);
        item.data = data_.get();
    }
    // A stored item leaves its encryption to the writer's settings.
    item.info.encrypted = false;
    return kEngineOK;
}

// ---------------------------------------------------------------------------

void ApplyPlan(Catalogue &catalogue, Plan &plan, std::vector<ItemInfo> listed) {
    // Writers may store items in an order of their own (7z puts folders
    // last): each written item finds its stored index by its path.
    std::map<std::wstring, std::vector<std::size_t>> byPath;
    for (std::size_t index = listed.size(); index-- > 0;)
        byPath[listed[index].path].push_back(index);
    std::vector<std::shared_ptr<Node>> stored(listed.size());
    std::function<void(PlanNode &, const std::shared_ptr<Node> &)> build =
        [&](PlanNode &from, const std::shared_ptr<Node> &into) {
            into->children.clear();
            for (auto &child : from.children) {
                std::shared_ptr<Node> node = child->node ? child->node : std::make_shared<Node>();
                child->node = node;
                node->name = child->name;
                node->parent = into;
                node->removed = false;
                node->info = child->info;
                node->info.path = child->Path();
                node->storedIndex = kNoIndex;
                auto found = byPath.find(node->info.path);
                if (child->entry && found != byPath.end() && !found->second.empty()) {
                    node->storedIndex = found->second.back();
                    found->second.pop_back();
                    node->info = listed[node->storedIndex];
                    stored[node->storedIndex] = node;
                }
                into->children.push_back(node);
                build(*child, node);
            }
        };
    // Nodes of the old tree that the plan no longer holds are gone.
    Catalogue::Walk(catalogue.Root(),
                    [](const std::shared_ptr<Node> &node) { node->removed = true; });
    std::shared_ptr<Node> root = catalogue.Root();
    build(plan.Root(), root);
    root->removed = false;
    catalogue.Adopt(root, std::move(stored));
}

}  // namespace engine
