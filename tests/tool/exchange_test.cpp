// SPDX-License-Identifier: MIT
// Boot variables written as a text and read back.
#include <cerrno>
#include <csignal>
#include <fstream>
#include <set>

#include "tests/tool/support.h"

namespace tool_test {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace fs = std::filesystem;

class exchange : public Machine {
protected:
    fs::path file_of_text = folder / "boot.txt";

    void put_text(const std::string &text) const { std::ofstream(file_of_text) << text; }
    std::string text() const
    {
        std::ifstream stream(file_of_text);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    void replace(const std::string &old_text, const std::string &new_text) const
    {
        std::string all = text();
        const size_t at = all.find(old_text);
        ASSERT_NE(at, std::string::npos) << old_text;
        put_text(all.replace(at, old_text.size(), new_text));
    }

    // What active options of the order start, each without its description.
    std::set<std::string> started() const
    {
        std::set<std::string> all;
        for (const uint16_t number : order()) {
            char name[16];
            snprintf(name, sizeof name, "Boot%04X", number);
            const std::string data = get(name);
            const size_t end = data.find(std::string(3, '\0'), 6);
            if (data.size() > 6 && (data[0] & 1) != 0)
                all.insert(data.substr(std::min(end, data.size())));
        }
        return all;
    }

    // The machine with much changed, from which an import goes back to how it was.
    void change_much() const
    {
        output({"remove", "Boot0003"});
        output({"create", "--desc", "new", "--path-hex", "7fff0400"});
        const std::string third = get("Boot0004");
        put("Boot0004", get("Boot0005"));
        put("Boot0005", third);
        output({"order", "set", "Boot0004,Boot0005,Boot0003"});
        output({"next", "Boot0005"});
    }
};

TEST_F(exchange, gives_the_machine_back_as_it_was)
{
    put("BootNext", std::string("\x02\0", 2));
    put("Boot0007", "damaged");
    put("Driver0001", load_option(1, "d", from_hex(sample_path_hex)));
    put("DriverOrder", std::string("\x01\0", 2));
    const auto before = snapshot();
    EXPECT_THAT(output({"export", file_of_text}), StartsWith("wrote /"));
    EXPECT_EQ(output({"import", file_of_text}), "nothing to change\n");
    EXPECT_EQ(output({"export"}), text());
    change_much();
    put("Driver0001", load_option(0, "e", from_hex(sample_path_hex)));
    EXPECT_NE(snapshot(), before);
    EXPECT_THAT(output({"import", file_of_text}), HasSubstr("\nwrote Boot0003: "));
    EXPECT_EQ(snapshot(), before);
}

TEST_F(exchange, shows_the_difference_first)
{
    output({"export", file_of_text});
    replace("description = \"UiApp\"", "description = \"Setup\"");
    replace("BootNext = none", "BootNext = Boot0001");
    const auto before = snapshot();
    EXPECT_THAT(output({"import", file_of_text, "--dry-run"}),
                StartsWith("+ BootNext = Boot0001\n"
                           "\n"
                           "[Boot0000]\n"
                           "- description = \"UiApp\"\n"
                           "+ description = \"Setup\"\n"
                           "\n"
                           "would write BootNext: Boot0001\n"));
    EXPECT_EQ(snapshot(), before);
    const json document = parsed({"import", file_of_text});
    EXPECT_EQ(document["differences"][0],
              json({{"variable", "BootNext"}, {"before", nullptr}, {"after", "0100"}}));
    EXPECT_EQ(document["changes"].size(), 2u);
    EXPECT_EQ(get("BootNext"), std::string("\x01\0", 2));
    EXPECT_THAT(output({"show", "Boot0000"}), HasSubstr("Setup"));
}

TEST_F(exchange, takes_files_and_paths_as_create_does)
{
    put("Boot0008", load_option(1, "x", from_hex(sample_path_hex)));
    output({"export", file_of_text});
    replace("file = \\EFI", "file = /EFI/a.efi");
    output({"import", file_of_text});
    EXPECT_THAT(get("Boot0008"), HasSubstr(ucs2("\\EFI\\a.efi")));
    replace("file = /EFI/a.efi", "file =");
    EXPECT_THAT(failure({"import", file_of_text}), HasSubstr("the name of a file is needed"));
    replace("file =\n", "file = \"\\EFI\\a.efi\"\n");
    EXPECT_THAT(failure({"import", file_of_text}), HasSubstr("a file is named without quotes"));
    replace("file = \"\\EFI\\a.efi\"\n", "instance = MAC(525400123456,1)/IPv4(0.0.0.0)\n");
    EXPECT_THAT(run({"import", file_of_text}).err, HasSubstr("IPv4(0.0.0.0) leaves values open"));
    // What is stored already is written as bytes where the text would not give these.
    put("Boot0008", load_option(1, "x",
                                from_hex("0404080061002f00"
                                         "00007fff0400")));
    const auto before = snapshot();
    output({"export", file_of_text});
    EXPECT_EQ(output({"import", file_of_text}), "nothing to change\n");
    EXPECT_EQ(snapshot(), before);
}

TEST_F(exchange, warns_of_what_the_text_does_not_have)
{
    output({"export", file_of_text});
    replace("BootOrder = Boot0000", "BootOrder = Boot0001 Boot0042 Boot0000");
    replace("BootNext = none", "BootNext = Boot0043");
    EXPECT_EQ(run({"import", file_of_text, "--dry-run"}).err,
              "ovra: warning: BootOrder names Boot0042, which the text does not have\n"
              "ovra: warning: BootOrder names Boot0001 more than once\n"
              "ovra: warning: BootNext names Boot0043, which the text does not have\n");
}

// Without a line in the text they are not to be, as sound ones.
TEST_F(exchange, deletes_damaged_variables_that_the_text_does_not_leave)
{
    output({"export", file_of_text});
    const auto before = snapshot();
    std::ofstream(file("Boot0044")) << "1";
    std::ofstream(file("BootNext")) << "1";
    EXPECT_THAT(output({"import", file_of_text, "--dry-run"}),
                StartsWith("[Boot0044]\n- unreadable\n\n- BootNext = unreadable\n\nwould delete Boot0044\n"));
    EXPECT_EQ(parsed({"import", file_of_text})["changes"].size(), 2u);
    EXPECT_EQ(snapshot(), before);
}

TEST_F(exchange, is_undone_when_a_step_fails)
{
    output({"export", file_of_text});
    change_much();
    const auto before = snapshot();
    surroundings around;
    for (const char *fail : {"create:.hwplat:5:2:2", "create:.hwplat:5:4:4"}) {
        around.environment = {{"LD_PRELOAD", OVRA_FAILING_CALLS}, {"FAIL", fail}};
        const outcome result = run({"import", file_of_text}, around);
        EXPECT_EQ(result.status, 1) << fail << result.out;
        EXPECT_THAT(result.err, HasSubstr("\n  What was changed before is put back.\n")) << fail;
        EXPECT_EQ(snapshot(), before) << fail;
    }
    around.environment["FAIL"] = "unlink:BootNext:5:1:1"; // which is the first step
    EXPECT_THAT(run({"import", file_of_text}, around).err, HasSubstr("\n  Nothing was changed.\n"));
    EXPECT_EQ(snapshot(), before);
    around.environment["FAIL"] = "create:.hwplat:5:4:1000";
    const outcome stuck = run({"import", file_of_text}, around);
    EXPECT_EQ(stuck.status, 1);
    EXPECT_THAT(whole(stuck.err), HasSubstr(" is not put back: cannot write "));
}

TEST_F(exchange, leaves_the_machine_able_to_start_wherever_it_is_killed)
{
    output({"export", file_of_text});
    const std::set<std::string> last = started();
    change_much();
    const std::set<std::string> first = started();
    const auto before = snapshot();
    const auto has_all = [](const auto &all, const auto &wanted) {
        return std::includes(all.begin(), all.end(), wanted.begin(), wanted.end());
    };
    int killed = 0;
    for (int step = 1; step < 20; ++step) {
        surroundings around;
        const std::string number = std::to_string(step);
        around.environment = {{"LD_PRELOAD", OVRA_FAILING_CALLS},
                              {"FAIL", "create:.hwplat:-9:" + number + ':' + number}};
        const outcome result = run({"import", file_of_text}, around);
        const std::set<std::string> now = started();
        EXPECT_TRUE(has_all(now, first) || has_all(now, last)) << "killed before write " << step;
        // The next attempt finds what the killed one left, and ends it.
        killed += result.status == -1;
        if (result.status == 0)
            break;
        EXPECT_EQ(run({"import", file_of_text}).status, 0);
        EXPECT_EQ(output({"export"}), text());
        for (const auto &[name, contents] : before) {
            if (const fs::path path = root / name; fs::is_regular_file(path) || !fs::exists(path))
                std::ofstream(path, std::ios::binary) << contents;
        }
        for (const auto &entry : fs::directory_iterator(variables)) {
            if (!before.contains(fs::relative(entry.path(), root)))
                fs::remove(entry.path());
        }
    }
    EXPECT_GE(killed, 5);
}

TEST_F(exchange, refuses_a_text_of_another_machine)
{
    output({"export", file_of_text});
    const size_t begin = text().find("partitions = ");
    const size_t end = text().find('\n', begin);
    replace(text().substr(begin, end - begin), "partitions = 01020304");
    EXPECT_THAT(
        failure({"import", file_of_text}),
        StartsWith("ovra: the text is another machine's: no partition of that machine is on this one\n"
                   "  --other-machine takes it all the same;"));
    output({"import", file_of_text, "--other-machine"});
    fs::create_directories(root / "sys/class/dmi/id");
    std::ofstream(root / "sys/class/dmi/id/product_uuid") << "12345678-9abc-def0-1122-334455667788\n";
    output({"export", file_of_text});
    EXPECT_THAT(text(), Not(HasSubstr("12345678")));
    output({"import", file_of_text});
    std::ofstream(root / "sys/class/dmi/id/product_uuid") << "22345678-9abc-def0-1122-334455667788\n";
    EXPECT_THAT(failure({"import", file_of_text}), HasSubstr("the machine has another UUID"));
}

TEST_F(exchange, refuses_what_is_no_text)
{
    EXPECT_THAT(failure({"import", folder / "absent"}), HasSubstr("No such file or directory"));
    put_text("# nothing\nend\n");
    EXPECT_THAT(failure({"import", file_of_text}),
                HasSubstr("boot.txt, line 1: there is no line format = 1"));
    surroundings around;
    around.in = "format = 1\nBootNext = Boot0001\nend\n";
    EXPECT_EQ(run({"import", "-", "--other-machine"}, around).status, 0);
    EXPECT_EQ(get("BootNext"), std::string("\x01\0", 2));
    EXPECT_EQ(order().size(), 8u); // of which the text says nothing
}

TEST_F(exchange, exports_into_a_file_as_a_whole_or_not_at_all)
{
    EXPECT_THAT(failure({"export", root}), HasSubstr("Is a directory"));
    EXPECT_THAT(failure({"export", "/dev/null"}), HasSubstr("it is not a regular file"));
    EXPECT_THAT(output({"export", file_of_text, "--dry-run"}), StartsWith("would write "));
    EXPECT_FALSE(fs::exists(file_of_text));
    EXPECT_EQ(parsed({"export"})["text"], output({"export"}));
    put_text("before");
    surroundings around;
    around.limits[RLIMIT_FSIZE] = 10;
    EXPECT_EQ(run({"export", file_of_text}, around).status, 1);
    EXPECT_EQ(text(), "before");
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 2);
}

TEST_F(exchange, leaves_a_damaged_variable_alone)
{
    fs::remove(file("Boot0003"));
    fs::create_directory(file("Boot0003"));
    const outcome result = run({"export", file_of_text});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, HasSubstr("Boot0003 is damaged"));
    EXPECT_THAT(text(), HasSubstr("\n[Boot0003]\nunreadable = damaged\n"));
    EXPECT_EQ(output({"import", file_of_text}), "nothing to change\n");
}

} // namespace tool_test
