// SPDX-License-Identifier: MIT
#include "platform/machine/lock.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "platform/machine/debug.h"
#include "platform/machine/malloced.h"
#include "platform/machine/process.h"
#include "platform/machine/root.h"
#include "platform/machine/sysfs.h"

namespace machine {

namespace {

using std::chrono::milliseconds;

constexpr mode_t lock_mode = 0600; // whoever can open the file can hold the lock

struct machine_identity {
    file_identity root;
    bool live = false;
    std::string image; // a file of variables in that folder
    bool operator==(const machine_identity &) const = default;
};

// A lock that a thread has or waits for. The list tells a child made meanwhile what to close.
struct entry {
    entry *next = nullptr;
    const void *thread = nullptr;
    machine_identity machine;
    owned_fd file;
    file_identity opened_file;
    unsigned depth = 0; // 0 while it waits
    locked_knowledge knowledge;
};

constinit entry *known_locks = nullptr; // under lock_process_state()

void remove_from_list(const entry *gone)
{
    for (entry **link = &known_locks; *link != nullptr; link = &(*link)->next) {
        if (*link == gone) {
            *link = gone->next;
            return;
        }
    }
}

// The program may have closed all file descriptors, and the number may be another file's by now.
bool is_still_open(const entry &lock)
{
    const auto now = file_identity_of(lock.file.get());
    return now && *now == lock.opened_file;
}

// Takes or gives up a lock of all bytes of a file; F_UNLCK gives up. False with errno.
bool lock_bytes(int file, short type)
{
    struct flock whole = {};
    whole.l_type = type;
    whole.l_whence = SEEK_SET;
    return fcntl(file, F_OFD_SETLK, &whole) == 0;
}

// Some child may still have a copy of the file descriptor, and closing it would not be enough.
void unlock(int file)
{
    flock(file, LOCK_UN);
    lock_bytes(file, F_UNLCK);
}

struct take_off_list {
    void operator()(entry *lock) const
    {
        {
            const auto guard = lock_process_state();
            remove_from_list(lock);
        }
        if (!is_still_open(*lock))
            lock->file.release();
        else if (lock->depth > 0)
            unlock(lock->file.get());
        delete lock;
    }
};
using listed_entry = std::unique_ptr<entry, take_off_list>;

// Its address identifies the thread. A thread that ends gives back its locks.
struct this_thread {
    this_thread() = default;
    this_thread(const this_thread &) = delete;
    this_thread &operator=(const this_thread &) = delete;
    ~this_thread()
    {
        for (;;) {
            listed_entry mine;
            {
                const auto guard = lock_process_state();
                entry *found = known_locks;
                while (found != nullptr && found->thread != this)
                    found = found->next;
                if (found == nullptr)
                    return;
                remove_from_list(found);
                mine.reset(found);
            }
        }
    }
};
thread_local this_thread current;

// Under lock_process_state().
entry *own_in_list(const machine_identity &machine)
{
    entry *found = known_locks;
    while (found != nullptr && (found->thread != &current || !(found->machine == machine)))
        found = found->next;
    return found;
}

entry *find_own(const machine_identity &machine)
{
    const auto guard = lock_process_state();
    return own_in_list(machine);
}

// The lock that the thread took last, of any machine.
entry *find_last_own()
{
    const auto guard = lock_process_state();
    entry *found = known_locks;
    while (found != nullptr && (found->thread != &current || found->depth == 0))
        found = found->next;
    return found;
}

struct lock_place {
    owned_fd folder;
    const char *name;
};

lock_place place_of(const machine_root &root)
{
    if (!root.image.empty())
        return {open_below(root.folder.get(), {"."}, missing_folders::fail), root.image.c_str()};
    if (root.live)
        return {open_below(root.folder.get(), {"run"}, missing_folders::create), "ovra.lock"};
    return {open_below(root.folder.get(), {"var", "lib", "hwplat"}, missing_folders::create), "lock"};
}

// The lock file may belong to the owner of the machine's folder, who can change everything in it anyway.
std::optional<uid_t> owner_of(const machine_root &root)
{
    struct stat info = {};
    if (fstat(root.folder.get(), &info) != 0)
        return std::nullopt;
    return info.st_uid;
}

// 0, or why the file cannot be trusted.
int check_file(int file, const machine_root &root, const char *name)
{
    struct stat info = {};
    if (fstat(file, &info) != 0)
        return errno;
    if (!root.image.empty())
        return S_ISREG(info.st_mode) ? 0 : EPERM;
    const bool trusted = info.st_uid == geteuid() || info.st_uid == 0 || info.st_uid == owner_of(root);
    if (!S_ISREG(info.st_mode) || info.st_nlink > 1 || !trusted) {
        debug("the lock file '%s' is not a regular file of one name, or is somebody else's", name);
        return EPERM;
    }
    if ((info.st_mode & ALLPERMS) != lock_mode && fchmod(file, lock_mode) != 0)
        return errno;
    return 0;
}

// What root makes in another user's machine goes to that user, who could not change the machine otherwise.
void hand_to_owner(int file, const machine_root &root)
{
    const auto owner = owner_of(root);
    if (geteuid() == 0 && owner && *owner != 0 && fchown(file, *owner, static_cast<gid_t>(-1)) != 0)
        debug("the lock file stays root's: %s", std::strerror(errno));
}

// Who may not change the variables has no use for the lock, and would leave a file that nobody else trusts.
bool may_make_file(const machine_root &root)
{
    const owned_fd variables =
        open_below(root.folder.get(), {"sys", "firmware", "efi", "efivars"}, missing_folders::fail);
    return !variables || faccessat(variables.get(), ".", W_OK, AT_EACCESS) == 0 || errno != EACCES;
}

int open_lock_file(const lock_place &place, const machine_root &root, owned_fd *out)
{
    // Without blocking: the name may be a FIFO's.
    constexpr int flags = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    constexpr int attempts = 100; // more than any honest program removes and makes it
    owned_fd file;
    for (int attempt = 0; !file && attempt < attempts; ++attempt) {
        file.reset(openat(place.folder.get(), place.name, flags));
        if (file || errno != ENOENT || !root.image.empty())
            break;
        if (!may_make_file(root))
            return EACCES;
        file.reset(openat(place.folder.get(), place.name, flags | O_CREAT | O_EXCL, lock_mode));
        if (file)
            hand_to_owner(file.get(), root);
        else if (errno != EEXIST)
            break;
    }
    if (!file) {
        const int error = errno == ELOOP || errno == ENXIO || errno == EISDIR ? EPERM : errno;
        debug("cannot open the lock file '%s': %s", place.name, std::strerror(errno));
        return error;
    }
    if (const int error = check_file(file.get(), root, place.name); error != 0)
        return error;
    *out = std::move(file);
    return 0;
}

// Opens and lists the file in one step: a child made in between would keep a file it does not know of.
int list_new_entry(const machine_root &root, const machine_identity &machine, listed_entry *out)
{
    const lock_place place = place_of(root);
    if (!place.folder) {
        debug("no place for the machine's lock: %s", std::strerror(errno));
        return errno;
    }
    auto made = std::make_unique<entry>();
    made->thread = &current;
    made->machine = machine;
    const auto guard = lock_process_state();
    if (const int error = open_lock_file(place, root, &made->file); error != 0)
        return error;
    const auto opened_file = file_identity_of(made->file.get());
    if (!opened_file)
        return errno;
    made->opened_file = *opened_file;
    made->next = known_locks;
    known_locks = made.get();
    out->reset(made.release());
    return 0;
}

// Whether the file still has its name: the lock on a removed file keeps nobody out. 0 for yes, ENOENT for no,
// or why it is unknown.
int is_out_of_place(const entry &lock, const machine_root &root)
{
    const lock_place place = place_of(root);
    struct stat info = {};
    if (!place.folder || fstatat(place.folder.get(), place.name, &info, AT_SYMLINK_NOFOLLOW) != 0)
        return errno == ENOTDIR ? ENOENT : errno;
    return file_identity{info.st_dev, info.st_ino} == lock.opened_file ? 0 : ENOENT;
}

// The process in a line of proc(5), "3: FLOCK  ADVISORY  WRITE 1234 00:2a:5678 0 EOF"; 0 for another lock.
pid_t holder_in(std::string_view line, const file_identity &file)
{
    enum { type = 1, mode = 3, process = 4, place = 5, wanted = 6 };
    std::array<std::string_view, wanted> fields;
    for (std::string_view &field : fields) {
        line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
        field = line.substr(0, line.find(' '));
        line.remove_prefix(field.size());
    }
    const auto device_end = fields[place].rfind(':');
    const auto major_end = fields[place].find(':');
    if (fields[type] != "FLOCK" || fields[mode] != "WRITE" || major_end == device_end)
        return 0;
    const auto number = parse_number(fields[process], 10);
    const auto major = parse_number(fields[place].substr(0, major_end), 16);
    const auto minor = parse_number(fields[place].substr(major_end + 1, device_end - major_end - 1), 16);
    const auto inode = parse_number(fields[place].substr(device_end + 1), 10);
    if (!number || *number > INT_MAX || !major || !minor || !inode || *inode != file.inode ||
        makedev(static_cast<unsigned>(*major), static_cast<unsigned>(*minor)) != file.device)
        return 0;
    return static_cast<pid_t>(*number);
}

// The process that has the lock, from /proc/locks; 0 if unknown.
pid_t holder_of(const file_identity &file)
{
    struct close_stream {
        void operator()(FILE *stream) const { std::fclose(stream); }
    };
    const std::unique_ptr<FILE, close_stream> locks(std::fopen("/proc/locks", "re"));
    if (!locks)
        return 0;
    char *line = nullptr;
    std::size_t size = 0;
    pid_t found = 0;
    while (found == 0 && getline(&line, &size, locks.get()) > 0)
        found = holder_in(line, file);
    const malloced_text owned(line);
    return found;
}

milliseconds now()
{
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return std::chrono::duration_cast<milliseconds>(std::chrono::seconds(time.tv_sec) +
                                                    std::chrono::nanoseconds(time.tv_nsec));
}

// One try to lock a file of variables. 0; EWOULDBLOCK while another writer of ours has it; EBUSY when
// something else has.
int try_image(int file)
{
    if (!lock_bytes(file, F_WRLCK)) {
        struct flock held = {};
        held.l_type = F_WRLCK;
        held.l_whence = SEEK_SET;
        if ((errno != EAGAIN && errno != EACCES) || fcntl(file, F_OFD_GETLK, &held) != 0)
            return errno;
        const bool is_ours = held.l_type == F_WRLCK && held.l_start == 0 && held.l_len == 0;
        return is_ours || held.l_type == F_UNLCK ? EWOULDBLOCK : EBUSY;
    }
    // NFS makes a lock of bytes of this one, which would be in the way of the other.
    struct statfs info = {};
    if (fstatfs(file, &info) == 0 && info.f_type == NFS_SUPER_MAGIC)
        return 0;
    if (flock(file, LOCK_EX | LOCK_NB) == 0)
        return 0;
    const int error = errno == EWOULDBLOCK ? EBUSY : errno;
    lock_bytes(file, F_UNLCK);
    return error;
}

int try_lock(const entry &lock)
{
    if (!lock.machine.image.empty())
        return try_image(lock.file.get());
    return flock(lock.file.get(), LOCK_EX | LOCK_NB) == 0 ? 0 : errno;
}

// Waits for the lock of an open file. flock(2) has no time limit except by signals, which belong to the
// program: it is tried again and again, at first after short pauses.
int wait_for(const entry &lock, milliseconds deadline)
{
    constexpr long longest_pause = 4'000'000; // nanoseconds
    long pause = 50'000;
    for (int error = try_lock(lock); error != 0; error = try_lock(lock)) {
        if (error != EWOULDBLOCK && error != EINTR)
            return error;
        if (now() >= deadline)
            return ETIMEDOUT;
        const timespec time = {0, pause};
        nanosleep(&time, nullptr);
        pause = std::min(pause * 2, longest_pause);
    }
    return 0;
}

} // namespace

int take_lock(const machine_root &root, milliseconds patience, pid_t *holder)
{
    if (!follows_forks())
        return ENOMEM;
    const auto folder = file_identity_of(root.folder.get());
    if (!folder)
        return errno;
    const machine_identity machine = {*folder, root.live, root.image};
    unsigned depth = 0;
    if (entry *own = find_own(machine)) {
        if (is_still_open(*own)) {
            ++own->depth;
            return 0;
        }
        depth = own->depth; // the program has closed the file: take the lock anew
        const listed_entry lost(own);
    }
    const milliseconds deadline = now() + patience;
    for (;;) {
        listed_entry lock;
        if (const int error = list_new_entry(root, machine, &lock); error != 0)
            return error;
        int error = wait_for(*lock, deadline);
        const int out_of_place = error == 0 ? is_out_of_place(*lock, root) : 0;
        if (error == 0 && out_of_place == 0) {
            lock->depth = depth + 1;
            static_cast<void>(lock.release()); // stays in the list until it is given back
            return 0;
        }
        if (out_of_place != 0 && out_of_place != ENOENT)
            return out_of_place;
        if (error == 0 && now() >= deadline)
            error = ETIMEDOUT;
        if (error != 0) {
            if (error == ETIMEDOUT) {
                const pid_t process = holder_of(lock->opened_file);
                debug("another has the machine's lock: process %ld", static_cast<long>(process));
                if (holder != nullptr)
                    *holder = process;
            }
            return error;
        }
    }
}

int give_lock(const machine_root &root)
{
    entry *own = nullptr;
    if (const auto folder = file_identity_of(root.folder.get()))
        own = find_own({*folder, root.live, root.image});
    else
        own = find_last_own();
    if (own == nullptr)
        return EPERM;
    if (--own->depth == 0) {
        own->depth = 1; // take_off_list unlocks a held lock only
        const listed_entry last(own);
    }
    return 0;
}

locked_knowledge *knowledge_of(const machine_root &root)
{
    const auto folder = file_identity_of(root.folder.get());
    entry *own = folder ? find_own({*folder, root.live, root.image}) : nullptr;
    return own != nullptr && own->depth > 0 && is_still_open(*own) ? &own->knowledge : nullptr;
}

int rename_locked(const machine_root &root, const char *new_name, const file_identity &made,
                  const file_identity &read)
{
    const auto folder = file_identity_of(root.folder.get());
    if (!folder)
        return errno;
    const machine_identity machine = {*folder, root.live, root.image};
    // Opened and listed in one step, as in list_new_entry.
    const auto guard = lock_process_state();
    entry *own = own_in_list(machine);
    owned_fd file(openat(root.folder.get(), new_name, O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (own == nullptr || !file)
        return own == nullptr ? EPERM : errno;
    if (file_identity_of(file.get()) != made)
        return EPERM;
    if (const int error = try_image(file.get()); error != 0)
        return error;
    // Another program may have given the name to a file of its own, which it may have open.
    struct stat named = {};
    const bool is_named = fstatat(root.folder.get(), root.image.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0;
    if (!is_named || read != own->opened_file ||
        own->opened_file != file_identity{named.st_dev, named.st_ino}) {
        unlock(file.get());
        return ESTALE;
    }
    if (renameat(root.folder.get(), new_name, root.folder.get(), root.image.c_str()) != 0) {
        const int error = errno;
        unlock(file.get());
        return error;
    }
    if (is_still_open(*own))
        unlock(own->file.get());
    else
        own->file.release();
    own->file = std::move(file);
    own->opened_file = made;
    return 0;
}

EFI_STATUS held_lock::status() const
{
    if (failure == EBUSY)
        return EFI_ACCESS_DENIED;
    return status_of_folder(failure);
}

void forget_locks()
{
    while (known_locks != nullptr) {
        const std::unique_ptr<entry> copy(known_locks);
        known_locks = copy->next;
        if (!is_still_open(*copy))
            copy->file.release();
    }
}

} // namespace machine
