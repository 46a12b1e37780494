// SPDX-License-Identifier: MIT
#include "platform/machine/machine.h"

#include <cerrno>
#include <cstring>

#include <sys/reboot.h>
#include <unistd.h>

#include "platform/machine/lock.h"
#include "src/base/guid.h"
#include "src/base/load_option.h"

namespace machine {

namespace {

constexpr UINT32 boot_current_attributes = EFI_VARIABLE_BOOTSERVICE_ACCESS | EFI_VARIABLE_RUNTIME_ACCESS;

std::string global_file(std::string_view name)
{
    std::vector<CHAR16> units(name.begin(), name.end());
    return file_name_of(units, ovra::global_variable_guid).value();
}

UINT16 option_at(byte_view numbers, std::size_t index)
{
    UINT16 number = 0;
    std::memcpy(&number, numbers.data() + index * sizeof number, sizeof number);
    return number;
}

/* A variable that is damaged starts nothing; one that cannot be read might have. */
bool is_as_good_as_absent(int error)
{
    return error == ENOENT || error == EBADMSG;
}

enum class wanted { active, any };

/* Whether there is an option that the firmware would start: it has at least its header. 0 or an errno value.
 */
int look_for_option(const firmware &machine, UINT16 number, wanted which, bool *found)
{
    stored_variable option;
    *found = false;
    if (int error = load_variable(machine, global_file(ovra::option_name(number).view()), &option);
        error != 0)
        return is_as_good_as_absent(error) ? 0 : error;
    const byte_view stored = option.data();
    const auto parts =
        ovra::split_load_option({reinterpret_cast<const UINT8 *>(stored.data()), stored.size()});
    *found = parts && (which == wanted::any || (parts->attributes & LOAD_OPTION_ACTIVE) != 0);
    return 0;
}

/* The first of the options that a variable names, by numbers of 2 bytes. 0 or an errno value. */
int first_option(const firmware &machine, byte_view numbers, wanted which, std::optional<UINT16> *option)
{
    for (std::size_t i = 0; i < numbers.size() / sizeof(UINT16); ++i) {
        UINT16 number = option_at(numbers, i);
        bool found = false;
        if (int error = look_for_option(machine, number, which, &found); error != 0)
            return error;
        if (found) {
            *option = number;
            return 0;
        }
    }
    return 0;
}

/* What the firmware starts: what BootNext names, though it be inactive, else the first active one of
 * BootOrder. */
int choose_option(const firmware &machine, const std::string &next_file, std::optional<UINT16> *option)
{
    stored_variable next;
    int error = load_variable(machine, next_file, &next);
    if (error == 0 && next.data().size() == sizeof(UINT16))
        error = first_option(machine, next.data(), wanted::any, option);
    if (*option || (error != 0 && !is_as_good_as_absent(error)))
        return error;
    stored_variable order;
    error = load_variable(machine, global_file("BootOrder"), &order);
    if (error == 0)
        error = first_option(machine, order.data(), wanted::active, option);
    return is_as_good_as_absent(error) ? 0 : error;
}

EFI_STATUS remove_if_there(const firmware &machine, int folder, const std::string &file_name)
{
    EFI_STATUS removed = remove_variable(machine, folder, file_name, 0);
    return removed == EFI_NOT_FOUND ? EFI_SUCCESS : removed;
}

/*
 * BootNext is spent whether or not what it names can be started, as a bad one must not stop every start. It
 * goes last: after a failure or a crash before that, the same start can be played again.
 */
EFI_STATUS play_start(const firmware &machine)
{
    std::string next_file = global_file("BootNext");
    std::string current_file = global_file("BootCurrent");
    held_lock lock(machine.root);
    if (lock.error() != 0)
        return lock.status();
    descriptor folder = open_for_reading(machine.variables.get());
    if (!folder)
        return status_of_folder(errno);
    std::optional<UINT16> option;
    if (int error = choose_option(machine, next_file, &option); error != 0)
        return status_of(error);
    EFI_STATUS status = option ? write_variable(machine, folder.get(), current_file, boot_current_attributes,
                                                {std::as_bytes(std::span(&*option, 1))})
                               : remove_if_there(machine, folder.get(), current_file);
    return status == EFI_SUCCESS ? remove_if_there(machine, folder.get(), next_file) : status;
}

int errno_of(EFI_STATUS status)
{
    switch (status) {
    case EFI_ACCESS_DENIED:
        return EACCES;
    case EFI_WRITE_PROTECTED:
        return EROFS;
    case EFI_VOLUME_FULL:
        return ENOSPC;
    case EFI_OUT_OF_RESOURCES:
        return ENOMEM;
    case EFI_TIMEOUT:
        return ETIMEDOUT;
    default:
        return EIO;
    }
}

int restart_host(const machine_root &root, UINT32 type)
{
    // Not between two writes of another program's. A host that has no place for the lock can be reset all the
    // same.
    held_lock lock(root);
    if (lock.error() == ETIMEDOUT) {
        errno = ETIMEDOUT;
        return -1;
    }
    sync();
    return reboot(type == EFI_RESET_SHUTDOWN ? RB_POWER_OFF : RB_AUTOBOOT);
}

} // namespace

int reset_system(const firmware &machine, UINT32 type)
{
    if (type > EFI_RESET_SHUTDOWN) {
        errno = EINVAL;
        return -1;
    }
    if (machine.root.live)
        return restart_host(machine.root, type);
    if (machine.kind != store_kind::folder) {
        debug("no reset: the variables are those of real firmware, but the machine's root is not \"/\"");
        errno = EOPNOTSUPP;
        return -1;
    }
    EFI_STATUS status = play_start(machine);
    if (status == EFI_SUCCESS)
        return 0;
    errno = errno_of(status);
    return -1;
}

} // namespace machine
