// The plan of a new archive: a tree of what goes in (sources on disk, items
// of the present archive, new folders), with the duplicate rule applied as
// sources are added. Written in a fixed order: the present archive's items
// in their stored order, then what was added, in the order it was added.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Archive.h"
#include "Driver.h"
#include "Operation.h"

namespace engine {

struct PlanNode {
    enum class Source { None, Disk, Stored };

    std::wstring name;
    PlanNode *parent = nullptr;
    std::vector<std::unique_ptr<PlanNode>> children;
    bool entry = false;  // written as an item of its own (else an implicit folder)
    Source source = Source::None;
    std::string diskPath;
    std::size_t storedIndex = kNoIndex;
    ItemInfo info;
    bool storeOnly = false;
    std::shared_ptr<Node> node;  // the catalogue node this continues
    std::pair<int, std::uint64_t> order{2, 0};

    bool Folder() const { return info.folder; }
    // A file of its own: it has data to write (not a folder or a link).
    bool HasData() const { return !info.folder && !info.symlink && !info.hardlink; }
    std::wstring Path() const;
    PlanNode *Child(const std::wstring &childName) const;
};

class Plan {
public:
    Plan(Operation &operation, OpaqueEngineArchive *archive);

    PlanNode &Root() { return root_; }
    // The present archive's items, as they stand.
    void TakeCatalogue(const Catalogue &catalogue);
    // Adds sources (files, links and folder trees) below `folder`, asking the
    // compression filters and applying "duplicateResolution".
    Result AddSources(PlanNode &folder, const std::vector<Ref<OpaqueFSObject>> &sources);
    PlanNode &AddFolder(PlanNode &parent, const std::wstring &name);
    void Remove(PlanNode &node);
    PlanNode *Find(const std::shared_ptr<Node> &node);

    std::optional<std::wstring> comment;  // the archive's own

    // The items to write, in writing order.
    std::vector<PlanNode *> Flatten();
    // What was read from disk, for "deleteAction".
    const std::vector<std::string> &DiskSources() const { return diskSources_; }

private:
    Result AddOne(PlanNode &folder, const std::string &path, const std::wstring &name, bool top);
    Result AddChildren(PlanNode &folder, const std::string &path);
    Result Admitted(const std::string &path, bool &admitted);
    Result Duplicate(PlanNode &existing, const std::string &path, const struct stat &incoming,
                     std::int32_t &resolution);
    std::unique_ptr<PlanNode> FromDisk(const std::string &path, const std::wstring &name,
                                       const struct stat &info);

    Operation &operation_;
    OpaqueEngineArchive *archive_;
    Ref<OpaqueEngineArchive> transient_;
    std::vector<Ref<OpaqueCompressionFilter>> filters_;
    PlanNode root_;
    std::uint64_t sequence_ = 0;
    std::vector<std::string> diskSources_;
};

// Feeds the plan's items to a writer: files from disk, stored items from the
// present archive (one pass over it, in stored order).
class PlanFeed final : public ItemFeed {
public:
    // `copyStored`: an item of the archive that its format can copy as it is
    // stored goes over that way, neither decoded nor deciphered.
    // `largeFirstFrom`: files from disk of at least that size come first
    // (0: the items' order); stored items keep theirs.
    PlanFeed(std::vector<PlanNode *> items, Operation &operation, OpaqueEngineArchive *archive,
             PasswordSource *passwords, bool copyStored = false, std::uint64_t largeFirstFrom = 0);
    ~PlanFeed() override;
    Result Next(WriteItem &item) override;
    std::optional<std::uint64_t> BytesAhead() const override { return ahead_[next_]; }

private:
    class DiskData;
    class StoredData;

    Result MoveCursorTo(std::size_t index);

    std::vector<PlanNode *> items_;
    std::vector<std::size_t> order_;    // positions in items_, in the order fed
    std::vector<std::uint64_t> ahead_;  // data from order_[k] on, and 0 after the last
    std::size_t next_ = 0;
    Operation &operation_;
    OpaqueEngineArchive *archive_;
    PasswordSource *passwords_;
    bool copyStored_;
    std::unique_ptr<ReadCursor> cursor_;
    std::size_t cursorIndex_ = kNoIndex;
    std::unique_ptr<DataSource> data_;
    int fd_ = -1;
};

// Lays the written plan into the archive's catalogue, keeping the nodes
// that item handles point to; `listed` is the listing of what was written.
void ApplyPlan(Catalogue &catalogue, Plan &plan, std::vector<ItemInfo> listed);

}  // namespace engine
