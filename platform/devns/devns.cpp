#include "platform/include/devns.h"

#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "platform/devns/runtime.h"
#include "platform/machine/drives.h"
#include "platform/machine/failure.h"

namespace {

/*
 * What devns_open served itself. The number is a real descriptor's, the machine's folder of variables, so
 * that the system gives it to nothing else. A command that is being carried out keeps its machine open even
 * when another thread closes it meanwhile.
 */
class served_table {
public:
    using entry = std::shared_ptr<machine::firmware>;

    int add(entry machine)
    {
        int fd = machine->variables.get();
        std::lock_guard guard(mutex);
        entry &place = entries[fd];
        if (place) // closed behind our back, so that the system gave the number again: it is the new one's
            place->variables.release();
        place = std::move(machine);
        return fd;
    }

    entry find(int fd)
    {
        std::lock_guard guard(mutex);
        auto found = entries.find(fd);
        return found == entries.end() ? nullptr : found->second;
    }

    entry take(int fd)
    {
        std::lock_guard guard(mutex);
        auto node = entries.extract(fd);
        return node.empty() ? nullptr : std::move(node.mapped());
    }

private:
    std::mutex mutex;
    std::map<int, entry> entries;
};

/* Never destroyed: a handle may be closed by an exit handler. */
served_table &served()
{
    static auto &only = *new served_table;
    return only;
}

/* What the kernel answers to a null pointer, which the C library's headers do not let through to it. */
int bad_address()
{
    errno = EFAULT;
    return -1;
}

/* The link that a disk's name of the machine would be. */
std::optional<std::string> device_link(std::string_view path)
{
    for (const std::string_view folder : {"/dev/dsk/", "/dev/rdsk/"}) {
        if (path.starts_with(folder))
            return machine::device_link(path.substr(folder.size()));
    }
    return std::nullopt;
}

/* No exception leaves a C function. */
template <typename body>
auto guarded(body call) noexcept -> decltype(call())
{
    try {
        return call();
    } catch (const machine::read_failure &failure) {
        errno = failure.error;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
    } catch (...) {
        errno = EIO;
    }
    return -1;
}

} // namespace

#pragma GCC visibility push(default)

int devns_open(const char *path, int flags)
{
    if (path == nullptr)
        return bad_address();
    // With a mode, so that no header turns the call into that of a symbol of another name.
    int fd = open(path, flags, 0);
    if (fd >= 0 || (errno != ENOENT && errno != ENOTDIR) || std::strcmp(path, DEVNS_RUNTIME_SERVICES) != 0)
        return fd;
    return guarded([] {
        served_table::entry machine = machine::open_firmware();
        return machine ? served().add(std::move(machine)) : -1;
    });
}

int devns_ioctl(int fd, int command, void *record)
{
    return guarded([=] {
        auto machine = served().find(fd);
        if (!machine)
            return ioctl(fd, static_cast<unsigned long>(command), record);
        return serve_runtime_command(*machine, command, record);
    });
}

int devns_close(int fd)
{
    return guarded([=] { return served().take(fd) ? 0 : close(fd); });
}

ssize_t devns_readlink(const char *path, char *buf, size_t size)
{
    if (path == nullptr || buf == nullptr)
        return bad_address();
    const ssize_t length = readlink(path, buf, size);
    if (length >= 0 || (errno != ENOENT && errno != ENOTDIR))
        return length;
    return guarded([=]() -> ssize_t {
        const auto link = device_link(path);
        if (!link) {
            errno = ENOENT;
            return -1;
        }
        return static_cast<ssize_t>(link->copy(buf, size));
    });
}

#pragma GCC visibility pop
