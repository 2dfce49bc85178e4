// Resource texts as the archive code loads them: into buffers of 256
// characters, so a longer text is cut to its first 255.
#pragma once

#include <cstddef>
#include <string>

namespace archive {

inline constexpr std::size_t kResourceTextChars = 256;

// `text` as a load into such a buffer leaves it; null gives "".
inline std::wstring ResourceText(const wchar_t *text) {
    std::wstring result = text ? text : L"";
    if (result.size() >= kResourceTextChars) result.resize(kResourceTextChars - 1);
    return result;
}

}  // namespace archive
