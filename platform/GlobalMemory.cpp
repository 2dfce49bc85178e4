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
    SIZE_T capacity = 0;
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

constexpr UINT kKnownFlags = GMEM_MOVEABLE | GMEM_ZEROINIT | GMEM_MODIFY | GMEM_DDESHARE;

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
    block->capacity = std::max<SIZE_T>(bytes, 1);
    const void *handle = block->moveable ? static_cast<void *>(block.get())
                                         : static_cast<void *>(block->bytes.get());
    std::lock_guard guard(Table().lock);
    Table().blocks.emplace(handle, std::move(block));
    return const_cast<void *>(handle);
}

HGLOBAL GlobalReAlloc(HGLOBAL memory, SIZE_T bytes, UINT flags) {
    std::lock_guard guard(Table().lock);
    Block *block = FindOrRefuse(memory);
    if (!block) return nullptr;
    if (flags & GMEM_MODIFY) return memory;
    if (!block->moveable && bytes > block->capacity && !(flags & GMEM_MOVEABLE)) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    if (bytes <= block->capacity) {
        if (flags & GMEM_ZEROINIT && bytes > block->size) {
            std::memset(block->bytes.get() + block->size, 0, bytes - block->size);
        }
        block->size = bytes;
        block->discarded = block->moveable && bytes == 0;
        return memory;
    }
    auto bytesNew = NewBytes(bytes, (flags & GMEM_ZEROINIT) != 0);
    if (!bytesNew) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    std::memcpy(bytesNew.get(), block->bytes.get(), block->size);
    block->bytes = std::move(bytesNew);
    block->size = bytes;
    block->capacity = bytes;
    block->discarded = false;
    if (block->moveable) return memory;
    // A fixed block that moved gets the new bytes as its handle.
    auto node = Table().blocks.extract(memory);
    const void *handle = node.mapped()->bytes.get();
    node.key() = handle;
    Table().blocks.insert(std::move(node));
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

HGLOBAL GlobalHandle(LPCVOID pointer) {
    std::lock_guard guard(Table().lock);
    for (const auto &[handle, block] : Table().blocks) {
        if (block->bytes.get() == pointer) return const_cast<void *>(handle);
    }
    RefuseHandle();
    return nullptr;
}

namespace platform {

bool IsGlobalMemory(HGLOBAL memory) {
    std::lock_guard guard(Table().lock);
    return FindLocked(memory) != nullptr;
}

}  // namespace platform
