#include "platform/machine/machine.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <sys/reboot.h>
#include <unistd.h>

#include "platform/machine/lock.h"

namespace machine {

namespace {

constexpr UINT32 boot_current_attributes = EFI_VARIABLE_BOOTSERVICE_ACCESS | EFI_VARIABLE_RUNTIME_ACCESS;

std::string global_file(std::string_view name)
{
    std::vector<CHAR16> units(name.begin(), name.end());
    return file_name_of(units, global_variable_guid).value();
}

UINT16 option_at(byte_view numbers, std::size_t index)
{
    UINT16 number = 0;
    std::memcpy(&number, numbers.data() + index * sizeof number, sizeof number);
    return number;
}

/* An option that the firmware would start: it has at least its header, and is active. */
bool is_bootable(const firmware &machine, UINT16 number)
{
    std::array<char, sizeof "Boot0000"> name = {};
    std::snprintf(name.data(), name.size(), "Boot%04X", number);
    stored_variable option;
    if (read_variable(machine, global_file(name.data()), &option) != EFI_SUCCESS)
        return false;
    UINT32 attributes = 0;
    constexpr std::size_t header = sizeof attributes + sizeof(UINT16);
    if (option.data().size() < header)
        return false;
    std::memcpy(&attributes, option.data().data(), sizeof attributes);
    return (attributes & LOAD_OPTION_ACTIVE) != 0;
}

std::optional<UINT16> boot_next(const firmware &machine, const std::string &file_name)
{
    stored_variable next;
    if (read_variable(machine, file_name, &next) != EFI_SUCCESS || next.data().size() != sizeof(UINT16))
        return std::nullopt;
    UINT16 number = option_at(next.data(), 0);
    return is_bootable(machine, number) ? std::optional(number) : std::nullopt;
}

std::optional<UINT16> first_in_boot_order(const firmware &machine)
{
    stored_variable order;
    if (read_variable(machine, global_file("BootOrder"), &order) != EFI_SUCCESS)
        return std::nullopt;
    for (std::size_t i = 0; i < order.data().size() / sizeof(UINT16); ++i) {
        UINT16 number = option_at(order.data(), i);
        if (is_bootable(machine, number))
            return number;
    }
    return std::nullopt;
}

EFI_STATUS remove_if_there(const firmware &machine, int folder, const std::string &file_name)
{
    EFI_STATUS removed = remove_variable(machine, folder, file_name);
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
        return status_of(errno);
    std::optional<UINT16> option = boot_next(machine, next_file);
    if (!option)
        option = first_in_boot_order(machine);
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
    case EFI_OUT_OF_RESOURCES:
        return ENOSPC;
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
