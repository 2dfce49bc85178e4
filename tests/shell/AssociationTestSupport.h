// Reading and writing HKEY_CLASSES_ROOT for the association tests, and a
// record of the shell change notices sent meanwhile.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/WinTypes.h"

namespace shelltest {

// A text value below HKEY_CLASSES_ROOT (null name: the default value);
// nothing when it cannot be read.
std::optional<std::wstring> ClassesText(const std::wstring &key, const wchar_t *name = nullptr);
void SetClassesText(const std::wstring &key, const wchar_t *name, const std::wstring &text);
bool ClassesKeyExists(const std::wstring &key);

// The events of the notices sent while an instance lives.
class NoticeRecorder {
public:
    NoticeRecorder();
    ~NoticeRecorder();
    NoticeRecorder(const NoticeRecorder &) = delete;
    NoticeRecorder &operator=(const NoticeRecorder &) = delete;

    std::vector<LONG> Events() const;
    void Clear();
};

}  // namespace shelltest
