// SPDX-License-Identifier: MIT
// How verbs take the options that they work on.
#include <algorithm>

#include <CLI/CLI.hpp>

#include "tools/command/arguments.h"
#include "tools/machine/files.h"
#include "tools/machine/networkpath.h"
#include "tools/machine/optionnames.h"
#include "tools/machine/pathnodes.h"
#include "tools/text/failure.h"

namespace tool {

namespace {

using texts = std::vector<std::string>;

constexpr size_t data_limit = 1 << 20; // far above what firmware stores

bool is_ascii(const std::string &text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

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
    add_values(app, "--path", "TEXT", path_part_help,
               [this](const std::string &text) { path_parts.push_back(checked_part(text)); })
        ->expected(1, CLI::detail::expected_max_vector_size)
        ->allow_extra_args(false);
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

void kind_argument::declare(CLI::App &app, bool writes)
{
    add_value(app, "--kind", "KIND", "boot (default), driver, sysprep or platformrecovery",
              [this, writes](const std::string &text) {
                  const auto found =
                      std::find_if(option_kinds.begin(), option_kinds.end(),
                                   [&text](const option_kind &each) { return text == each.word; });
                  if (found == option_kinds.end())
                      throw usage_error("--kind: " + in_quotes(text) +
                                        " is none of boot, driver, sysprep and platformrecovery");
                  if (writes && !found->order)
                      throw usage_error("--kind: only the firmware writes " + std::string(found->prefix) +
                                        " options");
                  kind = &*found;
              });
}

void place_arguments::declare(CLI::App &app)
{
    const auto set = [this](int value) { place.position = value; };
    auto *number =
        add_value(app, "--position", "N",
                  "place in BootOrder: 0 is first, -1 (which is also the default) last, -2 before the last; "
                  "counted before the option is taken out of its old place",
                  [set](const std::string &text) { set(position_of(text)); });
    auto *first = app.add_flag_callback(
        "--first", [set] { set(0); }, "first in BootOrder");
    auto *after = add_value(app, "--after", "OPTION", "in BootOrder behind this option",
                            [this](const std::string &text) { place.after = checked_name(text); });
    auto *none = app.add_flag("--no-order", place.none, "leave BootOrder as it is");
    number->excludes(first)->excludes(after)->excludes(none);
    first->excludes(after)->excludes(none);
    after->excludes(none);
}

void number_argument::declare(CLI::App &app, const kind_argument &kind)
{
    add_value(app, "--number", "####", "hexadecimal number of the option; else the lowest that is not in use",
              [this, &kind](const std::string &text) {
                  value = kind.kind->typed_number(text);
                  if (!value)
                      throw usage_error(in_quotes(text) + " is not the number of an option, such as " +
                                        kind.kind->name(0x1f) + " or 1f");
              });
}

void optional_data_arguments::declare(CLI::App &app)
{
    auto *from_file =
        add_value(app, "--optdata-file", "FILE", "optional data: the contents of FILE, - for standard input",
                  [this](const std::string &name) { file = name; });
    auto *units =
        add_value(app, "--optdata-text", "TEXT",
                  "optional data: TEXT as null-terminated UCS-2, which a kernel takes as its command line",
                  [this](const std::string &value) {
                      if (!to_ucs2(value))
                          throw usage_error("--optdata-text: " + in_quotes(value) +
                                            " is no UTF-8 text of characters up to U+FFFF");
                      text = value;
                  });
    auto *letters = add_value(app, "--optdata-ascii", "TEXT", "optional data: the bytes of TEXT",
                              [this](const std::string &value) {
                                  if (!is_ascii(value))
                                      throw usage_error("--optdata-ascii: " + in_quotes(value) +
                                                        " has characters that are not of ASCII");
                                  ascii = value;
                              });
    units->excludes(from_file)->excludes(letters);
    letters->excludes(from_file);
}

std::optional<bytes> optional_data_arguments::read() const
{
    if (file == "-") {
        const std::string data = standard_input(data_limit, "larger than any firmware variable");
        return bytes(data.begin(), data.end());
    }
    if (file)
        return contents(*file, data_limit, "it is larger than any firmware variable");
    if (ascii)
        return bytes(ascii->begin(), ascii->end());
    if (text)
        return stored(to_ucs2(*text).value());
    return std::nullopt;
}

void network_arguments::declare(CLI::App &app, const std::vector<CLI::Option *> &excluded)
{
    CLI::Option *both[] = {
        add_value(app, "--mac", "ADDRESS", "boot over the network card of this address",
                  [this](const std::string &text) {
                      mac = parse_mac(text);
                      if (!mac)
                          throw usage_error("--mac: " + in_quotes(text) +
                                            " is not six bytes, such as 52:54:00:12:34:56");
                  }),
        add_value(app, "--uri", "URI", "boot what is there, http://... or https://...",
                  [this](const std::string &text) {
                      if (!is_boot_uri(text))
                          throw usage_error("--uri: " + in_quotes(text) +
                                            " is no http://... or https://... of visible ASCII characters");
                      uri = text;
                  }),
    };
    for (CLI::Option *each : both) {
        for (CLI::Option *other : excluded)
            each->excludes(other);
    }
}

bytes network_arguments::encode(const path_arguments &devices, device_paths &paths,
                                const general_options &general) const
{
    if (devices.file)
        throw failure("what is booted over a network has no file: " + in_quotes(*devices.file),
                      "Leave it out of the device path; --uri names what is fetched.");
    if (!devices.device_text || devices.device_text->empty())
        return network_path(mac, uri);
    const bytes front = devices.encode(paths, packs::devices, general).packed;
    require_devices(front);
    return network_path_behind(front, mac, uri);
}

} // namespace tool
