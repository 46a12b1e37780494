/* SPDX-License-Identifier: MIT */
/*
 * Variables wherever the services have them (place.h). On an efivarfs and in a folder they are files: 4 bytes
 * of attributes, then the data.
 */
#ifndef HWPLAT_MACHINE_STORE_H
#define HWPLAT_MACHINE_STORE_H

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>

#include <ovra/uefi.h>

#include "platform/machine/files.h"
#include "platform/machine/lock.h"
#include "platform/machine/place.h"
#include "platform/machine/services.h"

namespace machine {

/* No variable of any machine is larger, attributes included. */
inline constexpr std::size_t largest_variable_file = 16u << 20;

/*
 * Reads a variable. EFI_NOT_FOUND when the file is absent or has no data (UEFI has no variable without data),
 * and on an efivarfs when it is empty (the kernel shows a variable that way before its first write).
 * EFI_DEVICE_ERROR when it is damaged: not a regular file, below 4 bytes, or above the largest size.
 */
EFI_STATUS read_variable(const runtime_services &services, const std::string &file_name,
                         stored_variable *found);

/* The same as an errno value: 0, ENOENT, EBADMSG for a damaged variable, or why it could not be read. */
int load_variable(const runtime_services &services, const std::string &file_name, stored_variable *found);

/*
 * The size of the data that read_variable would find, without reading it; 0 where only reading tells what
 * there is.
 */
std::size_t data_size_of(const runtime_services &services, const std::string &file_name);

/*
 * Whether read_variable would find the variable, judged by the kind and size of the file. A status when these
 * are unknown.
 */
EFI_STATUS find_variable(const runtime_services &services, const std::string &file_name, bool *found);

/*
 * The store while its machine is locked for a change. A status other than EFI_SUCCESS: no change is possible.
 */
class locked_store {
public:
    explicit locked_store(const runtime_services &services);

    [[nodiscard]] EFI_STATUS status() const { return failure; }

    /* The folder of the variables, open for reading; for the two functions below. */
    [[nodiscard]] int folder() const { return variables.get(); }

private:
    held_lock lock;
    owned_fd variables;
    EFI_STATUS failure;
};

/*
 * Writes a variable with the parts of its data, without the rules of set_variable. `folder`: a
 * locked_store's; `total`: what space_used will be then, where it was counted.
 */
EFI_STATUS write_variable(const runtime_services &services, int folder, const std::string &file_name,
                          UINT32 attributes, std::initializer_list<byte_view> data,
                          std::optional<UINT64> total = std::nullopt);

/* Removes a variable. `attributes` are those it has now. EFI_NOT_FOUND when the file is absent. */
EFI_STATUS remove_variable(const runtime_services &services, int folder, const std::string &file_name,
                           UINT32 attributes);

/* How much a folder holds, in bytes. */
struct capacity {
    UINT64 store = 256u << 10;   /* all variables together, counted by space_taken */
    UINT64 variable = 32u << 10; /* the data of one variable */
};
EFI_STATUS capacity_of(const runtime_services &services, capacity *limits);

/*
 * The bytes that one variable takes from the store: 4 for its attributes, its name in UCS-2 with the
 * terminator, and its data.
 */
UINT64 space_taken(std::size_t name_units, std::size_t data_size);

/* What to do with the temporary files of writers that were killed. */
enum class stopped_writers { leave, clean_up }; /* clean_up: only under the machine's lock */

/*
 * The bytes that all variables of a folder take together. A thread that has the machine's lock counts them
 * once: the sum is good until the next write, which may tell the new one.
 */
EFI_STATUS space_used(const runtime_services &services, stopped_writers temporaries, UINT64 *used);

} // namespace machine

#endif
