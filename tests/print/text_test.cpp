// SPDX-License-Identifier: MIT
// One node's text against snprintf: every directive that formats of nodes have, those that none has, and the
// bound.
#include <climits>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "src/print/text.h"

namespace {

// Formats come from the table below, with values and without.
#pragma GCC diagnostic ignored "-Wformat-security"

template <typename... values>
std::string by_the_library(const char *format, values... of)
{
    char text[1024];
    snprintf(text, sizeof text, format, of...); // NOLINT: one of the formats below
    return text;
}

template <typename... values>
std::string by_us(const char *format, values... of)
{
    ovra::text text(false);
    text.add(format, of...); // NOLINT: one of the formats below
    EXPECT_EQ(text.view(), text.c_str());
    return std::string(text.view());
}

template <typename... values>
void expect_same(const char *format, values... of)
{
    const std::string wanted = by_the_library(format, of...);
    if (by_us(format, of...) != wanted) {
        EXPECT_EQ(by_us(format, of...), wanted) << format;
    }
}

// About each power of two, and at random.
std::vector<uint64_t> numbers()
{
    std::vector<uint64_t> all;
    for (int bit = 0; bit < 64; ++bit) {
        for (const int off : {-1, 0, 1})
            all.push_back((uint64_t{1} << bit) + static_cast<uint64_t>(off));
    }
    std::mt19937_64 random(20260301);
    for (int i = 0; i < 500; ++i)
        all.push_back(random() >> random() % 64);
    return all;
}

} // namespace

TEST(text, each_form_of_each_number)
{
    const std::vector<uint64_t> all = numbers();
    for (const char *width : {"", "0", "01", "02", "04", "08", "012", "016", "019", "020", "021", "040"}) {
        for (const char *conversion : {"d", "u", "x", "X"}) {
            const std::string front = std::string("<%") + width;
            const std::string plain = front + conversion + ">";
            const std::string byte = front + "hh" + conversion + ">";
            const std::string eight_bytes = front + "l" + conversion + ">";
            for (const uint64_t number : all) {
                expect_same(plain.c_str(), static_cast<unsigned>(number));
                expect_same(byte.c_str(), static_cast<unsigned>(number));
                expect_same(eight_bytes.c_str(), number);
            }
        }
    }
}

TEST(text, directives_that_no_node_has)
{
    expect_same("%%");
    expect_same("100%% of %x", 7U);
    for (const char *format : {"<%5d>", "<%-5d>", "<%+d>", "<% d>", "<%.3d>", "<%i>", "<%hd>", "<%hu>",
                               "<%zd>", "<%#x>", "<%#o>", "<%o>", "<%c>", "<%0-6x>", "<%05i>"}) {
        for (const int number : {1, 65, 127})
            expect_same(format, number);
    }
    for (const char *format : {"<%lld>", "<%lli>", "<%llx>", "<%jd>", "<%p>"})
        expect_same(format, uint64_t{0x123456789abcdef0});
    for (const char *format : {"<%5s>", "<%-5s>", "<%.2s>", "<%.0s>"})
        expect_same(format, "word");
    expect_same("<%.3f>", 1.5);
}

TEST(text, several_in_one_format)
{
    expect_same("");
    expect_same("no directive");
    expect_same("/Sata(0x%x,0x%x,0x%x)", 1U, 0xffffU, 0U);
    expect_same("/%s(0x%X)%s", "PciRoot", 0xabcU, "");
    expect_same("%s%s", "", "");
    expect_same("%ld,%hhd,%04X", INT64_MIN, 200, 0xa03U);
    // What is known before one that is not is written once.
    expect_same("%x,%s,%5d,%lx", 1U, "a", 2, uint64_t{3});
}

TEST(text, is_cut_at_its_bound)
{
    const std::string word(40, 'w');
    for (size_t before = 980; before <= 1023; ++before) {
        const std::string filling(before, '.');
        for (const char *format : {"%s-%lx-%s", "%s-%5lx-%s"}) {
            ovra::text text(false);
            text.put(filling);
            text.add(format, word.c_str(), UINT64_MAX, word.c_str()); // NOLINT: one of the two
            const std::string whole =
                filling + by_the_library(format, word.c_str(), UINT64_MAX, word.c_str());
            EXPECT_EQ(text.view(), whole.substr(0, 1023));
            EXPECT_EQ(text.view(), text.c_str());
            text.add("%s", "more");
            EXPECT_EQ(text.view(), whole.substr(0, 1023).append("more").substr(0, 1023));
        }
    }
}
