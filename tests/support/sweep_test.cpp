// SPDX-License-Identifier: MIT
// The support itself: a sweep that sees nothing would pass everywhere.
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include "src/rt/diag.h"
#include "src/rt/rt.h"
#include "tests/fakes/driver.h"
#include "tests/support/guards.h"
#include "tests/support/messages.h"
#include "tests/support/sweep.h"

using namespace ovra::test;

namespace {

// Bodies with one defect each, except the first.
int sound_body(ovra_hdl_t hdl)
{
    return memlist_malloc(hdl, 10, "body") ? 0 : -1;
}

std::vector<void *> forgotten;

int leaking_body(ovra_hdl_t)
{
    forgotten.push_back(malloc(10));
    return forgotten.back() ? 0 : -1;
}

int boasting_body(ovra_hdl_t)
{
    void *volatile block = malloc(10); // volatile: a pair that nobody sees may be optimised away
    free(block);
    return 0;
}

int breaking_body(ovra_hdl_t hdl)
{
    if (memlist_malloc(hdl, 10, "body"))
        return 0;
    hdl->ovra_fd = 4711; // never opened
    return -1;
}

} // namespace

TEST(sweep, each_allocation_is_refused_alone_and_with_all_later_ones)
{
    fakes::reset();
    std::vector<long> refusals;
    for_each_refused_allocation_any_result(
        [](ovra_hdl_t) {
            void *volatile first = malloc(1);
            void *volatile second = calloc(1, 1);
            char *volatile third = strdup("x");
            const bool all = first && second && third;
            free(first);
            free(second);
            free(third);
            return all ? 0 : -1;
        },
        [&](const attempt &one) {
            refusals.push_back(one.refused);
            EXPECT_EQ(one.result, one.refused == 0 ? 0 : -1);
        });
    EXPECT_EQ(refusals, (std::vector<long>{1, 1, 1, 0, 3, 2, 1, 0}));
}

TEST(sweep, a_sound_body_passes)
{
    fakes::reset();
    long attempts = 0;
    for_each_refused_allocation(sound_body, [&](const attempt &one) {
        ++attempts;
        if (one.refused == 1 && one.n == 0) {
            EXPECT_EQ(one.messages, "malloc failed for body\n");
        }
    });
    EXPECT_EQ(attempts, 6); // the block and the list's array; none; in both modes
}

namespace {

// How many failures a sweep over `body` reports.
int failures_of(int (*body)(ovra_hdl_t))
{
    fakes::reset();
    ::testing::TestPartResultArray results;
    {
        const ::testing::ScopedFakeTestPartResultReporter reporter(
            ::testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &results);
        for_each_refused_allocation(body);
    }
    fakes::reset();
    return results.size();
}

} // namespace

TEST(sweep, a_leak_fails_the_test)
{
    EXPECT_EQ(failures_of(leaking_body), 3); // the free call, and the last of each mode
    for (void *block : forgotten)
        free(block);
    forgotten.clear();
}

TEST(sweep, success_in_spite_of_a_refusal_fails_the_test)
{
    EXPECT_EQ(failures_of(boasting_body), 2); // once in each mode
}

TEST(sweep, a_broken_handle_fails_the_test)
{
    EXPECT_GE(failures_of(breaking_body), 2); // the driver's descriptor was lost
}

TEST(sweep, refusal_sets_errno)
{
    refuse_from(0, false);
    errno = 0;
    void *volatile block = malloc(1);
    const int error = errno;
    EXPECT_EQ(stop_refusing(), 1);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(error, ENOMEM);
    free(block);
}

TEST(sweep, realloc_moves_or_stays_as_told)
{
    count_blocks();
    char *block = static_cast<char *>(malloc(100));
    memset(block, 'x', 100);
    {
        const realloc_guard stays(realloc_policy::stays);
        const auto before = reinterpret_cast<uintptr_t>(block);
        block = static_cast<char *>(realloc(block, 40));
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block), before);
        block = static_cast<char *>(realloc(block, 100));
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block), before);
    }
    {
        const realloc_guard moves(realloc_policy::moves);
        const auto before = reinterpret_cast<uintptr_t>(block);
        block = static_cast<char *>(realloc(block, 100));
        EXPECT_NE(reinterpret_cast<uintptr_t>(block), before);
        EXPECT_EQ(std::string(block, 100), std::string(100, 'x'));
    }
    EXPECT_EQ(live_blocks(), 1);
    EXPECT_EQ(allocations(), 4);
    free(block);
    EXPECT_EQ(live_blocks(), 0);
    stop_counting();
}

TEST(messages, captures_and_puts_back)
{
    const int eprint = ovra_path_eprint;
    const int debug = ovra_path_debug;
    FILE *const stream = stderr;
    {
        messages said(1, 0);
        ovra::say("one %d\n", 1);
        ovra::trace("silent\n");
        EXPECT_EQ(said.take(), "one 1\n");
        ovra_path_debug = 1;
        ovra::trace("two\n");
        EXPECT_EQ(said.take(), "two\n");
        EXPECT_EQ(said.text(), "one 1\ntwo\n");
    }
    EXPECT_EQ(ovra_path_eprint, eprint);
    EXPECT_EQ(ovra_path_debug, debug);
    EXPECT_EQ(stderr, stream);
}

TEST(guards, environment_comes_back)
{
    unsetenv("OVRA_GUARD_TEST");
    {
        const environment outer("OVRA_GUARD_TEST", "outer");
        {
            const environment inner("OVRA_GUARD_TEST", nullptr);
            EXPECT_EQ(getenv("OVRA_GUARD_TEST"), nullptr);
        }
        EXPECT_STREQ(getenv("OVRA_GUARD_TEST"), "outer");
    }
    EXPECT_EQ(getenv("OVRA_GUARD_TEST"), nullptr);
}

TEST(guards, temporary_directory_is_entered_left_and_removed)
{
    const auto before = std::filesystem::current_path();
    std::filesystem::path folder;
    {
        const temporary_directory here;
        folder = here.path();
        EXPECT_TRUE(std::filesystem::equivalent(std::filesystem::current_path(), folder));
        here.write("x", {1, 0, 2});
        EXPECT_EQ(here.read("x"), (bytes{1, 0, 2}));
        EXPECT_EQ(here.read("y"), std::nullopt);
    }
    EXPECT_EQ(std::filesystem::current_path(), before);
    EXPECT_FALSE(std::filesystem::exists(folder));
}

TEST(bytes, hex_text_with_blanks)
{
    EXPECT_EQ(from_hex("01 fF  a0b1"), (bytes{0x01, 0xff, 0xa0, 0xb1}));
    EXPECT_EQ(from_hex(""), bytes());
    EXPECT_EQ(hex("01FF  a0"), "01 ff a0");
    EXPECT_THROW(from_hex("0"), std::invalid_argument);
    EXPECT_THROW(from_hex("0g"), std::invalid_argument);
}
