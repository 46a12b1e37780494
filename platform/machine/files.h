/* SPDX-License-Identifier: MIT */
/*
 * File descriptors and small files of a machine's folders. Names are looked up in an open folder and symbolic
 * links are not followed: nothing here leaves that folder. Functions that return `int` return 0 or an errno
 * value. They allocate only for names or bytes that they return.
 */
#ifndef HWPLAT_MACHINE_FILES_H
#define HWPLAT_MACHINE_FILES_H

#include <cstddef>
#include <functional>
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
 * Owns a file descriptor. Closing it leaves errno alone. Its number is never that of a standard stream: if
 * the program has closed one, what it prints would go into our file.
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

/* The file that a file descriptor is open on. */
struct file_identity {
    dev_t device = 0;
    ino_t inode = 0;
    bool operator==(const file_identity &) const = default;
};

/* Nothing, with errno, when it is not open. */
std::optional<file_identity> file_identity_of(int fd);

using bytes = std::vector<std::byte>;
using byte_view = std::span<const std::byte>;

/*
 * How often an interrupted call is repeated. EINTR is also the kernel's word for the firmware's EFI_ABORTED
 * (drivers/firmware/efi/efi.c, efi_status_to_err), and firmware that always aborts must not block us for
 * ever.
 */
inline constexpr int most_interruptions = 50;

enum class missing_folders { fail, create };

/*
 * Opens the folder below `at` that `names` lead to, one after another, for look-ups only (O_PATH). With
 * `create`, missing folders are made. Empty with errno on failure.
 */
owned_fd open_below(int at, std::initializer_list<const char *> names, missing_folders missing);

/* Opens `folder` anew, to read its names or to write it back to the disk. Empty with errno on failure. */
owned_fd open_for_reading(int folder);

/*
 * Reads a whole regular file. ENOENT for an absent file; EBADMSG for anything else than a regular file of at
 * most `limit` bytes. `*contents` is written on success alone.
 */
int read_file(int folder, const char *name, std::size_t limit, bytes *contents);

/*
 * Replaces the contents of a file, or makes it, with mode 0644 whatever the umask is. `folder` comes from
 * open_for_reading. The bytes go to a temporary file (is_temporary), which then takes the name: a crash at
 * any moment leaves the old file or the new one. An error leaves the old file, but an error of the last fsync
 * leaves the new one, which may not survive a crash. The limit on the size of files is EFBIG, without its
 * signal.
 */
int replace_file(int folder, const char *name, byte_view contents);

/* Removes a file for good: a crash does not bring it back. ENOENT for an absent file. */
int remove_file(int folder, const char *name);

/* Writes all of the bytes at the file's offset. The limit on the size of files is EFBIG, without its signal.
 */
int write_all(int fd, byte_view rest);

/* fsync(2), repeated when a signal interrupts it, but not for ever. 0, or -1 with errno. */
int synchronise(int fd);

/*
 * Makes a change of names in a folder durable. 0, or EIO whatever the error is: the change is in place, and
 * room is not what it lacks.
 */
int write_back(int folder);

/*
 * Hands over the names in a folder, in no order, without "." and "..". Returns 0 or an errno value, which may
 * come after some of the names. What `take` throws is passed on.
 */
using name_taking = std::function<void(std::string_view)>;
int visit_folder(int folder, const name_taking &take);

/* The same names; `*names` is written on success alone. */
int list_folder(int folder, std::vector<std::string> *names);

/* Whether a killed writer may have left a file of this name. No variable has such a name. */
bool is_temporary(std::string_view name);

/* The firmware's word for an errno value of a file system. */
EFI_STATUS status_of(int error);

/* The same for an error of the folder of the files: an absent folder is not an unknown variable. */
EFI_STATUS status_of_folder(int error);

} // namespace machine

#endif
