/* SPDX-License-Identifier: MIT */
/*
 * The file of a stopped machine's variables. It is found in the folder of a machine_root under the name
 * `image` of that.
 */
#ifndef HWPLAT_MACHINE_IMAGEFILE_H
#define HWPLAT_MACHINE_IMAGEFILE_H

#include <compare>
#include <cstdint>
#include <ctime>
#include <memory>

#include <sys/stat.h>
#include <sys/types.h>

#include "platform/machine/files.h"
#include "platform/machine/image.h"
#include "platform/machine/root.h"

namespace machine {

struct file_time {
    time_t seconds = 0;
    long nanoseconds = 0;
    auto operator<=>(const file_time &) const = default;
};

/* A file as it was at one time: a write, or another file under its name, makes another version. */
struct file_version {
    file_identity file;
    off_t size = 0;
    file_time modified;
    file_time changed;
    bool operator==(const file_version &) const = default;
};

file_version version_of(const struct stat &info);

/* What one version of a file holds. Threads share it. */
struct image_contents {
    file_version version;
    std::uint64_t offset = 0; /* of the store in the file */
    bool is_whole = false;    /* the store is the file */
    std::unique_ptr<const variable_image> store;
};
using known_image = std::shared_ptr<const image_contents>;

/*
 * The variables. The file is read when it is another version than before, or may be (imagecache.cpp). 0, or
 * an errno value that says why the file is none that keeps a machine's variables: EMEDIUMTYPE (something
 * else), EOPNOTSUPP (a qcow2 image), ERANGE (a part is missing), EBADMSG (damaged), EINPROGRESS (its firmware
 * was stopped while it moved the store, and will go on with that), EISDIR; or why it cannot be read. `*out`
 * is written on success alone.
 */
int read_image(const machine_root &root, known_image *out);

/* Opens the file for reading. Empty with errno: EMEDIUMTYPE also for a link, or a device without a driver. */
owned_fd open_image(const machine_root &root);

/*
 * Writes another store of an image that was read under the machine's lock: to a new file of the same owner,
 * mode and extended attributes, which then takes the name. A crash at any moment leaves the old file or the
 * new one, and perhaps a file beside them that the next writer removes. `folder` is that of the file, open
 * for reading. 0 or an errno value; ESTALE when another program has exchanged or written the file; EIO also
 * when the new file is in place and may not survive a crash.
 */
int write_image(const machine_root &root, int folder, const image_contents &read,
                std::unique_ptr<const variable_image> changed);

/* The contents of a version that were read before and are still known; else null. */
known_image known_version(const machine_root &root, const file_version &version);

/*
 * Keeps what was read from an open file: for the machine's lock, if the thread has it, and for every thread
 * if no later write can have left the version as it is. `begun` is when reading began.
 */
void keep_version(const machine_root &root, int file, const timespec &begun, const known_image &read);

} // namespace machine

#endif
