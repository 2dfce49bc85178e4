#include "Handles.h"

#include <unistd.h>

#include "platform/WideText.h"

OpaqueNotificationContext::~OpaqueNotificationContext() {
    // What the procedure handed over and the engine did not take.
    for (auto *object : written)
        if (engine::IsLive(object, engine::Kind::StringRef) ||
            engine::IsLive(object, engine::Kind::FSObject))
            object->Release();
}

engine::Object *OpaqueNotificationContext::TakeWritten(std::int32_t key, engine::Kind kind) {
    int slot = key == kContextPassword ? 0 : key == kContextLocation ? 1 : -1;
    if (slot < 0 || !written[slot]) return nullptr;
    engine::Object *object = written[slot];
    written[slot] = nullptr;
    if (!engine::IsLive(object, kind)) return nullptr;
    return object;
}

std::wstring OpaqueFSObject::Name() const {
    std::size_t slash = path.find_last_of(L'/');
    return slash == std::wstring::npos ? path : path.substr(slash + 1);
}

std::string OpaqueFSObject::Native() const { return engine::Utf8(path); }

namespace engine {

std::string Utf8(const std::wstring &text) { return platform::ToUtf8(text); }
std::wstring Wide(const std::string &text) { return platform::FromUtf8(text); }

namespace {

bool IsValidUtf8(const std::string &bytes) {
    std::size_t i = 0;
    const std::size_t n = bytes.size();
    while (i < n) {
        auto c = static_cast<unsigned char>(bytes[i]);
        std::size_t extra;
        if (c < 0x80) {
            extra = 0;
        } else if ((c & 0xE0) == 0xC0 && c >= 0xC2) {
            extra = 1;
        } else if ((c & 0xF0) == 0xE0) {
            extra = 2;
        } else if ((c & 0xF8) == 0xF0 && c <= 0xF4) {
            extra = 3;
        } else {
            return false;
        }
        if (n - i - 1 < extra) return false;
        for (std::size_t k = 1; k <= extra; ++k)
            if ((static_cast<unsigned char>(bytes[i + k]) & 0xC0) != 0x80) return false;
        i += extra + 1;
    }
    return true;
}

std::wstring Tidy(std::wstring path) {
    if (path.empty() || path[0] != L'/') {
        char buffer[4096];
        std::wstring cwd = getcwd(buffer, sizeof buffer) ? Wide(buffer) : std::wstring(L"/");
        path = cwd + L"/" + path;
    }
    // Repeated separators and "." components say nothing; ".." is kept, as
    // the system resolves it against what is really there.
    std::wstring tidy;
    std::size_t start = 0;
    while (start < path.size()) {
        std::size_t end = path.find(L'/', start);
        if (end == std::wstring::npos) end = path.size();
        std::wstring part = path.substr(start, end - start);
        if (!part.empty() && part != L".") tidy += L"/" + part;
        start = end + 1;
    }
    return tidy.empty() ? L"/" : tidy;
}

}  // namespace

std::wstring WideFromStoredName(const std::string &bytes) {
    if (IsValidUtf8(bytes)) return Wide(bytes);
    std::wstring text;
    for (unsigned char c : bytes) text += static_cast<wchar_t>(c);
    return text;
}

Ref<OpaqueStringRef> NewString(std::wstring text) {
    return MakeRef<OpaqueStringRef>(std::move(text));
}

Ref<OpaqueFSObject> NewFSObject(const std::wstring &path) {
    return MakeRef<OpaqueFSObject>(Tidy(path));
}

Ref<OpaqueFSObject> NewFSObjectNative(const std::string &path) { return NewFSObject(Wide(path)); }

}  // namespace engine
