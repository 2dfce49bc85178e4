// The C surface: paths, path lists and strings.
#include <unistd.h>

#include "Archive.h"
#include "Handles.h"
#include "Surface.h"
#include "VnkxSegments.h"

using namespace engine;

namespace {

bool LiveSession(OpaqueEngineObject *engine) { return IsLive(engine, Kind::Session); }

// "name.part1.vnkx", "name.part01.vnkx", ...: the first segment's name.
bool FirstSegmentName(const std::wstring &name) {
    std::wstring lower;
    for (wchar_t c : name)
        lower += static_cast<wchar_t>(c >= L'A' && c <= L'Z' ? c - L'A' + L'a' : c);
    const std::wstring suffix = L".vnkx";
    if (lower.size() <= suffix.size() ||
        lower.compare(lower.size() - suffix.size(), suffix.size(), suffix) != 0)
        return false;
    std::wstring stem = lower.substr(0, lower.size() - suffix.size());
    std::size_t part = stem.rfind(L".part");
    if (part == std::wstring::npos) return false;
    std::wstring number = stem.substr(part + 5);
    if (number.empty() || number.find_first_not_of(L"0123456789") != std::wstring::npos)
        return false;
    return number.find_first_not_of(L'0') == number.size() - 1 && number.back() == L'1';
}

}  // namespace

extern "C" {

EngineResult NewFSObjectFromUnicodePath(const wchar_t *path, FSObject *object) {
    if (!path || !object || !*path) return kEngineInvalidParameter;
    *object = NewFSObject(path).Detach();
    return kEngineOK;
}

EngineResult DisposeFSObject(FSObject object) {
    OpaqueFSObject *file = Checked(object);
    if (!file) return kEngineInvalidParameter;
    file->Release();
    return kEngineOK;
}

EngineResult AcquirePathFromFSObject(FSObject object, StringRef *path) {
    OpaqueFSObject *file = Checked(object);
    if (!file || !path) return kEngineInvalidParameter;
    *path = NewString(file->path).Detach();
    return kEngineOK;
}

EngineResult AcquireFSObjectName(FSObject object, StringRef *name) {
    OpaqueFSObject *file = Checked(object);
    if (!file || !name) return kEngineInvalidParameter;
    *name = NewString(file->Name()).Detach();
    return kEngineOK;
}

bool IsFirstSegmentFSObject(OpaqueEngineObject *engine, FSObject object) {
    OpaqueFSObject *file = Checked(object);
    if (!LiveSession(engine) || !file) return false;
    // The segment header says; only a file that cannot be read is judged
    // by its name.
    std::string native = file->Native();
    if (std::optional<vnkx::SegmentHeader> header = vnkx::ReadSegmentHeader(native))
        return header->number == 1;
    if (access(native.c_str(), R_OK) == 0) return false;
    return FirstSegmentName(file->Name());
}

EngineResult NewFSObjectList(OpaqueEngineObject *engine, FSObjectList *list) {
    if (!LiveSession(engine) || !list) return kEngineInvalidParameter;
    *list = new OpaqueFSObjectList();
    return kEngineOK;
}

EngineResult AddFSObjectToFSObjectList(OpaqueEngineObject *engine, FSObject object,
                                       FSObjectList list) {
    OpaqueFSObject *file = Checked(object);
    OpaqueFSObjectList *files = Checked(list);
    if (!LiveSession(engine) || !file || !files) return kEngineInvalidParameter;
    std::lock_guard lock(files->mutex);
    files->items.push_back(Ref<OpaqueFSObject>::Share(file));
    return kEngineOK;
}

uint32_t CountFSObjectList(FSObjectList list) {
    OpaqueFSObjectList *files = Checked(list);
    if (!files) return 0;
    std::lock_guard lock(files->mutex);
    return static_cast<uint32_t>(files->items.size());
}

EngineResult GetNthFSObject(FSObjectList list, uint32_t index, FSObject *object) {
    OpaqueFSObjectList *files = Checked(list);
    if (!files || !object) return kEngineInvalidParameter;
    std::lock_guard lock(files->mutex);
    if (index >= files->items.size()) return kEngineNoMoreObjects;
    *object = Ref<OpaqueFSObject>(files->items[index]).Detach();
    return kEngineOK;
}

EngineResult DisposeFSObjectList(FSObjectList list) {
    OpaqueFSObjectList *files = Checked(list);
    if (!files) return kEngineInvalidParameter;
    files->Release();
    return kEngineOK;
}

EngineResult NewStringRefFromUnicodeString(const wchar_t *text, StringRef *string) {
    if (!text || !string) return kEngineInvalidParameter;
    *string = NewString(text).Detach();
    return kEngineOK;
}

const wchar_t *GetUnicodeStringFromStringRef(StringRef string) {
    OpaqueStringRef *text = Checked(string);
    return text ? text->text.c_str() : nullptr;
}

EngineResult DisposeStringRef(StringRef string) {
    OpaqueStringRef *text = Checked(string);
    if (!text) return kEngineInvalidParameter;
    text->Release();
    return kEngineOK;
}

}  // extern "C"
