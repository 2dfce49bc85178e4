// Ctrl-C while a prompt on the terminal waits for its answer.
//
// A program's own SIGINT handling (the run loop's) only notes an interrupt
// for the next turn of its pump, and its handler restarts an interrupted
// read, so a prompt would go on waiting and the interrupt would be dropped
// by the run that follows. While a PromptInterrupt lives, SIGINT wakes the
// prompt's wait instead, on whichever thread the signal lands. When it goes,
// the previous handling is put back and a caught interrupt is passed on to
// it, so that the program learns of it as of any other Ctrl-C (and a program
// that handles none ends, its terminal settings already restored).
//
// One at a time per process: a second made while one lives does nothing,
// and its waits are plain waits.
#pragma once

#include <signal.h>

namespace platform {

class PromptInterrupt {
public:
    PromptInterrupt();
    ~PromptInterrupt();
    PromptInterrupt(const PromptInterrupt &) = delete;
    PromptInterrupt &operator=(const PromptInterrupt &) = delete;

    // Waits until `fd` has something to read (or its end or an error, for
    // the read to tell); false when an interrupt came first.
    bool WaitForInput(int fd) const;
    // Whether an interrupt came while this object lived.
    bool Caught() const;

private:
    bool owner_ = false;      // this object holds the process's one catch
    bool installed_ = false;  // its handler is SIGINT's (not when SIGINT is ignored)
    int wakeRead_ = -1;       // the process's wake pipe, kept for its life
    struct sigaction previous_ {};
};

}  // namespace platform
