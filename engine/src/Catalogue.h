// The items of an open archive as a tree: what listing a format yields, and
// what the ArchiveObject handles point into.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VarnickEngine.h"

namespace engine {

inline constexpr std::size_t kNoIndex = static_cast<std::size_t>(-1);

// What a format keeps of an item's stored form, so that a writer of the
// same format can copy the data as it is (a zip item's place and method).
struct StoredData {
    virtual ~StoredData() = default;
};

// One item as a format stores it.
struct ItemInfo {
    std::string rawPath;  // the stored path, bytes as found (to match on a later pass)
    std::wstring path;    // decoded, "/"-separated, without leading "/" or "./"
    bool folder = false;
    bool symlink = false;
    bool hardlink = false;
    std::wstring linkTarget;
    bool encrypted = false;
    std::uint64_t size = 0;
    bool sizeKnown = true;
    std::optional<std::uint64_t> compressedSize;
    std::optional<EngineDateTime> modified;
    std::uint32_t mode = 0;  // POSIX permission bits when the format keeps them, else 0
    std::optional<std::wstring> comment;
    std::shared_ptr<const StoredData> stored;
    // A Mac resource fork the format keeps beside the data ("rsrc").
    std::shared_ptr<const std::vector<std::uint8_t>> resourceFork;
    // The size of an embedded JPEG thumbnail ("thumb"), read on demand
    // through ReadCursor::SelectFork.
    std::optional<std::uint64_t> thumbnailSize;
};

// A node of the tree. Folders that the format does not store as items of
// their own ("a/b" holding "a/b/c" only) are implicit: no stored index.
struct Node {
    std::wstring name;
    std::weak_ptr<Node> parent;  // empty for the root
    bool isRoot = false;
    std::vector<std::shared_ptr<Node>> children;
    ItemInfo info;
    std::size_t storedIndex = kNoIndex;
    bool removed = false;

    bool IsFolder() const { return info.folder; }
    bool Implicit() const { return storedIndex == kNoIndex; }
    // Path from the root, "/"-separated; empty for the root.
    std::wstring Path() const;
    std::shared_ptr<Node> Child(const std::wstring &childName) const;
};

class Catalogue {
public:
    Catalogue();

    // Rebuilds the tree from the items of a listing, in stored order.
    void Build(std::vector<ItemInfo> items);

    const std::shared_ptr<Node> &Root() const { return root_; }
    // The node at a "/"-separated path; the root for an empty path.
    std::shared_ptr<Node> Find(const std::wstring &path) const;
    // Every node holding a stored item, by stored index.
    const std::vector<std::shared_ptr<Node>> &Stored() const { return stored_; }
    std::shared_ptr<Node> StoredNode(std::size_t index) const;

    // Takes a tree made elsewhere (after a rewrite) as the catalogue.
    void Adopt(std::shared_ptr<Node> root, std::vector<std::shared_ptr<Node>> stored);

    // Walks the subtree of `node` (the node included) depth first.
    template <class Visit>
    static void Walk(const std::shared_ptr<Node> &node, Visit &&visit) {
        visit(node);
        for (const auto &child : node->children) Walk(child, visit);
    }

    std::optional<std::wstring> comment;  // the archive's own comment, if the format keeps one
    bool anyEncrypted = false;

private:
    std::shared_ptr<Node> FolderFor(const std::vector<std::wstring> &components, std::size_t count);

    std::shared_ptr<Node> root_;
    std::vector<std::shared_ptr<Node>> stored_;
};

// Splits a "/"-separated path into components, dropping empty ones and ".".
std::vector<std::wstring> SplitItemPath(const std::wstring &path);
// The decoded path a format's stored name stands for: leading "/" and "./"
// removed, "\" kept as an ordinary character, a trailing "/" dropped.
std::wstring CleanItemPath(const std::wstring &path);

}  // namespace engine
