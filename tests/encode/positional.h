/* SPDX-License-Identifier: MIT */
/* The rows <keyword>_all_positional of the tables tests/data/encode_*.tsv. */
#ifndef TESTS_ENCODE_POSITIONAL_H
#define TESTS_ENCODE_POSITIONAL_H

#include <cctype>
#include <filesystem>
#include <string>
#include <vector>

#include "src/encode/encode.h"
#include "tests/encode/table_file.h"

namespace ovra::test {

struct positional_row {
    const uefi_encode_opt_t *opt;
    std::string keyword;
    std::string text;
    std::string bytes;
};

inline std::vector<positional_row> positional_rows()
{
    std::vector<positional_row> found;
    for (const auto &file : std::filesystem::directory_iterator(TEST_DATA)) {
        const std::string name = file.path().filename().string();
        if (!name.starts_with("encode_") || name == "encode_keywords.tsv")
            continue;
        for (const columns &row : read_table(name, 4)) {
            for (const uefi_encode_opt_t &opt : encode_opt_table) {
                std::string case_name = opt.opt_name;
                for (char &c : case_name)
                    c = static_cast<char>(tolower(c));
                if (row[0] == case_name + "_all_positional" && opt.opt_param_list)
                    found.push_back({&opt, opt.opt_name, unescape(row[1]), row[2]});
            }
        }
    }
    return found;
}

} // namespace ovra::test

#endif
