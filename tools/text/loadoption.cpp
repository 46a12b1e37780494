// SPDX-License-Identifier: MIT
#include "tools/text/loadoption.h"

#include <cstring>

#include "src/base/nodes.h"
#include "tools/text/description.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

// What the library reads without the terminator.
constexpr size_t description_characters = ovra::description_limit / sizeof(CHAR16) - 1;

} // namespace

std::optional<ovra::load_option_parts> split(byte_view variable)
{
    const auto option = ovra::split_load_option(variable);
    if (!option || !option->is_whole())
        return std::nullopt;
    return *option;
}

bool take_option(byte_view variable, load_option *option)
{
    const auto parts = split(variable);
    if (!parts)
        return false;
    option->attributes = parts->attributes;
    if (!assign_utf8(parts->description, &option->description))
        option->description = description_of_units(parts->description);
    option->path.assign(parts->path.begin(), parts->path.end());
    option->optional_data.assign(parts->optional_data.begin(), parts->optional_data.end());
    return true;
}

bytes as_stored(const load_option &option)
{
    const auto description = units_of_description(option.description);
    if (!description)
        throw failure("the description " + in_quotes(option.description) + " is no text");
    const ovra::load_option_parts parts = {option.attributes, ovra::bytes_of_units(*description), option.path,
                                           option.optional_data};
    bytes variable(ovra::stored_size(parts));
    ovra::write_load_option(parts, variable);
    return variable;
}

void check_description(const std::string &description)
{
    if (!units_of_description(description) || is_damaged_text(description))
        throw usage_error("--desc: " + in_quotes(description) + " is no UTF-8 text without null characters");
}

std::string description_obstacle(const std::string &description)
{
    const auto units = to_ucs2(description);
    if (!units)
        return "the description has characters beyond U+FFFF";
    if (units->size() - 1 > description_characters || description.size() > ovra::description_limit)
        return format("the description has more than %zu characters or %zu bytes in UTF-8",
                      description_characters, ovra::description_limit);
    return {};
}

void check_size(const load_option &option)
{
    const size_t optional_data_offset = as_stored(option).size() - option.optional_data.size();
    if (optional_data_offset > UINT16_MAX)
        throw failure(format("the description and the path have %zu bytes together", optional_data_offset),
                      "Where optional data begins must fit in 16 bits.");
}

std::optional<std::string> path_error(byte_view path)
{
    if (path.size() > UINT16_MAX)
        return "it is longer than 65535 bytes";
    bool ended = false;
    for (ovra::cursor nodes{path}; !nodes.at_end();) {
        const size_t left = nodes.rest.size();
        if (nodes.header_cut_off())
            return format("at byte %zu less than a node header is left", path.size() - left);
        const size_t length = nodes.peek()->len;
        const uefi_device_path_t *node = nodes.next();
        if (!node)
            return format("the node at byte %zu gives its length as %zu, %zu bytes are left",
                          path.size() - left, length, left);
        ended = ovra::is_end_entire(node);
    }
    if (!ended)
        return "it does not end in an END node (7fff0400)";
    return std::nullopt;
}

std::string attribute_text(uint32_t attributes)
{
    std::vector<std::string> words;
    words.emplace_back((attributes & LOAD_OPTION_ACTIVE) != 0 ? "active" : "inactive");
    if ((attributes & LOAD_OPTION_FORCE_RECONNECT) != 0)
        words.emplace_back("force-reconnect");
    if ((attributes & LOAD_OPTION_HIDDEN) != 0)
        words.emplace_back("hidden");
    // The category (UEFI 3.1.3): 0 is an option to boot, 1 an application.
    const uint32_t category = attributes >> 8 & 0x1f;
    if (category == 1)
        words.emplace_back("application");
    else if (category != 0)
        words.push_back(format("category %u", category));
    return format("0x%08x (%s)", attributes, join(words, ", ").c_str());
}

std::string optional_data_text(byte_view data)
{
    if (const auto text = as_text(data))
        return in_quotes(*text);
    return hex(data) + format(" (%zu bytes)", data.size());
}

} // namespace tool
