/* SPDX-License-Identifier: MIT */
/*
 * The file of a stopped machine's variables. It is found in the folder of a machine_root under the name
 * `image` of that.
 */
#ifndef HWPLAT_MACHINE_IMAGEFILE_H
#define HWPLAT_MACHINE_IMAGEFILE_H

#include <cstdint>
#include <memory>

#include "platform/machine/files.h"
#include "platform/machine/image.h"
#include "platform/machine/root.h"

namespace machine {

struct opened_image {
    owned_fd file;            /* for reading */
    std::uint64_t offset = 0; /* of the store in the file */
    bool is_whole = false;    /* the store is the file */
    std::unique_ptr<variable_image> store;
};

/*
 * Reads the variables. 0, or an errno value that says why the file is none that keeps a machine's variables:
 * EMEDIUMTYPE (something else), EOPNOTSUPP (a qcow2 image), ERANGE (a part is missing), EBADMSG (damaged),
 * EINPROGRESS (its firmware was stopped while it moved the store, and will go on with that), EISDIR; or why
 * it cannot be read. `*out` is written on success alone.
 */
int read_image(const machine_root &root, opened_image *out);

/*
 * Writes the changed store of an image that was read under the machine's lock: to a new file of the same
 * owner, mode and extended attributes, which then takes the name. A crash at any moment leaves the old file
 * or the new one. 0 or an errno value; EIO also when the new file is in place and may not survive a crash.
 */
int write_image(const machine_root &root, const opened_image &image);

} // namespace machine

#endif
