// SPDX-License-Identifier: MIT
// Numbers in text against the C library's own functions in its own locale: every short text of the characters
// that matter, every byte in every place, numbers about the limits, and random texts.
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "src/base/number.h"

namespace {

constexpr int bases[] = {0, 2, 8, 10, 16, 36};
constexpr int no_bases[] = {-1, 1, 37, 1000};

// What one of the functions made of a text: the value, where it ended, the error.
struct reading {
    uint64_t value = 0;
    ptrdiff_t end = 0;
    int error = 0;
    bool operator==(const reading &) const = default;
};

void PrintTo(const reading &read, std::ostream *out)
{
    *out << read.value << " up to " << read.end << ", errno " << read.error;
}

reading by_the_library(const std::string &text, int base)
{
    char *end = const_cast<char *>(text.c_str()); // where it stays for a base that there is not
    errno = 0;
    const uint64_t value = strtoull(text.c_str(), &end, base);
    return {value, end - text.c_str(), errno};
}

reading by_us(const std::string &text, int base)
{
    const char *end = nullptr;
    int error = -1;
    const uint64_t value = ovra::read_unsigned(text.c_str(), &end, base, &error);
    return {value, end - text.c_str(), error};
}

// The 16 bits of "%hx", the 32 of "%u", and the two of "%x,%x", as sscanf and the scanning function read
// them.
std::string scanned_by_the_library(const std::string &text)
{
    unsigned short hx = 7;
    unsigned u = 7;
    unsigned first = 7;
    unsigned second = 7;
    const int results[] = {sscanf(text.c_str(), "%hx", &hx), sscanf(text.c_str(), "%u", &u),
                           sscanf(text.c_str(), "%x,%x", &first, &second)};
    char all[128];
    snprintf(all, sizeof all, "%d %x, %d %u, %d %x %x", results[0] == 1, hx, results[1] == 1, u,
             results[2] == 2, first, second);
    return all;
}

std::string scanned_by_us(const std::string &text)
{
    uint64_t hx = 7;
    uint64_t u = 7;
    uint64_t first = 7;
    uint64_t second = 7;
    const char *rest = text.c_str();
    const bool has_hx = ovra::scan_number(&rest, 16, &hx);
    rest = text.c_str();
    const bool has_u = ovra::scan_number(&rest, 10, &u);
    rest = text.c_str();
    const bool has_both =
        ovra::scan_number(&rest, 16, &first) && *rest == ',' && ovra::scan_number(&++rest, 16, &second);
    char all[128];
    snprintf(all, sizeof all, "%d %x, %d %u, %d %x %x", has_hx, static_cast<unsigned short>(hx), has_u,
             static_cast<unsigned>(u), has_both, static_cast<unsigned>(first), static_cast<unsigned>(second));
    return all;
}

bool same(const std::string &text)
{
    for (const int base : bases) {
        if (!(by_us(text, base) == by_the_library(text, base)))
            return false;
    }
    return ovra::read_decimal(text.c_str()) == strtol(text.c_str(), nullptr, 10) &&
           scanned_by_us(text) == scanned_by_the_library(text);
}

// The long way, to say what differs.
void expect_same(const std::string &text)
{
    if (same(text))
        return;
    for (const int base : bases)
        EXPECT_EQ(by_us(text, base), by_the_library(text, base)) << "'" << text << "', base " << base;
    EXPECT_EQ(ovra::read_decimal(text.c_str()), strtol(text.c_str(), nullptr, 10)) << "'" << text << "'";
    EXPECT_EQ(scanned_by_us(text), scanned_by_the_library(text)) << "'" << text << "'";
}

class number : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_STREQ(setlocale(LC_ALL, nullptr), "C"); }
};

TEST_F(number, every_text_of_up_to_five_characters_that_matter)
{
    constexpr char characters[] = "017fgxX+- ,";
    constexpr size_t count = sizeof characters - 1;
    size_t texts = 1;
    for (int length = 0; length <= 5; ++length, texts *= count) {
        for (size_t i = 0; i < texts; ++i) {
            std::string text;
            for (size_t rest = i, k = 0; k < static_cast<size_t>(length); ++k, rest /= count)
                text += characters[rest % count];
            expect_same(text);
            if (HasFailure())
                return;
        }
    }
}

TEST_F(number, every_byte_in_every_place)
{
    for (const std::string form :
         {"?12", "1?2", "12?", "-?1", "?-1", "0?1", "0x?1", "0x1?", "?0x1", " ?1", "?"}) {
        for (int byte = 1; byte < 256; ++byte) {
            std::string text = form;
            text[form.find('?')] = static_cast<char>(byte);
            expect_same(text);
        }
    }
}

TEST_F(number, values_about_each_power_of_two_in_each_notation)
{
    for (int bit = 0; bit < 64; ++bit) {
        for (const int64_t off : {-2, -1, 0, 1, 2}) {
            const uint64_t value = (uint64_t{1} << bit) + static_cast<uint64_t>(off);
            for (const char *notation :
                 {"%lu", "-%lu", "+%lu", "0x%lx", "-0X%lX", "0%lo", "%lu0", "0x%lx0", "%lx"}) {
                char text[64];
                snprintf(text, sizeof text, notation, value); // NOLINT: a literal of the list above
                expect_same(text);
            }
        }
    }
    expect_same("18446744073709551615");
    expect_same("18446744073709551616");
    expect_same("-18446744073709551616");
    expect_same("0xffffffffffffffff0");
    expect_same("99999999999999999999999999999999999999x");
    expect_same("-9223372036854775808");
    expect_same("-9223372036854775809");
}

TEST_F(number, random_texts)
{
    std::mt19937_64 random(20260101);
    constexpr char characters[] = "0123456789abcdefxXzZ+-, \t\n\v\f\r\xa0\x85_'.\"bBoO0x0F";
    for (int i = 0; i < 200000; ++i) {
        std::string text;
        for (size_t length = random() % (i % 3 ? 8 : 30); text.size() < length;)
            text += characters[random() % (sizeof characters - 1)];
        expect_same(text);
        if (HasFailure())
            return;
    }
}

TEST_F(number, base_that_there_is_not_is_an_error)
{
    for (const int base : no_bases) {
        EXPECT_EQ(by_us("11", base), by_the_library("11", base)) << base;
        EXPECT_EQ(by_us("11", base).error, EINVAL) << base;
    }
}

TEST_F(number, binary_notation_of_later_libraries_is_none_here)
{
    EXPECT_EQ(by_us("0b101", 0), (reading{0, 1, 0}));
    EXPECT_EQ(by_us("0b101", 2), (reading{0, 1, 0}));
}

// Written: as printf writes them, with zeros in front up to so many digits.
TEST_F(number, is_written_as_printf_writes_it)
{
    std::mt19937_64 random(20260302);
    char buffer[ovra::longest_number];
    char *const end = std::end(buffer);
    for (int i = 0; i < 20000; ++i) {
        const uint64_t value = i == 0 ? 0 : i == 1 ? UINT64_MAX : random() >> random() % 64;
        const auto least = static_cast<int>(random() % (ovra::longest_number + 1));
        const auto digits = static_cast<size_t>(least);
        char expected[64];
        snprintf(expected, sizeof expected, "%0*lu", least, value);
        ASSERT_EQ(std::string(ovra::write_decimal(value, digits, end), end), expected);
        snprintf(expected, sizeof expected, "%0*lx", least, value);
        ASSERT_EQ(std::string(ovra::write_hexadecimal(value, ovra::letters::lower, digits, end), end),
                  expected);
        snprintf(expected, sizeof expected, "%0*lX", least, value);
        ASSERT_EQ(std::string(ovra::write_hexadecimal(value, ovra::letters::upper, digits, end), end),
                  expected);
    }
}

} // namespace
