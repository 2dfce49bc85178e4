// A test's paths between std::filesystem and the library's wide text.
#pragma once

#include <filesystem>
#include <string>

#include "platform/WideText.h"

namespace testsupport {

inline std::wstring Wide(const std::filesystem::path &path) {
    return platform::FromUtf8(path.string());
}

inline std::filesystem::path PathOf(const std::wstring &path) {
    return std::filesystem::path(platform::ToUtf8(path));
}

}  // namespace testsupport
