/* SPDX-License-Identifier: MIT */
// The machine's lock: a verb reads, decides and writes while no other program does.
#ifndef OVRA_TOOLS_LOCK_H
#define OVRA_TOOLS_LOCK_H

#include <csignal>

#include "tools/machine/firmware.h"
#include "tools/machine/general.h"

namespace tool {

// Holds the lock while it lives. With --dry-run it only checks whether the lock could be taken: its file may
// have to be made. The signals by which a person or the system ends a program wait until then: a change of
// several variables is made whole.
class machine_lock {
public:
    // Waits for other programs, but not for ever. Throws a failure.
    machine_lock(const firmware &machine, const general_options &general);
    ~machine_lock();
    machine_lock(const machine_lock &) = delete;
    machine_lock &operator=(const machine_lock &) = delete;

private:
    bool held = false;
    int in_its_place = -1; // a file descriptor, where the lock is not taken
    sigset_t signals_before = {};
};

} // namespace tool

#endif
