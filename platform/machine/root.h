/* SPDX-License-Identifier: MIT */
/*
 * Where the machine is: a folder laid out like a Linux root. "/" is the live machine; any other folder is a
 * captured or simulated one.
 */
#ifndef HWPLAT_MACHINE_ROOT_H
#define HWPLAT_MACHINE_ROOT_H

#include "platform/machine/files.h"

namespace machine {

struct machine_root {
    owned_fd folder;        /* O_PATH; empty: no machine */
    bool live = false;      /* it is "/" itself */
    file_identity identity; /* that `folder` was opened on */
};

/*
 * The folder that HWPLAT_ROOT names (ignored in a set-user-ID program), else "/". The variable is read at
 * each call. A relative value starts at the working folder of the process when it first read that value. An
 * empty value names no folder. Without a folder errno says why.
 */
machine_root open_root();

} // namespace machine

#endif
