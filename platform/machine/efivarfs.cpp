// SPDX-License-Identifier: MIT
#include "platform/machine/efivarfs.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "platform/machine/debug.h"

namespace machine {

namespace {

// The kernel marks most variables immutable against accidents (fs/efivarfs/inode.c, efivarfs_get_inode).
// Lifts the mark of a file while it lives.
class lifted_immutable_flag {
public:
    lifted_immutable_flag(int folder, const char *file_name)
        : lifted_immutable_flag(openat(folder, file_name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC))
    {}
    explicit lifted_immutable_flag(int opened) : file(opened)
    {
        if (!file || ioctl(file.get(), FS_IOC_GETFLAGS, &flags) != 0 || (flags & FS_IMMUTABLE_FL) == 0)
            return;
        int without = flags & ~FS_IMMUTABLE_FL;
        lifted = ioctl(file.get(), FS_IOC_SETFLAGS, &without) == 0;
    }
    lifted_immutable_flag(const lifted_immutable_flag &) = delete;
    lifted_immutable_flag &operator=(const lifted_immutable_flag &) = delete;
    ~lifted_immutable_flag()
    {
        const int saved = errno;
        if (lifted)
            ioctl(file.get(), FS_IOC_SETFLAGS, &flags);
        errno = saved;
    }
    void file_is_gone() { lifted = false; }

private:
    owned_fd file;
    int flags = 0;
    bool lifted = false;
};

// The kernel hands each write to the firmware as one whole variable (fs/efivarfs/file.c,
// efivarfs_file_write).
EFI_STATUS write_once(int file, byte_view contents)
{
    ssize_t written = 0;
    int interruptions = 0;
    do {
        written = write(file, contents.data(), contents.size());
    } while (written < 0 && errno == EINTR && ++interruptions < most_interruptions);
    if (written >= 0)
        return static_cast<std::size_t>(written) == contents.size() ? EFI_SUCCESS : EFI_DEVICE_ERROR;
    // The file is open for writing: this is the firmware's answer, as drivers/firmware/efi/efi.c puts it
    // (efi_status_to_err).
    switch (errno) {
    case EACCES:
        return EFI_SECURITY_VIOLATION;
    case ENOSPC:
        return EFI_OUT_OF_RESOURCES;
    default:
        return status_of(errno);
    }
}

// Otherwise a variable that the firmware refused would stay as an empty file, immutable if the kernel does
// not know its name.
void remove_refused(int folder, const char *file_name, owned_fd file)
{
    lifted_immutable_flag lift(file.release());
    if (unlinkat(folder, file_name, 0) == 0)
        lift.file_is_gone();
    else
        debug("the refused variable '%s' stays as an empty file: %s", file_name, std::strerror(errno));
}

} // namespace

EFI_STATUS write_efivarfs(int folder, const char *file_name, byte_view contents)
{
    constexpr mode_t mode = 0644;
    constexpr int flags = O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    lifted_immutable_flag lift(folder, file_name);
    owned_fd file(openat(folder, file_name, flags));
    bool created = false;
    if (!file && errno == ENOENT) {
        file = owned_fd(openat(folder, file_name, flags | O_CREAT | O_EXCL, mode));
        created = static_cast<bool>(file);
    }
    if (!file)
        return status_of(errno);
    const EFI_STATUS status = write_once(file.get(), contents);
    if (status != EFI_SUCCESS && created)
        remove_refused(folder, file_name, std::move(file));
    return status;
}

EFI_STATUS remove_efivarfs(int folder, const char *file_name, UINT32 attributes)
{
    lifted_immutable_flag lift(folder, file_name);
    if (unlinkat(folder, file_name, 0) == 0) {
        lift.file_is_gone();
        return EFI_SUCCESS;
    }
    if (errno != EINVAL)
        return status_of(errno);
    // The kernel says EINVAL whatever the firmware said (fs/efivarfs/inode.c, efivarfs_unlink). It passes on
    // the firmware's answer to a write without data.
    owned_fd file(openat(folder, file_name, O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file)
        return status_of(errno);
    const EFI_STATUS status = write_once(file.get(), std::as_bytes(std::span(&attributes, 1)));
    if (status == EFI_SUCCESS)
        lift.file_is_gone();
    return status;
}

EFI_STATUS efivarfs_space(int folder, variable_space *space)
{
    struct statfs info = {};
    if (fstatfs(folder, &info) != 0)
        return status_of(errno);
    if (info.f_blocks == 0)
        return EFI_UNSUPPORTED;
    const auto block = static_cast<UINT64>(info.f_bsize);
    space->store = info.f_blocks * block;
    space->remaining = info.f_bavail * block; // without what the kernel holds back
    space->variable = space->remaining; // the kernel does not tell the firmware's own limit; none is higher
    return EFI_SUCCESS;
}

} // namespace machine
