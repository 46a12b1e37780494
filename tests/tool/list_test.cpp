// SPDX-License-Identifier: MIT
#include <fstream>
#include <sys/stat.h>

#include "src/base/load_option.h"
#include "tests/tool/support.h"

namespace tool_test {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class list_verb : public Machine {};

TEST_F(list_verb, shows_the_options_in_boot_order)
{
    EXPECT_EQ(output({"list"}),
              "Position  Option    Active  Description                  Device\n"
              "0         Boot0000  *       UiApp                        firmware volume\n"
              "1         Boot0001  *       UEFI QEMU QEMU HARDDISK      SCSI device\n"
              "2         Boot0002  *       UEFI QEMU NVMe Ctrl N1 1     NVMe device\n"
              "3         Boot0003  *       UEFI QEMU QEMU USB HARDDRIVE 1-0000:00:05.0-1\n"
              "                            USB device\n"
              "4         Boot0004  *       UEFI Misc Device          /PciRoot(0x0)/Pci(0x6,0x0)\n"
              "5         Boot0005  *       UEFI QEMU HARDDISK QM00001   SATA device\n"
              "6         Boot0006  *       UEFI QEMU HARDDISK QM00007   SATA device\n"
              "7         Boot0007  *       EFI Internal Shell           firmware volume\n");
}

TEST_F(list_verb, puts_options_outside_the_order_last_and_marks_current_and_next)
{
    put_order({7, 5});
    for (const char *unused : {"Boot0001", "Boot0002", "Boot0003", "Boot0004", "Boot0006"})
        std::filesystem::remove(file(unused));
    put("BootCurrent", std::string("\x07\0", 2), 6);
    put("BootNext", std::string("\x05\0", 2));
    EXPECT_EQ(output({"list"}),
              "Position  Option    Active  Description                           Device\n"
              "0         Boot0007  *       EFI Internal Shell          current  firmware volume\n"
              "1         Boot0005  *       UEFI QEMU HARDDISK QM00001   next     SATA device\n"
              "-         Boot0000  *       UiApp                                firmware volume\n");
}

TEST_F(list_verb, verbose_adds_path_attributes_and_optional_data)
{
    put_order({0});
    put("Boot0000",
        load_option(0x109, "Linux", from_hex("7fff0400"), ucs2("root=/dev/sda1 quiet") + '\0' + '\0'));
    for (const char *unused : {"Boot0002", "Boot0003", "Boot0004", "Boot0005", "Boot0006", "Boot0007"})
        std::filesystem::remove(file(unused));
    EXPECT_EQ(output({"list", "-v"}),
              "Position  Option    Active  Description               Device\n"
              "0         Boot0000  *       Linux                     none\n"
              "          attributes     0x00000109 (active, hidden, application)\n"
              "          path           7fff0400\n"
              "          device path    none\n"
              "          optional data  \"root=/dev/sda1 quiet\"\n"
              "-         Boot0001  *       UEFI QEMU QEMU HARDDISK   SCSI device\n"
              "          attributes     0x00000001 (active)\n"
              "          path           02010c00d041030a000000000101060000020101060000000302080000000000"
              "7fff0400\n"
              "          device path    /PciRoot(0x0)/Pci(0x2,0x0)/Pci(0x0,0x0)/Scsi(0x0,0x0)\n"
              "          optional data  4eac0881119f594d850ee21a522c59b2 (16 bytes)\n");
}

TEST_F(list_verb, json_has_order_marks_and_every_field)
{
    put("BootNext", std::string("\x01\0", 2));
    const json document = parsed({"list"});
    EXPECT_EQ(document["current"], nullptr);
    EXPECT_EQ(document["next"], "Boot0001");
    EXPECT_EQ(document["order"], json({"Boot0000", "Boot0001", "Boot0002", "Boot0003", "Boot0004", "Boot0005",
                                       "Boot0006", "Boot0007"}));
    ASSERT_EQ(document["options"].size(), 8u);
    const json instance = {{"device_path", "/PciRoot(0x0)/Pci(0x2,0x0)/Pci(0x0,0x0)/Scsi(0x0,0x0)"},
                           {"file_path", nullptr}};
    EXPECT_EQ(document["options"][1],
              json({{"option", "Boot0001"},
                    {"position", 1},
                    {"current", false},
                    {"next", true},
                    {"description", "UEFI QEMU QEMU HARDDISK "},
                    {"active", true},
                    {"attributes", 1},
                    {"path", "02010c00d041030a0000000001010600000201010600000003020800000000007fff0400"},
                    {"optional_data", "4eac0881119f594d850ee21a522c59b2"},
                    {"optional_data_text", nullptr},
                    {"device", "SCSI device"},
                    {"instances", json::array({instance})}}));
}

// It is printed in pieces.
TEST_F(list_verb, json_of_many_options_is_one_document)
{
    const std::string path = from_hex(sample_path_hex);
    std::vector<uint16_t> order;
    for (uint16_t number = 0; number < 400; ++number) {
        order.push_back(number);
        const std::string name = ovra::option_name(number).text;
        put(name, number % 7 == 6 ? "damaged" : load_option(1, name + " \"{[,]}\"", path, "data"));
    }
    order.push_back(0x1000);
    put_order(order);
    const std::string printed = output({"list", "--json"});
    const auto document = nlohmann::ordered_json::parse(printed);
    EXPECT_EQ(document["options"].size(), 401u);
    EXPECT_EQ(document["options"][6]["error"], "damaged");
    EXPECT_EQ(document["options"][399]["description"], "Boot018F \"{[,]}\"");
    EXPECT_EQ(document["options"][400]["error"], "no such option");
    EXPECT_EQ(printed, document.dump(2) + '\n');
}

TEST_F(list_verb, shows_an_order_that_names_missing_options)
{
    put_order({0x1f, 0});
    EXPECT_THAT(output({"list"}), HasSubstr("0         Boot001F  ?       (no such option)\n"));
    const json document = parsed({"list"});
    EXPECT_EQ(document["options"][0]["option"], "Boot001F");
    EXPECT_EQ(document["options"][0]["error"], "no such option");
    EXPECT_EQ(document["options"][1]["position"], 1);
}

TEST_F(list_verb, names_an_option_once_that_the_order_names_twice)
{
    put_order({3, 0, 3});
    const json document = parsed({"list"});
    EXPECT_EQ(document["order"], json({"Boot0003", "Boot0000", "Boot0003"}));
    EXPECT_EQ(document["options"].size(), 8u);
    EXPECT_EQ(document["options"][0]["position"], 0);
}

TEST_F(list_verb, ignores_the_odd_byte_of_an_order)
{
    put("BootOrder", std::string("\x07\0\x05", 3));
    const outcome result = run({"list", "--json"});
    EXPECT_EQ(json::parse(result.out)["order"], json({"Boot0007"}));
    EXPECT_THAT(result.err, HasSubstr("BootOrder has 3 bytes: the last one is half an entry"));
}

TEST_F(list_verb, goes_on_past_a_damaged_option)
{
    put("Boot0003", "\x01");
    const std::string text = output({"list"});
    EXPECT_THAT(text, HasSubstr("3         Boot0003  ?       (damaged)\n"));
    EXPECT_THAT(text,
                HasSubstr("7         Boot0007  *       EFI Internal Shell           firmware volume\n"));
    EXPECT_EQ(parsed({"list"})["options"][3]["error"], "damaged");
}

TEST_F(list_verb, says_what_is_damaged)
{
    namespace fs = std::filesystem;
    const fs::path option = file("Boot0003");
    const auto is_said = [&](const std::string &damage) {
        EXPECT_THAT(output({"list"}), HasSubstr("3         Boot0003  ?       (damaged)\n")) << damage;
        EXPECT_THAT(output({"list", "-v"}), HasSubstr("\n          damage         " + damage + "\n"));
        EXPECT_EQ(parsed({"list"})["options"][3]["damage"], damage);
        fs::remove(option);
    };
    put("Boot0003", "\x01");
    is_said("its 1 bytes are no load option");
    std::ofstream(option, std::ios::trunc) << "xy";
    is_said("its file of 2 bytes is no variable");
    fs::create_directory(option);
    is_said("a folder is in its place");
    fs::create_symlink("nowhere", option);
    is_said("a symbolic link is in its place");
    ASSERT_EQ(mkfifo(option.c_str(), 0600), 0);
    is_said("a FIFO is in its place");
}

TEST_F(list_verb, shows_what_is_no_variable_outside_the_order_as_damaged_and_passes_over_what_has_no_data)
{
    put_order({0, 0x10});
    for (const char *without_data : {"Boot0010", "Boot0011"})
        put(without_data, "");
    ASSERT_EQ(mkfifo(file("Boot0012").c_str(), 0600), 0);
    const std::string text = output({"list"});
    EXPECT_THAT(text, HasSubstr("1         Boot0010  ?       (no such option)\n"));
    EXPECT_THAT(text, HasSubstr("-         Boot0012  ?       (damaged)\n"));
    EXPECT_EQ(text.find("Boot0011"), std::string::npos);
    EXPECT_EQ(parsed({"list"})["options"].size(), 10u);
}

TEST_F(list_verb, goes_on_past_a_damaged_boot_next)
{
    put("BootNext", "123");
    const outcome result = run({"list", "--json"});
    EXPECT_EQ(json::parse(result.out)["next"], nullptr);
    EXPECT_EQ(result.err, "ovra: warning: BootNext is damaged: it has 3 bytes instead of 2\n");
}

TEST_F(list_verb, goes_on_past_a_damaged_order)
{
    std::ofstream(file("BootOrder"), std::ios::trunc) << "12";
    const std::string text = output({"list"});
    EXPECT_THAT(text, StartsWith("BootOrder is damaged; 'ovra order set' writes a new one.\nPosition"));
    EXPECT_THAT(text,
                HasSubstr("-         Boot0007  *       EFI Internal Shell           firmware volume\n"));
    EXPECT_EQ(parsed({"list"})["order"], nullptr);
    EXPECT_EQ(parsed({"list"})["options"].size(), 8u);
}

TEST_F(list_verb, shows_no_control_characters_of_a_description)
{
    put("Boot0000", load_option(1, "a\x1b[31m\n\x7f", from_hex("7fff0400")));
    EXPECT_THAT(output({"list"}), HasSubstr("Boot0000  *       a\\u001b[31m\\u000a\\u007f      none\n"));
    EXPECT_EQ(parsed({"list"})["options"][0]["description"], "a\x1b[31m\n\x7f");
}

TEST_F(list_verb, shows_a_description_that_is_no_text)
{
    put("Boot0000", std::string("\x01\0\0\0\x04\0\x00\xd8z\0\0\0\x7f\xff\x04\0", 16));
    EXPECT_THAT(output({"list"}), HasSubstr("Boot0000"));
    EXPECT_EQ(parsed({"list"})["options"].size(), 8u);
}

TEST_F(list_verb, aligns_wide_characters_by_columns)
{
    put_order({0, 7});
    put("Boot0000", std::string("\x01\0\0\0\x04\0", 6) + std::string("\xcb\x7a\x2f\x67\0\0", 6) +
                        from_hex("7fff0400")); // two ideographs of two columns
    put("BootNext", std::string("\0\0", 2));
    const std::string text = output({"list"});
    const size_t at = text.find("Boot0000");
    const std::string line = text.substr(at, text.find('\n', at) - at);
    const size_t widest = std::string("UEFI QEMU HARDDISK QM00001 ").size();
    EXPECT_EQ(line, "Boot0000  *       \u7acb\u672f" + std::string(widest - 4 + 2, ' ') + "next  none");
}

TEST_F(list_verb, passes_over_options_of_other_vendors)
{
    std::ofstream(variables / "Boot0042-eb704011-1402-11d3-8e77-00a0c969723b") << "1234567890";
    EXPECT_EQ(parsed({"list"})["options"].size(), 8u);
}

TEST_F(list_verb, says_when_there_are_no_options)
{
    std::filesystem::remove_all(variables);
    std::filesystem::create_directory(variables);
    EXPECT_EQ(output({"list"}), "no boot options\n");
    EXPECT_EQ(
        parsed({"list"}),
        json(
            {{"current", nullptr}, {"next", nullptr}, {"order", json::array()}, {"options", json::array()}}));
}

} // namespace tool_test
