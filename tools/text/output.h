/* SPDX-License-Identifier: MIT */
// What is written: plain text for people, JSON for programs, warnings.
#ifndef OVRA_TOOLS_OUTPUT_H
#define OVRA_TOOLS_OUTPUT_H

#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "tools/text/loadoption.h"
#include "tools/text/optionkind.h"

namespace tool {

using json = nlohmann::ordered_json; // members in the order in which they are written here

// Writes to standard output; throws a failure when not all of it could be written.
void print(std::string_view text);
void print_json(const json &document);

// A document whose last member is a list. It is printed entry by entry: a long one is never in memory whole.
class json_list {
public:
    json_list(const json &members, const std::string &key);
    void add(const json &entry);
    void end();

private:
    std::string pending; // not printed yet
    bool empty = true;
};

// One line to standard error, and what to do about it.
void warn(const std::string &what, const std::string &advice = {});

// How a row looks on a terminal with colours.
enum class tint : uint8_t { plain, emphasised, faint, alarming };

// Columns as wide as their widest cell, of those up to `widest`: what follows a wider one is only pushed
// aside.
class table {
public:
    explicit table(size_t widest = SIZE_MAX) : widest_column(widest) {}

    void row(std::span<const std::string_view> texts);
    void row(std::initializer_list<std::string_view> texts) { row(std::span(texts.begin(), texts.size())); }
    void row(const std::vector<std::string> &texts)
    {
        row(std::vector<std::string_view>(texts.begin(), texts.end()));
    }
    void tint_row(tint which) { lines.back().shown_as = which; }
    // A line below the last row, indented by `spaces`.
    void below(size_t spaces, const std::string &text);
    bool empty() const { return lines.empty(); }
    std::string text() const;

private:
    // The lines one behind the other, without ends: a table may be long. A line below a row is one cell.
    std::string cells;
    std::vector<size_t> cell_ends;
    struct line {
        size_t cells_end = 0; // in cell_ends
        bool is_row = true;
        tint shown_as = tint::plain;
    };
    std::vector<line> lines;
    std::vector<size_t> widths;
    size_t widest_column;
};

// A load option's fields.
json as_json(const load_option &option);

// Puts the members of one object behind those of another, which has none of these names.
void append_members(json *object, json more);

// "Boot001F", or null.
json as_json(const option_kind &kind, std::optional<uint16_t> option);

json option_names(const option_kind &kind, const std::vector<uint16_t> &options);

} // namespace tool

#endif
