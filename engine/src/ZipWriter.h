// The engine's own zip writer: items compressed with libdeflate on worker
// threads while the writer stores them in order, WinZip AES (AE-2) and
// traditional PKWARE encryption, zip64 where sizes or offsets need it,
// comments, and items of another zip copied as they are stored.
#pragma once

#include "Driver.h"

namespace engine {

struct ZipWriteSettings {
    enum class Cipher { None, Aes128, Aes256, Traditional };
    int method = 1;  // 0 store, 1 deflate
    int level = 6;
    Cipher cipher = Cipher::None;
};

Result WriteZip(const WriteRequest &request, ItemFeed &feed, const ZipWriteSettings &settings);

}  // namespace engine
