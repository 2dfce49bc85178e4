#include "AssociationTestSupport.h"

#include <gtest/gtest.h>

#include <mutex>

#include "CRegistry.h"
#include "platform/ShellNotify.h"

namespace shelltest {

namespace {

constexpr DWORD kClassesRoot = 2;
constexpr DWORD kTextChars = 1024;

std::mutex gNoticeLock;
std::vector<LONG> gNotices;

void Record(LONG eventId, UINT, const void *, const void *) {
    std::lock_guard lock(gNoticeLock);
    gNotices.push_back(eventId);
}

}  // namespace

std::optional<std::wstring> ClassesText(const std::wstring &key, const wchar_t *name) {
    CRegistry registry;
    registry.SetMajorKey(kClassesRoot);
    registry.SetAppKey(key.c_str());
    wchar_t buffer[kTextChars] = {};
    if (!registry.GetRegSetting(name, buffer, (kTextChars - 1) * 2)) return std::nullopt;
    return std::wstring(buffer);
}

void SetClassesText(const std::wstring &key, const wchar_t *name, const std::wstring &text) {
    HKEY handle = nullptr;
    ASSERT_EQ(RegCreateKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                              nullptr, &handle, nullptr),
              ERROR_SUCCESS);
    CRegistry registry;
    registry.SetMajorKey(kClassesRoot);
    registry.SetAppKey(key.c_str());
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
