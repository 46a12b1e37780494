// SPDX-License-Identifier: MIT
// The two switches and the stream behind them.
#include <cstdio>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "src/rt/diag.h"
#include "tests/support/guards.h"
#include "tests/support/messages.h"

using namespace ovra::test;

namespace {

constexpr int unsettled = -1;

// The switches as they stand at load, looked at before any test runs.
const int eprint_at_load = ovra_path_eprint;
const int debug_at_load = ovra_path_debug;

class diag : public ::testing::Test {
protected:
    environment eprint{"OVRA_PATH_EPRINT", nullptr};
    environment debug{"OVRA_PATH_DEBUG", nullptr};
};

TEST_F(diag, switches_are_unsettled_at_load)
{
    EXPECT_EQ(eprint_at_load, -1);
    EXPECT_EQ(debug_at_load, -1);
}

TEST_F(diag, error_messages_show_while_the_switch_is_on)
{
    messages said(1, 0);
    ovra::say("a %d\n", 1);
    EXPECT_EQ(ovra::fail("b %s\n", "x"), -1);
    ovra::trace("c\n");
    EXPECT_EQ(said.text(), "a 1\nb x\n");
}

TEST_F(diag, nothing_shows_while_the_switch_is_off)
{
    messages said(0, 0);
    ovra::say("a\n");
    EXPECT_EQ(ovra::fail("b\n"), -1);
    ovra::trace("c\n");
    EXPECT_EQ(said.text(), "");
}

TEST_F(diag, traces_show_while_their_switch_is_on)
{
    messages said(0, 1);
    ovra::say("a\n");
    EXPECT_EQ(ovra::fail("b\n"), -1);
    ovra::trace("c %x\n", 255U);
    EXPECT_EQ(said.text(), "c ff\n");
}

TEST_F(diag, text_without_a_line_end_gets_none)
{
    messages said(1, 1);
    ovra::say("a");
    ovra::trace("b");
    EXPECT_EQ(said.text(), "ab");
}

TEST_F(diag, error_switch_is_settled_on_whatever_the_value)
{
    for (const char *value : {"", "1", "0", "no", "off"}) {
        eprint.set(value);
        messages said(unsettled, unsettled);
        ovra::say("shown\n");
        EXPECT_EQ(ovra_path_eprint, 1) << value;
        EXPECT_EQ(said.text(), "shown\n") << value;
    }
}

TEST_F(diag, trace_switch_is_settled_on_whatever_the_value)
{
    for (const char *value : {"", "1", "0", "no", "off"}) {
        debug.set(value);
        messages said(unsettled, unsettled);
        ovra::trace("shown\n");
        EXPECT_EQ(ovra_path_debug, 1) << value;
        EXPECT_EQ(said.text(), "shown\n") << value;
    }
}

TEST_F(diag, switches_are_settled_off_without_the_variable)
{
    messages said(unsettled, unsettled);
    EXPECT_EQ(ovra::fail("a\n"), -1);
    EXPECT_EQ(ovra_path_eprint, 0);
    ovra::trace("b\n");
    EXPECT_EQ(ovra_path_debug, 0);
    EXPECT_EQ(said.text(), "");
}

TEST_F(diag, each_switch_is_settled_by_the_first_message_of_its_own_kind)
{
    eprint.set("1");
    debug.set("1");
    messages said(unsettled, unsettled);
    ovra::say("a\n");
    EXPECT_EQ(ovra_path_eprint, 1);
    EXPECT_EQ(ovra_path_debug, unsettled);
    ovra::trace("b\n");
    EXPECT_EQ(ovra_path_debug, 1);
}

TEST_F(diag, trace_settles_only_its_own_switch)
{
    eprint.set("1");
    messages said(unsettled, unsettled);
    ovra::trace("a\n");
    EXPECT_EQ(ovra_path_eprint, unsettled);
    EXPECT_EQ(ovra_path_debug, 0);
}

TEST_F(diag, switches_look_each_at_their_own_variable)
{
    eprint.set("1");
    messages said(unsettled, unsettled);
    ovra::say("error\n");
    ovra::trace("trace\n");
    EXPECT_EQ(said.take(), "error\n");

    eprint.set(nullptr);
    debug.set("1");
    ovra_path_eprint = unsettled;
    ovra_path_debug = unsettled;
    ovra::say("error\n");
    ovra::trace("trace\n");
    EXPECT_EQ(said.take(), "trace\n");
}

TEST_F(diag, settled_on_stays_on_when_the_environment_changes)
{
    eprint.set("1");
    debug.set("1");
    messages said(unsettled, unsettled);
    ovra::say("a");
    ovra::trace("b");
    eprint.set(nullptr);
    debug.set(nullptr);
    ovra::say("c");
    ovra::trace("d");
    EXPECT_EQ(said.text(), "abcd");
}

TEST_F(diag, settled_off_stays_off_when_the_environment_changes)
{
    messages said(unsettled, unsettled);
    ovra::say("a");
    ovra::trace("b");
    eprint.set("1");
    debug.set("1");
    ovra::say("c");
    ovra::trace("d");
    EXPECT_EQ(said.text(), "");
}

// The other tests exchange the stream; here it is the descriptor that matters.
TEST_F(diag, messages_go_to_descriptor_2)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        dup2(ends[1], 2);
        ovra_path_eprint = 1;
        ovra_path_debug = 1;
        ovra::say("error without line end");
        ovra::trace(", trace\n");
        _exit(0); // without flushing: nothing may wait in a buffer
    }
    close(ends[1]);
    std::string text;
    char buffer[64];
    for (ssize_t got = 0; (got = read(ends[0], buffer, sizeof buffer)) > 0;)
        text.append(buffer, static_cast<size_t>(got));
    close(ends[0]);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(text, "error without line end, trace\n");
}

} // namespace
