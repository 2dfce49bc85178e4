// Creating, changing, transforming and verifying archives on top of the
// plan and the drivers.
#include "Changes.h"

#include <sys/stat.h>
#include <unistd.h>

#include "FileSystem.h"
#include "Plan.h"
#include "Sniff.h"
#include "platform/WideText.h"

namespace engine {
namespace {

bool HasExtension(const std::wstring &path) {
    std::size_t slash = path.find_last_of(L'/');
    std::size_t dot = path.find_last_of(L'.');
    return dot != std::wstring::npos && dot > (slash == std::wstring::npos ? 0 : slash + 1);
}

std::wstring WithoutExtension(const std::wstring &path) {
    if (!HasExtension(path)) return path;
    std::wstring stem = path.substr(0, path.find_last_of(L'.'));
    if (platform::EndsWithNoCase(stem, L".tar")) stem.resize(stem.size() - 4);
    return stem;
}

// The stream compressor a tar archive lies in, kept when it is rewritten.
std::string PostEncodingOf(const std::string &path) {
    SniffInput input(path);
    return sniff::StreamId(input.Head());
}

struct Written {
    std::string temporary;
    ~Written() {
        if (!temporary.empty()) unlink(temporary.c_str());
    }
};

// How a plan is written: by which driver into what, from which archive.
struct PlanWrite {
    const Driver *driver = nullptr;
    std::string formatId;
    std::string target;                     // the file the result replaces
    OpaqueEngineArchive *source = nullptr;  // whose stored items the plan holds
    PasswordSource *passwords = nullptr;
    std::wstring password;  // for the items written anew
    std::string postEncoding;
    std::optional<std::wstring> comment;
    bool copyStored = false;  // stored items go over as they are
};

// Writes the plan's items into a temporary file beside the target; on
// success the temporary's name is handed to the caller.
Result WritePlan(Operation &operation, const PlanWrite &how, const std::vector<PlanNode *> &items,
                 std::string &temporary) {
    Written file;
    if (Result result = TemporaryBeside(how.target, file.temporary)) return result;
    std::uint64_t files = 0, bytes = 0;
    for (const PlanNode *node : items) {
        if (node->Folder()) continue;
        ++files;
        bytes += node->info.size;
    }
    operation.SetTotals(files, bytes);
    if (Result stop = operation.Counters(true)) return stop;
    WriteRequest request;
    request.path = file.temporary;
    request.formatId = how.formatId;
    request.format = operation.session().FormatProperties(how.formatId);
    request.postEncoding = how.postEncoding;
    request.postEncodingFormat = operation.session().FormatProperties(how.postEncoding);
    request.password = Utf8(how.password);
    request.comment = how.comment;
    request.threads = operation.settings().useThreads;
    request.operation = &operation;
    PlanFeed feed(items, operation, how.source, how.passwords, how.copyStored,
                  how.driver->LargeItemsFirstFrom(how.formatId));
    if (Result result = how.driver->Write(request, feed)) return result;
    if (Result stop = operation.FinishCounters()) return stop;
    // A new file takes the usual permissions; a rewritten one keeps its own.
    struct stat info {};
    mode_t mode =
        stat(how.target.c_str(), &info) == 0 ? info.st_mode & 07777 : 0666 & ~CurrentUmask();
    chmod(file.temporary.c_str(), mode);
    temporary = file.temporary;
    file.temporary.clear();
    return kEngineOK;
}

Result DeleteSources(const std::vector<std::string> &paths) {
    // Files first, then the folders, deepest first, each only when empty.
    std::vector<std::string> folders;
    for (const auto &path : paths) {
        struct stat info {};
        if (lstat(path.c_str(), &info) != 0) continue;
        if (S_ISDIR(info.st_mode))
            folders.push_back(path);
        else
            unlink(path.c_str());
    }
    std::sort(folders.begin(), folders.end(),
              [](const std::string &a, const std::string &b) { return a.size() > b.size(); });
    for (const auto &folder : folders) rmdir(folder.c_str());
    return kEngineOK;
}

// The password the items of an enciphered archive were written with, asked
// for before a rewrite that must encipher them again.
Result LearnPassword(OpaqueEngineArchive &archive, Operation &operation,
                     const std::wstring &given) {
    if (!archive.catalogue.anyEncrypted || !given.empty() || !archive.password.empty())
        return kEngineOK;
    std::shared_ptr<Node> probe;
    for (const auto &node : archive.catalogue.Stored())
        if (node && node->info.encrypted && !node->IsFolder() &&
            (!probe || node->info.size < probe->info.size))
            probe = node;
    if (!probe) return kEngineOK;
    ItemPasswords passwords(archive, operation, given);
    std::vector<bool> wanted(archive.catalogue.Stored().size(), false);
    wanted[probe->storedIndex] = true;
    std::vector<char> buffer(64 * 1024);
    return ReadStored(archive, operation, &passwords, wanted,
                      [&](std::size_t, const ItemInfo &, ReadCursor &data) -> Result {
                          for (;;) {
                              std::size_t got = 0;
                              if (Result result = data.Read(buffer.data(), buffer.size(), got))
                                  return result;
                              if (got == 0) return kEngineOK;
                          }
                      });
}

// Writes the plan as the archive's new present state: into a new pending
// file, the catalogue following on success. A zip's items are copied as
// they are stored, their encryption with them; other formats are decoded
// and encoded again, and an enciphered one enciphered again with its
// password (asked for first when unknown).
Result Rewrite(OpaqueEngineArchive &archive, Operation &operation, Plan &plan,
               const std::wstring &password) {
    if (Result refused = Changeable(archive)) return refused;
    bool copy =
        archive.driver->KeepsStoredForm(archive.formatId, archive.CurrentPath(),
                                        operation.session().FormatProperties(archive.formatId));
    if (!copy) {
        if (Result result = LearnPassword(archive, operation, password)) return result;
    }
    PlanWrite how;
    how.driver = archive.driver;
    how.formatId = archive.formatId;
    how.target = archive.file->Native();
    how.source = &archive;
    how.password = !password.empty() || copy        ? password
                   : archive.catalogue.anyEncrypted ? archive.password
                                                    : L"";
    how.postEncoding =
        archive.formatId == "tar" ? PostEncodingOf(archive.CurrentPath()) : std::string();
    how.comment = plan.comment;
    how.copyStored = copy;
    std::vector<PlanNode *> items = plan.Flatten();
    ItemPasswords passwords(archive, operation, password);
    how.passwords = &passwords;
    std::string temporary;
    if (Result result = WritePlan(operation, how, items, temporary)) return result;
    std::vector<ItemInfo> listed;
    std::optional<std::wstring> comment;
    if (Result unreadable = ListItems(archive, operation, temporary, listed, &comment)) {
        unlink(temporary.c_str());
        return unreadable;
    }
    if (!archive.pending.empty()) unlink(archive.pending.c_str());
    archive.pending = temporary;
    ApplyPlan(archive.catalogue, plan, std::move(listed));
    archive.catalogue.comment = comment;
    return kEngineOK;
}

bool ValidItemName(const std::wstring &name) {
    return !name.empty() && name != L"." && name != L".." && name.find(L'/') == std::wstring::npos;
}

}  // namespace

Result Changeable(const OpaqueEngineArchive &archive) {
    if (!archive.driver ||
        archive.driver->MaximumAccessMode(archive.formatId) != kEngineAccessChange ||
        !archive.driver->CanWrite(archive.formatId))
        return kEngineReadOnlyMedium;
    std::string path = archive.file->Native();
    if (access(path.c_str(), W_OK) != 0 || access(ParentOf(path).c_str(), W_OK) != 0)
        return kEngineReadOnlyMedium;
    return kEngineOK;
}

Result CreateArchive(Operation &operation, const std::string &formatId,
                     const std::vector<Ref<OpaqueFSObject>> &sources, const std::wstring &output,
                     const std::wstring &password, std::wstring &written) {
    const Driver *driver = DriverFor(formatId);
    if (!driver) return kEngineWrongFormat;
    if (!driver->CanWrite(formatId)) return kEngineNotImplemented;
    std::string postEncoding =
        formatId == "tar" ? operation.settings().postEncodingFormat : std::string();
    std::wstring target = output;
    if (!HasExtension(target)) target += driver->Extension(formatId, postEncoding);
    Plan plan(operation, nullptr);
    if (Result result = plan.AddSources(plan.Root(), sources)) return result;
    std::vector<PlanNode *> items = plan.Flatten();
    std::string native = Utf8(target);
    PlanWrite how;
    how.driver = driver;
    how.formatId = formatId;
    how.target = native;
    how.password = password;
    how.postEncoding = postEncoding;
    std::string temporary;
    if (Result result = WritePlan(operation, how, items, temporary)) return result;
    if (Result result = PutInPlace(temporary, native)) return result;
    written = target;
    if (operation.settings().deleteAction == 1) DeleteSources(plan.DiskSources());
    return kEngineOK;
}

Result CreateEmptyArchive(Operation &operation, const std::string &formatId,
                          const std::string &path) {
    const Driver *driver = DriverFor(formatId);
    if (!driver) return kEngineWrongFormat;
    if (!driver->CanWrite(formatId)) return kEngineNotImplemented;
    if (driver->SingleItem(formatId)) return kEngineItemKindUnsupported;
    std::string postEncoding =
        formatId == "tar" ? operation.settings().postEncodingFormat : std::string();
    PlanWrite how;
    how.driver = driver;
    how.formatId = formatId;
    how.target = path;
    how.postEncoding = postEncoding;
    std::string temporary;
    if (Result result = WritePlan(operation, how, {}, temporary)) return result;
    if (Result result = PutInPlace(temporary, path)) return result;
    return kEngineOK;
}

Result AddItems(OpaqueEngineArchive &archive, Operation &operation,
                const std::shared_ptr<Node> &folder,
                const std::vector<Ref<OpaqueFSObject>> &sources, const std::wstring &password,
                std::vector<std::shared_ptr<Node>> &added) {
    if (!folder->IsFolder()) return kEngineInvalidParameter;
    Plan plan(operation, &archive);
    plan.TakeCatalogue(archive.catalogue);
    PlanNode *into = plan.Find(folder);
    if (!into) return kEngineNoMoreObjects;
    std::size_t before = into->children.size();
    std::vector<PlanNode *> existing;
    for (auto &child : into->children) existing.push_back(child.get());
    if (Result result = plan.AddSources(*into, sources)) return result;
    if (Result result = Rewrite(archive, operation, plan, password)) return result;
    // What was added lies in the folder now: its new children.
    (void)before;
    for (auto &child : into->children)
        if (std::find(existing.begin(), existing.end(), child.get()) == existing.end())
            added.push_back(child->node);
    if (operation.settings().deleteAction == 1) DeleteSources(plan.DiskSources());
    return kEngineOK;
}

Result AddFolder(OpaqueEngineArchive &archive, Operation &operation,
                 const std::shared_ptr<Node> &parent, const std::wstring &name,
                 std::shared_ptr<Node> &created) {
    if (!parent->IsFolder() || !ValidItemName(name)) return kEngineInvalidParameter;
    Plan plan(operation, &archive);
    plan.TakeCatalogue(archive.catalogue);
    PlanNode *into = plan.Find(parent);
    if (!into) return kEngineNoMoreObjects;
    if (PlanNode *existing = into->Child(name)) {
        if (!existing->Folder()) return kEngineDuplicateItem;
        created = existing->node;
        if (!existing->entry) {
            // An implicit folder becomes an item of its own.
            existing->entry = true;
            existing->source = PlanNode::Source::None;
            existing->order = {1, 0};
            return Rewrite(archive, operation, plan, L"");
        }
        return kEngineOK;
    }
    PlanNode &folder = plan.AddFolder(*into, name);
    if (Result result = Rewrite(archive, operation, plan, L"")) return result;
    created = folder.node;
    return kEngineOK;
}

Result DeleteItems(OpaqueEngineArchive &archive, Operation &operation,
                   const std::vector<std::shared_ptr<Node>> &items, const std::wstring &password) {
    Plan plan(operation, &archive);
    plan.TakeCatalogue(archive.catalogue);
    for (const auto &node : items) {
        if (node->isRoot) return kEngineInvalidParameter;
        if (PlanNode *planned = plan.Find(node)) plan.Remove(*planned);
    }
    return Rewrite(archive, operation, plan, password);
}

Result RenameItem(OpaqueEngineArchive &archive, Operation &operation,
                  const std::shared_ptr<Node> &item, const std::wstring &name) {
    if (!ValidItemName(name)) return kEngineInvalidParameter;
    Plan plan(operation, &archive);
    plan.TakeCatalogue(archive.catalogue);
    PlanNode *planned = plan.Find(item);
    if (!planned) return kEngineNoMoreObjects;
    if (planned->name == name) return kEngineOK;
    if (planned->parent->Child(name)) return kEngineDuplicateItem;
    planned->name = name;
    return Rewrite(archive, operation, plan, L"");
}

Result SetComment(OpaqueEngineArchive &archive, Operation &operation,
                  const std::shared_ptr<Node> &item, const std::wstring &comment) {
    if (!archive.driver->KeepsComments(archive.formatId)) return kEnginePropertyNotApplicable;
    Plan plan(operation, &archive);
    plan.TakeCatalogue(archive.catalogue);
    std::optional<std::wstring> text;
    if (!comment.empty()) text = comment;
    if (item->isRoot) {
        plan.comment = text;
    } else {
        PlanNode *planned = plan.Find(item);
        if (!planned) return kEngineNoMoreObjects;
        planned->info.comment = text;
    }
    return Rewrite(archive, operation, plan, L"");
}

Result Transform(Operation &operation, const std::wstring &source, const std::wstring &destination,
                 const std::string &formatId, const std::wstring &oldPassword,
                 const std::wstring &newPassword, std::wstring &written) {
    const Driver *driver = DriverFor(formatId);
    if (!driver) return kEngineWrongFormat;
    if (!driver->CanWrite(formatId)) return kEngineNotImplemented;
    Ref<OpaqueEngineArchive> archive = MakeRef<OpaqueEngineArchive>(
        Ref<Session>::Share(&operation.session()), NewFSObject(source));
    archive->password = oldPassword;
    if (Result result = LoadCatalogue(*archive, operation)) return result;
    std::wstring target = destination;
    if (target.empty()) {
        target = Wide(UniquePath(Utf8(WithoutExtension(source) + driver->Extension(formatId, ""))));
    } else if (!HasExtension(target)) {
        target += driver->Extension(formatId, "");
    }
    Plan plan(operation, archive.get());
    plan.TakeCatalogue(archive->catalogue);
    std::vector<PlanNode *> items = plan.Flatten();
    ItemPasswords passwords(*archive, operation, oldPassword);
    std::string native = Utf8(target);
    PlanWrite how;
    how.driver = driver;
    how.formatId = formatId;
    how.target = native;
    how.source = archive.get();
    how.passwords = &passwords;
    how.password = newPassword;
    how.comment = archive->catalogue.comment;
    std::string temporary;
    if (Result result = WritePlan(operation, how, items, temporary)) return result;
    if (Result result = PutInPlace(temporary, native)) return result;
    written = target;
    return kEngineOK;
}

Result VerifyItems(OpaqueEngineArchive &archive, Operation &operation,
                   const std::wstring &password) {
    if (Result result = LoadCatalogue(archive, operation)) return result;
    std::uint64_t files = 0, bytes = 0;
    std::vector<bool> wanted(archive.catalogue.Stored().size(), false);
    for (const auto &node : archive.catalogue.Stored()) {
        if (!node || node->IsFolder() || node->info.symlink || node->info.hardlink) continue;
        wanted[node->storedIndex] = true;
        ++files;
        bytes += node->info.size;
    }
    operation.SetTotals(files, bytes);
    if (Result stop = operation.Counters(true)) return stop;
    ItemPasswords passwords(archive, operation, password);
    std::vector<char> buffer(256 * 1024);
    Result damaged = kEngineOK;
    Result result = ReadStored(
        archive, operation, &passwords, wanted,
        [&](std::size_t index, const ItemInfo &, ReadCursor &data) -> Result {
            if (Result stop = operation.CurrentItem(archive.catalogue.Stored()[index]->Path()))
                return stop;
            for (;;) {
                std::size_t got = 0;
                Result read = data.Read(buffer.data(), buffer.size(), got);
                if (read == kEngineItemDataDamaged) {
                    if (damaged == kEngineOK) damaged = read;
                    break;
                }
                if (read != kEngineOK) return read;
                if (got == 0) break;
                operation.AddRead(got);
                operation.AddWritten(got);
                if (Result stop = operation.Verifying(got)) return stop;
                if (Result stop = operation.Counters()) return stop;
            }
            operation.FileDone();
            return operation.Counters();
        });
    if (result == kEngineOK) result = operation.FinishCounters();
    return result != kEngineOK ? result : damaged;
}

}  // namespace engine
