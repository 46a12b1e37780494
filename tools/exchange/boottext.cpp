// SPDX-License-Identifier: MIT
#include "tools/exchange/boottext.h"

#include <algorithm>

#include "tools/exchange/settings.h"
#include "tools/machine/status.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

constexpr const char *heading =
    "# The boot variables of a machine, as 'ovra export' writes them and 'ovra import'\n"
    "# reads them. Change a line, and the machine is changed. What is not changed keeps\n"
    "# its bytes: bytes and crc32 may stay as they are. An option whose lines are taken\n"
    "# out is removed. 'man ovra' has more under TEXT OF BOOT VARIABLES.\n";

// Digits and names in lines that are not too long to be compared: a line that begins with blanks goes on.
std::string folded(const std::string &text, size_t width)
{
    std::string all;
    for (size_t at = 0; at < text.size(); at += width)
        all += (at == 0 ? "" : "\n    ") + text.substr(at, width);
    return all;
}

std::string folded_words(const std::string &text)
{
    constexpr size_t width = 72;
    std::string all;
    size_t column = 0;
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find(' ', begin), text.size());
        const bool is_first = all.empty();
        const bool breaks = !is_first && column + 1 + end - begin > width;
        all += (is_first ? "" : breaks ? "\n    " : " ") + text.substr(begin, end - begin);
        column = breaks ? end - begin : column + 1 + end - begin;
        begin = end + 1;
    }
    return all;
}

std::string text_of(const text_line &line)
{
    constexpr size_t digits = 64;
    const std::string value =
        line.key == "bytes" || line.key == "path-bytes" ? folded(line.value, digits) : line.value;
    return line.key + (value.empty() ? " =" : " = ") + value + '\n';
}

std::string sums_text(const std::set<uint32_t> &sums)
{
    std::vector<std::string> words;
    words.reserve(sums.size());
    for (const uint32_t sum : sums)
        words.push_back(format("%08x", sum));
    return words.empty() ? "none" : folded_words(join(words, " "));
}

std::string head_of(const boot_store &store, const machine_marks &marks)
{
    std::string text = heading + std::string("\nformat = 1\n");
    text += "machine = " + (marks.product ? format("%08x", *marks.product) : std::string("none")) + '\n';
    text += "partitions = " + sums_text(marks.partitions) + '\n';
    for (const char *name : settings) {
        const auto found = store.values.find(name);
        text += name + std::string(" = ");
        if (store.unread.contains(name))
            text += "unreadable";
        else
            text += found == store.values.end() ? "none" : folded_words(setting_text(name, found->second));
        text += '\n';
    }
    for (const auto &[name, value] : store.of_firmware)
        text.append("# ").append(name).append(" = ").append(value).append(" (not imported)\n");
    return text;
}

std::string remark_on_attributes(const boot_store &store, const std::string &name)
{
    const auto found = store.attributes.find(name);
    return found == store.attributes.end()
               ? ""
               : "# stored as " + join(attribute_words(found->second), ", ") + '\n';
}

std::string lines_with(char sign, const text_lines &lines, const text_lines &others)
{
    std::string text;
    for (const text_line &line : lines) {
        const bool both = std::any_of(others.begin(), others.end(), [&line](const text_line &other) {
            return line.key == other.key && line.value == other.value;
        });
        if (!both)
            text += sign + (' ' + line.key) + " = " + line.value + '\n';
    }
    return text;
}

text_lines lines_of_value(const std::string &name, const bytes *value, device_paths &paths)
{
    if (!value)
        return {};
    if (is_setting(name))
        return {{name, setting_text(name, *value)}};
    text_lines lines = lines_of(*value, paths);
    return lines.empty() ? text_lines{{"bytes", hex(*value)}} : lines;
}

} // namespace

std::string boot_text(const boot_store &store, const machine_marks &marks, device_paths &paths)
{
    std::string text = head_of(store, marks);
    for (const option_kind &family : families) {
        for (const auto &[name, value] : store.values) {
            if (family_of(name) != &family)
                continue;
            text.append("\n[").append(name).append("]\n").append(remark_on_attributes(store, name));
            for (const text_line &line : all_lines_of(value, paths))
                text += text_of(line);
        }
    }
    for (const auto &[name, why] : store.unread) {
        if (!is_setting(name))
            text.append("\n[").append(name).append("]\nunreadable = ").append(why).append("\n");
    }
    return text + "\nend\n";
}

std::string difference(const std::string &name, const bytes *before, const bytes *after, device_paths &paths)
{
    const text_lines old_lines = lines_of_value(name, before, paths);
    const text_lines new_lines = lines_of_value(name, after, paths);
    std::string text = lines_with('-', old_lines, new_lines) + lines_with('+', new_lines, old_lines);
    if (text.empty() && before && after) // what no line shows
        text = "- bytes = " + hex(*before) + "\n+ bytes = " + hex(*after) + '\n';
    return is_setting(name) ? text : '[' + name + "]\n" + text;
}

} // namespace tool
