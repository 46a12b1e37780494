/* SPDX-License-Identifier: MIT */
/*
 * The runtime services of a machine, open for use. Two things decide how a service is carried out:
 *   - variables: the file system of the machine's efivars folder. An efivarfs is written as the kernel wants
 *     it; any other holds plain files in the same format. Or else the file that HWPLAT_VARS names.
 *   - time, alarm, count and reset: the root. "/" has the host's clock chip and is really restarted. A file
 * of variables has no place for what was set of them.
 *
 * The services return the firmware's statuses. They throw std::bad_alloc only, and then nothing has changed.
 */
#ifndef HWPLAT_MACHINE_SERVICES_H
#define HWPLAT_MACHINE_SERVICES_H

#include <cstdint>
#include <memory>

#include "platform/machine/enumerate.h"
#include "platform/machine/files.h"
#include "platform/machine/root.h"

namespace machine {

enum class store_kind {
    none,     /* sysfs: the mount point of efivarfs, with nothing mounted */
    folder,   /* plain files */
    efivarfs, /* the kernel's view of the firmware's own store */
    image     /* a file of a stopped machine's variables */
};

/* What a file system of this type holds, by the f_type of statfs(2). */
store_kind kind_of_filesystem(std::uint64_t type);

struct runtime_services {
    machine_root root;
    owned_fd variables; /* O_PATH of <root>/sys/firmware/efi/efivars; of an image, the folder that it is in */
    file_identity folder; /* that `variables` was opened on */
    store_kind kind = store_kind::none;
    mutable variable_walks walks; /* under lock_process_state() */
};

/* Whether `variables` is still open on that folder: the program may have closed what it did not know. */
bool has_folder(const runtime_services &services);

/*
 * Null with errno when there are none: ENOENT when the machine has no firmware variables, or what read_image
 * says of the file.
 */
std::unique_ptr<runtime_services> open_services();

} // namespace machine

#endif
