/* SPDX-License-Identifier: MIT */
/* GetNextVariableName: walks through the variables of a machine (UEFI 8.2). */
#ifndef HWPLAT_MACHINE_ENUMERATE_H
#define HWPLAT_MACHINE_ENUMERATE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <ovra/uefi.h>

namespace machine {

struct runtime_services;

/* A walk under way. Walks along the same list share it. */
struct variable_walk {
    static constexpr std::size_t none = SIZE_MAX;

    std::shared_ptr<const std::vector<std::string>> file_names; /* sorted */
    std::size_t last = none;                                    /* the index of the name given out last */
};

/* The walks of one opening of the services, the latest last. */
using variable_walks = std::vector<variable_walk>;

/*
 * Gives the variable after `name` and `guid`, or the first one for an empty name. Variables come in the order
 * of the bytes of their file names. `*size` is the size of the buffer going in and of the name coming out, in
 * bytes with the terminator. EFI_BUFFER_TOO_SMALL writes `*size` alone; EFI_NOT_FOUND ends the walk;
 * EFI_INVALID_PARAMETER: the name is neither a variable nor in the list of a walk. No success is due to
 * another folder than that of the services; after a failure has_folder tells whether that is the reason.
 *
 * A walk keeps the list made at its start, visits each variable of the list that still exists once, and costs
 * O(n log n) in all. An opening has up to 16 walks. A walk of an opening that was closed may go on through a
 * later one.
 */
EFI_STATUS next_variable(const runtime_services &services, UINTN *size, CHAR16 *name, EFI_GUID *guid);

/* Before `services` are closed: lets a later opening go on with their walks. */
void leave_walks(const runtime_services &services) noexcept;

} // namespace machine

#endif
