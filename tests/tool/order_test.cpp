// SPDX-License-Identifier: MIT
#include <climits>
#include <fstream>

#include "tests/tool/support.h"

namespace tool_test {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class order_verb : public Machine {
protected:
    order_verb() { put_order({1, 2, 3}); }
};

TEST_F(order_verb, shows_positions_and_descriptions)
{
    put_order({7, 0x1f});
    EXPECT_EQ(output({"order"}), "0  Boot0007  EFI Internal Shell\n"
                                 "1  Boot001F  (no such option)\n");
    EXPECT_EQ(parsed({"order"}), json({{"order", {"Boot0007", "Boot001F"}}}));
}

TEST_F(order_verb, says_when_there_is_none)
{
    std::filesystem::remove(file("BootOrder"));
    EXPECT_EQ(output({"order"}), "BootOrder is not set\n");
    EXPECT_EQ(parsed({"order"}), json({{"order", json::array()}}));
}

TEST_F(order_verb, insert_puts_an_option_last_unless_told_where)
{
    EXPECT_EQ(output({"order", "insert", "Boot0000"}),
              "wrote BootOrder: Boot0001 Boot0002 Boot0003 Boot0000\n");
    EXPECT_THAT(order(), ElementsAre(1, 2, 3, 0));
}

TEST_F(order_verb, insert_tells_the_order_that_is_then_written)
{
    std::vector<std::vector<uint16_t>> orders = {{2, 1, 2, 3, 2}};
    if (!has_sanitizers()) // which take six seconds for all of them
        orders.insert(orders.end(), {{1, 2, 3}, {2}, {2, 2}, {}, {1, 3, 2}});
    for (const std::vector<uint16_t> &before : orders) {
        for (const int position : {0, 1, 2, 3, 4, 100, -1, -2, -3, -4, -5, -100, INT_MAX, INT_MIN}) {
            put_order(before);
            if (before.empty())
                std::filesystem::remove(file("BootOrder"));
            const words arguments = {"order", "insert", "Boot0002", std::to_string(position)};
            const json planned = json::parse(run(arguments + words{"--dry-run", "--json"}).out);
            EXPECT_EQ(order(), before);
            EXPECT_EQ(json::parse(run(arguments + words{"--json"}).out)["changes"], planned["changes"]);
            EXPECT_EQ(from_hex(planned["changes"][0]["data"].get<std::string>()), get("BootOrder"))
                << position << " in an order of " << before.size();
        }
    }
}

TEST_F(order_verb, insert_says_when_there_is_no_such_position)
{
    struct {
        const char *option;
        const char *position;
        const char *warning;
    } const rows[] = {
        {"Boot0002", "2", ""},
        {"Boot0002", "-1", ""},
        {"Boot0002", "-4", ""},
        {"Boot0000", "3", ""},
        {"Boot0002", "3", "BootOrder has no position 3: Boot0002 becomes the last"},
        {"Boot0000", "4", "BootOrder has no position 4: Boot0000 becomes the last"},
        {"Boot0000", "-5", "BootOrder has no position -5: Boot0000 becomes the first"},
    };
    for (const auto &[option, position, warning] : rows) {
        const outcome said = run({"order", "insert", option, position, "--dry-run"});
        EXPECT_EQ(said.status, 0);
        EXPECT_EQ(whole(said.err), *warning ? std::string("ovra: warning: ") + warning + '\n' : "")
            << option << position;
    }
}

TEST_F(order_verb, insert_moves_an_option)
{
    output({"order", "insert", "Boot0003", "0"});
    EXPECT_THAT(order(), ElementsAre(3, 1, 2));
    output({"order", "insert", "Boot0003", "-2"});
    EXPECT_THAT(order(), ElementsAre(1, 2, 3));
}

// As help says: -2 is last for an option that is moved, and before the last for one that is new.
TEST_F(order_verb, insert_counts_from_the_end_before_it_takes_the_option_out)
{
    EXPECT_THAT(run_command({"order", "insert", "--help"}).out,
                HasSubstr("are counted before the option is taken"));
    output({"order", "insert", "Boot0001", "-2"});
    EXPECT_THAT(order(), ElementsAre(2, 3, 1));
    output({"order", "insert", "Boot0000", "-2"});
    EXPECT_THAT(order(), ElementsAre(2, 3, 0, 1));
}

TEST_F(order_verb, insert_refuses_an_option_that_does_not_exist_unless_forced)
{
    EXPECT_THAT(failure({"order", "insert", "Boot001F"}), HasSubstr("ovra: no such option: Boot001F\n"));
    output({"order", "insert", "Boot001F", "0", "--force"});
    EXPECT_THAT(order(), ElementsAre(0x1f, 1, 2, 3));
}

TEST_F(order_verb, remove_takes_an_option_out_and_keeps_it)
{
    EXPECT_EQ(output({"order", "remove", "Boot0002"}), "wrote BootOrder: Boot0001 Boot0003\n");
    EXPECT_THAT(order(), ElementsAre(1, 3));
    EXPECT_NE(get("Boot0002"), "(none)");
}

TEST_F(order_verb, remove_takes_out_an_option_that_does_not_exist)
{
    put_order({0x1f, 1, 0x1f});
    output({"order", "remove", "Boot001F"});
    EXPECT_THAT(order(), ElementsAre(1));
}

TEST_F(order_verb, remove_of_the_only_entry_deletes_the_order)
{
    put_order({1});
    EXPECT_EQ(output({"order", "remove", "Boot0001"}), "deleted BootOrder\n");
    EXPECT_EQ(get("BootOrder"), "(none)");
}

TEST_F(order_verb, remove_refuses_an_option_that_is_not_in_it)
{
    EXPECT_EQ(failure({"order", "remove", "Boot0007"}), "ovra: Boot0007 is not in BootOrder\n"
                                                        "  'ovra order' shows what is.\n");
}

TEST_F(order_verb, first_and_last_put_options_there)
{
    output({"order", "first", "3", "EFI Internal", "3"});
    EXPECT_THAT(order(), ElementsAre(3, 7, 1, 2));
    output({"order", "last", "7", "1"});
    EXPECT_THAT(order(), ElementsAre(3, 2, 7, 1));
    EXPECT_EQ(output({"order", "last", "7", "1"}), "nothing to change\n");
    EXPECT_THAT(failure({"order", "first", "Boot001F"}), HasSubstr("ovra: no such option: Boot001F\n"));
}

TEST_F(order_verb, move_changes_a_place_and_counts_without_the_option)
{
    output({"order", "move", "1", "1"});
    EXPECT_THAT(order(), ElementsAre(2, 1, 3));
    output({"order", "move", "2", "-1"});
    EXPECT_THAT(order(), ElementsAre(1, 3, 2));
    output({"order", "move", "2", "-2"});
    EXPECT_THAT(order(), ElementsAre(1, 2, 3));
    EXPECT_EQ(output({"order", "move", "2", "1"}), "nothing to change\n");
    EXPECT_THAT(failure({"order", "move", "7", "0"}), HasSubstr("ovra: Boot0007 is not in BootOrder\n"));
}

TEST_F(order_verb, clear_deletes_it_damaged_or_not)
{
    EXPECT_EQ(output({"order", "clear", "--dry-run"}), "would delete BootOrder\n");
    EXPECT_EQ(output({"order", "clear"}), "deleted BootOrder\n");
    EXPECT_EQ(output({"order", "clear"}), "nothing to change\n");
    std::ofstream(file("BootOrder")) << "12";
    output({"order", "clear"});
    EXPECT_EQ(get("BootOrder"), "(none)");
}

TEST_F(order_verb, set_writes_the_whole_order)
{
    EXPECT_THAT(output({"order", "set", "Boot0007,boot3,0"}),
                StartsWith("wrote BootOrder: Boot0007 Boot0003 Boot0000\n"));
    EXPECT_THAT(order(), ElementsAre(7, 3, 0));
    output({"order", "set", "Boot0000", "Boot0001,Boot0002"});
    EXPECT_THAT(order(), ElementsAre(0, 1, 2));
}

TEST_F(order_verb, set_names_what_it_drops)
{
    put_order({1, 5, 0x1f, 5});
    EXPECT_EQ(output({"order", "set", "Boot0001,Boot0000"}),
              "wrote BootOrder: Boot0001 Boot0000\n"
              "no longer in BootOrder: Boot0005  UEFI QEMU HARDDISK QM00001 \n"
              "no longer in BootOrder: Boot001F  (no such option)\n");
    EXPECT_EQ(parsed({"order", "set", "Boot0007,Boot0000", "--dry-run"})["dropped"], json({"Boot0001"}));
    EXPECT_FALSE(parsed({"order", "set", "Boot0000,Boot0001"}).contains("dropped"));
}

TEST_F(order_verb, set_makes_an_order_with_the_attributes_of_boot_variables)
{
    std::filesystem::remove(file("BootOrder"));
    output({"order", "set", "Boot0001"});
    EXPECT_EQ(parsed({"vars", "BootOrder"})["variables"][0]["attributes"],
              json({"non-volatile", "boot-service", "run-time"}));
}

TEST_F(order_verb, set_refuses_options_that_do_not_exist_unless_forced)
{
    EXPECT_THAT(failure({"order", "set", "Boot0001,Boot001F"}),
                HasSubstr("ovra: no such option: Boot001F\n"));
    output({"order", "set", "Boot0001,Boot001F", "--force"});
    EXPECT_THAT(order(), ElementsAre(1, 0x1f));
}

TEST_F(order_verb, set_refuses_an_option_named_twice)
{
    const outcome result = run({"order", "set", "Boot0001,Boot0002,boot1", "--force"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("ovra: Boot0001 is named twice\n"));
    EXPECT_THAT(order(), ElementsAre(1, 2, 3));
}

TEST_F(order_verb, set_refuses_empty_names)
{
    for (const char *list : {"", ",", "Boot0001,", ",Boot0001", "Boot0001,,Boot0002"})
        EXPECT_EQ(run({"order", "set", list}).status, 2) << list;
    EXPECT_THAT(order(), ElementsAre(1, 2, 3));
}

TEST_F(order_verb, set_replaces_a_damaged_order)
{
    std::ofstream(file("BootOrder"), std::ios::trunc) << "12";
    EXPECT_EQ(output({"order", "set", "Boot0001,Boot0000"}), "wrote BootOrder: Boot0001 Boot0000\n");
    EXPECT_THAT(order(), ElementsAre(1, 0));
}

TEST_F(order_verb, dry_run_changes_nothing)
{
    const auto before = snapshot();
    EXPECT_EQ(output({"order", "set", "Boot0003,Boot0001,Boot0002", "--dry-run"}),
              "would write BootOrder: Boot0003 Boot0001 Boot0002\n    030001000200\n");
    EXPECT_EQ(output({"order", "remove", "Boot0003", "--dry-run"}),
              "would write BootOrder: Boot0001 Boot0002\n    01000200\n");
    EXPECT_EQ(snapshot(), before);
}

TEST_F(order_verb, says_why_a_write_failed)
{
    put("BootOrder", std::string("\x01\0", 2), 0x27);
    for (const words &arguments : {words{"order", "set", "Boot0002"}, words{"order", "insert", "Boot0002"}})
        EXPECT_THAT(failure(arguments),
                    HasSubstr("ovra: cannot write BootOrder: it is stored as non-volatile, "
                              "boot-service, run-time, time-authenticated\n"));
}

TEST_F(order_verb, keeps_its_attributes)
{
    const auto words_of_attributes = [this] {
        return parsed({"vars", "BootOrder"})["variables"][0]["attributes"];
    };
    for (const words &arguments :
         {words{"order", "set", "Boot0002,Boot0001"}, words{"order", "insert", "Boot0003"},
          words{"order", "remove", "Boot0002"}}) {
        put("BootOrder", std::string("\x01\0\x02\0", 4), 3);
        output(arguments);
        EXPECT_EQ(words_of_attributes(), json({"non-volatile", "boot-service"}));
        EXPECT_NE(order(), (std::vector<uint16_t>{1, 2}));
    }
}

// Half an entry at its end, and none at all.
TEST_F(order_verb, of_odd_length_means_the_same_to_every_verb)
{
    const auto warned = [this](const words &arguments) {
        const outcome result = run(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        const bool odd = !result.err.empty();
        if (odd) {
            EXPECT_THAT(
                result.err,
                HasSubstr("the last one is half an entry\n  It is lost when BootOrder is written.\n"));
        }
        return std::pair(result.out, odd);
    };
    const auto said = [&](const words &arguments) { return warned(arguments).first; };
    const auto parsed_with_warning = [&](const words &arguments) {
        return json::parse(said(arguments + words{"--json"}));
    };
    put("BootOrder", std::string("\x07\0\x05", 3));
    EXPECT_EQ(warned({"order"}), std::pair(std::string("0  Boot0007  EFI Internal Shell\n"), true));
    EXPECT_EQ(parsed_with_warning({"list"})["order"], json({"Boot0007"}));
    EXPECT_EQ(parsed_with_warning({"show", "Boot0007"})["position"], 0);
    said({"order", "insert", "Boot0001"});
    EXPECT_THAT(order(), ElementsAre(7, 1));
    for (const size_t size : {0u, 1u}) {
        put("BootOrder", std::string(size, '\x05'));
        EXPECT_EQ(said({"order"}), "BootOrder is not set\n") << size;
        EXPECT_EQ(parsed_with_warning({"list"})["order"], json::array()) << size;
        EXPECT_EQ(parsed_with_warning({"show", "Boot0007"})["position"], nullptr) << size;
        said({"order", "insert", "Boot0001"});
        EXPECT_THAT(order(), ElementsAre(1)) << size;
        put("BootOrder", std::string(size, '\x05'));
        said({"create", "--desc", "x", "--path-hex", "7fff0400"});
        EXPECT_EQ(order().size(), 1u) << size;
        put("BootOrder", std::string(size, '\x05'));
        said({"remove", size == 0 ? "Boot0005" : "Boot0006"});
    }
}

// Files that are no variables: without attributes, or no files.
TEST_F(order_verb, that_is_damaged_is_so_to_every_verb)
{
    for (const int size : {0, 1, 3, -1}) {
        std::filesystem::remove_all(file("BootOrder"));
        if (size == -1)
            std::filesystem::create_directory(file("BootOrder"));
        else
            std::ofstream(file("BootOrder")) << std::string(static_cast<size_t>(size), 'x');
        const std::string advice =
            size == -1 ? "A folder is in its place: remove " + file("BootOrder").string() + ".\n"
                       : "'ovra order set' writes a new one.\n";
        for (const words &arguments :
             {words{"order"}, words{"order", "insert", "Boot0001"}, words{"order", "remove", "Boot0001"},
              words{"remove", "Boot0001"}, words{"create", "--desc", "x", "--path-hex", "7fff0400"}})
            EXPECT_EQ(failure(arguments), "ovra: BootOrder is damaged\n  " + advice) << size << arguments[0];
        EXPECT_THAT(output({"list"}), StartsWith("BootOrder is damaged; " + advice));
        const outcome shown = run({"show", "Boot0001"});
        EXPECT_EQ(shown.status, 0);
        EXPECT_THAT(shown.out, HasSubstr("Position       (BootOrder is damaged)\n"));
        if (size != -1)
            output({"order", "set", "Boot0001"});
    }
    EXPECT_THAT(failure({"order", "set", "Boot0001"}),
                StartsWith("ovra: cannot write BootOrder: a folder is in its place\n  Remove the folder "));
}

} // namespace tool_test
