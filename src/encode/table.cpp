// SPDX-License-Identifier: MIT
#include <algorithm>
#include <iterator>

#include "src/encode/encode.h"

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
