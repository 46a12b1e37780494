/* SPDX-License-Identifier: MIT */
/*
 * The variables of a stopped machine in one file: a firmware volume, as virtual machines have, or the file of
 * U-Boot. Here the file's bytes are taken apart and changed in memory; imagefile.h reads and writes the file.
 * Every size and offset in them is checked before it is used.
 */
#ifndef HWPLAT_MACHINE_IMAGE_H
#define HWPLAT_MACHINE_IMAGE_H

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include <ovra/uefi.h>

#include "platform/machine/files.h"

namespace machine {

/* A variable that counts, in the bytes of its store. */
struct image_variable {
    std::string file_name; /* by which the services know it; empty: it can have none, and is kept as it is */
    UINT32 attributes = 0;
    std::size_t begin = 0; /* of its header */
    std::size_t end = 0;   /* where the next one begins */
    byte_view name;        /* with the terminator */
    byte_view data;
};

/* What a variable is to have from now on. */
struct new_value {
    UINT32 attributes;
    std::initializer_list<byte_view> data; /* its parts */

    [[nodiscard]] std::size_t size() const
    {
        std::size_t sum = 0;
        for (const byte_view part : data)
            sum += part.size();
        return sum;
    }
};

class variable_image {
public:
    virtual ~variable_image() = default;

    /* The bytes of the store: those that change, at their offset in the file. */
    [[nodiscard]] const bytes &contents() const { return store; }
    [[nodiscard]] const std::vector<image_variable> &variables() const { return live; }

    /* Null when there is none, or none with data. */
    [[nodiscard]] const image_variable *find(const std::string &file_name) const;

    /*
     * Gives a variable a new value, or with null removes it. False, and nothing has changed, when there is no
     * room. The variables are those of the new contents.
     */
    virtual bool change(const std::string &file_name, const new_value *value) = 0;

    /* Bytes of the store, what of them is free, and how large one variable's data may be. */
    [[nodiscard]] virtual UINT64 capacity() const = 0;
    [[nodiscard]] virtual UINT64 free_space() const = 0;
    [[nodiscard]] virtual UINT64 largest_variable() const = 0;

protected:
    explicit variable_image(bytes taken) : store(std::move(taken)) {}

    bytes store;
    std::vector<image_variable> live; /* the first of a name is the one that counts */
};

/*
 * The store of a volume, from its header to its end. Null when it is damaged; HWPLAT_DEBUG says where.
 */
std::unique_ptr<variable_image> volume_image(bytes store);

/* The whole file of U-Boot, likewise. */
std::unique_ptr<variable_image> uboot_image(bytes file);

/* The name that the services have for a stored one, with its terminator; empty when there is none. */
std::string file_name_in_image(byte_view name, const EFI_GUID &guid);

/* The name with its terminator, as it is stored. */
bytes stored_name(const std::string &file_name, EFI_GUID *guid);

/* No store of an image is larger. */
inline constexpr std::size_t largest_image_store = 16u << 20;

} // namespace machine

#endif
