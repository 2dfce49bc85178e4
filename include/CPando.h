// Hands files to an installed Pando client through its URL protocol
// ("pando:" URLs, opened by the desktop's URL handler). Nothing waits for
// the client.
//
// One thread at a time; the object keeps no state between calls besides
// the two fields below.
#pragma once

#include <cstdio>

#include "CAppUtils.h"
#include "platform/WinTypes.h"

class CPando {
public:
    // Without a log target a failed launch is shown in a message box.
    CPando();
    // `log` is borrowed and may be null.
    explicit CPando(FILE *log);
    virtual ~CPando();

    // Launches the URL with the paths joined by commas, starting a new URL
    // (and launching the one so far) whenever the next path would bring the
    // command to within 10 characters of commandLimit. Paths are not
    // escaped. No paths (or null) still launches the bare URL prefix.
    void Send(STDStringList *paths);
    // Opens the command; the outcome goes to the log, a failure without a
    // log to a message box.
    void LaunchPando(const wchar_t *command);
    // A formatted line (Windows format) into the log, when there is one.
    void DebugPrint(const wchar_t *format, ...);

    // The longest command the launch accepts: 2047, or 8191 from system
    // version 0x501 on.
    DWORD commandLimit;
    FILE *log;
};
