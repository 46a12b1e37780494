// SPDX-License-Identifier: MIT
#include "tools/text/output.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "tools/text/failure.h"
#include "tools/text/numbers.h"

namespace tool {

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
    append_json(document, 0, &text);
    print(text + '\n');
}

json_list::json_list(const json &members, const std::string &key)
{
    append_json(members, 0, &pending);
    pending.erase(pending.rfind('\n')); // the brace that ends the document
    pending += ",\n  \"" + key + "\": [";
}

void json_list::add(const std::function<void(json_members &)> &put)
{
    constexpr size_t much = 1u << 16;
    constexpr size_t indent = 4;
    pending += empty ? "\n    " : ",\n    ";
    empty = false;
    json_members entry(&pending, indent);
    put(entry);
    entry.end();
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

void table::add_cell(std::string_view text)
{
    content += text;
    cells.push_back({content.size(), columns(text)});
}

void table::row(std::span<const std::string_view> texts)
{
    widths.resize(std::max(widths.size(), texts.size()));
    for (size_t at = 0; at < texts.size(); ++at) {
        add_cell(texts[at]);
        widths[at] = std::max(widths[at], cells.back().columns);
    }
    lines.push_back({cells.size(), true});
}

void table::below(size_t spaces, const std::string &text)
{
    content.append(spaces, ' ').append(text);
    cells.push_back({content.size(), 0});
    lines.push_back({cells.size(), false});
}

std::string table::text() const
{
    constexpr size_t between = 2;
    size_t width = 1; // with the line's end
    for (const size_t each : widths)
        width += each + between;
    std::string all;
    all.reserve(content.size() + lines.size() * width);
    size_t at = 0;    // in content
    size_t index = 0; // in cells
    for (const line &each : lines) {
        for (size_t column = 0; index < each.cells_end; ++column, ++index) {
            const auto [end, columns_taken] = cells[index];
            all.append(content, at, end - at);
            at = end;
            if (each.is_row)
                all.append(widths[column] - columns_taken + between, ' ');
        }
        all.erase(all.find_last_not_of(' ') + 1);
        all += '\n';
    }
    return all;
}

namespace {

template <typename object>
void put_fields(object &to, const load_option &option)
{
    to.member("description", option.description);
    to.member("active", option.active());
    to.member("attributes", option.attributes);
    to.member("path", hex(option.path));
    to.member("optional_data", hex(option.optional_data));
    to.member("optional_data_text", as_text(option.optional_data));
}

} // namespace

json as_json(const load_option &option)
{
    json fields;
    json_value to(&fields);
    put_fields(to, option);
    return fields;
}

void put_members(json_members &to, const load_option &option)
{
    put_fields(to, option);
}

json as_json(std::optional<uint16_t> option)
{
    return option ? json(option_name(*option)) : json(nullptr);
}

json option_names(const std::vector<uint16_t> &options)
{
    json names = json::array();
    for (const uint16_t option : options)
        names.push_back(option_name(option));
    return names;
}

} // namespace tool
