// SPDX-License-Identifier: MIT
#include "platform/include/devns.h"

#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
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
#include "platform/machine/lock.h"
#include "platform/machine/process.h"
#include "src/base/device_name.h"

namespace {

/* A machine whose services are open, and which files its descriptors were opened on. */
class service {
public:
    /* Nothing when they are not open at all. */
    static std::shared_ptr<service> make(std::unique_ptr<machine::firmware> machine)
    {
        auto root = machine::identity_of_descriptor(machine->root.folder.get());
        auto variables = machine::identity_of_descriptor(machine->variables.get());
        if (!root || !variables)
            return nullptr;
        return std::make_shared<service>(std::move(machine), *root, *variables);
    }
    service(std::unique_ptr<machine::firmware> machine, machine::identity root_folder,
            machine::identity variables_folder)
        : firmware(std::move(machine)), root(root_folder), variables(variables_folder)
    {}
    service(const service &) = delete;
    service &operator=(const service &) = delete;
    ~service()
    {
        if (is_whole())
            machine::leave_walks(*firmware);
        else
            abandon();
    }

    [[nodiscard]] const machine::firmware &machine() const { return *firmware; }

    /*
     * Whether the descriptors are still those that were opened. A program may have closed all that it did not
     * know, and the numbers may be its own files' by now.
     */
    [[nodiscard]] bool is_whole() const
    {
        return machine::identity_of_descriptor(firmware->variables.get()) == variables &&
               machine::identity_of_descriptor(firmware->root.folder.get()) == root;
    }

    [[nodiscard]] int number() const { return firmware->variables.get(); }

    /* A higher one. False with errno when there is none left. */
    bool take_another_number()
    {
        const int another = fcntl(number(), F_DUPFD_CLOEXEC, number() + 1);
        if (another < 0)
            return false;
        firmware->variables.reset(another);
        return true;
    }

    /* Leaves the numbers to whoever has them. */
    void abandon() const
    {
        firmware->variables.release();
        firmware->root.folder.release();
    }

private:
    std::unique_ptr<machine::firmware> firmware;
    machine::identity root;
    machine::identity variables;
};

/*
 * What devns_open served itself. The number is a real descriptor's, the machine's folder of variables, so
 * that the system gives it to nothing else. A command that is being carried out keeps its machine open even
 * when another thread closes it meanwhile.
 */
class served_table {
public:
    using entry = std::shared_ptr<service>;

    /* The number that the service has from now on, or -1 with errno. */
    int add(const entry &opened)
    {
        for (;;) {
            {
                auto guard = machine::lock_process_state();
                const int fd = opened->number();
                if (entries.try_emplace(fd, opened).second)
                    return fd;
            }
            // A service of this number was closed behind our back. Who still knows it by the number must not
            // come to use, or to close, the new one.
            if (!opened->take_another_number())
                return -1;
        }
    }

    entry find(int fd)
    {
        auto guard = machine::lock_process_state();
        auto found = entries.find(fd);
        return found == entries.end() ? nullptr : found->second;
    }

    entry take(int fd)
    {
        auto guard = machine::lock_process_state();
        auto node = entries.extract(fd);
        return node.empty() ? nullptr : std::move(node.mapped());
    }

private:
    std::map<int, entry> entries; // under lock_process_state()
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

int bad_descriptor()
{
    errno = EBADF;
    return -1;
}

/* A number that the system gives anew is no longer that of a service which the program has closed itself. */
void forget(int fd)
{
    if (auto gone = served().take(fd))
        gone->abandon();
}

/* The link that a disk's name of the machine would be. */
std::optional<std::string> device_link(std::string_view path)
{
    for (const std::string_view folder :
         {std::string_view(ovra::slice_folder), std::string_view(ovra::partition_folder)}) {
        if (path.starts_with(folder))
            return machine::device_link(path.substr(folder.size()));
    }
    return std::nullopt;
}

/* For a C function: what `call` gives, or -1 with errno. */
template <typename body>
auto guarded(body call) noexcept -> decltype(call())
{
    decltype(call()) result = -1;
    int saved = 0; // what the call left in errno, which belongs to its result
    const int error = machine::outcome_of([&] {
        result = call();
        saved = errno;
    });
    errno = error != 0 ? error : saved;
    return error != 0 ? -1 : result;
}

} // namespace

#pragma GCC visibility push(default)

int devns_open(const char *path, int flags)
{
    if (path == nullptr)
        return bad_address();
    return guarded([=] {
        // With a mode, so that no header turns the call into that of a symbol of another name.
        int fd = open(path, flags, 0);
        if (fd >= 0) {
            forget(fd);
            return fd;
        }
        if ((errno != ENOENT && errno != ENOTDIR) || std::strcmp(path, DEVNS_RUNTIME_SERVICES) != 0)
            return fd;
        auto machine = machine::open_firmware();
        if (!machine)
            return -1;
        const auto opened = service::make(std::move(machine));
        return opened ? served().add(opened) : -1;
    });
}

int devns_ioctl(int fd, int command, void *record)
{
    return guarded([=] {
        auto opened = served().find(fd);
        if (!opened)
            return ioctl(fd, static_cast<unsigned long>(command), record);
        return opened->is_whole() ? serve_runtime_command(opened->machine(), command, record)
                                  : bad_descriptor();
    });
}

int devns_close(int fd)
{
    return guarded([=] {
        auto opened = served().take(fd);
        if (!opened)
            return close(fd);
        return opened->is_whole() ? 0 : bad_descriptor();
    });
}

ssize_t devns_readlink(const char *path, char *buf, size_t size)
{
    if (path == nullptr || buf == nullptr)
        return bad_address();
    return guarded([=]() -> ssize_t {
        const ssize_t length = readlink(path, buf, size);
        if (length >= 0 || (errno != ENOENT && errno != ENOTDIR))
            return length;
        const auto link = device_link(path);
        if (!link) {
            errno = ENOENT;
            return -1;
        }
        return static_cast<ssize_t>(link->copy(buf, size));
    });
}

int devns_lock(unsigned int seconds, pid_t *holder)
{
    return guarded([=] {
        auto root = machine::open_root();
        int error = root.folder ? machine::take_lock(root, std::chrono::seconds(seconds), holder) : errno;
        if (error == 0)
            return 0;
        errno = error;
        return -1;
    });
}

int devns_unlock()
{
    return guarded([] {
        // The machine's folder may be out of reach by now: then it is the lock that was taken last.
        auto root = machine::open_root();
        int error = machine::give_lock(root);
        if (error == 0)
            return 0;
        errno = error;
        return -1;
    });
}

#pragma GCC visibility pop
