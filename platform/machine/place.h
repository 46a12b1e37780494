/* SPDX-License-Identifier: MIT */
/*
 * A place that keeps variables, each known by the name of the file that it is, or would be, on an efivarfs.
 * The rules of the services are the callers' (variables.h). Places have no state: what they keep is where
 * `services` were opened.
 */
#ifndef HWPLAT_MACHINE_PLACE_H
#define HWPLAT_MACHINE_PLACE_H

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include <ovra/uefi.h>

#include "platform/machine/efivarfs.h"
#include "platform/machine/files.h"
#include "platform/machine/services.h"

namespace machine {

struct stored_variable {
    UINT32 attributes = 0;
    bytes contents; /* 4 bytes of attributes, then the data */

    [[nodiscard]] byte_view data() const { return byte_view(contents).subspan(sizeof attributes); }
};

/* How much a variable's data grows; nothing to nothing is no variable. */
struct growth {
    std::size_t name_units;
    std::size_t before; /* bytes of data; 0 for a new variable */
    std::size_t after;
};

class variable_place {
public:
    /* Reads a variable: 0, ENOENT, EBADMSG for a damaged one, or why it could not be read. */
    virtual int load(const runtime_services &services, const std::string &file_name,
                     stored_variable *found) const = 0;

    /* Whether load would find it, as far as can be told without reading it. */
    virtual EFI_STATUS find(const runtime_services &services, const std::string &file_name,
                            bool *found) const = 0;

    /* Hands over all names, as visit_folder does, perhaps with some that are no variable's. */
    virtual int list(const runtime_services &services, const name_taking &take) const = 0;

    /*
     * EFI_INVALID_PARAMETER when one variable cannot have so much, EFI_OUT_OF_RESOURCES when there is no
     * room. A place may leave the second to write. `total` becomes what all variables will take then, where
     * that was counted.
     */
    virtual EFI_STATUS check_space(const runtime_services &services, const growth &wanted,
                                   std::optional<UINT64> *total) const = 0;

    /*
     * Writes or removes a variable, under the machine's lock; `folder` is a locked_store's. EFI_NOT_FOUND
     * when there is none to remove. After a failure, but for one of making it durable, nothing has changed.
     */
    virtual EFI_STATUS write(const runtime_services &services, int folder, const std::string &file_name,
                             UINT32 attributes, std::initializer_list<byte_view> data) const = 0;
    virtual EFI_STATUS remove(const runtime_services &services, int folder, const std::string &file_name,
                              UINT32 attributes) const = 0;

    virtual EFI_STATUS space(const runtime_services &services, variable_space *space) const = 0;

protected:
    ~variable_place() = default; /* places are never destroyed */
};

/* Where services of this kind, but for `none`, have their variables. */
const variable_place &place_of(store_kind kind);

extern const variable_place &image_place; /* place_of(store_kind::image) */

} // namespace machine

#endif
