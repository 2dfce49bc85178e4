// One session of the compression engine. A host makes one and keeps it as
// long as it runs; a probe makes one on the stack. The session opens in the
// constructor and closes in the destructor.
#pragma once

#include "VarnickEngine.h"

class CEngine {
public:
    // Opens the session (see Open).
    CEngine();
    virtual ~CEngine();
    CEngine(const CEngine &) = delete;
    CEngine &operator=(const CEngine &) = delete;

    // Opens a session with the product's licence and sets the session's
    // defaults. A failed open is logged and leaves a null handle, yet counts
    // as opened. Meant for a closed CEngine: on an open one the live handle
    // is overwritten.
    void Open();
    // Ends the session; a second call does nothing.
    void Close();

    // The session, null when closed or when the open failed.
    OpaqueEngineObject *GetEngine() const { return engine_; }
    bool IsOpen() const { return open_; }

    // "major.minor.revision.build" of the engine, or "" when the engine
    // cannot tell. A static string of this member, overwritten by its next
    // call.
    const wchar_t *GetEngineVersion() const;

private:
    OpaqueEngineObject *engine_ = nullptr;
    bool open_ = false;
};

// The engine's version without a session. A static string of its own,
// overwritten by the next call.
const wchar_t *GetEngineVersion();
