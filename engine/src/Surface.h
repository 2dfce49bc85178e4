// What the C entry points share: the session and the text behind handles.
#pragma once

#include <string>

#include "Handles.h"
#include "Session.h"

namespace engine {

// The session a handle is, or null.
inline Session *SessionOf(OpaqueEngineObject *engine) {
    return IsLive(engine, Kind::Session) ? static_cast<Session *>(engine) : nullptr;
}

// The text of a string handle; empty for null or a dead handle.
inline std::wstring TextOf(StringRef string) {
    OpaqueStringRef *text = Checked(string);
    return text ? text->text : std::wstring();
}

}  // namespace engine
