// SPDX-License-Identifier: MIT
#include "tools/exchange/fields.h"

#include <algorithm>
#include <iterator>
#include <optional>

#include "src/base/crc32.h"
#include "tools/exchange/pathlines.h"
#include "tools/exchange/quoted.h"
#include "tools/text/loadoption.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

constexpr const char *bytes_key = "bytes";
constexpr const char *sum_key = "crc32";

// What belongs together: a change in one line of it makes the whole of it anew.
enum class part { description, attributes, path, data, none };

part part_of(const std::string &key)
{
    if (key == "description")
        return part::description;
    if (key == "active" || key == "flags")
        return part::attributes;
    if (key == "data")
        return part::data;
    return is_key_of_path(key) ? part::path : part::none;
}

text_lines lines_of_part(const text_lines &lines, part wanted)
{
    text_lines found;
    std::copy_if(lines.begin(), lines.end(), std::back_inserter(found),
                 [wanted](const text_line &line) { return part_of(line.key) == wanted; });
    return found;
}

bool same_text(const text_lines &a, const text_lines &b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const text_line &one, const text_line &other) {
                          return one.key == other.key && one.value == other.value;
                      });
}

byte_view without_terminator(byte_view units)
{
    return units.first(units.size() - sizeof(CHAR16));
}

bytes with_terminator(bytes units)
{
    units.insert(units.end(), sizeof(CHAR16), 0);
    return units;
}

// "text ..." is UTF-16 with its terminator, which a kernel takes as its command line.
std::string data_value(byte_view data)
{
    if (as_text(data)) {
        const bool ascii = std::all_of(data.begin(), data.end(), [](uint8_t byte) { return byte >= 0x20; });
        if (ascii)
            return "ascii " + quoted_ascii(data);
        if (ovra::terminated_units(data).size() == data.size())
            return "text " + quoted_units(without_terminator(data));
    }
    return "hex " + hex(data);
}

[[noreturn]] void refuse_line(const text_line &line, const std::string &why)
{
    throw line_error(line.number, line.key + ": " + why);
}

bytes bytes_in(const text_line &line)
{
    auto data = parse_hex(line.value);
    if (!data)
        refuse_line(line, "pairs of hexadecimal digits are needed");
    return *std::move(data);
}

bytes data_of(const text_line &line)
{
    const size_t blank = std::min(line.value.find(' '), line.value.size());
    const std::string kind = line.value.substr(0, blank);
    const std::string rest = line.value.substr(std::min(blank + 1, line.value.size()));
    if (kind == "text")
        return with_terminator(unquoted_units(rest));
    if (kind == "ascii")
        return unquoted_ascii(rest);
    if (kind == "hex")
        return bytes_in({line.key, rest, line.number});
    refuse_line(line, "text \"...\", ascii \"...\" or hex and digits are needed");
}

uint32_t attributes_of(const text_lines &lines, size_t section)
{
    std::optional<uint32_t> attributes;
    uint32_t flags = 0;
    for (const text_line &line : lines) {
        if (line.key == "flags") {
            const auto number = parse_number(line.value);
            if (!number || (*number & LOAD_OPTION_ACTIVE) != 0)
                refuse_line(line, "a 32-bit number is needed, without the 1 for active options");
            flags = *number;
        } else if (line.value == "yes" || line.value == "no") {
            attributes = line.value == "yes" ? LOAD_OPTION_ACTIVE : 0;
        } else {
            refuse_line(line, "yes or no is needed");
        }
    }
    if (!attributes)
        throw line_error(section, "the option has no line active");
    return *attributes | flags;
}

// The parts of an option that is made of lines.
struct made_parts {
    uint32_t attributes = 0;
    bytes description, path, data;
};

void make_part(part which, const text_lines &lines, size_t section, device_paths &paths, made_parts *made)
{
    try {
        switch (which) {
        case part::description:
            if (lines.empty())
                throw line_error(section, "the option has no line description");
            made->description = with_terminator(unquoted_units(lines[0].value));
            break;
        case part::attributes:
            made->attributes = attributes_of(lines, section);
            break;
        case part::path:
            if (lines.empty())
                throw line_error(section, "the option has no line path");
            made->path = path_of(lines, paths);
            break;
        case part::data:
            made->data = lines.empty() ? bytes{} : data_of(lines[0]);
            break;
        case part::none:
            break;
        }
    } catch (const unclear_quotes &why) {
        refuse_line(lines[0], why.what());
    }
}

const text_line *line_with(const text_lines &lines, const char *key)
{
    const auto found =
        std::find_if(lines.begin(), lines.end(), [key](const text_line &line) { return line.key == key; });
    return found == lines.end() ? nullptr : &*found;
}

std::string sum_of(byte_view data)
{
    return format("%08x", ovra::crc32(data));
}

// The bytes that the lines give; nothing when they give none.
std::optional<bytes> given_bytes(const text_lines &lines, bool has_fields)
{
    const text_line *data = line_with(lines, bytes_key);
    const text_line *sum = line_with(lines, sum_key);
    if (!data && sum)
        refuse_line(*sum, "there are no bytes that it is the sum of");
    if (!data)
        return std::nullopt;
    bytes given = bytes_in(*data);
    if (given.empty())
        refuse_line(*data, "a variable has at least one byte");
    if (!sum && has_fields)
        refuse_line(*data, "without crc32 it is not clear whether these bytes count or the lines above: "
                           "leave out the one or the other");
    if (sum && sum->value != sum_of(given))
        refuse_line(*sum,
                    "the bytes have the sum " + sum_of(given) +
                        ": they were damaged or changed. Bytes that are to count stand alone, without other "
                        "lines");
    return given;
}

} // namespace

bool is_key_of_option(const std::string &key)
{
    return part_of(key) != part::none || key == bytes_key || key == sum_key || key == "unreadable";
}

text_lines lines_of(byte_view option, device_paths &paths)
{
    const auto parts = split(option);
    if (!parts)
        return {};
    text_lines lines = {{"description", quoted_units(without_terminator(parts->description))}};
    lines.push_back({"active", (parts->attributes & LOAD_OPTION_ACTIVE) != 0 ? "yes" : "no"});
    if (const uint32_t flags = parts->attributes & ~LOAD_OPTION_ACTIVE)
        lines.push_back({"flags", format("0x%08x", flags)});
    const text_lines path = path_lines_of(parts->path, paths);
    lines.insert(lines.end(), path.begin(), path.end());
    if (!parts->optional_data.empty())
        lines.push_back({"data", data_value(parts->optional_data)});
    return lines;
}

text_lines all_lines_of(byte_view option, device_paths &paths)
{
    text_lines lines = lines_of(option, paths);
    lines.push_back({bytes_key, hex(option)});
    lines.push_back({sum_key, sum_of(option)});
    return lines;
}

bytes option_of(const text_lines &lines, size_t section, device_paths &paths)
{
    const bool has_fields = std::any_of(
        lines.begin(), lines.end(), [](const text_line &line) { return part_of(line.key) != part::none; });
    const std::optional<bytes> given = given_bytes(lines, has_fields);
    if (!has_fields && !given)
        throw line_error(section, "the option has no lines");
    if (!has_fields)
        return *given;
    const text_lines before = given ? lines_of(*given, paths) : text_lines{};
    ovra::load_option_parts parts;
    if (const auto kept = given ? split(*given) : std::nullopt)
        parts = *kept;
    made_parts made;
    bool changed = false;
    for (const part which : {part::description, part::attributes, part::path, part::data}) {
        const text_lines now = lines_of_part(lines, which);
        if (!before.empty() && same_text(now, lines_of_part(before, which)))
            continue;
        changed = true;
        make_part(which, now, section, paths, &made);
        if (which == part::description)
            parts.description = made.description;
        else if (which == part::attributes)
            parts.attributes = made.attributes;
        else if (which == part::path)
            parts.path = made.path;
        else
            parts.optional_data = made.data;
    }
    if (!changed)
        return *given;
    if (parts.path.size() > UINT16_MAX)
        throw line_error(section, "the path is longer than 65535 bytes");
    bytes option(ovra::stored_size(parts));
    ovra::write_load_option(parts, option);
    return option;
}

} // namespace tool
