#include "Catalogue.h"

namespace engine {

std::wstring Node::Path() const {
    if (isRoot) return {};
    std::shared_ptr<Node> up = parent.lock();
    std::wstring above = up ? up->Path() : std::wstring();
    return above.empty() ? name : above + L"/" + name;
}

std::shared_ptr<Node> Node::Child(const std::wstring &childName) const {
    for (const auto &child : children)
        if (!child->removed && child->name == childName) return child;
    return nullptr;
}

std::vector<std::wstring> SplitItemPath(const std::wstring &path) {
    std::vector<std::wstring> parts;
    std::size_t start = 0;
    while (start <= path.size()) {
        std::size_t end = path.find(L'/', start);
        if (end == std::wstring::npos) end = path.size();
        std::wstring part = path.substr(start, end - start);
        if (!part.empty() && part != L".") parts.push_back(std::move(part));
        start = end + 1;
    }
    return parts;
}

std::wstring CleanItemPath(const std::wstring &path) {
    std::wstring joined;
    for (const auto &part : SplitItemPath(path)) {
        if (!joined.empty()) joined += L'/';
        joined += part;
    }
    return joined;
}

namespace {

std::shared_ptr<Node> NewRoot() {
    auto root = std::make_shared<Node>();
    root->info.folder = true;
    root->isRoot = true;
    return root;
}

}  // namespace

Catalogue::Catalogue() : root_(NewRoot()) {}

std::shared_ptr<Node> Catalogue::FolderFor(const std::vector<std::wstring> &components,
                                           std::size_t count) {
    std::shared_ptr<Node> folder = root_;
    for (std::size_t i = 0; i < count; ++i) {
        std::shared_ptr<Node> next = folder->Child(components[i]);
        if (!next || !next->IsFolder()) {
            next = std::make_shared<Node>();
            next->name = components[i];
            next->parent = folder;
            next->info.folder = true;
            next->info.path = CleanItemPath(folder->Path() + L"/" + components[i]);
            folder->children.push_back(next);
        }
        folder = next;
    }
    return folder;
}

void Catalogue::Build(std::vector<ItemInfo> items) {
    root_ = NewRoot();
    stored_.assign(items.size(), nullptr);
    anyEncrypted = false;
    for (std::size_t index = 0; index < items.size(); ++index) {
        ItemInfo &info = items[index];
        anyEncrypted = anyEncrypted || info.encrypted;
        std::vector<std::wstring> parts = SplitItemPath(info.path);
        if (parts.empty()) continue;  // a stored root ("./") adds nothing
        std::shared_ptr<Node> parent = FolderFor(parts, parts.size() - 1);
        std::shared_ptr<Node> existing = parent->Child(parts.back());
        std::shared_ptr<Node> node;
        if (info.folder && existing && existing->IsFolder() && existing->Implicit()) {
            node = existing;  // the folder's own entry comes after its contents
        } else {
            node = std::make_shared<Node>();
            node->name = parts.back();
            node->parent = parent;
            parent->children.push_back(node);
        }
        node->info = std::move(info);
        node->storedIndex = index;
        stored_[index] = node;
    }
}

void Catalogue::Adopt(std::shared_ptr<Node> root, std::vector<std::shared_ptr<Node>> stored) {
    root_ = std::move(root);
    root_->isRoot = true;
    root_->info.folder = true;
    stored_ = std::move(stored);
    anyEncrypted = false;
    for (const auto &node : stored_)
        if (node) anyEncrypted = anyEncrypted || node->info.encrypted;
}

std::shared_ptr<Node> Catalogue::Find(const std::wstring &path) const {
    std::shared_ptr<Node> node = root_;
    for (const auto &part : SplitItemPath(path)) {
        node = node->Child(part);
        if (!node) return nullptr;
    }
    return node;
}

std::shared_ptr<Node> Catalogue::StoredNode(std::size_t index) const {
    return index < stored_.size() ? stored_[index] : nullptr;
}

}  // namespace engine
