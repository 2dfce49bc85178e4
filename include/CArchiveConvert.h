// Conversion of an archive into a Zip or a vnkx archive with one engine
// transform, using the stored format options. It needs no open archive: a
// window, an engine and the options are enough, so whole folders can be
// converted one file after another.
//
// The source is never deleted or changed. A cancelled password prompt or a
// cancelled run gives false without any message; result 6 is shown in the
// engine's error box, other failures are logged. Engine progress arrives
// through the engine's notification callback on the calling thread.
#pragma once

#include "VarnickEngine.h"
#include "platform/WinTypes.h"

class CFormatOptionsRepository;

class CArchiveConvert {
public:
    // Neither the engine nor the options are owned.
    CArchiveConvert(HWND parent, OpaqueEngineObject *engine, CFormatOptionsRepository *options);
    virtual ~CArchiveConvert();
    CArchiveConvert(const CArchiveConvert &) = delete;
    CArchiveConvert &operator=(const CArchiveConvert &) = delete;

    // Converts a ".vnk", ".vnkx" or ".tar" archive into a Zip archive beside
    // it, under a name the engine chooses. When the source asked for a
    // password, the one typed is copied to `password` (MAX_PATH characters;
    // may be null).
    bool ConvertArchiveToZip(const wchar_t *source, wchar_t *password);

    // Converts a ".vnk", ".zip" or ".tar" archive into a vnkx archive. With
    // `destination` (a buffer of MAX_PATH characters) the result goes there
    // and `destination` is replaced by the result's full path, as the engine
    // may change the extension or make the name unique; without it the
    // result lies beside the source and its name is not returned.
    // `selfExtracting` makes the result a program that expands itself.
    bool ConvertArchiveToVnkx(const wchar_t *source, wchar_t *password, wchar_t *destination,
                              bool selfExtracting);

private:
    HWND parent_;
    OpaqueEngineObject *engine_;         // not owned
    CFormatOptionsRepository *options_;  // not owned
};
