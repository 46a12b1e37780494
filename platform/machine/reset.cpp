// SPDX-License-Identifier: MIT
#include "platform/machine/reset.h"

#include <cerrno>
#include <cstring>

#include <sys/reboot.h>
#include <unistd.h>

#include "platform/machine/debug.h"
#include "platform/machine/lock.h"
#include "platform/machine/names.h"
#include "platform/machine/store.h"
#include "src/base/guid.h"
#include "src/base/load_option.h"
#include "src/base/variable.h"

namespace machine {

namespace {

std::string global_file(std::string_view name)
{
    const std::vector<CHAR16> units(name.begin(), name.end());
    return file_name_of(units, ovra::global_variable_guid).value();
}

UINT16 option_at(byte_view numbers, std::size_t index)
{
    UINT16 number = 0;
    std::memcpy(&number, numbers.data() + index * sizeof number, sizeof number);
    return number;
}

// A damaged variable starts nothing; an unreadable one might.
bool is_as_good_as_absent(int error)
{
    return error == ENOENT || error == EBADMSG;
}

enum class wanted { active, any };

// Whether the firmware would start an option, which needs at least its header (UEFI 3.1.3). 0 or an errno
// value.
int look_for_option(const runtime_services &services, UINT16 number, wanted which, bool *found)
{
    stored_variable option;
    *found = false;
    if (const int error = load_variable(services, global_file(ovra::option_name(number).view()), &option);
        error != 0)
        return is_as_good_as_absent(error) ? 0 : error;
    const byte_view stored = option.data();
    const auto parts =
        ovra::split_load_option({reinterpret_cast<const UINT8 *>(stored.data()), stored.size()});
    *found = parts && (which == wanted::any || (parts->attributes & LOAD_OPTION_ACTIVE) != 0);
    return 0;
}

// The first startable option among a variable's numbers of 2 bytes. 0 or an errno value.
int first_option(const runtime_services &services, byte_view numbers, wanted which,
                 std::optional<UINT16> *option)
{
    for (std::size_t i = 0; i < numbers.size() / sizeof(UINT16); ++i) {
        const UINT16 number = option_at(numbers, i);
        bool found = false;
        if (const int error = look_for_option(services, number, which, &found); error != 0)
            return error;
        if (found) {
            *option = number;
            return 0;
        }
    }
    return 0;
}

// What the firmware starts (UEFI 3.1.1): the option of BootNext, even an inactive one, else the first active
// option of BootOrder.
int choose_option(const runtime_services &services, const std::string &next_file,
                  std::optional<UINT16> *option)
{
    stored_variable next;
    int error = load_variable(services, next_file, &next);
    if (error == 0 && next.data().size() == sizeof(UINT16))
        error = first_option(services, next.data(), wanted::any, option);
    if (*option || (error != 0 && !is_as_good_as_absent(error)))
        return error;
    stored_variable order;
    error = load_variable(services, global_file("BootOrder"), &order);
    if (error == 0)
        error = first_option(services, order.data(), wanted::active, option);
    return is_as_good_as_absent(error) ? 0 : error;
}

EFI_STATUS remove_if_there(const runtime_services &services, int folder, const std::string &file_name)
{
    const EFI_STATUS removed = remove_variable(services, folder, file_name, 0);
    return removed == EFI_NOT_FOUND ? EFI_SUCCESS : removed;
}

// The file of a stopped machine keeps no volatile variables.
EFI_STATUS set_current(const runtime_services &services, int folder, std::optional<UINT16> option)
{
    if (services.kind == store_kind::image)
        return EFI_SUCCESS;
    const std::string current_file = global_file("BootCurrent");
    if (!option)
        return remove_if_there(services, folder, current_file);
    return write_variable(services, folder, current_file, ovra::volatile_attributes,
                          {std::as_bytes(std::span(&*option, 1))});
}

// BootNext goes whether or not its option can be started: a bad one must not stop every start. It goes last:
// after an earlier failure or crash the same start can be played again.
EFI_STATUS play_start(const runtime_services &services)
{
    const std::string next_file = global_file("BootNext");
    const locked_store store(services);
    if (store.status() != EFI_SUCCESS)
        return store.status();
    std::optional<UINT16> option;
    if (const int error = choose_option(services, next_file, &option); error != 0)
        return status_of(error);
    const EFI_STATUS status = set_current(services, store.folder(), option);
    return status == EFI_SUCCESS ? remove_if_there(services, store.folder(), next_file) : status;
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
    // Not between two writes of another program. A host without a place for the lock can still be reset.
    const held_lock lock(root);
    if (lock.error() == ETIMEDOUT) {
        errno = ETIMEDOUT;
        return -1;
    }
    sync();
    return reboot(type == EFI_RESET_SHUTDOWN ? RB_POWER_OFF : RB_AUTOBOOT);
}

} // namespace

int reset_system(const runtime_services &services, UINT32 type)
{
    if (type > EFI_RESET_SHUTDOWN) {
        errno = EINVAL;
        return -1;
    }
    if (services.root.live)
        return restart_host(services.root, type);
    if (services.kind == store_kind::efivarfs) {
        debug("no reset: the variables are those of real firmware, but the machine's root is not \"/\"");
        errno = EOPNOTSUPP;
        return -1;
    }
    const EFI_STATUS status = play_start(services);
    if (status == EFI_SUCCESS)
        return 0;
    errno = errno_of(status);
    return -1;
}

} // namespace machine
