// SPDX-License-Identifier: MIT
#include "tools/command/words.h"

#include <CLI/CLI.hpp>

namespace tool {

const CLI::Option *option_of(const CLI::App *level, const std::string &word)
{
    const std::string name = word.substr(0, word.find('='));
    if (name.size() < 2 || name[0] != '-' || name == "--")
        return nullptr;
    for (; level; level = level->get_parent()) {
        if (const CLI::Option *option = level->get_option_no_throw(name))
            return option;
    }
    return nullptr;
}

bool takes_value(const CLI::Option &option)
{
    return option.get_items_expected_max() != 0;
}

} // namespace tool
