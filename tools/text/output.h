/* SPDX-License-Identifier: MIT */
// What is written: plain text for people, JSON for programs, warnings.
#ifndef OVRA_TOOLS_OUTPUT_H
#define OVRA_TOOLS_OUTPUT_H

#include <cstdint>
#include <deque>
#include <functional>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/text/jsontext.h"
#include "tools/text/loadoption.h"
#include "tools/text/optionkind.h"

namespace tool {

// Writes to standard output; throws a failure when not all of it could be written.
void print(std::string_view text);

// Warnings are kept from now on, to be members of the documents that are printed.
void keep_warnings();

// Prints an object as a document: "format" stands before its members and "warnings" behind them.
void print_json(const json &document);
// The same on one line, one of many.
void print_json_line(const json &document);
// The document of what failed; it ends the document of a json_list that has begun to be printed.
void print_json_error(const json &error);

// A document with a list. It is printed entry by entry: a long one is never in memory whole.
class json_list {
public:
    json_list(const json &members, const std::string &key);
    void add(const std::function<void(json_members &)> &put);
    void end();

private:
    std::string pending; // not printed yet
    bool empty = true;
};

// One line to standard error, and what to do about it. Programs find it in the next document.
void warn(const std::string &what, const std::string &advice = {});

// How a row looks on a terminal with colours.
enum class tint : uint8_t { plain, emphasised, faint, alarming };

// Columns as wide as their widest cell, of those up to `widest`: what follows a wider one is only pushed
// aside. A row that would end beyond 80 columns is pushed together behind the column `main`, if that is not
// 0, and goes on in a line below that column when this is not enough.
class table {
public:
    explicit table(size_t widest = SIZE_MAX, size_t main = 0) : widest_column(widest), main_column(main) {}

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
    // The same to standard output, as it is made.
    void print() const;

private:
    struct cell {
        uint32_t size = 0; // in content
        uint32_t columns = 0;
    };

    void add_cell(std::string_view text, size_t wide);
    // Where the cells of a row begin. One that begins before the end of another stands in a line below it.
    void put_places(std::span<const cell> row, std::vector<size_t> *places) const;
    bool fits(std::span<const cell> row, std::vector<size_t> *places) const;
    // In parts of some lines.
    void write(const std::function<void(std::string_view)> &take) const;

    // The lines one behind the other, without ends. A line below a row is one cell. A table may be long, and
    // memory that has never been used takes the system longer to give than a row takes to be made: nothing
    // is moved when it grows, and no cell has a gigabyte.
    std::deque<std::string> content;
    std::deque<cell> cells;
    struct line {
        uint32_t cells = 0;
        bool is_row = true;
        tint shown_as = tint::plain;
    };
    std::deque<line> lines;
    std::vector<size_t> widths;
    size_t widest_column;
    size_t main_column;
};

// A load option's fields.
json as_json(const load_option &option);
void put_members(json_members &to, const load_option &option);

// "Boot001F", or null.
json as_json(const option_kind &kind, std::optional<uint16_t> option);

json option_names(const option_kind &kind, const std::vector<uint16_t> &options);

} // namespace tool

#endif
