// Global memory handles (HGLOBAL), as the clipboard and drag and drop hand
// data around in them.
//
// A GMEM_FIXED block's handle is the pointer to its bytes; a GMEM_MOVEABLE
// block has a handle of its own that GlobalLock turns into the pointer. Every
// live block is registered, so a freed or foreign handle is refused without
// being read (ERROR_INVALID_HANDLE).
#pragma once

#include "platform/WinTypes.h"

inline constexpr UINT GMEM_FIXED = 0x0000;
inline constexpr UINT GMEM_MOVEABLE = 0x0002;
inline constexpr UINT GMEM_ZEROINIT = 0x0040;
inline constexpr UINT GMEM_DDESHARE = 0x2000;
inline constexpr UINT GMEM_SHARE = 0x2000;
inline constexpr UINT GHND = GMEM_MOVEABLE | GMEM_ZEROINIT;
inline constexpr UINT GPTR = GMEM_FIXED | GMEM_ZEROINIT;

inline constexpr DWORD ERROR_DISCARDED = 157;
inline constexpr DWORD ERROR_NOT_LOCKED = 158;

// Null on failure (ERROR_NOT_ENOUGH_MEMORY, ERROR_INVALID_PARAMETER for
// unknown flags). A moveable block of 0 bytes is allocated discarded: its
// GlobalLock gives null, as on Windows.
HGLOBAL GlobalAlloc(UINT flags, SIZE_T bytes);
// The block's bytes; counts a lock on a moveable block.
LPVOID GlobalLock(HGLOBAL memory);
// Nonzero while the block stays locked; 0 with NO_ERROR when the last lock
// went (always for a fixed block), 0 with ERROR_NOT_LOCKED when a moveable
// block was not locked.
BOOL GlobalUnlock(HGLOBAL memory);
// The size asked for; 0 for an invalid handle.
SIZE_T GlobalSize(HGLOBAL memory);
// Null when freed; the handle back when it is not a live block.
HGLOBAL GlobalFree(HGLOBAL memory);

namespace platform {

// True for a live block of this layer.
bool IsGlobalMemory(HGLOBAL memory);

}  // namespace platform
