// SPDX-License-Identifier: MIT
// Changing variables, the clock and the machine's state, and why that is not possible.
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <utility>

#include "tools/machine/firmware.h"
#include "tools/text/failure.h"

namespace tool {

namespace {

constexpr uint32_t authenticated = 0x30; // by either way that the firmware knows

bool may(const std::string &path, int access_mode)
{
    return faccessat(AT_FDCWD, path.c_str(), access_mode, AT_EACCESS) == 0;
}

bool is_read_only(const std::string &path)
{
    struct statvfs info = {};
    return statvfs(path.c_str(), &info) == 0 && (info.f_flag & ST_RDONLY) != 0;
}

// Type, mode, owner, size and marks of a file; nothing when there is none.
std::optional<struct statx> look_at(const std::string &path)
{
    struct statx found = {};
    constexpr unsigned wanted = STATX_TYPE | STATX_MODE | STATX_UID | STATX_SIZE;
    if (statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, wanted, &found) != 0)
        return std::nullopt;
    return found;
}

bool is_marked(const struct statx &file)
{
    return (file.stx_attributes & (STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND)) != 0;
}

// What a folder's machine counts for a variable beside its data: attributes and name.
int64_t overhead_of(const std::string &name)
{
    return static_cast<int64_t>(sizeof(uint32_t) + (name.size() + 1) * sizeof(CHAR16));
}

} // namespace

bool firmware::is_real() const
{
    struct statfs info = {};
    return statfs(variables_folder().c_str(), &info) == 0 &&
           static_cast<uint32_t>(info.f_type) == EFIVARFS_MAGIC;
}

std::string firmware::file_of(const std::string &name) const
{
    return variables_folder() + '/' + name + "-8be4df61-93ca-11d2-aa0d-00e098032b8c";
}

std::string firmware::folder_of(const change_request &request) const
{
    return request.state.empty() ? variables_folder() : state_folder();
}

std::string firmware::file_of(const change_request &request) const
{
    return request.state.empty() ? file_of(request.name) : state_folder() + '/' + request.state;
}

not_changed firmware::no_permission(const change_request &request) const
{
    return not_changed(request.what + ": no permission", permission_advice());
}

not_changed firmware::too_large(const change_request &request, const variable_store &store) const
{
    return not_changed(
        request.what + format(": %zu bytes are too many for one variable", request.size),
        format("One holds at most %lu bytes: shorten the optional data, the description or\nthe path.",
               store.largest));
}

not_changed firmware::no_room(const change_request &request, const std::optional<variable_store> &store) const
{
    std::string advice = "Remove options that are not needed; 'ovra vars' shows what takes the room.";
    if (is_real())
        advice += "\nMost firmware gives the room of what is removed back only at the next start:\n"
                  "then restart, and try again.";
    if (store)
        advice += format("\n%lu bytes are left, %lu for one variable.", store->left, store->largest);
    not_changed failed(request.what + ": no room in the variable store", advice);
    failed.no_room = true;
    return failed;
}

not_changed firmware::file_system_full(const change_request &request) const
{
    return not_changed(request.what + ": the file system is full",
                       (request.state.empty() ? "The variables are files in " : "It is a file in ") +
                           folder_of(request) + ": make room there.");
}

std::optional<variable_store> firmware::store()
{
    UINT64 in_all = 0;
    UINT64 left = 0;
    UINT64 largest = 0;
    EFI_STATUS status = EFI_SUCCESS;
    const int asked = call([&] {
        return ovra_query_variable_info(handle, boot_variable_attributes, &in_all, &left, &largest, &status);
    });
    if (asked != 0 || status != EFI_SUCCESS)
        return std::nullopt;
    return variable_store{left, largest};
}

std::optional<not_changed> firmware::obstacle_in_folder(const change_request &request) const
{
    const std::string all = folder_of(request);
    const std::string path = file_of(request);
    const auto parent = look_at(all);
    const auto file = look_at(path);
    for (const auto &[is, where] : {std::pair(parent, all), std::pair(file, path)}) {
        if (is && is_marked(*is))
            return not_changed(request.what + ": " + where + " is immutable",
                               "'chattr -i -a' takes that mark away.");
    }
    if (file && S_ISDIR(file->stx_mode))
        return not_changed(request.what + ": a folder is in its place", "Remove the folder " + path + '.');
    const uid_t user = geteuid();
    const bool owners_only = parent && (parent->stx_mode & S_ISVTX) != 0 && user != 0;
    if (owners_only && file && file->stx_uid != user && parent->stx_uid != user)
        return no_permission(request);
    return std::nullopt;
}

std::optional<not_changed> firmware::obstacle(const change_request &request) const
{
    const std::string all = folder_of(request);
    const bool real = request.state.empty() && is_real();
    if (is_read_only(all))
        return not_changed(request.what + (request.state.empty() ? ": the variables are mounted read-only"
                                                                 : ": it is mounted read-only"),
                           real ? "'mount -o remount,rw /sys/firmware/efi/efivars' makes them writable."
                                : "'mount -o remount,rw' makes the file system of " + all + " writable.");
    if (!real) {
        if (auto found = obstacle_in_folder(request))
            return found;
        return may(all, R_OK | W_OK | X_OK) ? std::nullopt : std::optional(no_permission(request));
    }
    if (geteuid() == 0) // for which the platform lifts the mark that the kernel puts on variables
        return std::nullopt;
    const std::string path = file_of(request);
    const auto file = look_at(path);
    const bool allowed = file && request.size != 0 ? !is_marked(*file) && may(path, W_OK) : may(all, W_OK);
    return allowed ? std::nullopt : std::optional(no_permission(request));
}

// The firmware takes no change of attributes.
firmware::change_request firmware::request_of(const std::string &name, const bytes &data,
                                              const variable &before)
{
    return {(data.empty() ? "cannot delete " : "cannot write ") + name,
            name,
            before.status == EFI_SUCCESS ? before.attributes : boot_variable_attributes,
            data.size(),
            {}};
}

std::optional<not_changed> firmware::obstacle_of_attributes(const change_request &request) const
{
    const bool real = is_real();
    const uint32_t attributes = request.attributes;
    const std::string what =
        request.what + ": it is stored " +
        (attributes == 0 ? "without attributes" : "as " + join(attribute_words(attributes), ", "));
    // A write with no attributes deletes, one that appends does not delete.
    constexpr uint32_t possible = boot_variable_attributes | authenticated;
    const bool impossible =
        (attributes & EFI_VARIABLE_APPEND_WRITE) != 0 || (attributes == 0 && request.size != 0) ||
        (!real && ((attributes & ~possible) != 0 || (attributes & EFI_VARIABLE_BOOTSERVICE_ACCESS) == 0));
    if (impossible)
        return not_changed(what, real ? "No variable can be so; the firmware's own setup may delete it."
                                      : "No variable can be so: remove " + file_of(request) + '.');
    // A folder cannot check the signature that even a deletion needs.
    if ((attributes & authenticated) != 0 && (request.size != 0 || !real))
        return not_changed(what, "Only who holds the key of an authenticated variable can change it.");
    // Real firmware may think otherwise, and is asked.
    if ((attributes & EFI_VARIABLE_NON_VOLATILE) == 0 && !real)
        return not_changed(what, "What is not non-volatile is the firmware's own until the next start.");
    return std::nullopt;
}

not_changed firmware::why_not(const change_request &request, EFI_STATUS status)
{
    const int reason = error;
    const std::string said = messages;
    const auto with_messages = [&said](not_changed failed) {
        failed.messages = said;
        return failed;
    };
    if (!request.name.empty() || !request.state.empty()) {
        if (auto known = obstacle(request))
            return with_messages(std::move(*known));
    }
    const std::string words = join(attribute_words(request.attributes), ", ");
    if (auto known = obstacle_of_attributes(request))
        return with_messages(std::move(*known));
    if (is_permission(reason) || is_refusal(status)) {
        const bool by_firmware = !is_permission(reason) && status == EFI_WRITE_PROTECTED;
        return with_messages(by_firmware ? not_changed(request.what + ": the firmware keeps it read-only")
                                         : no_permission(request));
    }

    const bool real = is_real();
    if (status == EFI_VOLUME_FULL || (reason == ENOSPC && !real))
        return with_messages(file_system_full(request));
    // The library does not hand on why a write failed; whether there was room for it can be asked.
    const auto room = request.name.empty() ? std::nullopt : store();
    if (!real && room && room->largest < request.size)
        return with_messages(too_large(request, *room));
    const bool no_memory = reason == ENOMEM; // of this process, which has the same status
    if ((status == EFI_OUT_OF_RESOURCES && !no_memory) || reason == ENOSPC ||
        (room && room->left < request.size))
        return with_messages(no_room(request, room));

    std::string advice;
    // Firmware answers so to a variable beyond its limit for one, which no call tells; it is nowhere lower.
    constexpr size_t lowest_limit = 1024;
    if (request.attributes != boot_variable_attributes && status == EFI_INVALID_PARAMETER)
        advice = "It is stored as " + words +
                 ", of which this firmware takes no change from a\n"
                 "running system. The firmware's own setup can delete it; then it can be\nwritten anew.";
    else if (reason == EINVAL && request.size > lowest_limit)
        advice = format("The firmware may be unable to keep a variable of %zu bytes.", request.size);
    std::string why = status == EFI_SUCCESS ? std::string() : ": " + status_name(status);
    if (reason != 0)
        why += std::string(": ") + strerror(reason);
    return with_messages(not_changed(request.what + why, advice));
}

void firmware::change_global(const std::string &name, const bytes &data)
{
    variable_id id = global_id(name);
    const variable before = read(id);
    const change_request request = request_of(name, data, before);
    bytes copy = data;
    EFI_STATUS status = EFI_SUCCESS;
    const int asked = call([&] {
        return ovra_set_variable(handle, id.name.data(), &id.guid, request.attributes, copy.size(),
                                 copy.empty() ? nullptr : copy.data(), &status);
    });
    if (asked == 0 && status == EFI_SUCCESS)
        return;
    not_changed failed = why_not(request, status);

    // A failure may come after the change, as when it cannot be confirmed that it reached the disk.
    try {
        const variable after = read(id);
        const auto same = [&](const variable &is) {
            return data.empty() ? is.status == EFI_NOT_FOUND : is.status == EFI_SUCCESS && is.data == data;
        };
        failed.done_anyway = same(after) && !same(before);
        if (failed.done_anyway)
            failed.advise(name + (data.empty() ? " is gone" : " is written") +
                          " all the same, but that may not outlive a power failure.");
        else if (after.status != before.status || after.data != before.data)
            failed.advise(name + " is no longer what it was: 'ovra vars -v " + name + "' shows it.");
    } catch (const failure &) {
        failed.advise("What " + name + " now holds cannot be read.");
    }
    throw not_changed(failed);
}

not_changed firmware::capacity_unknown(const change_request &request)
{
    if (is_permission(error))
        return no_permission(request);
    const std::string file = state_folder() + '/' + capacity_state;
    if (error == 0 || error == EBADMSG)
        return not_changed(request.what + ": " + file + " is damaged",
                           "It holds the bytes of all variables and those of one, as 262144 32768:\n"
                           "correct or remove it.");
    return not_changed(request.what + ": how much room there is cannot be read: " + strerror(error));
}

void firmware::check_room(const change_request &request, const variable &before, room_taken *planned)
{
    const bool real = is_real();
    const auto room = store();
    if (!room && !real && request.size != 0) // which is asked for what grows, and for what it may be
        throw capacity_unknown(request);
    if (!room)
        return;
    if (!real && request.size > room->largest)
        throw too_large(request, *room);
    const int64_t overhead = overhead_of(request.name);
    const bool frees = before.status == EFI_SUCCESS && !real; // real firmware does so at the next start
    const int64_t freed = frees ? overhead + static_cast<int64_t>(before.data.size()) : 0;
    const int64_t taken = request.size != 0 ? overhead + static_cast<int64_t>(request.size) : 0;
    planned->store += taken - freed;
    if (taken > freed && planned->store > static_cast<int64_t>(room->left))
        throw no_room(request, room);
}

void firmware::check_file_system(const change_request &request, room_taken *planned) const
{
    struct statvfs info = {};
    if (statvfs(folder_of(request).c_str(), &info) != 0 || info.f_frsize == 0)
        return;
    const auto blocks_of = [&info](uint64_t size) {
        return static_cast<int64_t>((size + info.f_frsize - 1) / info.f_frsize);
    };
    // A new file takes the place of the old one, which is there until then. Some file systems have no limits,
    // and count none.
    const auto old = look_at(file_of(request));
    const int64_t blocks = request.size == 0 ? 0 : blocks_of(sizeof(uint32_t) + request.size);
    const int64_t files = request.size == 0 ? 0 : 1;
    const auto free_blocks = static_cast<int64_t>(geteuid() == 0 ? info.f_bfree : info.f_bavail);
    const auto free_files = static_cast<int64_t>(geteuid() == 0 ? info.f_ffree : info.f_favail);
    const bool no_blocks = info.f_blocks != 0 && planned->blocks + blocks > free_blocks;
    const bool no_files = info.f_files != 0 && planned->files + files > free_files;
    if (request.size != 0 && (no_blocks || no_files))
        throw file_system_full(request);
    planned->blocks += blocks - (old ? blocks_of(old->stx_size) : 0);
    planned->files += files - (old ? 1 : 0);
}

void firmware::check_change(const std::string &name, const bytes &data, room_taken *planned)
{
    const variable before = read_global(name);
    const change_request request = request_of(name, data, before);
    if (auto known = obstacle(request))
        throw not_changed(*known);
    if (auto known = obstacle_of_attributes(request))
        throw not_changed(*known);
    // What the variable is must be known to change it.
    if (is_refusal(before.status))
        throw no_permission(request);
    if (before.status != EFI_SUCCESS && before.status != EFI_NOT_FOUND && !is_damaged(before))
        throw not_changed(request.what + ": it cannot be read: " +
                          (before.error != 0 ? strerror(before.error) : status_name(before.status)));
    check_room(request, before, planned);
    if (!is_real())
        check_file_system(request, planned);
}

std::string firmware::lock_file() const
{
    return is_live() ? "/run/ovra.lock" : root_folder() + "/var/lib/hwplat/lock";
}

int firmware::lock_obstacle() const
{
    if (is_live() && geteuid() != 0)
        return EACCES;
    // Folders on the way are entered one by one, links not followed, and what is missing is made.
    const std::string file = lock_file();
    std::string above = root_folder();
    while (above.size() < file.size()) {
        const std::string next = file.substr(0, file.find('/', above.size() + 1));
        struct stat found = {};
        if (lstat(next.c_str(), &found) == 0) {
            if (next != file && !S_ISDIR(found.st_mode))
                return ENOTDIR;
            above = next;
            continue;
        }
        if (errno != ENOENT)
            return errno;
        if (above.empty())
            above = "/";
        const auto folder_above = look_at(above);
        struct statvfs info = {};
        if (is_read_only(above))
            return EROFS;
        if (folder_above && (folder_above->stx_attributes & STATX_ATTR_IMMUTABLE) != 0)
            return EPERM;
        if (!may(above, W_OK | X_OK))
            return EACCES;
        return statvfs(above.c_str(), &info) == 0 && info.f_files != 0 && info.f_ffree == 0 ? ENOSPC : 0;
    }
    return 0;
}

firmware::change_request firmware::request_of_state(const std::string &what, const std::string &state) const
{
    constexpr size_t usual_size = 64; // bytes; the file of a few numbers
    return {what, {}, boot_variable_attributes, usual_size, is_live() ? "" : state};
}

void firmware::check_state(const change_request &request) const
{
    if (request.state.empty() || access(state_folder().c_str(), F_OK) != 0) // made like that of the lock
        return;
    if (auto known = obstacle(request))
        throw not_changed(*known);
    room_taken none;
    check_file_system(request, &none);
}

void firmware::set_time(EFI_TIME time)
{
    const change_request request = request_of_state("cannot set the clock", clock_state);
    const EFI_STATUS status =
        service(request.what, [&](EFI_STATUS *answer) { return ovra_set_time(handle, &time, answer); });
    if (status != EFI_SUCCESS)
        throw why_not(request, status);
}

void firmware::check_set_time() const
{
    check_state(request_of_state("cannot set the clock", clock_state));
}

void firmware::set_wakeup_time(std::optional<EFI_TIME> time)
{
    const change_request request = request_of_state("cannot set the wake-up alarm", alarm_state);
    const EFI_STATUS status = service(request.what, [&](EFI_STATUS *answer) {
        return ovra_set_wakeup_time(handle, time ? B_TRUE : B_FALSE, time ? &*time : nullptr, answer);
    });
    if (!time) // what stands is read, to be kept
        require_state(request.what, status, alarm_state, {});
    if (status != EFI_SUCCESS)
        throw why_not(request, status);
}

void firmware::check_set_wakeup_time() const
{
    check_state(request_of_state("cannot set the wake-up alarm", alarm_state));
}

void firmware::check_clear_wakeup_time() const
{
    const change_request request = request_of_state("cannot set the wake-up alarm", alarm_state);
    const auto file = request.state.empty() ? std::nullopt : look_at(file_of(request));
    if (!file)
        return;
    if (S_ISREG(file->stx_mode) && !may(file_of(request), R_OK))
        throw no_permission(request);
    check_state(request);
}

void firmware::reset(EFI_RESET_TYPE type)
{
    if (call([&] { return ovra_reset_system(handle, type, EFI_SUCCESS, 0, nullptr); }) == 0)
        return;
    // In a folder the next start is played by writing variables.
    throw why_not({"cannot reset the machine",
                   is_live() || is_real() ? "" : "BootCurrent",
                   boot_variable_attributes,
                   sizeof(uint16_t),
                   {}},
                  EFI_SUCCESS);
}

void firmware::check_reset()
{
    change_request request = {"cannot reset the machine", "BootCurrent", boot_variable_attributes, 0, {}};
    if (is_live()) {
        if (geteuid() != 0)
            throw no_permission(request);
        return;
    }
    if (is_real())
        throw not_changed(request.what + ": it is not this machine",
                          "Its variables are those of this machine's firmware.");
    if (!may(variables_folder(), R_OK | X_OK))
        throw no_permission(request);
    room_taken none;
    for (const auto &[name, size] :
         {std::pair("BootCurrent", booted_next() ? sizeof(uint16_t) : 0), std::pair("BootNext", size_t{0})}) {
        request.name = name;
        request.size = size;
        if (size == 0 && !look_at(file_of(request)))
            continue;
        if (auto known = obstacle(request))
            throw not_changed(*known);
        check_file_system(request, &none);
    }
}

bool firmware::is_live() const
{
    struct stat here = {};
    struct stat live = {};
    const std::string root = root_folder();
    return root.empty() || (stat(root.c_str(), &here) == 0 && stat("/", &live) == 0 &&
                            here.st_dev == live.st_dev && here.st_ino == live.st_ino);
}

std::string firmware::not_checked() const
{
    return is_real() ? "whether the firmware takes it, which only writing tells" : "";
}

} // namespace tool
