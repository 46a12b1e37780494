// SPDX-License-Identifier: MIT
// Changing variables.
#include <cerrno>
#include <cstring>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <utility>

#include "tools/machine/files.h"
#include "tools/machine/firmware.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"

namespace tool {

bool firmware::is_real() const
{
    if (!image.empty())
        return false;
    struct statfs info = {};
    return statfs(variables_folder().c_str(), &info) == 0 &&
           static_cast<uint32_t>(info.f_type) == EFIVARFS_MAGIC;
}

std::string firmware::file_of(const std::string &name) const
{
    if (!image.empty())
        return image;
    return variables_folder() + '/' + name + '-' + guid_text(ovra::global_variable_guid);
}

std::string firmware::folder_of(const change_request &request) const
{
    return request.state.empty() ? variables_folder() : state_folder();
}

std::string firmware::file_of(const change_request &request) const
{
    return request.state.empty() ? file_of(request.name) : state_folder() + '/' + request.state;
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

void firmware::check_room(const change_request &request, const variable &before, room_taken *planned)
{
    const bool real = is_real();
    const bool frees = before.status == EFI_SUCCESS && !real; // real firmware does so at the next start
    const int64_t freed = frees ? room_of(request.name, before.data.size()) : 0;
    const int64_t taken = request.size != 0 ? room_of(request.name, request.size) : 0;
    planned->store += taken - freed;
    if (planned->at_once && taken <= freed)
        return; // to count what there is would take longer than the change
    const auto room = store();
    if (!room && !real && request.size != 0) // which is asked for what grows, and for what it may be
        throw capacity_unknown(request);
    if (!room)
        return;
    if (!real && request.size > room->largest)
        throw too_large(request, *room);
    if (taken > freed && planned->store > static_cast<int64_t>(room->left))
        throw no_room(request, room);
}

// A file is written under another name at first, which takes file descriptors of its own.
void firmware::check_limits(const change_request &request) const
{
    if (request.size > 0 && sizeof(uint32_t) + request.size > largest_file())
        throw file_limit(request);
    constexpr size_t at_once = 2; // the folder, and the file
    if (const int reason = can_open(at_once); reason != 0)
        throw not_changed(request.what + ": " + strerror(reason));
}

void firmware::check_file_system(const change_request &request, room_taken *planned) const
{
    if (!image.empty())
        return check_copy(request, planned);
    check_limits(request);
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
    // With --dry-run the lock's file and its folders may not be there yet.
    const auto for_lock = static_cast<int64_t>(missing_for_lock(folder_of(request)));
    const bool no_files = info.f_files != 0 && planned->files + files + for_lock > free_files;
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
    if (!image.empty())
        return image;
    return is_live() ? "/run/ovra.lock" : root_folder() + "/var/lib/hwplat/lock";
}

int firmware::lock_obstacle() const
{
    if (!image.empty()) // it needs not be made
        return access(image.c_str(), F_OK) == 0 ? 0 : errno;
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
        if (!may(above, W_OK | X_OK) || (!may(variables_folder(), W_OK) && errno == EACCES))
            return EACCES;
        const bool counts_files = statvfs(above.c_str(), &info) == 0 && info.f_files != 0;
        return counts_files && (geteuid() == 0 ? info.f_ffree : info.f_favail) < missing_for_lock(above)
                   ? ENOSPC
                   : 0;
    }
    return 0;
}

// The files and folders that taking the lock would make on the file system of `beside`.
size_t firmware::missing_for_lock(const std::string &beside) const
{
    const std::string file = lock_file();
    struct stat there = {};
    if (stat(beside.c_str(), &there) != 0)
        return 0;
    size_t missing = 0;
    struct stat found = {};
    for (std::string name = file; name.size() > root_folder().size(); name.resize(name.rfind('/'))) {
        if (lstat(name.c_str(), &found) == 0)
            return found.st_dev == there.st_dev ? missing : 0;
        ++missing;
    }
    return missing;
}

std::string firmware::not_checked() const
{
    return is_real() ? "whether the firmware takes it, which only writing tells" : "";
}

} // namespace tool
