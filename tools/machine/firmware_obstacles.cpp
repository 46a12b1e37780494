// SPDX-License-Identifier: MIT
// What stands in the way of a change.
#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "tools/machine/files.h"
#include "tools/machine/firmware.h"
#include "tools/text/failure.h"

namespace tool {

namespace {

using ovra::authenticated;

} // namespace

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
    if (!image.empty())
        return not_changed(request.what + ": the file system is full",
                           image + " is written anew, beside the old one: make room for it.");
    return not_changed(request.what + ": the file system is full",
                       (request.state.empty() ? "The variables are files in " : "It is a file in ") +
                           folder_of(request) + ": make room there.");
}

not_changed firmware::file_limit(const change_request &request)
{
    return not_changed(request.what + ": this program may not write so large a file",
                       "'ulimit -f unlimited' lifts the limit of the shell.");
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
    if (file && (file->stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0)
        return not_changed(request.what + ": something is mounted on " + path,
                           "A new file takes its name, which a mount holds: name the file that is mounted\n"
                           "there, or unmount it.");
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
        const bool allowed = may(all, R_OK | W_OK | X_OK) && (image.empty() || may_replace_image());
        return allowed ? std::nullopt : std::optional(no_permission(request));
    }
    if (geteuid() == 0) // for which the platform lifts the mark that the kernel puts on variables
        return std::nullopt;
    const std::string path = file_of(request);
    const auto file = look_at(path);
    const bool allowed = file && request.size != 0 ? !is_marked(*file) && may(path, W_OK) : may(all, W_OK);
    return allowed ? std::nullopt : std::optional(no_permission(request));
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
        return not_changed(
            what, real || !image.empty()
                      ? "No variable can have these attributes; the firmware's own setup may delete it."
                      : "No variable can have these attributes: remove " + file_of(request) + '.');
    // A folder cannot check the signature that even a deletion needs.
    if ((attributes & authenticated) != 0 && (request.size != 0 || !real))
        return not_changed(what, "Only the holder of its key can change an authenticated variable.");
    // Real firmware may think otherwise, and is asked.
    if ((attributes & EFI_VARIABLE_NON_VOLATILE) == 0 && !real)
        return not_changed(what, "A volatile variable belongs to the firmware until the next start.");
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
    if (reason == EFBIG)
        return with_messages(file_limit(request));
    if (reason == ESTALE && !image.empty())
        return with_messages(not_changed(
            request.what + ": another program has exchanged or written " + image,
            "Earlier changes of this command may be gone with the old contents: look at it,\nand try again."));
    if (status == EFI_VOLUME_FULL || (reason == ENOSPC && !real))
        return with_messages(file_system_full(request));
    // The library does not hand on why a write failed; whether there was room for it can be asked.
    const auto room = request.name.empty() ? std::nullopt : store();
    if (!real && !room && !request.name.empty() && request.size != 0)
        return with_messages(capacity_unknown(request));
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

} // namespace tool
