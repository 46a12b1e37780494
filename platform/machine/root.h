/* SPDX-License-Identifier: MIT */
/*
 * Where the machine is: a folder laid out like a Linux root. "/" is the live machine; any other folder is a
 * captured or simulated one.
 */
#ifndef HWPLAT_MACHINE_ROOT_H
#define HWPLAT_MACHINE_ROOT_H

#include <string>

#include "platform/machine/files.h"

namespace machine {

struct machine_root {
    owned_fd folder;        /* O_PATH; empty: no machine */
    bool live = false;      /* it is "/" itself */
    file_identity identity; /* that `folder` was opened on */
    std::string
        image; /* the file in `folder` that is the machine's variables; empty: the folder is a machine */
};

/*
 * The folder that HWPLAT_ROOT names (ignored in a set-user-ID program), else "/". The variable is read at
 * each call. A relative value starts at the working folder of the process when it first read that value. An
 * empty value names no folder. Without a folder errno says why. While HWPLAT_VARS names a file, "/" is the
 * machine only if HWPLAT_ROOT says so: the host's devices are not those of the machine whose variables these
 * are.
 */
machine_root open_root();

/*
 * Where the variables are: the file that HWPLAT_VARS names, with symbolic links followed, and its folder;
 * else the machine of open_root. Relative and empty values are as above.
 */
machine_root open_root_of_variables();

} // namespace machine

#endif
