/* SPDX-License-Identifier: MIT */
/* The list of the options, and that there is none. */
#ifndef TESTS_BOOT_ENUMERATE_H
#define TESTS_BOOT_ENUMERATE_H

#include <string>
#include <vector>

#include "tests/boot/fixture.h"
#include "tests/support/strings.h"

namespace ovra::test {

using option_names = std::vector<std::string>;

struct bootopt_list : open_handle {};

/* The list, which must be had without a word; empty when it was not. */
inline option_names option_list(ovra_hdl_t hdl)
{
    const messages said(1, 1);
    char **array = nullptr;
    EXPECT_EQ(ovra_bootopt_list(hdl, &array), 0);
    EXPECT_EQ(said.text(), "");
    if (!array) {
        ADD_FAILURE() << "no array";
        return {};
    }
    const option_names all = strings_of(array);
    free_str_array(hdl, array);
    return all;
}

/* Fails without a word, gives no array and leaves nothing behind. */
inline void expect_no_list(ovra_hdl_t hdl)
{
    const messages said(1, 1);
    char *marker = nullptr;
    char **array = &marker;
    EXPECT_EQ(ovra_bootopt_list(hdl, &array), -1);
    EXPECT_EQ(array, nullptr);
    EXPECT_EQ(said.text(), "");
    EXPECT_EQ(tracked_blocks(hdl), 0U);
}

inline constexpr size_t buffer_units = 257;

} // namespace ovra::test

#endif
