// SPDX-License-Identifier: MIT
// How verbs take the options that they work on.
#include <CLI/CLI.hpp>

#include "tools/machine/optionnames.h"
#include "tools/ovra/arguments.h"
#include "tools/text/failure.h"

namespace tool {

namespace {

using texts = std::vector<std::string>;

constexpr char path_part_help[] = "instead of a name: a part of the option's device or file path";

std::string checked_part(const std::string &part)
{
    if (part.empty())
        throw usage_error("--path: a part of a path is needed");
    return part;
}

// An option that is known by as many words as a command line has.
CLI::Option *add_values(CLI::App &app, const char *name, const char *shown, const char *help,
                        std::function<void(const std::string &)> take)
{
    auto *option = app.add_option(
        name,
        [take = std::move(take)](const texts &values) {
            for (const std::string &text : values)
                take(text);
            return true;
        },
        help);
    return option->type_name(shown);
}

} // namespace

std::string checked_name(const std::string &name)
{
    if (name.empty())
        throw usage_error("the name of an option is empty");
    return name;
}

CLI::Option *option_argument::declare(CLI::App &app, const char *help)
{
    auto *named = add_value(app, "option", "OPTION", help,
                            [this](const std::string &text) { name = checked_name(text); });
    add_value(app, "--path", "TEXT", path_part_help, [this](const std::string &text) {
        path_part = checked_part(text);
    })->excludes(named);
    return named;
}

void option_argument::require() const
{
    if (!given())
        throw usage_error("option is required");
}

uint16_t option_argument::find(firmware &machine) const
{
    option_lookup names(machine);
    return name ? names.named(*name) : names.with_path(path_part.value());
}

CLI::Option *options_argument::declare(CLI::App &app, const char *help)
{
    add_values(app, "--path", "TEXT", path_part_help, [this](const std::string &text) {
        path_parts.push_back(checked_part(text));
    })->allow_extra_args(false);
    return add_values(app, "option", "OPTION", help,
                      [this](const std::string &text) { names.push_back(checked_name(text)); })
        ->expected(0, CLI::detail::expected_max_vector_size)
        ->allow_extra_args();
}

void options_argument::require() const
{
    if (!given())
        throw usage_error("option is required");
}

std::vector<uint16_t> options_argument::find(firmware &machine) const
{
    option_lookup all(machine);
    std::vector<uint16_t> numbers;
    for (const std::string &name : names)
        numbers.push_back(all.named(name));
    for (const std::string &part : path_parts)
        numbers.push_back(all.with_path(part));
    return numbers;
}

} // namespace tool
