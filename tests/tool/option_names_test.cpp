// SPDX-License-Identifier: MIT
// What a person may call an option.
#include "tests/tool/support.h"

namespace tool_test {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class names_of_options : public Machine {
protected:
    json shown(const words &name) const { return parsed(words{"show"} + name)["option"]; }
};

TEST_F(names_of_options, are_numbers_descriptions_their_beginnings_and_variables)
{
    put("BootNext", std::string("\x05\0", 2));
    put("BootCurrent", std::string("\x04\0", 2), 6);
    put_order({7, 1});
    const std::pair<const char *, const char *> cases[] = {
        {"Boot0003", "Boot0003"},
        {"boot3", "Boot0003"},
        {"3", "Boot0003"},
        {"UiApp", "Boot0000"},
        {"uiapp", "Boot0000"},
        {"EFI Internal", "Boot0007"},
        {"efi", "Boot0007"},
        {"UEFI QEMU HARDDISK QM00001", "Boot0005"},
        {"uefi qemu nvme", "Boot0002"},
        {"@current", "Boot0004"},
        {"@next", "Boot0005"},
        {"@First", "Boot0007"},
    };
    for (const auto &[name, option] : cases)
        EXPECT_EQ(shown({name}), option) << name;
}

// What is a number is never looked up as a description.
TEST_F(names_of_options, are_numbers_first_and_exact_before_they_are_beginnings)
{
    put("Boot0010", load_option(1, "3", from_hex(sample_path_hex)));
    put("Boot0011", load_option(1, "UEFI", from_hex(sample_path_hex)));
    put("Boot0012", load_option(1, "Debian", from_hex(sample_path_hex)));
    put("Boot0013", load_option(1, "DEBIAN", from_hex(sample_path_hex)));
    EXPECT_EQ(shown({"3"}), "Boot0003");
    EXPECT_EQ(shown({"uefi"}), "Boot0011");
    EXPECT_EQ(shown({"DEBIAN"}), "Boot0013");
    EXPECT_THAT(failure({"show", "debian"}), StartsWith("ovra: \"debian\" names 2 options\n"
                                                        "  Boot0012  Debian\n"
                                                        "  Boot0013  DEBIAN\n"));
}

TEST_F(names_of_options, that_fit_several_are_refused_with_these_by_every_verb)
{
    for (const words &arguments :
         {words{"show", "UEFI QEMU HARDDISK"}, words{"set", "UEFI QEMU HARDDISK", "--inactive"},
          words{"remove", "Boot0000", "UEFI QEMU HARDDISK"}, words{"next", "UEFI QEMU HARDDISK"},
          words{"order", "insert", "UEFI QEMU HARDDISK"}, words{"order", "set", "0,UEFI QEMU HARDDISK"},
          words{"order", "first", "UEFI QEMU HARDDISK"}})
        EXPECT_EQ(failure(arguments), "ovra: \"UEFI QEMU HARDDISK\" names 2 options\n"
                                      "  Boot0005  UEFI QEMU HARDDISK QM00001 \n"
                                      "  Boot0006  UEFI QEMU HARDDISK QM00007 \n")
            << arguments[0];
}

TEST_F(names_of_options, that_fit_none_are_refused)
{
    for (const char *name : {"BootOrder", "Boot12345", "Boot00G0", "0x1", "-1", "@nothing", "x"})
        EXPECT_THAT(failure({"show", name}),
                    StartsWith("ovra: no option is named \"" + std::string(name) +
                               "\"\n  An option is named by its number, as Boot001F, by its"))
            << name;
    std::filesystem::remove(file("BootOrder"));
    EXPECT_THAT(failure({"show", "@next"}), StartsWith("ovra: BootNext is not set\n"));
    EXPECT_THAT(failure({"show", "@current"}), StartsWith("ovra: BootCurrent is not set\n"));
    EXPECT_THAT(failure({"show", "@first"}), StartsWith("ovra: BootOrder is not set\n"));
    EXPECT_EQ(failure({"show", "7f"}), "ovra: no such option: Boot007F\n  'ovra list' shows the options.\n");
}

TEST_F(names_of_options, are_parts_of_paths)
{
    output({"create", "--desc", "x", "--path-hex", sample_path_hex, "--number", "20"});
    const json path = parsed({"show", "20"})["instances"][0];
    const std::string file = path["file_path"];
    std::string in_linux = file;
    std::replace(in_linux.begin(), in_linux.end(), '\\', '/');
    EXPECT_EQ(shown({"--path", file}), "Boot0020");
    EXPECT_EQ(shown({"--path", in_linux.substr(1)}), "Boot0020");
    EXPECT_EQ(shown({"--path", path["device_path"].get<std::string>()}), "Boot0020");
    EXPECT_EQ(shown({"--path", "nvme("}), "Boot0002");
    EXPECT_EQ(failure({"show", "--path", "nowhere"}), "ovra: no option has \"nowhere\" in its path\n"
                                                      "  'ovra list -v' shows the paths.\n");
    EXPECT_THAT(failure({"remove", "--path", "PciRoot"}), HasSubstr(" options\n  Boot0001  UEFI QEMU"));
    output({"remove", "--path", file, "--path", "nvme("});
    EXPECT_EQ(get("Boot0020"), "(none)");
    EXPECT_EQ(get("Boot0002"), "(none)");
}

// The library does not read a longer one.
TEST_F(names_of_options, are_beginnings_of_descriptions_of_any_length)
{
    put("Boot0010", load_option(1, "Long " + std::string(300, 'x'), from_hex(sample_path_hex)));
    output({"next", "long"});
    EXPECT_EQ(get("BootNext"), std::string("\x10\0", 2));
}

TEST_F(names_of_options, stand_in_lists_of_an_order)
{
    output({"order", "set", "EFI Internal Shell,@first", "3"});
    EXPECT_THAT(order(), ElementsAre(7, 0, 3));
    EXPECT_EQ(run({"order", "set", "7,EFI Internal Shell"}).status, 2);
}

} // namespace tool_test
