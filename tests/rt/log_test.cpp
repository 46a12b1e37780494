// SPDX-License-Identifier: MIT
// The receiver of messages.
#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <ovra/log.h>

#include "src/rt/diag.h"
#include "src/rt/rt.h"
#include "tests/support/guards.h"
#include "tests/support/messages.h"

using namespace ovra::test;

namespace {

struct entry {
    int kind;
    std::string text;
    bool operator==(const entry &) const = default;
};

// Collects what the calling thread is handed while it exists.
class received {
public:
    received() { ovra_log_to(take, this); }
    ~received() { ovra_log_to(nullptr, nullptr); }
    received(const received &) = delete;
    received &operator=(const received &) = delete;

    std::vector<entry> entries;

private:
    static void take(void *arg, int kind, const char *text)
    {
        static_cast<received *>(arg)->entries.push_back({kind, text});
    }
};

using entries = std::vector<entry>;

void change_errno(void *, int, const char *)
{
    errno = EDOM;
}

void say_more(void *arg, int, const char *)
{
    ++*static_cast<int *>(arg);
    ovra::say("from inside\n");
}

void take_itself_away(void *arg, int, const char *)
{
    ++*static_cast<int *>(arg);
    ovra_log_to(nullptr, nullptr);
}

} // namespace

TEST(log_to, errors_are_handed_over_whatever_the_switch_says)
{
    for (const int eprint : {0, 1}) {
        messages said(eprint, 0);
        received log;
        ovra::say("a %d\n", 1);
        EXPECT_EQ(ovra::fail("b %s", "x"), -1);
        EXPECT_EQ(log.entries, (entries{{OVRA_LOG_ERROR, "a 1\n"}, {OVRA_LOG_ERROR, "b x"}}));
        EXPECT_EQ(said.text(), eprint == 1 ? "a 1\nb x" : "");
    }
}

TEST(log_to, traces_are_handed_over_while_their_switch_is_on)
{
    messages said(0, 0);
    received log;
    ovra::trace("unseen\n");
    EXPECT_EQ(log.entries, entries{});
    ovra_path_debug = 1;
    ovra::trace("seen %x\n", 255U);
    EXPECT_EQ(log.entries, (entries{{OVRA_LOG_TRACE, "seen ff\n"}}));
    EXPECT_EQ(said.text(), "seen ff\n");
}

TEST(log_to, a_switch_is_settled_by_the_first_message_with_a_receiver_too)
{
    environment eprint("OVRA_PATH_EPRINT", "1");
    messages said(-1, -1);
    received log;
    ovra::say("a");
    EXPECT_EQ(ovra_path_eprint, 1);
    EXPECT_EQ(said.text(), "a");
}

TEST(log_to, a_call_of_the_library_hands_over_its_reason)
{
    messages said(0, 0);
    received log;
    EXPECT_EQ(convert_utf8_to_leunicode("\xff"), nullptr);
    EXPECT_EQ(log.entries, (entries{{OVRA_LOG_ERROR, "iconv(\xff) failed"}}));
}

TEST(log_to, null_ends_it)
{
    messages said(0, 0);
    received log;
    ovra_log_to(nullptr, nullptr);
    ovra::say("a");
    EXPECT_EQ(log.entries, entries{});
}

TEST(log_to, each_thread_has_its_own_receiver)
{
    messages said(0, 0);
    received here;
    entries there;
    std::thread([&] {
        ovra::say("to nobody");
        received log;
        ovra::say("there");
        there = log.entries;
    }).join();
    ovra::say("here");
    EXPECT_EQ(there, (entries{{OVRA_LOG_ERROR, "there"}}));
    EXPECT_EQ(here.entries, (entries{{OVRA_LOG_ERROR, "here"}}));
}

TEST(log_to, long_messages_are_cut_for_the_receiver_alone)
{
    messages said(1, 0);
    received log;
    for (const size_t length : {4094U, 4095U, 4096U, 100000U}) {
        const std::string text(length, 'x');
        ovra::say("%s", text.c_str());
        ASSERT_FALSE(log.entries.empty());
        EXPECT_EQ(log.entries.back().text, text.substr(0, 4095)) << length;
        EXPECT_EQ(said.take(), text) << length;
    }
}

TEST(log_to, errno_is_what_it_was_before_the_receiver)
{
    messages said(0, 0);
    ovra_log_to(change_errno, nullptr);
    errno = EIO;
    ovra::say("a");
    EXPECT_EQ(errno, EIO);
    ovra_log_to(nullptr, nullptr);
}

TEST(log_to, a_receiver_that_gives_messages_does_not_come_round)
{
    messages said(1, 0);
    int calls = 0;
    ovra_log_to(say_more, &calls);
    ovra::say("outside\n");
    ovra::say("outside\n");
    ovra_log_to(nullptr, nullptr);
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(said.text(), "from inside\noutside\nfrom inside\noutside\n");
}

TEST(log_to, a_receiver_may_take_itself_away)
{
    messages said(0, 0);
    int calls = 0;
    ovra_log_to(take_itself_away, &calls);
    ovra::say("a");
    ovra::say("b");
    EXPECT_EQ(calls, 1);
}
