/* SPDX-License-Identifier: MIT */
/* The library's arrays of strings. */
#ifndef TESTS_SUPPORT_STRINGS_H
#define TESTS_SUPPORT_STRINGS_H

#include <string>
#include <vector>

namespace ovra::test {

/* What a null-terminated array holds; a null one holds nothing. */
inline std::vector<std::string> strings_of(char **array)
{
    std::vector<std::string> all;
    for (; array && *array; ++array)
        all.emplace_back(*array);
    return all;
}

} // namespace ovra::test

#endif
