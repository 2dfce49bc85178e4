// The resource libraries loaded as a host loads them and handed to
// SetCommonHINST for as long as the object lives.
#pragma once

#include <string>

#include "platform/WinTypes.h"

namespace testsupport {

class LoadedResources {
public:
    LoadedResources();
    ~LoadedResources();
    LoadedResources(const LoadedResources &) = delete;
    LoadedResources &operator=(const LoadedResources &) = delete;

    bool Loaded() const { return localized_ && nonLocalized_; }
    // A text of the libraries handed to the library, the localized one
    // first; empty when neither has it.
    static std::wstring Text(unsigned id);

private:
    HINSTANCE localized_ = nullptr;
    HINSTANCE nonLocalized_ = nullptr;
};

}  // namespace testsupport
