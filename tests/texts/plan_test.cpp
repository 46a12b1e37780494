// SPDX-License-Identifier: MIT
// Many variables are written in an order that leaves the machine able to start wherever it stops.
#include <algorithm>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/exchange/plan.h"

namespace texts_test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tool::bytes;
using tool::planned_step;
using tool::variable_values;

namespace {

// An option without a description whose path is a byte, which is all that tells it from others.
bytes option(uint8_t path, bool active = true, uint8_t description = 0)
{
    bytes data = {active, 0, 0, 0, 1, 0};
    if (description != 0)
        data.insert(data.end(), {description, 0});
    data.insert(data.end(), {0, 0, path});
    return data;
}

bytes order(const std::vector<uint8_t> &numbers)
{
    bytes data;
    for (const uint8_t number : numbers)
        data.insert(data.end(), {number, 0});
    return data;
}

// What the firmware may start: the last bytes of the active options in the order.
std::set<uint8_t> started(const variable_values &values)
{
    std::set<uint8_t> all;
    const auto names = values.find("BootOrder");
    for (size_t at = 0; names != values.end() && at < names->second.size(); at += 2) {
        const int number = names->second[at] | names->second[at + 1] << 8;
        char name[16];
        snprintf(name, sizeof name, "Boot%04X", number);
        const auto found = values.find(name);
        if (found != values.end() && found->second[0] == 1)
            all.insert(found->second.back());
    }
    return all;
}

bool has_all(const std::set<uint8_t> &all, const std::set<uint8_t> &wanted)
{
    return std::includes(all.begin(), all.end(), wanted.begin(), wanted.end());
}

// Plays the steps; each state starts all that the first or the last one does.
std::vector<planned_step> play(const variable_values &before, const variable_values &after)
{
    std::vector<planned_step> steps = tool::plan_steps(before, after, {});
    variable_values now = before;
    for (const planned_step &step : steps) {
        if (step.contents.empty())
            EXPECT_EQ(now.erase(step.name), 1u) << step.name << " is deleted and is not there";
        else
            now[step.name] = step.contents;
        EXPECT_TRUE(has_all(started(now), started(before)) || has_all(started(now), started(after)))
            << "after " << step.name << ": " << ::testing::PrintToString(started(now));
    }
    EXPECT_EQ(now, after);
    return steps;
}

std::vector<std::string> names_of(const std::vector<planned_step> &steps)
{
    std::vector<std::string> names;
    for (const planned_step &step : steps)
        names.push_back((step.contents.empty() ? "-" : "") + step.name);
    return names;
}

} // namespace

TEST(import_plan, writes_nothing_where_nothing_differs)
{
    const variable_values values = {{"Boot0000", option(1)}, {"BootOrder", order({0})}};
    EXPECT_THAT(play(values, values), IsEmpty());
}

TEST(import_plan, writes_new_options_then_the_order_then_removes_and_sets_boot_next_last)
{
    EXPECT_THAT(
        names_of(play({{"Boot0000", option(1)}, {"Boot0001", option(2)}, {"BootOrder", order({0, 1})}},
                      {{"Boot0001", option(2)},
                       {"Boot0002", option(3)},
                       {"BootOrder", order({2, 1})},
                       {"BootNext", order({1})},
                       {"Timeout", order({5})}})),
        ElementsAre("Boot0002", "BootOrder", "Timeout", "-Boot0000", "BootNext"));
}

TEST(import_plan, writes_over_options_that_start_the_same)
{
    EXPECT_THAT(
        names_of(play({{"Boot0000", option(1)}, {"Boot0001", option(2)}, {"BootOrder", order({0, 1})}},
                      {{"Boot0000", option(1, true, 'a')},
                       {"Boot0001", option(2, true, 'b')},
                       {"BootOrder", order({1, 0})}})),
        ElementsAre("Boot0000", "Boot0001", "BootOrder"));
}

TEST(import_plan, puts_options_that_change_places_under_free_numbers_meanwhile)
{
    EXPECT_THAT(
        names_of(play({{"Boot0000", option(1)}, {"Boot0001", option(2)}, {"BootOrder", order({0, 1})}},
                      {{"Boot0000", option(2)}, {"Boot0001", option(1)}, {"BootOrder", order({0, 1})}})),
        ElementsAre("BootFFFD", "BootFFFE", "BootOrder", "Boot0000", "Boot0001", "BootOrder", "-BootFFFD",
                    "-BootFFFE"));
}

TEST(import_plan, forgets_a_boot_next_whose_option_becomes_another)
{
    EXPECT_THAT(
        names_of(play({{"Boot0000", option(1)}, {"BootNext", order({0})}}, {{"Boot0000", option(2)}})),
        ElementsAre("-BootNext", "Boot0000"));
    EXPECT_THAT(names_of(play({{"Boot0000", option(1)}, {"BootNext", order({0})}},
                              {{"Boot0000", option(2)}, {"BootNext", order({0})}})),
                ElementsAre("-BootNext", "Boot0000", "BootNext"));
}

TEST(import_plan, keeps_drivers_until_no_option_is_left_that_may_need_them)
{
    EXPECT_THAT(
        names_of(play({{"Boot0000", option(1)}, {"Driver0000", option(7)}, {"DriverOrder", order({0})}},
                      {{"Driver0001", option(8)}, {"DriverOrder", order({1})}})),
        ElementsAre("Driver0001", "DriverOrder", "-Boot0000", "-Driver0000"));
}

TEST(import_plan, keeps_any_machine_able_to_start)
{
    std::mt19937 random(1);
    const auto one_of = [&random](unsigned n) { return static_cast<uint8_t>(random() % n); };
    const auto make = [&one_of] {
        variable_values values;
        for (uint8_t number = 0; number < 5; ++number) {
            if (one_of(4) != 0)
                values["Boot000" + std::to_string(number)] = option(one_of(5), one_of(4) != 0, one_of(2));
        }
        std::vector<uint8_t> numbers;
        for (unsigned left = one_of(6); left > 0; --left)
            numbers.push_back(one_of(6));
        if (!numbers.empty())
            values["BootOrder"] = order(numbers);
        if (one_of(2) != 0)
            values["BootNext"] = order({one_of(5)});
        return values;
    };
    size_t passing = 0;
    for (int round = 0; round < 600; ++round) {
        const auto steps = play(make(), make());
        passing += static_cast<size_t>(
            std::count_if(steps.begin(), steps.end(), [](const planned_step &step) { return step.passing; }));
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(passing, 20u); // some had to pass through free numbers
}

TEST(import_plan, writes_each_of_many_options_at_most_thrice)
{
    variable_values before;
    variable_values after;
    bytes names;
    for (unsigned number = 0; number < 1000; ++number) {
        char name[16];
        snprintf(name, sizeof name, "Boot%04X", number);
        bytes data = option(0);
        data.insert(data.end(), {static_cast<uint8_t>(number & 0xff), static_cast<uint8_t>(number >> 8)});
        before[name] = data;
        data.back() ^= 1; // each takes the place of another
        after[name] = data;
        names.insert(names.end(), {static_cast<uint8_t>(number & 0xff), static_cast<uint8_t>(number >> 8)});
    }
    before["BootOrder"] = after["BootOrder"] = names;
    EXPECT_EQ(tool::plan_steps(before, after, {}).size(), 3002u); // with two orders
}

} // namespace texts_test
