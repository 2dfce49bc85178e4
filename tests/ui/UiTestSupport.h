// What the UI tests share: the resource libraries loaded as a host program
// loads them, and a message pump with a deadline.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>

#include "platform/Win32.h"

namespace uitest {

// Loads the two resource libraries and hands them to the library.
class ResourceLibraries {
public:
    ResourceLibraries();
    ~ResourceLibraries();
    ResourceLibraries(const ResourceLibraries &) = delete;
    ResourceLibraries &operator=(const ResourceLibraries &) = delete;

private:
    HINSTANCE localized_ = nullptr;
    HINSTANCE nonLocalized_ = nullptr;
};

// Pumps the calling thread's messages until `done` holds; false when it
// still does not after `timeout`.
bool PumpUntil(const std::function<bool()> &done,
               std::chrono::milliseconds timeout = std::chrono::seconds(10));
// Pumps whatever is queued now.
void PumpPending();

}  // namespace uitest
