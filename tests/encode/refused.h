/* SPDX-License-Identifier: MIT */
/* Sweeps over refused allocations: what has to be said, and arguments made before. */
#ifndef TESTS_ENCODE_REFUSED_H
#define TESTS_ENCODE_REFUSED_H

#include <set>
#include <string>

#include <gtest/gtest.h>

#include "src/encode/args.h"
#include "tests/support/sweep.h"

namespace ovra::test {

using texts = std::set<std::string>;

/* The lines of `wanted`, of which each attempt with a refused allocation has to say one. */
struct expected_messages {
    texts wanted;
    texts seen = {};

    void look(const attempt &one)
    {
        if (one.refused == 0)
            return;
        bool found = false;
        for (const std::string &text : wanted) {
            if (one.messages.find(text) != std::string::npos) {
                seen.insert(text);
                found = true;
            }
        }
        EXPECT_TRUE(found) << "said: " << one.messages;
    }
};

/* A text of one node with its list of arguments made, before anything is refused. */
struct made_arguments {
    explicit made_arguments(const std::string &text)
    {
        const size_t open = text.find('(');
        const std::string keyword = text.substr(0, open);
        for (const uefi_encode_opt_t &one : encode_opt_table) {
            if (keyword == one.opt_name)
                row = &one;
        }
        uefi_arg_list_t *made = nullptr;
        const std::string arguments = text.substr(open + 1, text.rfind(')') - open - 1);
        if (row && arg_list_init(&made, arguments.c_str(), row->opt_param_list) == 0)
            list.reset(made);
    }
    const uefi_encode_opt_t *row = nullptr;
    arg_list list;
};

inline const std::string hexdump = "encode_arg_hexdump: malloc failed\n";

} // namespace ovra::test

#endif
