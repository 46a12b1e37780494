/* SPDX-License-Identifier: MIT */
/* A node kind that is nothing but its fields: what each is called, where it goes and what it may be. */
#ifndef SRC_ENCODE_FIELDS_H
#define SRC_ENCODE_FIELDS_H

#include "src/base/nodes.h"
#include "src/base/words.h"
#include "src/encode/encode.h"

namespace ovra {

struct place {
    size_t offset;
    size_t size;
};

/* The place of a member of the record `rec`. */
#define AT(member)                                                                                           \
    ovra::place                                                                                              \
    {                                                                                                        \
        offsetof(rec, member), sizeof(rec::member)                                                           \
    }

enum class form : uint8_t { integer, guid, bytes };

/* A required argument. */
struct field {
    const char *name; /* as it is looked up; messages print it */
    place at;
    form value = form::integer;
    uint64_t limit = UINT64_MAX;
    const char *over = nullptr;    /* message with the value (%d) when it is above the limit */
    const char *missing = nullptr; /* message before the getter is asked */
    std::span<const word> words = {};

    constexpr field max(uint64_t largest, const char *message) const
    {
        field changed = *this;
        changed.limit = largest;
        changed.over = message;
        return changed;
    }
    constexpr field absent(const char *message) const
    {
        field changed = *this;
        changed.missing = message;
        return changed;
    }
    constexpr field or_word(std::span<const word> list) const
    {
        field changed = *this;
        changed.words = list;
        return changed;
    }
};

/* Integers, of the width of the member. */
constexpr field need(const char *name, place at)
{
    return {name, at};
}

/* Other forms: a GUID, and exactly the bytes of the member. */
constexpr field need_guid(const char *name, place at)
{
    return {name, at, form::guid};
}
constexpr field need_bytes(const char *name, place at)
{
    return {name, at, form::bytes};
}

/* Whether the node is allocated before its arguments are read: this decides which message comes first. */
enum class order : uint8_t { alloc_last, alloc_first };

/* Bytes of the largest node that is only its fields. */
inline constexpr size_t largest_field_list = 64;

/* Reads the fields in the order of the list, which is the order of messages, and builds the node. */
int encode_fields(uefi_arg_list_t *args, uefi_device_path_t **out, node_kind kind,
                  std::span<const field> fields, const char *no_memory, order allocation);

template <typename record>
int encode_fields(uefi_arg_list_t *args, uefi_device_path_t **out, std::span<const field> fields,
                  const char *no_memory, order allocation = order::alloc_last)
{
    static_assert(kind_of<record>.size == sizeof(record), "a record with a tail is not only its fields");
    static_assert(sizeof(record) <= largest_field_list);
    return encode_fields(args, out, kind_of<record>, fields, no_memory, allocation);
}

} // namespace ovra

#endif
