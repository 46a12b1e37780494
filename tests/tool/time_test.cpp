// SPDX-License-Identifier: MIT
#include <fstream>

#include "tests/tool/support.h"

namespace tool_test {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

class time_verb : public Machine {};

TEST_F(time_verb, shows_the_clock)
{
    EXPECT_THAT(output({"time"}),
                MatchesRegex("20[0-9][0-9]-[01][0-9]-[0-3][0-9]T[0-9:]{8}([+-][0-9:]{5})?\n"));
    const json document = parsed({"time"});
    EXPECT_TRUE(document["time"].is_string());
    EXPECT_TRUE(document["resolution"].is_number());
}

TEST_F(time_verb, sets_the_clock)
{
    EXPECT_EQ(output({"time", "--set", "2031-02-03T04:05:00+02:30"}),
              "set the clock to 2031-02-03T04:05:00+02:30\n");
    EXPECT_THAT(output({"time"}), MatchesRegex("2031-02-03T04:05:[0-5][0-9][+]02:30\n"));
    output({"time", "--set", "2031-02-03T04:05:00-08:00"});
    EXPECT_THAT(output({"time"}), MatchesRegex("2031-02-03T04:05:[0-5][0-9]-08:00\n"));
    output({"time", "--set", "2031-02-03 04:05"});
    EXPECT_THAT(output({"time"}), MatchesRegex("2031-02-03T04:05:[0-5][0-9]\n"));
    output({"time", "--set", "2031-02-03T04:05:06Z"});
    EXPECT_THAT(output({"time"}), MatchesRegex("2031-02-03T04:05:[0-5][0-9][+]00:00\n"));
}

TEST_F(time_verb, sets_and_clears_the_alarm)
{
    EXPECT_EQ(output({"time", "--wakeup"}), "no wake-up is set\n");
    EXPECT_EQ(output({"time", "--wakeup", "--set", "2099-01-31T12:00:00Z"}),
              "set the wake-up alarm to 2099-01-31T12:00:00+00:00\n");
    EXPECT_EQ(output({"time", "--wakeup"}), "wakes up at 2099-01-31T12:00:00+00:00\n");
    EXPECT_EQ(parsed({"time", "--wakeup"}),
              json({{"enabled", true}, {"pending", false}, {"time", "2099-01-31T12:00:00+00:00"}}));
    EXPECT_EQ(output({"time", "--wakeup", "--clear"}), "disabled the wake-up alarm\n");
    EXPECT_EQ(parsed({"time", "--wakeup"})["enabled"], false);
}

TEST_F(time_verb, dry_run_changes_nothing)
{
    const auto before = snapshot();
    EXPECT_EQ(output({"time", "--set", "2031-02-03T04:05:06", "--dry-run"}),
              "would set the clock to 2031-02-03T04:05:06\n");
    EXPECT_EQ(parsed({"time", "--wakeup", "--set", "2031-02-03T04:05:06", "--dry-run"})["changes"],
              json::array({{{"action", "set"}, {"alarm", "2031-02-03T04:05:06"}}}));
    EXPECT_EQ(output({"time", "--wakeup", "--clear", "--dry-run"}), "would disable the wake-up alarm\n");
    EXPECT_EQ(snapshot(), before);
}

TEST_F(time_verb, refuses_an_alarm_in_the_past_and_keeps_the_one_that_stands)
{
    output({"time", "--set", "2031-02-03T04:05:00+02:00"});
    output({"time", "--wakeup", "--set", "2031-03-01T00:00:00+02:00"});
    for (const char *past : {"2031-02-03T04:04:59", "2031-02-03T04:04:59+02:00", "2031-02-03T02:04:59Z",
                             "2031-02-03T05:04:00+03:00", "1999-01-01T00:00:00Z"}) {
        for (const words &more : {words{}, words{"--dry-run"}}) {
            EXPECT_THAT(failure(words{"time", "--wakeup", "--set", past} + more),
                        HasSubstr(" is past: the clock shows 2031-02-03T04:0"))
                << past;
        }
    }
    EXPECT_EQ(output({"time", "--wakeup"}), "wakes up at 2031-03-01T00:00:00+02:00\n");
    output({"time", "--wakeup", "--set", "2031-02-03T03:30:00Z"}); // half past five on that clock
}

TEST_F(time_verb, refuses_the_time_zone_of_an_alarm_where_the_clock_has_none)
{
    output({"time", "--set", "2031-02-03T04:05:00"});
    for (const words &more : {words{}, words{"--dry-run"}}) {
        EXPECT_THAT(failure(words{"time", "--wakeup", "--set", "2031-03-01T00:00:00+02:00"} + more),
                    StartsWith("ovra: the clock keeps no time zone\n"
                               "  It shows 2031-02-03T04:05:0"));
    }
    output({"time", "--wakeup", "--set", "2031-03-01T00:00:00"});
}

TEST_F(time_verb, repairs_a_damaged_alarm)
{
    const std::string alarm = root / "var/lib/hwplat/wakeup";
    const std::string said = "ovra: cannot read the wake-up alarm: " + alarm +
                             " is damaged\n  'ovra time --wakeup --set' or '--clear' writes a new one.\n";
    for (const char *text : {"", "tomorrow\n", "1 2031 2 30 0 0 0 0 0 0\n", "2 2031 2 3 0 0 0 0 0 0\n"}) {
        put_state("wakeup", text);
        EXPECT_THAT(failure({"time", "--wakeup"}), StartsWith(said));
        output({"time", "--wakeup", "--set", "2099-01-31T12:00:00Z"});
        EXPECT_EQ(output({"time", "--wakeup"}), "wakes up at 2099-01-31T12:00:00+00:00\n");
        put_state("wakeup", text);
        EXPECT_EQ(output({"time", "--wakeup", "--clear", "--dry-run"}), "would disable the wake-up alarm\n");
        EXPECT_EQ(output({"time", "--wakeup", "--clear"}), "disabled the wake-up alarm\n");
        EXPECT_EQ(output({"time", "--wakeup"}), "no wake-up is set\n");
    }
}

TEST_F(time_verb, names_a_damaged_clock_and_sets_it_anew)
{
    const std::string clock = root / "var/lib/hwplat/time-offset";
    output({"time", "--wakeup", "--set", "2099-01-31T12:00:00Z"});
    put_state("time-offset", "now\n");
    const std::string said =
        "ovra: cannot read the clock: " + clock + " is damaged\n  'ovra time --set' writes a new one.\n";
    EXPECT_THAT(failure({"time"}), StartsWith(said));
    EXPECT_THAT(failure({"time", "--wakeup"}), StartsWith(said)); // whether it went off
    EXPECT_THAT(failure({"time", "--wakeup", "--set", "2099-01-31T12:00:00Z"}), StartsWith(said));
    output({"time", "--set", "2031-02-03T04:05:00Z"});
    EXPECT_EQ(output({"time", "--wakeup"}), "wakes up at 2099-01-31T12:00:00+00:00\n");
}

TEST_F(time_verb, refuses_what_is_no_time)
{
    for (const char *text : {"", "now", "2031", "2031-02-30T00:00:00", "2031-13-01T00:00:00",
                             "2031-01-01T24:00:00", "2031-01-01T00:60:00", "2031-01-01T00:00:60",
                             "1899-12-31T00:00:00", "2031-01-01T00:00:00+24:01", "2031-01-01T00:00:00+01:60",
                             "2031-01-01T00:00:00x", "12031-01-01T00:00:00", "2031-02-29T00:00:00"}) {
        const outcome result = run({"time", "--set", text});
        EXPECT_EQ(result.status, 2) << text;
        EXPECT_THAT(result.err, StartsWith("ovra: \"")) << text;
    }
    EXPECT_EQ(run({"time", "--set", "2032-02-29T00:00:00+24:00", "--dry-run"}).status, 0);
}

TEST_F(time_verb, clear_is_for_the_alarm)
{
    EXPECT_EQ(run({"time", "--clear"}).status, 2);
    EXPECT_EQ(run({"time", "--wakeup", "--clear", "--set", "2031-02-03T04:05:06"}).status, 2);
}

} // namespace tool_test
