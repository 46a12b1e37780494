/* SPDX-License-Identifier: MIT */
// Rows of text in columns.
#ifndef OVRA_TOOLS_TABLE_H
#define OVRA_TOOLS_TABLE_H

#include <cstdint>
#include <deque>
#include <functional>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

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

} // namespace tool

#endif
