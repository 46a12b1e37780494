// SPDX-License-Identifier: MIT
#include "tools/text/loadoption.h"

#include <cstring>

#include "tools/text/failure.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

constexpr size_t header_size = 6; // attributes and the length of the path

// What ovra_bootopt_get hands back whole.
constexpr size_t description_characters = 127;
constexpr size_t description_bytes = 256;

uint16_t read_u16(byte_view data, size_t at)
{
    return static_cast<uint16_t>(data[at] | data[at + 1] << 8);
}

void append_little_endian(bytes *to, uint32_t value, int size)
{
    for (int at = 0; at < size; ++at)
        to->push_back(static_cast<uint8_t>(value >> 8 * at));
}

} // namespace

std::optional<stored_parts> split(byte_view variable)
{
    if (variable.size() < header_size)
        return std::nullopt;
    const size_t path_size = read_u16(variable, 4);
    const byte_view rest = variable.subspan(header_size);
    size_t end = 0;
    do {
        if (rest.size() - end < 2)
            return std::nullopt;
        end += 2;
    } while (read_u16(rest, end - 2) != 0);
    if (rest.size() - end < path_size)
        return std::nullopt;
    return stored_parts{rest.first(end), rest.subspan(end, path_size), rest.subspan(end + path_size)};
}

bytes as_stored(const load_option &option)
{
    const auto description = to_ucs2(option.description);
    if (!description)
        throw failure("the description " + in_quotes(option.description) + " cannot be stored as UCS-2");
    bytes variable;
    append_little_endian(&variable, option.attributes, 4);
    append_little_endian(&variable, static_cast<uint32_t>(option.path.size()), 2);
    const bytes text = stored(*description);
    variable.insert(variable.end(), text.begin(), text.end());
    variable.insert(variable.end(), option.path.begin(), option.path.end());
    variable.insert(variable.end(), option.optional_data.begin(), option.optional_data.end());
    return variable;
}

void check_description(const std::string &description)
{
    const auto units = to_ucs2(description);
    if (!units)
        throw usage_error("--desc: " + in_quotes(description) +
                          " is no UTF-8 text of characters up to U+FFFF");
    if (units->size() - 1 > description_characters || description.size() > description_bytes)
        throw usage_error(format("--desc: a description has at most %zu characters and %zu bytes in UTF-8",
                                 description_characters, description_bytes));
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
    for (size_t at = 0; at < path.size();) {
        const byte_view node = path.subspan(at);
        if (node.size() < sizeof(uefi_device_path_t))
            return format("at byte %zu less than a node header is left", at);
        const size_t length = read_u16(node, offsetof(uefi_device_path_t, len));
        if (length < sizeof(uefi_device_path_t) || length > node.size())
            return format("the node at byte %zu gives its length as %zu, %zu bytes are left", at, length,
                          node.size());
        ended = node[0] == UEFI_END && node[1] == UEFI_END_ENTIRE;
        at += length;
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
