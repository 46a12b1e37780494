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
#include "platform/machine/failure.h"
#include "platform/machine/lock.h"
#include "platform/machine/picture.h"
#include "platform/machine/process.h"
#include "platform/machine/root.h"

using machine::value_or;

namespace {

// A machine whose services are open, and which files its descriptors were opened on.
class service {
public:
    // Nothing when they are not open at all.
    static std::shared_ptr<service> make(std::unique_ptr<machine::runtime_services> machine)
    {
        auto root = machine::file_identity_of(machine->root.folder.get());
        auto variables = machine::file_identity_of(machine->variables.get());
        if (!root || !variables)
            return nullptr;
        return std::make_shared<service>(std::move(machine), *root, *variables);
    }
    service(std::unique_ptr<machine::runtime_services> machine, machine::file_identity root_folder,
            machine::file_identity variables_folder)
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

    [[nodiscard]] const machine::runtime_services &machine() const { return *firmware; }

    // Whether the descriptors are still those that were opened. A program may have closed all that it did not
    // know, and the numbers may be its own files' by now.
    [[nodiscard]] bool is_whole() const
    {
        return machine::file_identity_of(firmware->variables.get()) == variables &&
               machine::file_identity_of(firmware->root.folder.get()) == root;
    }

    [[nodiscard]] int number() const { return firmware->variables.get(); }

    // A higher one. False with errno when there is none left.
    bool take_another_number()
    {
        const int another = fcntl(number(), F_DUPFD_CLOEXEC, number() + 1);
        if (another < 0)
            return false;
        firmware->variables.reset(another);
        return true;
    }

    // Leaves the numbers to whoever has them.
    void abandon() const
    {
        firmware->variables.release();
        firmware->root.folder.release();
    }

private:
    std::unique_ptr<machine::runtime_services> firmware;
    machine::file_identity root;
    machine::file_identity variables;
};

// What devns_open served itself. The number is a real descriptor's, the machine's folder of variables, so
// that the system gives it to nothing else. A command that is being carried out keeps its machine open even
// when another thread closes it meanwhile.
class served_table {
public:
    using entry = std::shared_ptr<service>;

    // The number that the service has from now on, or -1 with errno.
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

// Never destroyed: a handle may be closed by an exit handler.
served_table &served()
{
    static auto &only = *new served_table;
    return only;
}

// What the kernel answers to a null pointer, which the C library's headers do not let through to it.
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

// A number that the system gives anew is no longer that of a service which the program has closed itself.
void forget(int fd)
{
    if (auto gone = served().take(fd))
        gone->abandon();
}

// The link that a disk's name of the machine would be.
std::optional<std::string> device_link(std::string_view path)
{
    for (const std::string_view folder : {"/dev/dsk/", "/dev/rdsk/"}) {
        if (path.starts_with(folder))
            return machine::device_link(path.substr(folder.size()));
    }
    return std::nullopt;
}

} // namespace

#pragma GCC visibility push(default)

int devns_open(const char *path, int flags)
{
    if (path == nullptr)
        return bad_address();
    return value_or(-1, [=] {
        // With a mode, so that no header turns the call into that of a symbol of another name.
        int fd = open(path, flags, 0);
        if (fd >= 0) {
            forget(fd);
            return fd;
        }
        if ((errno != ENOENT && errno != ENOTDIR) || std::strcmp(path, DEVNS_RUNTIME_SERVICES) != 0)
            return fd;
        auto machine = machine::open_services();
        if (!machine)
            return -1;
        const auto opened = service::make(std::move(machine));
        return opened ? served().add(opened) : -1;
    });
}

int devns_ioctl(int fd, int command, void *record)
{
    return value_or(-1, [=] {
        auto opened = served().find(fd);
        if (!opened)
            return ioctl(fd, static_cast<unsigned long>(command), record);
        return opened->is_whole() ? serve_runtime_command(opened->machine(), command, record)
                                  : bad_descriptor();
    });
}

int devns_close(int fd)
{
    return value_or(-1, [=] {
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
    return value_or(ssize_t{-1}, [=]() -> ssize_t {
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
    return value_or(-1, [=] {
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
    return value_or(-1, [] {
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
