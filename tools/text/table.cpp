// SPDX-License-Identifier: MIT
#include "tools/text/table.h"

#include <algorithm>

#include "tools/text/output.h"
#include "tools/text/terminal.h"
#include "tools/text/text.h"

namespace tool {

namespace {

constexpr size_t block_size = 1u << 16; // what is kept, or written, together

} // namespace

void table::add_cell(std::string_view text, size_t wide)
{
    if (content.empty() || content.back().capacity() - content.back().size() < text.size()) {
        content.emplace_back();
        content.back().reserve(std::max(block_size, text.size()));
    }
    content.back() += text;
    cells.push_back({static_cast<uint32_t>(text.size()), static_cast<uint32_t>(wide)});
}

void table::row(std::span<const std::string_view> texts)
{
    widths.resize(std::max(widths.size(), texts.size()));
    for (size_t at = 0; at < texts.size(); ++at) {
        const size_t wide = columns(texts[at]);
        add_cell(texts[at], wide);
        if (wide <= widest_column)
            widths[at] = std::max(widths[at], wide);
    }
    lines.push_back({static_cast<uint32_t>(texts.size()), true, tint::plain});
}

void table::below(size_t spaces, const std::string &text)
{
    add_cell(std::string(spaces, ' ') + text, 0);
    lines.push_back({1, false, tint::plain});
}

namespace {

constexpr size_t between = 2; // columns

std::string_view colour_of(tint which)
{
    if (which == tint::plain || !shows_colours())
        return {};
    return which == tint::emphasised ? "\033[1m" : which == tint::faint ? "\033[2m" : "\033[31m";
}

} // namespace

// Moves the places of cells behind the main column to the left until none ends beyond the line. False when
// these would be in each other's way.
bool table::fits(std::span<const cell> row, std::vector<size_t> *places) const
{
    size_t end = line_width;
    for (size_t at = row.size(); at-- > 0;) {
        const size_t wide = row[at].columns;
        size_t &place = places->at(at);
        if (wide == 0)
            continue;
        if (place + wide > end && (at <= main_column || wide > end))
            return false;
        place = std::min(place, end - wide);
        end = std::max(place, between) - between;
    }
    return true;
}

void table::put_places(std::span<const cell> row, std::vector<size_t> *places) const
{
    size_t begin = 0;
    size_t end = 0;
    places->clear();
    for (size_t at = 0; at < row.size(); ++at) {
        places->push_back(begin);
        end = row[at].columns != 0 ? begin + row[at].columns : end;
        const size_t wide = std::max<size_t>(widths[at], row[at].columns);
        begin += wide == 0 ? 0 : wide + between;
    }
    if (main_column == 0 || end <= line_width)
        return;
    const std::vector<size_t> aligned = *places;
    size_t count = row.size();
    while (count > main_column + 1 && !fits(row.first(count), places)) {
        *places = aligned;
        --count;
    }
    for (begin = aligned[main_column]; count < row.size(); ++count) {
        const size_t wide = row[count].columns;
        if (begin + wide > line_width)
            begin = aligned[main_column];
        places->at(count) = begin;
        begin += wide == 0 ? 0 : wide + between;
    }
}

void table::write(const std::function<void(std::string_view)> &take) const
{
    std::string part;
    auto next = cells.begin();
    auto block = content.begin();
    size_t at = 0; // in the block
    std::vector<cell> row;
    std::vector<size_t> places;
    for (const line &each : lines) {
        const std::string_view colour = colour_of(each.shown_as);
        part += colour;
        row.assign(next, next + each.cells);
        next += each.cells;
        if (each.is_row)
            put_places(row, &places);
        else
            places.assign(1, 0);
        size_t end = 0; // of the cell before
        for (size_t column = 0; column < row.size(); ++column) {
            if (block->size() - at < row[column].size) {
                ++block;
                at = 0;
            }
            if (row[column].size == 0)
                continue;
            if (places[column] < end) {
                part.erase(part.find_last_not_of(' ') + 1);
                part += '\n';
                end = 0;
            }
            part.append(places[column] - end, ' ').append(*block, at, row[column].size);
            at += row[column].size;
            end = places[column] + row[column].columns;
        }
        part.erase(part.find_last_not_of(' ') + 1);
        part += colour.empty() ? "\n" : "\033[0m\n";
        if (part.size() > block_size) {
            take(part);
            part.clear();
        }
    }
    take(part);
}

std::string table::text() const
{
    std::string all;
    write([&all](std::string_view part) { all += part; });
    return all;
}

void table::print() const
{
    write([](std::string_view part) { tool::print(part); });
}

} // namespace tool
