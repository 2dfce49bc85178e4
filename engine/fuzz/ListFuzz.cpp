// Fuzz target: any bytes are told by content, listed, and their first items
// read, through the engine's C surface. Built with -DVARNICK_ENGINE_FUZZ=ON
// under clang. Archives are opened with the seeds' password, so that what
// lies behind a cipher is decoded too.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "VarnickEngine.h"

namespace {

OpaqueEngineObject *Engine() {
    static OpaqueEngineObject *engine = [] {
        OpaqueEngineObject *made = nullptr;
        OpenVarnickEngine(&made, "fuzz");
        return made;
    }();
    return engine;
}

StringRef Password() {
    static StringRef password = [] {
        StringRef made = nullptr;
        NewStringRefFromUnicodeString(L"secret", &made);
        return made;
    }();
    return password;
}

std::wstring TemporaryPath() {
    std::string path = "/tmp/engine-fuzz-" + std::to_string(getpid());
    return std::wstring(path.begin(), path.end());
}

void ReadItems(ArchiveObject folder, int &budget) {
    ArchiveIterator walk = nullptr;
    if (NewArchiveIterator(folder, &walk) != kEngineOK) return;
    ArchiveObject item = nullptr;
    while (budget-- > 0 && AcquireNextArchiveObject(walk, &item) == kEngineOK) {
        bool isFolder = false;
        GetArchiveObjectIsFolder(item, &isFolder);
        if (isFolder) {
            ReadItems(item, budget);
        } else {
            ArchiveObjectFork fork = nullptr;
            if (GetArchiveObjectFork(item, kForkData, &fork) == kEngineOK) {
                std::vector<char> buffer(64 * 1024);
                uint64_t count = 0;
                GetArchiveObjectForkData(Engine(), fork, buffer.data(),
                                         static_cast<uint32_t>(buffer.size()), 0, &count, nullptr);
            }
        }
        ReleaseArchiveObject(item);
    }
    DisposeArchiveIterator(walk);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::wstring path = TemporaryPath();
    std::string native(path.begin(), path.end());
    FILE *file = std::fopen(native.c_str(), "wb");
    if (!file) return 0;
    std::fwrite(data, 1, size, file);
    std::fclose(file);
    FSObject object = nullptr;
    if (NewFSObjectFromUnicodePath(path.c_str(), &object) != kEngineOK) {
        unlink(native.c_str());
        return 0;
    }
    EngineFormatId id = {};
    if (DetermineFileFormat(Engine(), object, id) == kEngineOK) {
        EngineArchive archive = nullptr;
        if (AcquireArchive(Engine(), object, &archive) == kEngineOK) {
            if (OpenEncryptedArchive(Engine(), archive, kEngineAccessRead, Password()) ==
                kEngineOK) {
                ArchiveObject root = nullptr;
                if (AcquireRootArchiveObject(archive, &root) == kEngineOK) {
                    int budget = 64;
                    ReadItems(root, budget);
                    ReleaseArchiveObject(root);
                }
                CloseArchive(archive);
            }
            ReleaseArchive(archive);
        }
    }
    DisposeFSObject(object);
    unlink(native.c_str());
    return 0;
}
