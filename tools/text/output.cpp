// SPDX-License-Identifier: MIT
#include "tools/text/output.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "tools/text/description.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"
#include "tools/text/terminal.h"

namespace tool {

namespace {

// A description can hold what is no text: it becomes U+FFFD.
std::string dumped(const json &value)
{
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

// Nearly all texts stand in JSON as they are, and looking at each byte is most of what the library does.
void append_text(const std::string &text, std::string *to)
{
    const auto lacks = [&text](char c) { return text.find(c) == std::string::npos; };
    if (is_plain(text) && lacks('"') && lacks('\\')) {
        *to += '"';
        *to += text;
        *to += '"';
    } else {
        *to += escaped_in_json(dumped(text));
    }
}

void append_value(const json &value, size_t indent, std::string *to);

// What stands between the brackets; `append_one` writes a member.
template <typename append>
void append_members_of(const json &value, size_t indent, std::string *to, append append_one)
{
    const std::string line = '\n' + std::string(indent + 2, ' ');
    for (auto member = value.begin(); member != value.end(); ++member) {
        *to += member == value.begin() ? "" : ",";
        *to += line;
        append_one(member);
    }
    to->append(line, 0, indent + 1);
}

// As dump(2) does it, with `indent` blanks in front of all lines but the first.
void append_value(const json &value, size_t indent, std::string *to)
{
    if (value.is_string()) {
        append_text(value.get_ref<const std::string &>(), to);
    } else if (value.is_object() && !value.empty()) {
        *to += '{';
        append_members_of(value, indent, to, [&](const auto &member) {
            append_text(member.key(), to);
            *to += ": ";
            append_value(member.value(), indent + 2, to);
        });
        *to += '}';
    } else if (value.is_array() && !value.empty()) {
        *to += '[';
        append_members_of(value, indent, to,
                          [&](const auto &member) { append_value(*member, indent + 2, to); });
        *to += ']';
    } else {
        *to += dumped(value);
    }
}

} // namespace

void print(std::string_view text)
{
    while (!text.empty()) {
        const ssize_t written = write(STDOUT_FILENO, text.data(), text.size());
        if (written == -1 && errno == EINTR)
            continue;
        if (written == -1 && errno == EPIPE)
            throw nobody_reads(std::string("cannot write to standard output: ") + strerror(errno));
        if (written == -1)
            throw failure(std::string("cannot write to standard output: ") + strerror(errno));
        text.remove_prefix(static_cast<size_t>(written));
    }
}

void print_json(const json &document)
{
    std::string text;
    append_value(document, 0, &text);
    print(text + '\n');
}

json_list::json_list(const json &members, const std::string &key)
{
    append_value(members, 0, &pending);
    pending.erase(pending.rfind('\n')); // the brace that ends the document
    pending += ",\n  \"" + key + "\": [";
}

void json_list::add(const json &entry)
{
    constexpr size_t much = 1u << 16;
    constexpr size_t indent = 4;
    pending += empty ? "\n    " : ",\n    ";
    empty = false;
    append_value(entry, indent, &pending);
    if (pending.size() > much) {
        print(pending);
        pending.clear();
    }
}

void json_list::end()
{
    pending += empty ? "]\n}\n" : "\n  ]\n}\n";
    print(pending);
    pending.clear();
}

void warn(const std::string &what, const std::string &advice)
{
    const std::string name = "ovra: warning: ";
    fprintf(stderr, "%s%s\n", name.c_str(), broken(what, name.size()).c_str());
    if (!advice.empty())
        fprintf(stderr, "  %s\n", broken(advice, 2).c_str());
}

void table::row(std::span<const std::string_view> texts)
{
    widths.resize(std::max(widths.size(), texts.size()));
    for (size_t at = 0; at < texts.size(); ++at) {
        if (const size_t width = columns(texts[at]); width <= widest_column)
            widths[at] = std::max(widths[at], width);
        cells += texts[at];
        cell_ends.push_back(cells.size());
    }
    lines.push_back({cell_ends.size(), true, tint::plain});
}

void table::below(size_t spaces, const std::string &text)
{
    cells.append(spaces, ' ').append(text);
    cell_ends.push_back(cells.size());
    lines.push_back({cell_ends.size(), false, tint::plain});
}

namespace {

std::string_view colour_of(tint which)
{
    if (which == tint::plain || !shows_colours())
        return {};
    return which == tint::emphasised ? "\033[1m" : which == tint::faint ? "\033[2m" : "\033[31m";
}

} // namespace

std::string table::text() const
{
    std::string all;
    size_t at = 0;   // in cells
    size_t cell = 0; // in cell_ends
    for (const line &each : lines) {
        const std::string_view colour = colour_of(each.shown_as);
        all += colour;
        for (size_t column = 0; cell < each.cells_end; ++column, ++cell) {
            const std::string_view text = std::string_view(cells).substr(at, cell_ends[cell] - at);
            at = cell_ends[cell];
            all += text;
            if (!each.is_row)
                continue;
            const size_t width = columns(text);
            all.append(std::max(widths[column], width) - width + 2, ' ');
        }
        all.erase(all.find_last_not_of(' ') + 1);
        all += colour.empty() ? "\n" : "\033[0m\n";
    }
    return all;
}

json as_json(const load_option &option)
{
    const auto text = as_text(option.optional_data);
    json fields;
    fields["description"] = description_for_json(option.description);
    if (is_damaged_text(option.description))
        fields["damaged_description"] = shown_description(option.description);
    fields["active"] = option.active();
    fields["attributes"] = option.attributes;
    fields["path"] = hex(option.path);
    fields["optional_data"] = hex(option.optional_data);
    fields["optional_data_text"] = text ? json(*text) : json(nullptr);
    return fields;
}

void append_members(json *object, json more)
{
    auto &members = object->get_ref<json::object_t &>();
    for (auto &[key, value] : more.get_ref<json::object_t &>())
        members.emplace_back(key, std::move(value));
}

json as_json(const option_kind &kind, std::optional<uint16_t> option)
{
    return option ? json(kind.name(*option)) : json(nullptr);
}

json option_names(const option_kind &kind, const std::vector<uint16_t> &options)
{
    json names = json::array();
    for (const uint16_t option : options)
        names.push_back(kind.name(option));
    return names;
}

} // namespace tool
