#include "AssociationTestSupport.h"

#include <gtest/gtest.h>

#include <mutex>

#include "CRegistry.h"
#include "platform/ShellNotify.h"
#include "shell/ClassesRoot.h"

namespace shelltest {

namespace {

std::mutex gNoticeLock;
std::vector<LONG> gNotices;

void Record(LONG eventId, UINT, const void *, const void *) {
    std::lock_guard lock(gNoticeLock);
    gNotices.push_back(eventId);
}

}  // namespace

std::optional<std::wstring> ClassesText(const std::wstring &key, const wchar_t *name) {
    CRegistry registry;
    shell::UseClassesKey(registry, key, false);
    std::wstring text;
    if (!shell::ReadText(registry, name, text)) return std::nullopt;
    return text;
}

void SetClassesText(const std::wstring &key, const wchar_t *name, const std::wstring &text) {
    HKEY handle = nullptr;
    ASSERT_EQ(RegCreateKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                              nullptr, &handle, nullptr),
              ERROR_SUCCESS);
    CRegistry registry;
    shell::UseClassesKey(registry, key, false);
    registry.WriteRegSetting(name, text.c_str());
    RegCloseKey(handle);
}

bool ClassesKeyExists(const std::wstring &key) {
    HKEY handle = nullptr;
    if (RegOpenKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, KEY_READ, &handle) != ERROR_SUCCESS) {
        return false;
    }
    RegCloseKey(handle);
    return true;
}

NoticeRecorder::NoticeRecorder() {
    Clear();
    platform::SetShellChangeListener(Record);
}

NoticeRecorder::~NoticeRecorder() { platform::SetShellChangeListener(nullptr); }

std::vector<LONG> NoticeRecorder::Events() const {
    std::lock_guard lock(gNoticeLock);
    return gNotices;
}

void NoticeRecorder::Clear() {
    std::lock_guard lock(gNoticeLock);
    gNotices.clear();
}

}  // namespace shelltest
