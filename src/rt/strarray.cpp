// SPDX-License-Identifier: MIT
#include "src/rt/strarray.h"

#include <cstdlib>
#include <cstring>

#include "src/rt/owned.h"

static constexpr char label[] = "add_str_array";

static char **resize(ovra_hdl_t hdl, char **array, size_t pointers)
{
    return static_cast<char **>(memlist_realloc(hdl, array, pointers * sizeof(char *), label));
}

// A tracked copy of a string, or null.
static ovra::tracked<char> copy_string(ovra_hdl_t hdl, const char *str)
{
    ovra::owned<char> copy(strdup(str));
    if (!copy || memlist_add(hdl, copy.get()) != 0)
        return {nullptr, {hdl}};
    return {copy.release(), {hdl}};
}

int add_str_array(ovra_hdl_t hdl, const char *str, char ***array)
{
    if (!str) {
        auto **emptied = resize(hdl, *array, 1);
        if (!emptied)
            return -1;
        emptied[0] = nullptr;
        *array = emptied;
        return 0;
    }
    auto copy = copy_string(hdl, str);
    if (!copy)
        return -1;
    size_t count = 0;
    while (*array && (*array)[count])
        ++count;
    auto **grown = resize(hdl, *array, count + 2);
    if (!grown)
        return -1;
    grown[count] = copy.release();
    grown[count + 1] = nullptr;
    *array = grown;
    return 0;
}

int ovra::str_array_builder::append(const char *str)
{
    auto copy = copy_string(hdl, str);
    if (!copy)
        return -1;
    if (count + 2 > capacity) {
        const size_t doubled = capacity == 0 ? 8 : 2 * capacity;
        auto **grown = resize(hdl, array, doubled);
        if (!grown)
            return -1;
        array = grown;
        capacity = doubled;
    }
    array[count] = copy.release();
    array[++count] = nullptr;
    return 0;
}

void free_str_array(ovra_hdl_t hdl, char **array)
{
    if (!array)
        return;
    size_t start = 0;
    for (char **str = array; *str; ++str)
        ovra::memlist_free_next(hdl, *str, &start);
    memlist_free(hdl, array);
}
