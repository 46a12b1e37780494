/* SPDX-License-Identifier: MIT */
/* Null-terminated arrays of pointers that grow entry by entry. */
#ifndef SRC_RT_LIST_H
#define SRC_RT_LIST_H

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "src/rt/rt.h"

namespace ovra {

/* Where an array lies: in a block of the malloc family, or in one that a handle tracks. */
struct plain_memory {
    void *resize(void *block, size_t size) const { return realloc(block, size); }
};
struct tracked_memory {
    ovra_hdl_t hdl;
    const char *what; /* names the caller in messages */
    void *resize(void *block, size_t size) const { return memlist_realloc(hdl, block, size, what); }
};

/* Entries of an array; null: none. */
template <typename entry>
size_t count_entries(entry *const *array)
{
    size_t count = 0;
    while (array && array[count])
        ++count;
    return count;
}

template <typename entry>
entry **resize_array(entry **array, size_t pointers, const auto &memory)
{
    return static_cast<entry **>(memory.resize(array, pointers * sizeof(entry *)));
}

/* Appends to *array (null: none yet). 0, or -1 without memory, with *array as it was. */
template <typename entry>
int append_entry(entry ***array, entry *last, const auto &memory)
{
    const size_t count = count_entries(*array);
    entry **grown = resize_array(*array, count + 2, memory);
    if (!grown)
        return -1;
    grown[count] = last;
    grown[count + 1] = nullptr;
    *array = grown;
    return 0;
}

/*
 * An array under construction. Appending does not count or move the array each time. `owner` is the
 * unique_ptr that releases an array with its entries; `first` is the room in pointers that it begins with.
 */
template <typename owner, typename memory, size_t first = 8>
class growing_list {
public:
    using pointer = typename owner::pointer;

    explicit growing_list(owner begun = owner(), memory where = memory())
        : array(std::move(begun)), place(where), count(count_entries(array.get())),
          capacity(array ? count + 1 : 0)
    {}

    pointer get() const { return array.get(); }
    size_t size() const { return count; }

    /* Room for one entry more; -1 without memory. */
    int reserve()
    {
        if (count + 2 <= capacity)
            return 0;
        const size_t larger = std::max(first, 2 * capacity);
        auto **grown = resize_array(array.get(), larger, place);
        if (!grown)
            return -1;
        static_cast<void>(array.release());
        array.reset(grown);
        capacity = larger;
        if (count == 0)
            grown[0] = nullptr;
        return 0;
    }

    /* Takes an entry from its unique_ptr; -1 without memory, or when the entry is null. */
    template <typename entry_owner>
    int append(entry_owner entry)
    {
        if (!entry || reserve() != 0)
            return -1;
        array.get()[count] = entry.release();
        array.get()[++count] = nullptr;
        return 0;
    }

    /* The array, null without an entry, for the caller to own. */
    pointer release()
    {
        if (count == 0)
            array.reset();
        return array.release();
    }

private:
    owner array;
    memory place;
    size_t count;
    size_t capacity;
};

} // namespace ovra

#endif
