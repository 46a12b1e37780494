/* SPDX-License-Identifier: MIT */
/*
 * Descriptors and small files of a machine's folders. Every name is looked up in an open folder and symbolic
 * links are not followed, so nothing here leaves that folder. Functions that return `int` return 0 or an
 * errno value, and allocate only where they return names or bytes.
 */
#ifndef HWPLAT_MACHINE_FILES_H
#define HWPLAT_MACHINE_FILES_H

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <sys/types.h>

#include <ovra/uefi.h>

namespace machine {

/*
 * Owns a file descriptor; closing it leaves errno alone. It is never one of the three standard streams',
 * which a program may have closed: what the program prints would go into the file.
 */
class owned_fd {
public:
    owned_fd() = default;
    explicit owned_fd(int fd) { reset(fd); }
    owned_fd(owned_fd &&other) noexcept : number(other.release()) {}
    owned_fd &operator=(owned_fd &&other) noexcept
    {
        reset(other.release());
        return *this;
    }
    owned_fd(const owned_fd &) = delete;
    owned_fd &operator=(const owned_fd &) = delete;
    ~owned_fd() { reset(); }

    [[nodiscard]] int get() const { return number; }
    explicit operator bool() const { return number >= 0; }
    int release() { return std::exchange(number, -1); }
    void reset(int fd = -1) noexcept;

private:
    int number = -1;
};

/* Which file a descriptor is open on, whatever its number. */
struct file_identity {
    dev_t device = 0;
    ino_t inode = 0;
    bool operator==(const file_identity &) const = default;
};
/* Nothing, with errno, when it is open on none. */
std::optional<file_identity> file_identity_of(int fd);

using bytes = std::vector<std::byte>;
using byte_view = std::span<const std::byte>;

/*
 * How often a call is made again that the system or the firmware breaks off (EINTR, which is also the
 * kernel's word for EFI_ABORTED): a firmware that always does must not keep us for ever.
 */
inline constexpr int most_interruptions = 50;

enum class missing_folders { fail, create };

/*
 * Opens the folder that is reached from `at` through `names`, one by one, for look-ups only (O_PATH); with
 * `create`, folders that are missing are made. An empty descriptor with errno when that is not possible.
 */
owned_fd open_below(int at, std::initializer_list<const char *> names, missing_folders missing);

/* Opens `folder` anew to read its names or write it back to the disk. An empty descriptor with errno. */
owned_fd open_for_reading(int folder);

/*
 * Reads a whole regular file. ENOENT when there is none; EBADMSG when the name is there but is no regular
 * file of at most `limit` bytes. `*contents` changes on success only.
 */
int read_file(int folder, const char *name, std::size_t limit, bytes *contents);

/*
 * Makes `contents` those of a file of mode 0644, as on an efivarfs, whatever the umask is. A stop at any
 * moment leaves the old file or the new one: the bytes go to a temporary file (is_temporary), which then
 * takes the name. `folder` is what open_for_reading gave. An error before the new file has the name leaves
 * the old one; an error of the last fsync leaves the new one, of which nobody knows whether it would survive
 * a crash. A limit on the size of files is EFBIG, and no signal.
 */
int replace_file(int folder, const char *name, byte_view contents);

/* Removes a file so that it stays removed after a crash. ENOENT when there is none. */
int remove_file(int folder, const char *name);

/* The names in a folder, in no order, without "." and "..". `*names` changes on success only. */
int list_folder(int folder, std::vector<std::string> *names);

/* Whether a writer that was stopped may have left a file of this name. No variable has such a name. */
bool is_temporary(std::string_view name);

/* The firmware's word for an errno value of a file system. */
EFI_STATUS status_of(int error);

/* The same for an error of the folder that files are in: one that is missing is no unknown variable. */
EFI_STATUS status_of_folder(int error);

} // namespace machine

#endif
