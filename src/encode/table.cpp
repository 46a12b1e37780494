// SPDX-License-Identifier: MIT
#include <algorithm>
#include <array>

#include "src/base/ascii.h"
#include "src/encode/table.h"

namespace {

// A text as a template argument: a row holds its parameters.
template <size_t size>
struct literal {
    char text[size] = {};
    constexpr literal(const char (&from)[size]) { std::copy_n(from, size, text); }
};

template <literal... names>
constexpr const char *const parameters[] = {names.text..., nullptr};

} // namespace

#define PARAMETERS(...) parameters<__VA_ARGS__>
#define WHOLE_TEXT nullptr
#define KEYWORD(keyword, encoder, parameters) {keyword, encoder, parameters},
constexpr uefi_encode_opt_t encode_opt_table[ENCODE_OPT_COUNT] = {
#include "src/encode/keywords.def"
};

namespace {

// A row in its place.
struct indexed_row {
    uint8_t length = 0; // of its keyword; 0: no row has this place
    uint8_t row = 0;
};

// Places of rows by the hash of their keyword: what another row has taken is passed over to the next place.
constexpr size_t places = 256;
static_assert(ENCODE_OPT_COUNT <= places / 2); // most of them stay free

using row_index = std::array<indexed_row, places>;

constexpr size_t first_place(std::string_view keyword)
{
    unsigned hash = 0;
    for (const char c : keyword)
        hash = hash * 31 + static_cast<unsigned char>(ovra::ascii_lower(c));
    return hash % places;
}

// In the order of the table: of rows that are alike the first has the place that is looked at first.
constexpr row_index index_rows()
{
    row_index index = {};
    for (uint8_t row = 0; row < ENCODE_OPT_COUNT; ++row) {
        const std::string_view keyword = encode_opt_table[row].opt_name;
        size_t place = first_place(keyword);
        while (index[place].length != 0)
            place = (place + 1) % places;
        index[place] = {static_cast<uint8_t>(keyword.size()), row};
    }
    return index;
}

constexpr row_index rows_by_keyword = index_rows();

constexpr const uefi_encode_opt_t *find(std::string_view keyword)
{
    for (size_t place = first_place(keyword); rows_by_keyword[place].length != 0;
         place = (place + 1) % places) {
        const auto [length, row] = rows_by_keyword[place];
        const uefi_encode_opt_t &opt = encode_opt_table[row];
        if (ovra::alike(std::string_view(opt.opt_name, length), keyword))
            return &opt;
    }
    return nullptr;
}

// As a walk through the table finds it.
constexpr bool finds_the_first_row_of_each_keyword()
{
    return std::all_of(std::begin(encode_opt_table), std::end(encode_opt_table), [](const auto &row) {
        const std::string_view keyword = row.opt_name;
        return find(keyword) ==
               std::find_if(std::begin(encode_opt_table), std::end(encode_opt_table),
                            [&](const auto &other) { return ovra::alike(other.opt_name, keyword); });
    });
}
static_assert(finds_the_first_row_of_each_keyword());

} // namespace

const uefi_encode_opt_t *ovra::find_keyword(std::string_view keyword)
{
    return find(keyword);
}
