// SPDX-License-Identifier: MIT
#include "tools/machine/lock.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/include/devns.h"
#include "tools/machine/files.h"
#include "tools/text/failure.h"
#include "tools/text/text.h"

namespace tool {

namespace {

constexpr unsigned seconds_to_wait = 30;

std::string process_name(pid_t process)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/comm");
    std::string name;
    std::getline(file, name);
    return name.empty() ? "" : " (" + printable(name) + ')';
}

[[noreturn]] void give_up(const firmware &machine, int error, pid_t holder)
{
    struct stat file = {};
    const std::string cannot = "cannot lock the machine: ";
    switch (error) {
    case EBUSY:
        throw failure(cannot + "another program has " + machine.lock_file() + " open",
                      "A virtual machine that runs keeps it so: change its options from within, or\n"
                      "shut it down first.");
    case ETIMEDOUT:
        throw failure(format("another program has been changing the machine for %u seconds", seconds_to_wait),
                      holder > 0 ? "It is process " + std::to_string(holder) + process_name(holder) + '.'
                                 : "The system does not say which.");
    case EACCES:
        throw failure("no permission to change the machine", machine.permission_advice());
    case ENOTDIR:
        throw failure(cannot + "something on the path to its lock file is not a folder",
                      "All above " + machine.lock_file() + " are folders; links are not followed.");
    case EPERM:
        if (lstat(machine.lock_file().c_str(), &file) != 0 && errno == ENOENT)
            throw failure(cannot + "its lock file cannot be made",
                          "A folder of " + machine.lock_file() + " is immutable: 'chattr -i' changes that.");
        if (const auto found = look_at(machine.lock_file()); found && is_marked(*found))
            throw failure(cannot + machine.lock_file() + " is immutable or append-only",
                          "'chattr -i -a' changes that.");
        throw failure(cannot + "something else is in the place of its lock file",
                      "Remove " + machine.lock_file() + ": it is no regular file, or somebody else's.");
    case EROFS:
        throw failure(cannot + "its file system is mounted read-only",
                      "'mount -o remount,rw' makes the file system of " + machine.lock_file() + " writable.");
    case ENOSPC:
    case EDQUOT:
        throw failure(cannot + "the file system is full", "Make room for " + machine.lock_file() + '.');
    default:
        throw failure(cannot + strerror(error));
    }
}

} // namespace

machine_lock::machine_lock(const firmware &machine, const general_options &general)
{
    // Making the file would be a change.
    struct stat file = {};
    if (general.dry_run && lstat(machine.lock_file().c_str(), &file) != 0) {
        if (const int error = machine.lock_obstacle(); error != 0)
            give_up(machine, error, 0);
        // Taking the lock, and then a change, have as many files open as without --dry-run.
        constexpr size_t at_once = 4;
        if (const int error = can_open(at_once); error != 0)
            give_up(machine, error, 0);
        in_its_place = open("/", O_PATH | O_CLOEXEC);
        return;
    }
    pid_t holder = 0;
    if (devns_lock(seconds_to_wait, &holder) != 0)
        give_up(machine, errno, holder);
    held = true;
    machine.tell_of_other_names();
    sigset_t ending = {};
    sigemptyset(&ending);
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM})
        sigaddset(&ending, signal);
    sigprocmask(SIG_BLOCK, &ending, &signals_before);
}

machine_lock::~machine_lock()
{
    if (in_its_place != -1)
        close(in_its_place);
    if (!held)
        return;
    devns_unlock();
    sigprocmask(SIG_SETMASK, &signals_before, nullptr); // ends the program where one came meanwhile
}

} // namespace tool
