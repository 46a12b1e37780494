// SPDX-License-Identifier: MIT
// String arrays: null-terminated, array and strings tracked by the handle.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "src/rt/rt.h"
#include "src/rt/strarray.h"
#include "tests/rt/open_handle.h"
#include "tests/support/messages.h"
#include "tests/support/strings.h"
#include "tests/support/sweep.h"

using namespace ovra::test;

namespace {

class strarray : public open_handle {
protected:
    bool recorded(const void *block) const
    {
        return std::find(hdl->memlist_addr, hdl->memlist_addr + hdl->memlist_end, block) !=
               hdl->memlist_addr + hdl->memlist_end;
    }
};

// Strings are looked for behind the one before, which a program that has sorted them has changed.
TEST_F(strarray, strings_in_another_order_than_they_were_made_are_all_released)
{
    count_blocks();
    constexpr int count = 60; // the handle's list grows on the way
    for (const int step : {1, 7, 23, 59}) {
        char **array = nullptr;
        for (int i = 0; i < count; ++i)
            ASSERT_EQ(add_str_array(hdl, std::to_string(i * step % 61).c_str(), &array), 0);
        std::sort(array, array + count, [](const char *a, const char *b) { return strcmp(a, b) > 0; });
        const std::vector<char *> strings(array, array + count);
        free_str_array(hdl, array);
        for (const char *string : strings)
            EXPECT_FALSE(recorded(string));
        EXPECT_EQ(live_blocks(), hdl->memlist_index ? 2 : 1); // the list of the handle and its index
    }
    ovra_fini(std::exchange(hdl, nullptr)); // releases nothing twice
    EXPECT_EQ(live_blocks(), 0);
    stop_counting();
}

TEST_F(strarray, null_string_on_a_null_array_is_one_terminator)
{
    count_blocks();
    char **array = nullptr;
    ASSERT_EQ(add_str_array(hdl, nullptr, &array), 0);
    ASSERT_NE(array, nullptr);
    EXPECT_EQ(array[0], nullptr);
    EXPECT_TRUE(recorded(array));
    EXPECT_EQ(live_blocks(), 2); // the array and the handle's list
    stop_counting();
}

TEST_F(strarray, strings_are_copied_and_appended_in_order)
{
    char text[] = "first";
    char **array = nullptr;
    ASSERT_EQ(add_str_array(hdl, text, &array), 0);
    memset(text, 'x', 5);
    ASSERT_EQ(add_str_array(hdl, "", &array), 0);
    ASSERT_EQ(add_str_array(hdl, "third", &array), 0);
    EXPECT_EQ(strings_of(array), (std::vector<std::string>{"first", "", "third"}));
    EXPECT_TRUE(recorded(array));
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(recorded(array[i])) << i;
}

TEST_F(strarray, array_and_strings_are_the_only_blocks)
{
    char **array = nullptr;
    for (const char *text : {"a", "b", "c"})
        ASSERT_EQ(add_str_array(hdl, text, &array), 0);
    size_t recorded_blocks = 0;
    for (size_t slot = 0; slot < hdl->memlist_end; ++slot)
        recorded_blocks += hdl->memlist_addr[slot] != nullptr;
    EXPECT_EQ(recorded_blocks, 4U);
}

TEST_F(strarray, null_string_cuts_an_array_to_empty_without_freeing_its_strings)
{
    char **array = nullptr;
    ASSERT_EQ(add_str_array(hdl, "first", &array), 0);
    ASSERT_EQ(add_str_array(hdl, "second", &array), 0);
    char *const first = array[0];
    char *const second = array[1];
    ASSERT_EQ(add_str_array(hdl, nullptr, &array), 0);
    EXPECT_EQ(array[0], nullptr);
    EXPECT_STREQ(first, "first");
    EXPECT_STREQ(second, "second");
    EXPECT_TRUE(recorded(first));
    EXPECT_TRUE(recorded(second));
    EXPECT_TRUE(recorded(array));
}

TEST_F(strarray, grows_after_it_was_cut)
{
    char **array = nullptr;
    ASSERT_EQ(add_str_array(hdl, "first", &array), 0);
    ASSERT_EQ(add_str_array(hdl, nullptr, &array), 0);
    ASSERT_EQ(add_str_array(hdl, "fresh", &array), 0);
    EXPECT_EQ(strings_of(array), (std::vector<std::string>{"fresh"}));
}

TEST_F(strarray, grows_over_moving_blocks)
{
    count_blocks();
    const realloc_guard moves(realloc_policy::moves);
    char **array = nullptr;
    std::vector<std::string> expected;
    for (int i = 0; i < 50; ++i) {
        expected.push_back(std::to_string(i));
        ASSERT_EQ(add_str_array(hdl, expected.back().c_str(), &array), 0);
        ASSERT_EQ(strings_of(array), expected);
        ASSERT_TRUE(recorded(array));
    }
    ovra_fini(std::exchange(hdl, nullptr));
    EXPECT_EQ(live_blocks(), 0);
    stop_counting();
}

TEST_F(strarray, free_releases_strings_and_array_and_forgets_them)
{
    count_blocks();
    void *other = memlist_malloc(hdl, 1, "test");
    char **array = nullptr;
    for (const char *text : {"a", "b", "c"})
        ASSERT_EQ(add_str_array(hdl, text, &array), 0);
    ASSERT_EQ(live_blocks(), 6); // list, other, three strings, array
    free_str_array(hdl, array);
    EXPECT_EQ(live_blocks(), 2);
    EXPECT_TRUE(recorded(other));
    for (size_t slot = 1; slot < hdl->memlist_end; ++slot)
        EXPECT_EQ(hdl->memlist_addr[slot], nullptr) << slot;
    stop_counting();
}

TEST_F(strarray, free_of_an_array_without_strings)
{
    count_blocks();
    char **array = nullptr;
    ASSERT_EQ(add_str_array(hdl, nullptr, &array), 0);
    free_str_array(hdl, array);
    EXPECT_EQ(live_blocks(), 1);
    stop_counting();
}

TEST_F(strarray, free_of_null_is_ignored)
{
    free_str_array(hdl, nullptr);
    free_str_array(nullptr, nullptr);
    EXPECT_EQ(hdl->memlist_end, 0U);
}

TEST_F(strarray, fini_releases_what_was_not_freed)
{
    count_blocks();
    char **array = nullptr;
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(add_str_array(hdl, "text", &array), 0);
    ovra_fini(std::exchange(hdl, nullptr));
    EXPECT_EQ(live_blocks(), 0);
    stop_counting();
}

TEST_F(strarray, refused_copy_is_silent_and_leaves_the_array)
{
    char **array = nullptr;
    ASSERT_EQ(add_str_array(hdl, "first", &array), 0);
    char **const before = array;
    const messages said;
    refuse_from(0, false);
    EXPECT_EQ(add_str_array(hdl, "second", &array), -1);
    stop_refusing();
    EXPECT_EQ(array, before);
    EXPECT_EQ(strings_of(array), (std::vector<std::string>{"first"}));
    EXPECT_EQ(said.text(), "");
}

TEST_F(strarray, refused_growth_speaks_with_its_label_and_leaves_the_array)
{
    count_blocks();
    char **array = nullptr;
    ASSERT_EQ(add_str_array(hdl, "first", &array), 0);
    char **const before = array;
    const long blocks = live_blocks();
    messages said;
    refuse_from(1, false);
    EXPECT_EQ(add_str_array(hdl, "second", &array), -1);
    EXPECT_EQ(stop_refusing(), 1);
    EXPECT_EQ(said.take(), "realloc failed for add_str_array\n");
    EXPECT_EQ(array, before);
    EXPECT_EQ(strings_of(array), (std::vector<std::string>{"first"}));
    EXPECT_EQ(live_blocks(), blocks);

    refuse_from(0, false);
    EXPECT_EQ(add_str_array(hdl, nullptr, &array), -1);
    stop_refusing();
    EXPECT_EQ(said.take(), "realloc failed for add_str_array\n");
    EXPECT_EQ(array, before);
    EXPECT_EQ(strings_of(array), (std::vector<std::string>{"first"}));

    char **none = nullptr;
    refuse_from(0, false);
    EXPECT_EQ(add_str_array(hdl, nullptr, &none), -1);
    stop_refusing();
    EXPECT_EQ(said.take(), "malloc failed for add_str_array\n");
    EXPECT_EQ(none, nullptr);
    stop_counting();
}

TEST_F(strarray, add_survives_every_refusal)
{
    for (const realloc_policy policy : {realloc_policy::moves, realloc_policy::stays}) {
        const realloc_guard as_told(policy);
        for_each_refused_allocation([](ovra_hdl_t fresh) {
            char **array = nullptr;
            for (int i = 0; i < 45; ++i) { // over two growths of the handle's list
                char **const before = array;
                if (add_str_array(fresh, "text", &array) != 0) {
                    EXPECT_EQ(array, before);
                    EXPECT_EQ(array ? strings_of(array).size() : 0, static_cast<size_t>(i));
                    return -1;
                }
            }
            return 0;
        });
    }
}

TEST_F(strarray, cut_survives_every_refusal)
{
    for_each_refused_allocation([](ovra_hdl_t fresh) {
        char **array = nullptr;
        return add_str_array(fresh, nullptr, &array);
    });
}

TEST_F(strarray, builder_gives_the_array_that_adding_gives)
{
    count_blocks();
    for (const size_t entries : {1U, 6U, 7U, 8U, 15U, 100U}) {
        const realloc_guard moves(realloc_policy::moves);
        char **added = nullptr;
        ovra::str_array_builder builder(hdl);
        for (size_t i = 0; i < entries; ++i) {
            const std::string text = std::to_string(i);
            ASSERT_EQ(add_str_array(hdl, text.c_str(), &added), 0);
            ASSERT_EQ(builder.append(text.c_str()), 0);
        }
        char **built = builder.release();
        EXPECT_EQ(strings_of(built), strings_of(added));
        EXPECT_TRUE(recorded(built));
        for (size_t i = 0; i < entries; ++i)
            EXPECT_TRUE(recorded(built[i]));
        free_str_array(hdl, built);
        free_str_array(hdl, added);
        EXPECT_EQ(live_blocks(), hdl->memlist_index ? 2 : 1); // the list of the handle and its index
    }
    stop_counting();
}

TEST_F(strarray, builder_without_an_entry_has_no_array)
{
    count_blocks();
    ovra::str_array_builder builder(hdl);
    EXPECT_EQ(builder.release(), nullptr);
    EXPECT_EQ(allocations(), 0);
    stop_counting();
}

TEST_F(strarray, builder_frees_what_was_not_released)
{
    count_blocks();
    {
        ovra::str_array_builder builder(hdl);
        for (int i = 0; i < 20; ++i)
            ASSERT_EQ(builder.append("text"), 0);
    }
    EXPECT_EQ(live_blocks(), 1);
    for (size_t slot = 0; slot < hdl->memlist_end; ++slot)
        EXPECT_EQ(hdl->memlist_addr[slot], nullptr) << slot;
    stop_counting();
}

TEST_F(strarray, builder_survives_every_refusal_with_the_entries_that_it_had)
{
    for (const realloc_policy policy : {realloc_policy::moves, realloc_policy::stays}) {
        const realloc_guard as_told(policy);
        for_each_refused_allocation([](ovra_hdl_t fresh) {
            ovra::str_array_builder builder(fresh);
            for (size_t i = 0; i < 45; ++i)
                if (builder.append("text") != 0) {
                    char **array = builder.release();
                    EXPECT_EQ(array ? strings_of(array).size() : 0, i);
                    return -1;
                }
            free_str_array(fresh, builder.release());
            return 0;
        });
    }
}

// Under a sanitizer each move copies: one move for each entry would copy 14 GB here.
TEST_F(strarray, builder_moves_the_array_only_now_and_then)
{
    constexpr int entries = 60000;
    count_blocks();
    ovra::str_array_builder builder(hdl);
    for (int i = 0; i < entries; ++i)
        ASSERT_EQ(builder.append("x"), 0);
    const long list_growths = entries / 20 + 1;
    EXPECT_LT(allocations(), entries + list_growths + 30);
    EXPECT_NE(builder.release(), nullptr); // the handle frees it
    stop_counting();
}

} // namespace
