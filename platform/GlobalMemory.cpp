#include "platform/GlobalMemory.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <unordered_map>

#include "platform/WinError.h"

namespace {

struct Block {
    std::unique_ptr<BYTE[]> bytes;
    SIZE_T size = 0;
    bool moveable = false;
    bool discarded = false;
    LONG locks = 0;
};

struct BlockTable {
    std::mutex lock;
    // By handle: a fixed block's handle is its bytes, a moveable block's
    // handle is the Block itself.
    std::unordered_map<const void *, std::unique_ptr<Block>> blocks;
};

// Never destroyed: blocks may be freed during static destruction.
BlockTable &Table() {
    static auto *table = new BlockTable;
    return *table;
}

constexpr UINT kKnownFlags = GMEM_MOVEABLE | GMEM_ZEROINIT | GMEM_DDESHARE;

Block *FindLocked(HGLOBAL memory) {
    auto found = Table().blocks.find(memory);
    return found == Table().blocks.end() ? nullptr : found->second.get();
}

std::unique_ptr<BYTE[]> NewBytes(SIZE_T size, bool zero) {
    auto *bytes = new (std::nothrow) BYTE[std::max<SIZE_T>(size, 1)];
    if (bytes && zero) std::memset(bytes, 0, std::max<SIZE_T>(size, 1));
    return std::unique_ptr<BYTE[]>(bytes);
}

void RefuseHandle() { SetLastError(ERROR_INVALID_HANDLE); }

// FindLocked, refusing a handle of no block.
Block *FindOrRefuse(HGLOBAL memory) {
    Block *block = FindLocked(memory);
    if (!block) RefuseHandle();
    return block;
}

}  // namespace

HGLOBAL GlobalAlloc(UINT flags, SIZE_T bytes) {
    if (flags & ~kKnownFlags) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    auto block = std::make_unique<Block>();
    block->moveable = (flags & GMEM_MOVEABLE) != 0;
    block->discarded = block->moveable && bytes == 0;
    block->bytes = NewBytes(bytes, (flags & GMEM_ZEROINIT) != 0);
    if (!block->bytes) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    block->size = bytes;
    const void *handle = block->moveable ? static_cast<void *>(block.get())
                                         : static_cast<void *>(block->bytes.get());
    std::lock_guard guard(Table().lock);
    Table().blocks.emplace(handle, std::move(block));
    return const_cast<void *>(handle);
}

LPVOID GlobalLock(HGLOBAL memory) {
    std::lock_guard guard(Table().lock);
    Block *block = FindOrRefuse(memory);
    if (!block) return nullptr;
    if (block->discarded) {
        SetLastError(ERROR_DISCARDED);
        return nullptr;
    }
    if (block->moveable) ++block->locks;
    return block->bytes.get();
}

BOOL GlobalUnlock(HGLOBAL memory) {
    std::lock_guard guard(Table().lock);
    Block *block = FindOrRefuse(memory);
    if (!block) return FALSE;
    // A fixed block counts no locks and is always unlocked.
    if (!block->moveable) {
        SetLastError(NO_ERROR);
        return FALSE;
    }
    if (block->locks == 0) {
        SetLastError(ERROR_NOT_LOCKED);
        return FALSE;
    }
    if (--block->locks > 0) return TRUE;
    SetLastError(NO_ERROR);
    return FALSE;
}

SIZE_T GlobalSize(HGLOBAL memory) {
    std::lock_guard guard(Table().lock);
    Block *block = FindOrRefuse(memory);
    if (!block) return 0;
    return block->size;
}

HGLOBAL GlobalFree(HGLOBAL memory) {
    std::lock_guard guard(Table().lock);
    if (Table().blocks.erase(memory) == 0) {
        RefuseHandle();
        return memory;
    }
    return nullptr;
}

namespace platform {

bool IsGlobalMemory(HGLOBAL memory) {
    std::lock_guard guard(Table().lock);
    return FindLocked(memory) != nullptr;
}

}  // namespace platform
