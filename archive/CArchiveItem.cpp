#include "CArchiveItem.h"

#include <utility>

#include "platform/WinPath.h"

CArchiveItem::CArchiveItem(std::wstring name, std::wstring path)
    : name(std::move(name)), path(std::move(path)) {}

CArchiveItem::~CArchiveItem() = default;

bool CArchiveItem::IsFolder() const { return !path.empty() && path.back() == kPathSep; }
