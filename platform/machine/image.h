/* SPDX-License-Identifier: MIT */
/*
 * The variables of a stopped machine in one file: a firmware volume, as virtual machines have, or the file of
 * U-Boot. Here the file's bytes are taken apart and changed in memory; imagefile.h reads and writes the file.
 * Every size and offset in them is checked before it is used.
 */
#ifndef HWPLAT_MACHINE_IMAGE_H
#define HWPLAT_MACHINE_IMAGE_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include <ovra/uefi.h>

#include "platform/machine/files.h"

namespace machine {

/* Where a variable stands in the bytes of its store. */
struct image_variable {
    EFI_GUID guid = {};
    UINT32 attributes = 0;
    std::size_t begin = 0; /* of its header */
    std::size_t end = 0;   /* where the next one begins */
    std::size_t name = 0;  /* its first byte; the data follow the terminator */
    std::size_t data = 0;
    std::size_t data_size = 0;
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

/* The variables of a store. It does not change: a change gives another one. */
class variable_image {
public:
    virtual ~variable_image() = default;

    /* The bytes of the store: those that change, at their offset in the file. */
    [[nodiscard]] const bytes &contents() const { return store; }

    /* Those that count, in the order in which they are stored; of a name the first counts. */
    [[nodiscard]] const std::vector<image_variable> &variables() const { return live; }
    [[nodiscard]] byte_view name_of(const image_variable &variable) const /* with the terminator */
    {
        return byte_view(store).subspan(variable.name, variable.data - variable.name);
    }
    [[nodiscard]] byte_view data_of(const image_variable &variable) const
    {
        return byte_view(store).subspan(variable.data, variable.data_size);
    }

    /* Null when there is none, or none with data. O(log n). */
    [[nodiscard]] const image_variable *find(const std::string &file_name) const;

    /* The names of all that find finds, each once, in no order. Others are kept as they are. */
    [[nodiscard]] std::vector<std::string> file_names() const;

    /* The store with a new value of a variable, or with null without the variable. Null: there is no room. */
    [[nodiscard]] virtual std::unique_ptr<variable_image> with(const std::string &file_name,
                                                               const new_value *value) const = 0;

    /* Bytes of the store, what of them is free, and how large one variable's data may be. */
    [[nodiscard]] virtual UINT64 capacity() const = 0;
    [[nodiscard]] virtual UINT64 free_space() const = 0;
    [[nodiscard]] virtual UINT64 largest_variable() const = 0;

protected:
    explicit variable_image(bytes taken) : store(std::move(taken)) {}
    variable_image(const variable_image &) = default;

    /* The variable of this name that counts, with data or without. */
    [[nodiscard]] const image_variable *first_named(const std::string &file_name) const;

    /* Its name as it is stored, or is to be; "/" may be spelt "!". */
    [[nodiscard]] bytes spelt_name(const std::string &file_name, EFI_GUID *guid) const;
    [[nodiscard]] bool is_named(const image_variable &variable, byte_view name, const EFI_GUID &guid) const;

    /* Takes what counts from now on. */
    void set_live(std::vector<image_variable> counting);

    bytes store;

private:
    std::vector<image_variable> live;
    std::vector<std::uint32_t> by_name; /* indices of live */
};

/*
 * The store of a volume, from its header to its end. Null when it is damaged; HWPLAT_DEBUG says where.
 */
std::unique_ptr<variable_image> volume_image(bytes store);

/* The whole file of U-Boot, likewise. */
std::unique_ptr<variable_image> uboot_image(bytes file);

/* No store of an image is larger. */
inline constexpr std::size_t largest_image_store = 16u << 20;

} // namespace machine

#endif
