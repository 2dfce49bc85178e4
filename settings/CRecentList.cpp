#include "CRecentList.h"

#include <algorithm>
#include <string>

#include "OptionStore.h"
#include "platform/Win32.h"

namespace {

constexpr const wchar_t *kRecentListKey = L"\\RecentList";
constexpr const wchar_t *kRecentListSize = L"RecentListSize";

std::wstring IndexName(std::size_t index) { return std::to_wstring(index); }

bool FileIsGone(const std::wstring &path) {
    return GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES;
}

}  // namespace

CRecentList::CRecentList() {
    optionstore::OptionKey root(L"", true);
    root.Read(kRecentListSize, limit_);
    Read();
}

CRecentList::~CRecentList() = default;

void CRecentList::Read() {
    items_.clear();
    optionstore::OptionKey key(kRecentListKey, true);
    for (DWORD index = 0; index < limit_; ++index) {
        const std::wstring name = IndexName(index);
        std::wstring path;
        if (!key.Read(name.c_str(), path)) continue;
        if (FileIsGone(path)) {
            key.Registry().RemoveName(name.c_str());
            continue;
        }
        items_.push_back(path);
    }
}

void CRecentList::Save() {
    if (items_.empty()) return;
    optionstore::OptionKey key(kRecentListKey, true);
    for (std::size_t index = GetSize(); index-- > 0;)
        key.Write(IndexName(index).c_str(), items_[index]);
}

void CRecentList::Add(const wchar_t *path) {
    const std::wstring added = path ? path : L"";
    items_.insert(items_.begin(), added);
    auto older = std::find_if(items_.begin() + 1, items_.end(), [&](const std::wstring &item) {
        return platform::EqualsNoCase(item, added);
    });
    if (older != items_.end()) items_.erase(older);
}

void CRecentList::Remove(const wchar_t *path) {
    const std::wstring removed = path ? path : L"";
    auto found = std::find_if(items_.begin(), items_.end(), [&](const std::wstring &item) {
        return platform::EqualsNoCase(item, removed);
    });
    if (found != items_.end()) items_.erase(found);
}

void CRecentList::Clear() {
    optionstore::OptionKey key(kRecentListKey, true);
    key.Registry().RemoveKey();
    items_.clear();
}

unsigned int CRecentList::GetSize() {
    return static_cast<unsigned int>(std::min<std::size_t>(limit_, items_.size()));
}

const wchar_t *CRecentList::GetItem(unsigned int index) {
    static std::wstring item;
    item = index < GetSize() ? items_[index] : std::wstring();
    return item.c_str();
}
