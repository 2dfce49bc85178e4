// Expanding items to disk. Every item is placed below the destination
// folder through descriptors opened component by component without
// following links, so no stored name, link or earlier item can lead a write
// outside it. Conflicts with what is already there follow
// "conflictResolution"; the folder the archive's items go into follows
// "createFolderMethod".
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <memory>
#include <set>

#include "BackgroundWriter.h"
#include "Changes.h"
#include "DecodedItems.h"
#include "FileSystem.h"
#include "LibArchive.h"
#include "platform/WideText.h"

namespace engine {
namespace {

// One stored item (or a chosen implicit folder) and where it goes.
struct Target {
    std::shared_ptr<Node> node;
    // Destination components below the destination folder, and for each the
    // node it stands for (the archive's root for a folder named after it).
    std::vector<std::wstring> relative;
    std::vector<std::shared_ptr<Node>> chain;
};

// A name that may stand as one component below the destination: never
// "." or "..", never empty, never holding a separator.
bool SafeComponent(const std::wstring &name) {
    return !name.empty() && name != L"." && name != L".." &&
           name.find(L'/') == std::wstring::npos && name.find(L'\0') == std::wstring::npos;
}

bool SafeComponents(const std::vector<std::wstring> &components) {
    return std::all_of(components.begin(), components.end(), SafeComponent);
}

bool UnsafeStoredPath(const Node &node) {
    const ItemInfo &info = node.info;
    if (!info.rawPath.empty() && (info.rawPath[0] == '/' || info.rawPath[0] == '\\')) return true;
    std::wstring decoded = Wide(info.rawPath);
    for (const auto &part : SplitItemPath(info.path))
        if (part == L"..") return true;
    // A name stored with "\" separators is taken as one name here, but a
    // "..\" in it is refused all the same: other systems split it.
    return decoded.find(L"..\\") != std::wstring::npos ||
           decoded.find(L"\\..") != std::wstring::npos;
}

// A link's target stays below the destination when resolved from the
// link's own folder.
bool LinkStaysInside(const std::vector<std::wstring> &linkFolder, const std::wstring &target) {
    if (target.empty() || target[0] == L'/') return false;
    std::size_t depth = linkFolder.size();
    for (const auto &part : SplitItemPath(target)) {
        if (part == L"..") {
            if (depth == 0) return false;
            --depth;
        } else {
            ++depth;
        }
    }
    return true;
}

// The folder named after an archive: its name without the extension, and
// without ".tar" before a compressor's extension.
std::wstring ArchiveBaseName(const std::wstring &fileName) {
    std::wstring name = fileName;
    std::size_t dot = name.find_last_of(L'.');
    if (dot != std::wstring::npos && dot > 0) name = name.substr(0, dot);
    if (name.size() > 4 && platform::EndsWithNoCase(name, L".tar"))
        name = name.substr(0, name.size() - 4);
    return name;
}

class Expander {
public:
    Expander(OpaqueEngineArchive &archive, Operation &operation, std::wstring destination)
        : archive_(archive),
          operation_(operation),
          settings_(operation.settings()),
          destination_(std::move(destination)) {}
    ~Expander() {
        if (rootFd_ >= 0) close(rootFd_);
    }

    Result Run(const std::vector<std::shared_ptr<Node>> &chosen, const std::wstring &password,
               std::vector<std::wstring> &outputs) {
        if (Result result = OpenDestination()) return result;
        PlanTargets(chosen);
        std::uint64_t files = 0, bytes = 0;
        for (const auto &target : targets_) {
            if (target.node->IsFolder()) continue;
            ++files;
            bytes += target.node->info.size;
        }
        operation_.SetTotals(files, bytes);
        if (Result result = operation_.Counters(true)) return result;

        std::vector<bool> wanted(archive_.catalogue.Stored().size(), false);
        std::map<std::size_t, const Target *> byIndex;
        for (const auto &target : targets_) {
            if (target.node->Implicit()) {
                if (Result fatal = PlaceFolder(target)) return fatal;
                continue;
            }
            wanted[target.node->storedIndex] = true;
            byIndex[target.node->storedIndex] = &target;
        }
        ItemPasswords passwords(archive_, operation_, password);
        Result result = ReadStored(archive_, operation_, &passwords, wanted,
                                   [&](std::size_t index, const ItemInfo &, ReadCursor &data) {
                                       return Place(*byIndex.at(index), data);
                                   });
        if (result == kEngineOK) result = SetFolderTimes();
        if (result == kEngineOK) result = operation_.FinishCounters();
        if (result == kEngineCancelled) RemoveEmptyFoldersMade();
        for (const auto &top : topLevel_) outputs.push_back(destination_ + L"/" + top);
        return result != kEngineOK ? result : itemFailure_;
    }

private:
    Result OpenDestination() {
        if (Result result = MakeFolders(Utf8(destination_))) {
            return result == static_cast<Result>(5) || result == static_cast<Result>(19)
                       ? kEngineDestinationRefused
                       : result;
        }
        rootFd_ = open(Utf8(destination_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (rootFd_ < 0) return LastErrno();
        if (faccessat(rootFd_, ".", W_OK, AT_EACCESS) != 0) return kEngineDestinationRefused;
        return kEngineOK;
    }

    void PlanTargets(const std::vector<std::shared_ptr<Node>> &chosen) {
        std::vector<std::shared_ptr<Node>> roots = chosen;
        if (roots.empty())
            for (const auto &child : archive_.catalogue.Root()->children)
                if (!child->removed) roots.push_back(child);
        std::vector<std::wstring> prefix;
        std::vector<std::shared_ptr<Node>> prefixChain;
        bool single = archive_.driver->SingleItem(archive_.formatId);
        int method = settings_.createFolderMethod;
        if (!single && (method == kCreateFolderAlways ||
                        (method == kCreateFolderIfSeveral && roots.size() > 1))) {
            prefix.push_back(ArchiveBaseName(archive_.file->Name()));
            prefixChain.push_back(archive_.catalogue.Root());
        }
        for (const auto &root : roots) {
            Catalogue::Walk(root, [&](const std::shared_ptr<Node> &node) {
                if (node->removed) return;
                // Folders the archive does not store are made on the way to
                // their items; only a chosen one is made for itself.
                if (node->Implicit() && (node != root || chosen.empty())) return;
                Target target;
                target.node = node;
                target.relative = prefix;
                target.chain = prefixChain;
                std::vector<std::shared_ptr<Node>> up;
                for (auto at = node; at; at = at == root ? nullptr : at->parent.lock())
                    up.push_back(at);
                for (auto it = up.rbegin(); it != up.rend(); ++it) {
                    target.relative.push_back((*it)->name);
                    target.chain.push_back(*it);
                }
                targets_.push_back(std::move(target));
            });
        }
        std::stable_sort(targets_.begin(), targets_.end(), [](const Target &a, const Target &b) {
            return a.node->storedIndex < b.node->storedIndex;
        });
    }

    void NoteFailure(Result result) {
        if (itemFailure_ == kEngineOK) itemFailure_ = result;
    }

    // The answer to a conflict: the property's value, or what (1,3) says.
    Result Resolution(const std::string &existing, const std::shared_ptr<Node> &node,
                      std::int32_t &answer) {
        answer = settings_.conflictResolution;
        if ((answer & ~kResolutionMergeFolders) != kResolutionAsk) return kEngineOK;
        Ref<OpaqueArchiveObject> item = NewItem(archive_, node);
        std::int32_t given = 0;
        Result result = operation_.AskConflict(destination_ + L"/" + Wide(existing), item.get(),
                                               kResolutionAsk, given);
        answer = given;
        return result;
    }

    bool CreatedHere(const std::string &relative) const { return created_.count(relative) != 0; }

    // Opens (making it when needed) the folder of the first `count`
    // components of a target. skip is set when a conflict keeps what is
    // there in place of this subtree. The descriptor is borrowed: folders
    // stay open for the run, so each item costs one open of its own.
    Result OpenFolder(const Target &target, std::size_t count, int &fd, std::string &actual,
                      bool &skip) {
        fd = -1;
        skip = false;
        actual.clear();
        retired_.clear();  // no descriptor of an earlier call is still in use
        if (!SafeComponents(target.relative)) return kEngineUnsafeItemPath;
        int at = rootFd_;
        std::wstring key;
        for (std::size_t i = 0; i < count; ++i) {
            key += L"/" + target.relative[i];
            std::string name;
            auto decided = decided_.find(key);
            if (decided != decided_.end()) {
                if (decided->second.empty()) {
                    skip = true;
                    return kEngineOK;
                }
                name = decided->second;
            } else {
                std::string chosen;
                if (Result result =
                        DecideFolder(at, actual, Utf8(target.relative[i]), target.chain[i], chosen))
                    return result;
                decided_[key] = chosen;
                if (chosen.empty()) {
                    skip = true;
                    return kEngineOK;
                }
                name = chosen;
            }
            if (Result result = OpenedFolder(at, key, name, at)) return result;
            actual += (actual.empty() ? "" : "/") + name;
            if (i == 0) NoteTopLevel(name);
        }
        fd = at;
        return kEngineOK;
    }

    // The folder `name` in `parentFd`, opened without following a link the
    // first time it is asked for and kept open under `key` after that.
    Result OpenedFolder(int parentFd, const std::wstring &key, const std::string &name, int &fd) {
        auto open = openFolders_.find(key);
        if (open != openFolders_.end()) {
            fd = open->second->get();
            return kEngineOK;
        }
        auto opened = std::make_unique<UniqueFd>(
            openat(parentFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!opened->valid())
            return errno == ELOOP || errno == ENOTDIR ? kEngineUnsafeItemPath : LastErrno();
        // Bounded: an archive of very many folders reopens some of them.
        if (openFolders_.size() >= kOpenFoldersKept) ForgetOpenFolders();
        fd = opened->get();
        openFolders_.emplace(key, std::move(opened));
        return kEngineOK;
    }

    // A removal may take away a folder kept open, or let a link take its
    // name; the folders are opened afresh after one. The descriptors handed
    // out stay open until the next OpenFolder.
    void ForgetOpenFolders() {
        for (auto &open : openFolders_) retired_.push_back(std::move(open.second));
        openFolders_.clear();
    }

    Result RemoveExisting(int folderFd, const std::string &name) {
        ForgetOpenFolders();
        return RemoveAt(folderFd, name);
    }

    // Chooses the name a folder of the archive takes in `parentFd`; empty
    // when the subtree is skipped.
    Result DecideFolder(int parentFd, const std::string &parent, const std::string &name,
                        const std::shared_ptr<Node> &node, std::string &chosen) {
        std::string relative = parent.empty() ? name : parent + "/" + name;
        struct stat info {};
        if (fstatat(parentFd, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
            if (errno != ENOENT) return LastErrno();
            return MakeFolderAt(parentFd, parent, name, chosen);
        }
        if (CreatedHere(relative)) {
            if (!S_ISDIR(info.st_mode))
                return kEngineUnsafeItemPath;  // through a link this run made
            chosen = name;
            return kEngineOK;
        }
        std::int32_t answer = 0;
        if (Result result = Resolution(relative, node, answer)) return result;
        bool merge = (answer & kResolutionMergeFolders) != 0;
        std::int32_t method = answer & ~kResolutionMergeFolders;
        if (S_ISDIR(info.st_mode) && (merge || method == kResolutionReplaceIfNewer)) {
            chosen = name;
            return kEngineOK;
        }
        if (method == kResolutionKeepBoth)
            return MakeFolderAt(parentFd, parent, UniqueNameAt(parentFd, name), chosen);
        if (method == kResolutionReplace ||
            (method == kResolutionReplaceIfNewer && Newer(node, info))) {
            if (Result result = RemoveExisting(parentFd, name)) return result;
            return MakeFolderAt(parentFd, parent, name, chosen);
        }
        chosen.clear();  // keep what is there
        return kEngineOK;
    }

    Result MakeFolderAt(int parentFd, const std::string &parent, const std::string &name,
                        std::string &chosen) {
        if (mkdirat(parentFd, name.c_str(), 0777) != 0) return LastErrno();
        foldersMade_.push_back(parent.empty() ? name : parent + "/" + name);
        created_.insert(foldersMade_.back());
        chosen = name;
        return kEngineOK;
    }

    static bool Newer(const std::shared_ptr<Node> &node, const struct stat &existing) {
        if (!node->info.modified) return false;
        std::int64_t seconds;
        long nanoseconds;
        UnixFromFileTime(*node->info.modified, seconds, nanoseconds);
        return seconds > existing.st_mtim.tv_sec ||
               (seconds == existing.st_mtim.tv_sec && nanoseconds > existing.st_mtim.tv_nsec);
    }

    void NoteTopLevel(const std::string &name) {
        std::wstring wide = Wide(name);
        if (std::find(topLevel_.begin(), topLevel_.end(), wide) == topLevel_.end())
            topLevel_.push_back(wide);
    }

    Result PlaceFolder(const Target &target) {
        if (!SafeComponents(target.relative)) {
            NoteFailure(kEngineUnsafeItemPath);
            return kEngineOK;
        }
        int fd;
        std::string actual;
        bool skip;
        Result result = OpenFolder(target, target.relative.size(), fd, actual, skip);
        if (result == kEngineUnsafeItemPath) {
            NoteFailure(result);
            return kEngineOK;
        }
        return result;
    }

    // Places one stored item; a failure of this item alone is noted and the
    // walk goes on.
    Result Place(const Target &target, ReadCursor &data) {
        const Node &node = *target.node;
        if (Result stop = operation_.CurrentItem(node.Path())) return stop;
        if (UnsafeStoredPath(node) || target.relative.empty() || !SafeComponents(target.relative)) {
            NoteFailure(kEngineUnsafeItemPath);
            return Skipped(node);
        }
        if (node.IsFolder()) {
            Result result = PlaceFolder(target);
            if (result == kEngineOK && node.info.modified) folderTimes_.push_back(&target);
            return result;
        }
        int folderFd;
        std::string folder;
        bool skip;
        Result result = OpenFolder(target, target.relative.size() - 1, folderFd, folder, skip);
        if (result == kEngineUnsafeItemPath) {
            NoteFailure(result);
            return Skipped(node);
        }
        if (result != kEngineOK) return result;
        if (skip) return Skipped(node);
        return PlaceFile(target, folderFd, folder, data);
    }

    Result Skipped(const Node &node) {
        operation_.FileDone();
        operation_.AddRead(node.info.size);
        operation_.AddWritten(node.info.size);
        return operation_.Counters();
    }

    Result PlaceFile(const Target &target, int folderFd, const std::string &folder,
                     ReadCursor &data) {
        const Node &node = *target.node;
        std::string name = Utf8(target.relative.back());
        // A plain file is created at once; only when its name is taken does
        // the conflict get looked at, and then the file is created again.
        bool plain = !node.info.symlink && !node.info.hardlink;
        UniqueFd created;
        if (plain) {
            Result result = CreateFile(node, folderFd, name, created);
            if (result != kEngineOK && result != FromErrno(EEXIST)) return Finished(result);
        }
        struct stat existing {};
        if (!created.valid() &&
            fstatat(folderFd, name.c_str(), &existing, AT_SYMLINK_NOFOLLOW) == 0) {
            std::string relative = folder.empty() ? name : folder + "/" + name;
            std::int32_t answer = 0;
            if (Result result = Resolution(relative, target.node, answer)) return result;
            std::int32_t method = answer & ~kResolutionMergeFolders;
            if (method == kResolutionKeepBoth) {
                name = UniqueNameAt(folderFd, name);
            } else if (method == kResolutionReplace ||
                       (method == kResolutionReplaceIfNewer && Newer(target.node, existing))) {
                if (Result result = RemoveExisting(folderFd, name)) {
                    NoteFailure(result);
                    return Skipped(node);
                }
            } else {
                return Skipped(node);
            }
        }
        if (target.relative.size() == 1) NoteTopLevel(name);
        std::string relative = folder.empty() ? name : folder + "/" + name;
        Result result;
        if (node.info.symlink) {
            result = PlaceLink(target, folderFd, name);
        } else if (node.info.hardlink) {
            result = PlaceHardLink(target, folderFd, name);
        } else {
            if (!created.valid()) result = CreateFile(node, folderFd, name, created);
            if (created.valid()) result = WriteData(node, folderFd, name, created, data);
        }
        if (result == kEngineOK) {
            placed_[node.info.path] = relative;
            created_.insert(relative);
        }
        return Finished(result);
    }

    // Counts an item done; a failure of its own is noted, a fatal one ends
    // the walk.
    Result Finished(Result result) {
        if (Fatal(result)) return result;
        if (result != kEngineOK) NoteFailure(result);
        operation_.FileDone();
        return operation_.Counters();
    }

    static bool Fatal(Result result) {
        return result == kEngineCancelled || result == kEnginePasswordNeeded ||
               result == kEngineArchiveTruncated || result == kEngineCatalogueDamaged ||
               result == static_cast<Result>(112) || result == kEngineOutOfMemory;
    }

    Result PlaceLink(const Target &target, int folderFd, const std::string &name) {
        std::vector<std::wstring> linkFolder(target.relative.begin(), target.relative.end() - 1);
        if (!LinkStaysInside(linkFolder, target.node->info.linkTarget))
            return kEngineUnsafeItemPath;
        if (symlinkat(Utf8(target.node->info.linkTarget).c_str(), folderFd, name.c_str()) != 0)
            return LastErrno();
        return kEngineOK;
    }

    Result PlaceHardLink(const Target &target, int folderFd, const std::string &name) {
        auto found = placed_.find(CleanItemPath(target.node->info.linkTarget));
        if (found == placed_.end()) return kEngineItemKindUnsupported;
        if (linkat(rootFd_, found->second.c_str(), folderFd, name.c_str(), 0) != 0)
            return LastErrno();
        return kEngineOK;
    }

    static mode_t ModeOf(const Node &node) {
        return node.info.mode ? (node.info.mode & 0777) : 0666;
    }

    // A new file, never through a link; EEXIST when the name is taken.
    static Result CreateFile(const Node &node, int folderFd, const std::string &name,
                             UniqueFd &file) {
        int fd = openat(folderFd, name.c_str(),
                        O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, ModeOf(node) | 0600);
        if (fd < 0) return errno == ELOOP ? kEngineUnsafeItemPath : LastErrno();
        file.reset(fd);
        return kEngineOK;
    }

    // Fills a file made by CreateFile and closes it; removes it on failure.
    Result WriteData(const Node &node, int folderFd, const std::string &name, UniqueFd &file,
                     ReadCursor &data) {
        mode_t mode = ModeOf(node);
        int fd = file.release();
        Result result = Copy(node, data, fd);
        if (result == kEngineOK && node.info.resourceFork)
            result = PlaceResourceFork(*node.info.resourceFork, fd, folderFd, name);
        if (result == kEngineOK && node.info.modified) SetTime(fd, *node.info.modified);
        if (result == kEngineOK && (mode & 0600) != 0600) fchmod(fd, mode & ~CurrentUmask());
        if (close(fd) != 0 && result == kEngineOK) result = LastErrno();
        if (result != kEngineOK) unlinkat(folderFd, name.c_str(), 0);
        return result;
    }

    // A Mac resource fork, as "preserveMacResource" says: 1 an AppleDouble
    // "._name" file beside the item, 2 an extended attribute of it (where the
    // file system keeps none, it is left out), 0 not at all.
    Result PlaceResourceFork(const std::vector<std::uint8_t> &fork, int fd, int folderFd,
                             const std::string &name) {
        if (settings_.preserveMacResource == 2) {
            if (fsetxattr(fd, "user.com.apple.ResourceFork", fork.data(), fork.size(), 0) != 0 &&
                errno != ENOTSUP)
                return LastErrno();
            return kEngineOK;
        }
        if (settings_.preserveMacResource != 1) return kEngineOK;
        std::string sidecar = "._" + name;
        unlinkat(folderFd, sidecar.c_str(), 0);
        int out = openat(folderFd, sidecar.c_str(),
                         O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
        if (out < 0) return LastErrno();
        std::vector<std::uint8_t> bytes = AppleDouble(fork);
        Result result = WriteAll(out, bytes.data(), bytes.size());
        if (close(out) != 0 && result == kEngineOK) result = LastErrno();
        return result;
    }

    // Decodes into one buffer while the last one is written ("useThreads").
    // An item that fits one buffer is written here: handing it to the
    // writer thread costs more than the write.
    Result Copy(const Node &node, ReadCursor &data, int fd) {
        bool small = node.info.size <= buffer_.size();
        Result result = kEngineOK;
        for (;;) {
            std::size_t got = 0;
            const void *view = nullptr;
            result = small ? data.ReadView(buffer_.data(), buffer_.size(), view, got)
                           : data.Read(buffer_.data(), buffer_.size(), got);
            if (result != kEngineOK || got == 0) break;
            operation_.AddRead(got);
            result = small ? WriteAll(fd, view, got) : writer_.Write(fd, buffer_, got);
            if (result != kEngineOK) break;
            operation_.AddWritten(got);
            if ((result = operation_.Work(got)) != kEngineOK) break;
            if ((result = operation_.Counters()) != kEngineOK) break;
        }
        Result written = writer_.Finish();
        return result != kEngineOK ? result : written;
    }

    // A cancelled run takes back the folders it made that stayed empty (say
    // the password was refused before the first file); whatever holds
    // anything stays. Children were made after their parents, so going
    // backwards a folder emptied by the removal of its own goes too.
    void RemoveEmptyFoldersMade() {
        for (auto made = foldersMade_.rbegin(); made != foldersMade_.rend(); ++made) {
            std::size_t slash = made->find_last_of('/');
            bool top = slash == std::string::npos;
            UniqueFd parent(OpenBelowDestination(top ? std::string() : made->substr(0, slash)));
            // Only an empty folder goes: a full one refuses.
            if (parent.valid())
                unlinkat(parent.get(), made->c_str() + (top ? 0 : slash + 1), AT_REMOVEDIR);
        }
    }

    // The folder at `relative` in the destination, opened without following
    // a link on the way; -1 when it cannot be.
    int OpenBelowDestination(const std::string &relative) const {
        int fd = dup(rootFd_);
        for (std::size_t at = 0; fd >= 0 && at < relative.size();) {
            std::size_t end = std::min(relative.find('/', at), relative.size());
            int next = openat(fd, relative.substr(at, end - at).c_str(),
                              O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            close(fd);
            fd = next;
            at = end + 1;
        }
        return fd;
    }

    static void SetTime(int fd, EngineDateTime modified) {
        std::int64_t seconds;
        long nanoseconds;
        UnixFromFileTime(modified, seconds, nanoseconds);
        struct timespec times[2] = {{0, UTIME_OMIT}, {static_cast<time_t>(seconds), nanoseconds}};
        futimens(fd, times);
    }

    Result SetFolderTimes() {
        // Deepest first, so that setting a folder's time is the last change in it.
        std::sort(folderTimes_.begin(), folderTimes_.end(), [](const Target *a, const Target *b) {
            return a->relative.size() > b->relative.size();
        });
        for (const Target *target : folderTimes_) {
            int fd;
            std::string actual;
            bool skip;
            if (OpenFolder(*target, target->relative.size(), fd, actual, skip) != kEngineOK ||
                fd < 0)
                continue;
            SetTime(fd, *target->node->info.modified);
        }
        return kEngineOK;
    }

    OpaqueEngineArchive &archive_;
    Operation &operation_;
    EngineSettings settings_;
    std::wstring destination_;
    int rootFd_ = -1;
    std::vector<Target> targets_;
    static constexpr std::size_t kOpenFoldersKept = 512;
    std::map<std::wstring, std::unique_ptr<UniqueFd>> openFolders_;  // archive folder -> open
    std::vector<std::unique_ptr<UniqueFd>> retired_;
    std::map<std::wstring, std::string> decided_;  // archive folder -> name on disk, empty: skipped
    std::set<std::string> created_;                // items this run made
    std::vector<std::string> foldersMade_;         // in the order they were made
    std::map<std::wstring, std::string> placed_;   // stored path -> where it went
    std::vector<std::wstring> topLevel_;
    std::vector<const Target *> folderTimes_;
    std::vector<char> buffer_ = std::vector<char>(256 * 1024);
    BackgroundWriter writer_{operation_.settings().useThreads};
    Result itemFailure_ = kEngineOK;
};

}  // namespace

Result ExpandItems(OpaqueEngineArchive &archive, Operation &operation,
                   const std::vector<std::shared_ptr<Node>> &chosen,
                   const std::wstring &destination, const std::wstring &password,
                   std::vector<std::wstring> &outputs) {
    std::wstring folder = destination;
    if (folder.empty()) {
        const std::wstring &path = archive.file->path;
        std::size_t slash = path.find_last_of(L'/');
        folder = slash == 0 ? L"/" : path.substr(0, slash);
    }
    Expander expander(archive, operation, folder);
    return expander.Run(chosen, password, outputs);
}

}  // namespace engine
