// SPDX-License-Identifier: MIT
// Argument lists: splitting, names, what is refused and what is left then.
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "src/encode/args.h"
#include "tests/support/messages.h"
#include "tests/support/sweep.h"

using namespace ovra::test;
using ovra::arg_list;

namespace {

constexpr const char *three[] = {"Controller", "Drive", "LUN", nullptr};
constexpr const char *no_names[] = {nullptr};

using pairs = std::vector<std::pair<std::string, std::string>>;

pairs held_by(const uefi_arg_list_t *list)
{
    const uefi_nv_pair_t *held = list->arg_nv; // as many as there are, more or less than declared
    pairs all;
    for (size_t i = 0; i < list->argc; ++i)
        all.emplace_back(held[i].name, held[i].value);
    return all;
}

struct split_result {
    int result = 0;
    arg_list list;
    pairs held;
    std::string said;
};

split_result split(const std::string &text, const char *const *parameters = three)
{
    split_result given;
    const messages said(1, 0);
    char untouched = 0;
    auto *list = reinterpret_cast<uefi_arg_list_t *>(&untouched);
    given.result = arg_list_init(&list, text.c_str(), parameters);
    given.said = said.text();
    if (given.result == 0) {
        given.list.reset(list);
        given.held = held_by(list);
    } else {
        EXPECT_EQ(given.result, -1);
        EXPECT_EQ(reinterpret_cast<char *>(list), &untouched);
    }
    return given;
}

} // namespace

TEST(arg_list_init, empty_text_is_an_empty_list)
{
    const split_result given = split("");
    ASSERT_EQ(given.result, 0);
    EXPECT_EQ(given.list->argc, 0U);
    EXPECT_EQ(given.list->arg_str, nullptr);
    EXPECT_EQ(given.said, "");
}

TEST(arg_list_init, positional_arguments_take_the_names_of_the_row)
{
    const split_result given = split("a,b,c");
    EXPECT_EQ(given.held, (pairs{{"Controller", "a"}, {"Drive", "b"}, {"LUN", "c"}}));
    EXPECT_EQ(given.list->arg_str, nullptr);
}

TEST(arg_list_init, trailing_comma_is_no_argument)
{
    EXPECT_EQ(split("a,b,").held, (pairs{{"Controller", "a"}, {"Drive", "b"}}));
    EXPECT_EQ(split("a,b,,,,,,").held, (pairs{{"Controller", "a"}, {"Drive", "b"}}));
}

TEST(arg_list_init, empty_positions_are_passed_over)
{
    EXPECT_EQ(split(",a").held, (pairs{{"Drive", "a"}}));
    EXPECT_EQ(split("0x1,,0x3").held, (pairs{{"Controller", "0x1"}, {"LUN", "0x3"}}));
    EXPECT_EQ(split(",,a").held, (pairs{{"LUN", "a"}}));
    EXPECT_EQ(split(",").held, pairs{});
    EXPECT_EQ(split(",,,,,,,,").held, pairs{});
}

TEST(arg_list_init, position_counts_empty_fields_against_the_parameters)
{
    EXPECT_EQ(split(",,,a").said, "too many arguments\n");
    EXPECT_EQ(split("a,,,b").said, "too many arguments\n");
}

TEST(arg_list_init, too_many_arguments)
{
    EXPECT_EQ(split("1,2,3").result, 0);
    EXPECT_EQ(split("1,2,3,4").said, "too many arguments\n");
    EXPECT_EQ(split("1", no_names).said, "too many arguments\n");
    EXPECT_EQ(split("X=1", no_names).said, "named argument 'X' invalid\n");
    EXPECT_EQ(split(",,,", no_names).result, 0);
}

TEST(arg_list_init, names_keep_the_users_case_and_are_found_in_any)
{
    const split_result given = split("dRIVE=3");
    EXPECT_EQ(given.held, (pairs{{"dRIVE", "3"}}));
    EXPECT_STREQ(ovra_get_arg(given.list.get(), "Drive"), "3");
    EXPECT_STREQ(ovra_get_arg(given.list.get(), "DRIVE"), "3");
    EXPECT_EQ(ovra_get_arg(given.list.get(), "Driv"), nullptr);
    EXPECT_EQ(ovra_get_arg(given.list.get(), ""), nullptr);
}

TEST(arg_list_init, named_arguments_come_in_any_order_behind_positional_ones)
{
    EXPECT_EQ(split("1,LUN=3,Drive=2").held, (pairs{{"Controller", "1"}, {"LUN", "3"}, {"Drive", "2"}}));
    EXPECT_EQ(split("Controller=1,2").said, "non-named arg cannot follow named arg\n");
    EXPECT_EQ(split("Controller=1,,,,Drive=2").held, (pairs{{"Controller", "1"}, {"Drive", "2"}}));
}

TEST(arg_list_init, positional_behind_named_is_told_before_its_position)
{
    EXPECT_EQ(split("LUN=1,2,3,4,5").said, "non-named arg cannot follow named arg\n");
}

TEST(arg_list_init, value_is_all_behind_the_first_equals_sign)
{
    EXPECT_EQ(split("Drive=a=b==").held, (pairs{{"Drive", "a=b=="}}));
    EXPECT_EQ(split("Drive=").held, (pairs{{"Drive", ""}}));
    EXPECT_EQ(split("=a").said, "named argument '' invalid\n");
}

TEST(arg_list_init, unknown_name_is_shown_as_written)
{
    EXPECT_EQ(split("xX=1").said, "named argument 'xX' invalid\n");
    EXPECT_EQ(split("1,DriveS=1").said, "named argument 'DriveS' invalid\n");
    EXPECT_EQ(split("Driv=1").said, "named argument 'Driv' invalid\n");
}

TEST(arg_list_init, only_a_blank_is_refused)
{
    EXPECT_EQ(split(" ").said, "spaces are not allowed in argument list\n");
    EXPECT_EQ(split("a, b").said, "spaces are not allowed in argument list\n");
    EXPECT_EQ(split("X=1 ").said, "spaces are not allowed in argument list\n");
    EXPECT_EQ(split("a b", nullptr).said, "spaces are not allowed in argument list\n");
    EXPECT_EQ(split("\ta\n,\vb").held, (pairs{{"Controller", "\ta\n"}, {"Drive", "\vb"}}));
}

TEST(arg_list_init, without_a_parameter_list_the_text_is_kept_whole)
{
    for (const std::string text : {"", "1,2", ",,", "a=b,c"}) {
        const split_result given = split(text, nullptr);
        ASSERT_EQ(given.result, 0);
        EXPECT_EQ(given.list->argc, 0U);
        EXPECT_EQ(given.list->arg_str, text);
        EXPECT_EQ(ovra_get_arg(given.list.get(), "a"), nullptr);
    }
}

TEST(arg_list_init, list_has_its_own_copies)
{
    std::string text = "1,Drive=2";
    const split_result given = split(text);
    text.assign(text.size(), 'x');
    EXPECT_STREQ(ovra_get_arg(given.list.get(), "Controller"), "1");
    EXPECT_STREQ(ovra_get_arg(given.list.get(), "Drive"), "2");
}

TEST(arg_list_init, more_arguments_than_the_declared_bound)
{
    std::string text = "Controller=0";
    for (int i = 1; i < 2 * UEFI_ARGS_MAX; ++i)
        text += ",Drive=" + std::to_string(i);
    text += ",LUN=last";
    const split_result given = split(text);
    ASSERT_EQ(given.result, 0);
    EXPECT_EQ(given.list->argc, 2U * UEFI_ARGS_MAX + 1);
    EXPECT_STREQ(ovra_get_arg(given.list.get(), "Controller"), "0");
    EXPECT_STREQ(ovra_get_arg(given.list.get(), "LUN"), "last");
}

TEST(ovra_get_arg, first_of_equal_names_wins)
{
    const split_result given = split("1,2,controller=3,DRIVE=4");
    EXPECT_EQ(given.list->argc, 4U);
    EXPECT_STREQ(ovra_get_arg(given.list.get(), "Controller"), "1");
    EXPECT_STREQ(ovra_get_arg(given.list.get(), "Drive"), "2");
    EXPECT_STREQ(ovra_get_arg(split("LUN=a,lun=b").list.get(), "LUN"), "a");
}

TEST(free_arglist, tells_the_number_of_arguments_when_traces_are_on)
{
    arg_list list = split("1,2").list;
    {
        const messages said(0, 1);
        list.reset();
        EXPECT_EQ(said.text(), "free_arglist  arg_list->argc = 2\n");
    }
    list = split("1,2", nullptr).list;
    {
        const messages said(0, 1);
        list.reset();
        EXPECT_EQ(said.text(), "free_arglist  arg_list->argc = 0\n");
    }
    list = split("1,2").list;
    const messages said(1, 0);
    list.reset();
    EXPECT_EQ(said.text(), "");
}

TEST(free_arglist, partial_list_of_a_refused_text_goes_the_same_way)
{
    uefi_arg_list_t *list = nullptr;
    const messages said(1, 1);
    EXPECT_EQ(arg_list_init(&list, "1,2,X=3", three), -1);
    EXPECT_EQ(said.text(), "named argument 'X' invalid\nfree_arglist  arg_list->argc = 3\n");
}

TEST(arg_list_init, is_silent_when_errors_are_off)
{
    uefi_arg_list_t *list = nullptr;
    const messages said(0, 0);
    EXPECT_EQ(arg_list_init(&list, "1,2,X=3", three), -1);
    EXPECT_EQ(arg_list_init(&list, " ", three), -1);
    EXPECT_EQ(said.text(), "");
}

TEST(arg_list_room, lists_follow_each_other)
{
    const messages said(1, 0);
    for (const size_t least : {0U, 1U, 64U, 512U}) {
        ovra::arg_list_room room(least);
        for (size_t round = 0; round < 300; ++round) {
            const std::string number(round * round % 700, '0');
            EXPECT_EQ(held_by(room.make("1,Drive=" + number, three).get()),
                      (pairs{{"Controller", "1"}, {"Drive", number}}));
            EXPECT_EQ(room.make("1,2," + number + ",", nullptr)->arg_str, "1,2," + number + ",");
            EXPECT_EQ(room.make("1,2,X=" + number, three), nullptr);
            EXPECT_EQ(held_by(room.make("", three).get()), pairs{});
        }
    }
}

TEST(arg_list_room, list_tells_its_end_and_leaves_the_room)
{
    ovra::arg_list_room room(512);
    messages said(0, 1);
    const uefi_arg_list_t *first = nullptr;
    {
        const ovra::lent_arg_list lent = room.make("1,2", three);
        first = lent.get();
    }
    EXPECT_EQ(said.take(), "free_arglist  arg_list->argc = 2\n");
    const ovra::lent_arg_list second = room.make("3", three);
    EXPECT_EQ(second.get(), first);
    EXPECT_EQ(said.take(), "");
}

TEST(arg_list_room, takes_a_part_of_a_text)
{
    ovra::arg_list_room room(0);
    EXPECT_EQ(held_by(room.make(std::string_view("1,2,3").substr(0, 3), three).get()),
              (pairs{{"Controller", "1"}, {"Drive", "2"}}));
}

TEST(arg_list_room, serves_again_after_a_refusal)
{
    ovra::arg_list_room room(0);
    EXPECT_NE(room.make("1", three), nullptr);
    const messages said(1, 0);
    refuse_from(0, false);
    EXPECT_EQ(room.make(std::string(1000, '1'), three), nullptr);
    EXPECT_EQ(stop_refusing(), 1);
    EXPECT_EQ(said.text(), "unable to allocate arglistp\n");
    EXPECT_EQ(held_by(room.make("2", three).get()), (pairs{{"Controller", "2"}}));
}
