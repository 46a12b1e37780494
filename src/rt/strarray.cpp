// SPDX-License-Identifier: MIT
#include "src/rt/strarray.h"

#include <cstring>

#include "src/rt/memlist.h"

ovra::tracked<char> ovra::copy_string(ovra_hdl_t hdl, const char *str)
{
    owned<char> copy(strdup(str));
    if (!copy || memlist_add(hdl, copy.get()) != 0)
        return {nullptr, {hdl}};
    return {copy.release(), {hdl}};
}

int add_str_array(ovra_hdl_t hdl, const char *str, char ***array)
{
    const ovra::tracked_memory memory = {hdl, "add_str_array"};
    if (!str) {
        char **emptied = ovra::resize_array(*array, 1, memory);
        if (!emptied)
            return -1;
        emptied[0] = nullptr;
        *array = emptied;
        return 0;
    }
    auto copy = ovra::copy_string(hdl, str);
    if (!copy || ovra::append_entry(array, copy.get(), memory) != 0)
        return -1;
    static_cast<void>(copy.release());
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
