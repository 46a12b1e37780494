#include "platform/include/devns.h"

#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <new>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "platform/devns/runtime.h"

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

/* No exception leaves a C function. */
template <typename body>
int guarded(body call) noexcept
{
    try {
        return call();
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
    return readlink(path, buf, size);
}

#pragma GCC visibility pop
