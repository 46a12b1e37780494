// SPDX-License-Identifier: MIT
#include "platform/include/devns.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "platform/devns/runtime.h"
#include "platform/machine/enumerate.h"
#include "platform/machine/failure.h"
#include "platform/machine/lock.h"
#include "platform/machine/picture.h"
#include "platform/machine/place.h"
#include "platform/machine/process.h"
#include "platform/machine/root.h"
#include "platform/machine/services.h"
#include "platform/machine/shared.h"
#include "src/base/device_name.h"

using machine::value_or;

namespace {

// Services that devns_open opened, and the files that their file descriptors were opened on.
class opened_services {
public:
    explicit opened_services(std::unique_ptr<machine::runtime_services> found) : services(std::move(found)) {}
    opened_services(const opened_services &) = delete;
    opened_services &operator=(const opened_services &) = delete;
    ~opened_services()
    {
        if (is_whole())
            machine::leave_walks(*services);
        else
            abandon();
    }

    [[nodiscard]] const machine::runtime_services &get() const { return *services; }

    // Whether the file descriptors are still open on the same files. The program may have closed all it did
    // not know, and the numbers may be its own files' by now.
    [[nodiscard]] bool is_whole() const
    {
        return machine::has_folder(*services) &&
               machine::file_identity_of(services->root.folder.get()) == services->root.identity;
    }

    // The same for what a command uses. Reading variables, which is done more often than all else, takes
    // their folder alone, and a walk through them looks at that itself where it needs it.
    [[nodiscard]] bool is_whole_for(int command) const
    {
        switch (command) {
        case OVRA_GET_NEXT_VARIABLE_NAME:
            return true;
        case OVRA_GET_VARIABLE:
            return machine::is_whole_in_picture(*machine::common_state().of_this_thread(), serial,
                                                [this] { return machine::has_folder(*services); });
        default:
            return is_whole();
        }
    }

    [[nodiscard]] int number() const { return services->variables.get(); }

    // Moves to a higher number. False with errno when none is left.
    bool take_another_number()
    {
        const int another = fcntl(number(), F_DUPFD_CLOEXEC, number() + 1);
        if (another < 0)
            return false;
        services->variables.reset(another);
        return true;
    }

    // Gives the numbers up without closing them.
    void abandon() const
    {
        services->variables.release();
        services->root.folder.release();
    }

private:
    static unsigned long next_serial()
    {
        static std::atomic<unsigned long> last;
        return ++last;
    }

    std::unique_ptr<machine::runtime_services> services;
    unsigned long serial = next_serial();
};

// What devns_open served itself, by the number of a real file descriptor, the folder of variables: the system
// gives that number to nothing else. A command under way keeps its services open even if another thread
// closes them.
class served_table {
public:
    using entry = std::shared_ptr<opened_services>;

    // Returns the number of the services from now on, or -1 with errno.
    int add(const entry &opened)
    {
        for (;;) {
            {
                const auto guard = machine::lock_process_state();
                const int fd = opened->number();
                if (entries.try_emplace(fd, opened).second)
                    return fd;
            }
            // The program closed the services of this number without our knowledge. Whoever still uses the
            // number must not reach the new ones.
            if (!opened->take_another_number())
                return -1;
        }
    }

    entry find(int fd)
    {
        const auto guard = machine::lock_process_state();
        const auto found = entries.find(fd);
        return found == entries.end() ? nullptr : found->second;
    }

    entry take(int fd)
    {
        const auto guard = machine::lock_process_state();
        auto node = entries.extract(fd);
        return node.empty() ? nullptr : std::move(node.mapped());
    }

private:
    std::map<int, entry> entries; // under lock_process_state()
};

// Never destroyed: an exit handler may still close a handle.
served_table &served()
{
    static auto &only = *new served_table;
    return only;
}

int bad_descriptor()
{
    errno = EBADF;
    return -1;
}

// The system has given out this number anew: the program has closed the services that had it.
void forget(int fd)
{
    if (const auto gone = served().take(fd))
        gone->abandon();
}

// The link that a name of a disk stands for.
std::optional<std::string> device_link(std::string_view path)
{
    for (const std::string_view folder :
         {std::string_view(ovra::slice_folder), std::string_view(ovra::partition_folder)}) {
        if (path.starts_with(folder))
            return machine::device_link(path.substr(folder.size()));
    }
    return std::nullopt;
}

// Names one behind the other, in a block for free(3), which the system can often make larger without a copy.
class name_block {
public:
    name_block() = default;
    name_block(const name_block &) = delete;
    name_block &operator=(const name_block &) = delete;
    ~name_block() { free(block); }

    // With its terminator.
    void add(std::string_view name)
    {
        if (room - size <= name.size()) {
            const std::size_t more = 2 * (room + name.size()) + 4096;
            auto *larger = static_cast<char *>(realloc(block, more));
            if (larger == nullptr)
                throw std::bad_alloc();
            block = larger;
            room = more;
        }
        size += name.copy(block + size, name.size());
        block[size++] = '\0';
    }

    char *release() { return std::exchange(block, nullptr); }

private:
    char *block = nullptr;
    std::size_t size = 0;
    std::size_t room = 0;
};

} // namespace

#pragma GCC visibility push(default)

int devns_open(const char *path, int flags)
{
    if (path == nullptr)
        return bad_address();
    return value_or(-1, [=] {
        // With a mode: without one some headers call a symbol of another name.
        const int fd = open(path, flags, 0);
        if (fd >= 0) {
            forget(fd);
            return fd;
        }
        if ((errno != ENOENT && errno != ENOTDIR) || std::strcmp(path, DEVNS_RUNTIME_SERVICES) != 0)
            return fd;
        auto found = machine::open_services();
        if (!found)
            return -1;
        return served().add(std::make_shared<opened_services>(std::move(found)));
    });
}

int devns_ioctl(int fd, int command, void *record)
{
    return value_or(-1, [=] {
        const auto opened = served().find(fd);
        if (!opened)
            return ioctl(fd, static_cast<unsigned long>(command), record);
        return opened->is_whole_for(command) ? serve_runtime_command(opened->get(), command, record)
                                             : bad_descriptor();
    });
}

char *devns_variable_names(int fd)
{
    return value_or(static_cast<char *>(nullptr), [=]() -> char * {
        const auto opened = served().find(fd);
        if (!opened) {
            if (fcntl(fd, F_GETFD) != -1)
                errno = ENOTTY;
            return nullptr;
        }
        if (!opened->is_whole()) {
            bad_descriptor();
            return nullptr;
        }
        name_block names;
        const auto take = [&names](std::string_view name) { names.add(name); };
        if (const int error = machine::place_of(opened->get().kind).list(opened->get(), take); error != 0) {
            errno = error;
            return nullptr;
        }
        names.add({}); // the end
        return names.release();
    });
}

int devns_close(int fd)
{
    return value_or(-1, [=] {
        const auto opened = served().take(fd);
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
        const auto root = machine::open_root_of_variables();
        const int error =
            root.folder ? machine::take_lock(root, std::chrono::seconds(seconds), holder) : errno;
        if (error == 0)
            return 0;
        errno = error;
        return -1;
    });
}

int devns_unlock()
{
    return value_or(-1, [] {
        // The machine's folder may be out of reach by now: give_lock then gives back the last lock.
        const auto root = machine::open_root_of_variables();
        const int error = machine::give_lock(root);
        if (error == 0)
            return 0;
        errno = error;
        return -1;
    });
}

#pragma GCC visibility pop
