// SPDX-License-Identifier: MIT
#include "platform/machine/files.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/machine/debug.h"
#include "platform/machine/size_signal.h"

namespace machine {

namespace {

constexpr std::string_view temporary_prefix = ".hwplat-";
constexpr std::string_view temporary_suffix = ".tmp";
using temporary_name = std::array<char, 48>;

// A killed process with this one's number may have left a name: the next one is tried.
int create_temporary(int folder, temporary_name *name, owned_fd *file)
{
    static std::atomic<unsigned> counter;
    constexpr int attempts = 1000;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        std::snprintf(name->data(), name->size(), "%s%ld-%u%s", temporary_prefix.data(),
                      static_cast<long>(getpid()), counter.fetch_add(1), temporary_suffix.data());
        constexpr mode_t mode = 0644; // as on an efivarfs
        file->reset(openat(folder, name->data(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
        if (*file && fchmod(file->get(), mode) == 0)
            return 0;
        if (*file) {
            const int error = errno;
            unlinkat(folder, name->data(), 0);
            return error;
        }
        if (errno != EEXIST)
            return errno;
    }
    return EEXIST;
}

} // namespace

int write_all(int fd, byte_view rest)
{
    no_size_signal quiet;
    for (int interruptions = 0; !rest.empty();) {
        const ssize_t written = write(fd, rest.data(), rest.size());
        if (written < 0 && errno == EINTR && ++interruptions < most_interruptions)
            continue;
        if (written <= 0)
            return written < 0 ? errno : EIO;
        rest = rest.subspan(static_cast<std::size_t>(written));
    }
    return 0;
}

int synchronise(int fd)
{
    int result = fsync(fd);
    for (int interruptions = 1; result != 0 && errno == EINTR && interruptions < most_interruptions;
         ++interruptions)
        result = fsync(fd);
    return result;
}

int write_back(int folder)
{
    return synchronise(folder) == 0 ? 0 : EIO;
}

void owned_fd::reset(int fd) noexcept
{
    if (fd >= STDIN_FILENO && fd <= STDERR_FILENO) {
        const int above = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        const int saved = errno;
        close(fd);
        errno = saved;
        fd = above;
    }
    const int old = std::exchange(number, fd);
    if (old >= 0) {
        const int saved = errno;
        close(old);
        errno = saved;
    }
}

namespace {

// Sets mode and owner of a folder just made: the umask may have locked out even its owner, and what root
// makes belongs to the owner of the folder above. Goes through the file descriptor, as somebody else may
// exchange the name meanwhile. A file system without modes or owners needs neither.
void hand_out_folder(int folder, int above)
{
    constexpr mode_t mode = 0755;
    struct stat made = {};
    struct stat around = {};
    if (fstat(folder, &made) != 0 || fstat(above, &around) != 0 || made.st_uid != geteuid())
        return;
    std::array<char, 32> name = {};
    std::snprintf(name.data(), name.size(), "/proc/self/fd/%d", folder);
    if (chmod(name.data(), mode) != 0)
        debug("the mode of a new folder cannot be set: %s", std::strerror(errno));
    if (made.st_uid == 0 && around.st_uid != 0 &&
        fchownat(folder, "", around.st_uid, around.st_gid, AT_EMPTY_PATH) != 0)
        debug("a new folder cannot be given to its owner: %s", std::strerror(errno));
}

} // namespace

owned_fd open_below(int at, std::initializer_list<const char *> names, missing_folders missing)
{
    constexpr mode_t mode = 0755;
    constexpr int flags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    owned_fd folder;
    for (const char *name : names) {
        const int above = folder ? folder.get() : at;
        const bool made = missing == missing_folders::create && mkdirat(above, name, mode) == 0;
        if (missing == missing_folders::create && !made && errno != EEXIST)
            return {};
        owned_fd next(openat(above, name, flags));
        if (!next)
            return {};
        if (made)
            hand_out_folder(next.get(), above);
        folder = std::move(next);
    }
    return folder;
}

std::optional<file_identity> file_identity_of(int fd)
{
    struct stat info = {};
    if (fstat(fd, &info) != 0)
        return std::nullopt;
    return file_identity{info.st_dev, info.st_ino};
}

owned_fd open_for_reading(int folder)
{
    return owned_fd(openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

int read_file(int folder, const char *name, std::size_t limit, bytes *contents)
{
    // Without blocking: the name may be a FIFO's or a device's.
    owned_fd file(openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file)
        return errno == ELOOP || errno == ENXIO ? EBADMSG : errno;
    struct stat info = {};
    if (fstat(file.get(), &info) != 0)
        return errno;
    if (!S_ISREG(info.st_mode) || info.st_size < 0 || static_cast<std::size_t>(info.st_size) > limit)
        return EBADMSG;
    // The additional byte shows whether the file grew meanwhile.
    bytes buffer(static_cast<std::size_t>(info.st_size) + 1);
    std::size_t filled = 0;
    for (int interruptions = 0;;) {
        const ssize_t got = read(file.get(), buffer.data() + filled, buffer.size() - filled);
        if (got < 0 && errno == EINTR && ++interruptions < most_interruptions)
            continue;
        if (got < 0)
            return errno;
        if (got == 0)
            break;
        filled += static_cast<std::size_t>(got);
        if (filled > limit)
            return EBADMSG;
        // A read that could have got more has met the end of the file. On an efivarfs one more read would be
        // one more call of the firmware, of which an ordinary user has 100 a second.
        if (filled == static_cast<std::size_t>(info.st_size))
            break;
        if (filled == buffer.size())
            buffer.resize(std::min(filled * 2, limit + 1));
    }
    buffer.resize(filled);
    *contents = std::move(buffer);
    return 0;
}

int replace_file(int folder, const char *name, byte_view contents)
{
    temporary_name temporary = {};
    owned_fd file;
    if (const int error = create_temporary(folder, &temporary, &file); error != 0)
        return error;
    int error = write_all(file.get(), contents);
    if (error == 0 && synchronise(file.get()) != 0)
        error = errno;
    if (error == 0 && renameat(folder, temporary.data(), folder, name) != 0)
        error = errno;
    if (error != 0) {
        unlinkat(folder, temporary.data(), 0);
        return error;
    }
    return write_back(folder);
}

int remove_file(int folder, const char *name)
{
    if (unlinkat(folder, name, 0) != 0)
        return errno;
    return write_back(folder);
}

int visit_folder(int folder, const name_taking &take)
{
    const owned_fd readable = open_for_reading(folder);
    struct stat info = {};
    if (!readable || fstat(readable.get(), &info) != 0)
        return errno;
    if (info.st_nlink == 0) // removed: it only looks empty
        return ENOENT;
    std::vector<char> entries(32768);
    for (;;) {
        const ssize_t got = getdents64(readable.get(), entries.data(), entries.size());
        if (got < 0)
            return errno;
        if (got == 0)
            return 0;
        for (std::size_t at = 0; at < static_cast<std::size_t>(got);) {
            const auto *entry = reinterpret_cast<const dirent64 *>(entries.data() + at);
            const std::string_view name = static_cast<const char *>(entry->d_name);
            if (name != "." && name != "..")
                take(name);
            at += entry->d_reclen;
        }
    }
}

int list_folder(int folder, std::vector<std::string> *names)
{
    std::vector<std::string> found;
    const int error = visit_folder(folder, [&found](std::string_view name) { found.emplace_back(name); });
    if (error == 0)
        *names = std::move(found);
    return error;
}

bool is_temporary(std::string_view name)
{
    return name.starts_with(temporary_prefix) && name.ends_with(temporary_suffix);
}

EFI_STATUS status_of_folder(int error)
{
    return error == ENOENT ? EFI_DEVICE_ERROR : status_of(error);
}

EFI_STATUS status_of(int error)
{
    switch (error) {
    case 0:
        return EFI_SUCCESS;
    case ENOENT:
        return EFI_NOT_FOUND;
    case EACCES:
    case EPERM:
        return EFI_ACCESS_DENIED;
    case EROFS:
        return EFI_WRITE_PROTECTED;
    case ETIMEDOUT:
        return EFI_TIMEOUT;
    case ENOSPC: // of the file system: the variable store may still have room
    case EDQUOT:
    case EFBIG:
        return EFI_VOLUME_FULL;
    case ENOMEM:
        return EFI_OUT_OF_RESOURCES;
    case ENOSYS:
    case EOPNOTSUPP:
        return EFI_UNSUPPORTED;
    case EINVAL:
    case EILSEQ: // a name that this file system cannot hold
    case ENAMETOOLONG:
        return EFI_INVALID_PARAMETER;
    default:
        return EFI_DEVICE_ERROR;
    }
}

} // namespace machine
