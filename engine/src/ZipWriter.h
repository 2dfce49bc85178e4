// The engine's own zip writer: items compressed with libdeflate on worker
// threads while the writer stores them in order, WinZip AES (AE-2) and
// traditional PKWARE encryption, zip64 where sizes or offsets need it,
// comments, and items of another zip copied as they are stored.
#pragma once

#include "Driver.h"

namespace engine {

struct ZipWriteSettings {
    enum class Cipher { None, Aes128, Aes256, Traditional };
    int method = 1;  // "compMethod": 0 store, 1 deflate, 2 bzip2, 3 LZMA, 4 zstd, 5 xz
    int level = 6;
    int extent = 15;  // log2 of the window or dictionary
    Cipher cipher = Cipher::None;
};

Result WriteZip(const WriteRequest &request, ItemFeed &feed, const ZipWriteSettings &settings);

}  // namespace engine
