// SPDX-License-Identifier: MIT
// Machines in folders: made from a text, and started.
#include <fstream>
#include <sys/stat.h>

#include "tests/tool/support.h"

namespace tool_test {

using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace fs = std::filesystem;

class machine_verb : public Machine {
protected:
    const fs::path made = folder / "made";
    const fs::path layout = folder / "layout.txt";

    outcome create(const std::string &text, const words &more = {}) const
    {
        std::ofstream(layout) << text;
        return run_command(words{"machine", "create", made, layout} + more);
    }

    outcome boot(const words &more = {}) const { return run_command(words{"machine", "boot", root} + more); }

    outcome capture_made() const
    {
        fs::remove_all(folder / "copy");
        return run_command({"--root", made, "machine", "capture", folder / "copy"});
    }

    const std::string disk =
        "# A disk on a controller.\n"
        "link sys/bus/pci/devices/0000:00:1f.2 ../../../devices/pci0000:00/0000:00:1f.2\n"
        "in sys/devices/pci0000:00/0000:00:1f.2\n"
        "  file class 0x010601\n"
        "  disk ata1/host0/target0:0:0/0:0:0:0/block/sda 4096\n"
        "image dev/sda gpt 4096 64+1024\n"
        "== disks\n"
        "c0t0d0\n";
};

TEST_F(machine_verb, create_makes_what_a_text_describes)
{
    const outcome planned = create(disk, {"--dry-run"});
    EXPECT_EQ(planned.out, "would make " + made.string() + '\n') << planned.err;
    EXPECT_FALSE(fs::exists(made));
    const outcome result = create(disk);
    EXPECT_EQ(result.out, "made " + made.string() + '\n') << result.err;
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 3); // nothing else is left beside it
    const outcome disks = run_command({"--root", made, "disks"});
    EXPECT_THAT(disks.out, HasSubstr("sda1")) << disks.err;
    const outcome option =
        run_command({"--root", made, "create", "--desc", "x", "--disk", "sda1", "--file", "\\a.efi"});
    EXPECT_EQ(option.status, 0) << option.err;
    EXPECT_THAT(create(disk).err, HasSubstr(" is there already\n"));
}

TEST_F(machine_verb, create_refuses_a_line_in_error_and_leaves_nothing)
{
    struct wrong {
        const char *text;
        const char *said;
    };
    for (const auto &[text, said] :
         {wrong{"file\n", "line 1: it names no path"},
          wrong{"\n# x\npipe a\n", "line 3: no kind of entry: pipe"},
          wrong{"file ../out x\n", "line 1: the path leads out of the machine"},
          wrong{"dir a/../..\n", "line 1: the path leads out of the machine"},
          wrong{"link a ..\nfile a/out x\n", "line 2: the path leads out of the machine"},
          wrong{"link a /tmp\nin a\n", "line 2: the path leads out of the machine"},
          wrong{"link a x\nfile a x\n", "line 2: there is a link of this name"},
          wrong{"link sys/block /\ndisk d/block/x 1\n", "line 2: the path leads out"},
          wrong{"link a\n", "line 1: link wants more words"},
          wrong{"image d gpt x\n", "line 1: no number, or too large a one: x"},
          wrong{"image d gpt 99999999999999999999\n", "line 1: no number"},
          wrong{"image d gpt 10\n", "line 1: a disk with a GPT has at least 128"},
          wrong{"image d blank/65536 281474976710656\n", "line 1: the disk is too large"},
          wrong{"image d gpt/7 4096\n", "line 1: no size of a block: 7"},
          wrong{"image d gpt 4096 9\n", "line 1: no extent: 9"},
          wrong{"image d mbr 4096\n", "line 1: an MBR has a signature"},
          wrong{"image d mbr 4096 1 5\n", "line 1: no type of a partition: 5"},
          wrong{"file a\tb c\n", "line 1: it has a tab; blanks separate words"},
          wrong{"in a\n\tfile b c\n", "line 2: it has a tab"},
          wrong{"image d mbr 4096 1 1ef:64+64\n", "line 1: no number, or too large a one: 1ef"},
          wrong{"image d mbr 4096 123456789 ef:64+64\n", "line 1: no number"},
          wrong{"image d mbr 4096 1 ef:64+4294967296\n", "line 1: the partition is beyond"},
          wrong{"image d gpt 4096 64+0\n", "line 1: no extent of a partition: 64+0"},
          wrong{"image d gpt 4096 1+8\n", "line 1: the slice is not between the disk's tables: 1+8"},
          wrong{"image d gpt 4096 64+4096\n", "line 1: the slice is not between"},
          wrong{"image d data 0\n", "line 1: the disk is too small: 0"},
          wrong{"image d tape 4096\n", "line 1: no kind of image: tape"}}) {
        const outcome result = create(text);
        EXPECT_EQ(result.status, 1) << text;
        EXPECT_THAT(result.err, HasSubstr(said)) << text;
        EXPECT_THAT(result.err, HasSubstr("\n  No machine was made.\n")) << text;
        EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 2) << text;
    }
}

TEST_F(machine_verb, boot_tells_of_each_option_why_it_starts_or_not)
{
    put("Boot0001", "damaged");
    output({"set", "Boot0002", "--inactive", "--no-optdata"});
    put("Boot0003", load_option(1, "gone", from_hex(sample_path_hex)));
    put_order({9, 1, 2, 3, 4, 5});
    const auto before = snapshot();
    const std::string tried = "BootOrder  Boot0009  there is no such option\n"
                              "BootOrder  Boot0001  it is damaged\n"
                              "BootOrder  Boot0002  it is inactive\n"
                              "BootOrder  Boot0003  its partition is on none of the machine's disks\n"
                              "BootOrder  Boot0004  starts\n";
    EXPECT_EQ(boot({"--dry-run"}).out, tried + "would start Boot0004\n");
    EXPECT_EQ(snapshot(), before);
    EXPECT_EQ(boot().out, tried + "started Boot0004\n");
    EXPECT_EQ(get("BootCurrent"), std::string("\x04\0", 2));
}

TEST_F(machine_verb, boot_takes_boot_next_once)
{
    output({"set", "Boot0002", "--inactive", "--no-optdata"});
    put("BootNext", std::string("\x02\0", 2));
    EXPECT_EQ(boot().out, "BootNext   Boot0002  starts\nstarted Boot0002\n");
    EXPECT_EQ(get("BootNext"), "(none)");
    const json document = json::parse(boot({"--json"}).out);
    EXPECT_EQ(document["changes"][0]["option"], "Boot0000");
    EXPECT_EQ(document["tried"][0]["passed_over"], nullptr);
    fs::remove(file("BootOrder"));
    EXPECT_EQ(boot().out, "started no option\n");
    EXPECT_EQ(get("BootCurrent"), "(none)");
}

TEST_F(machine_verb, capture_copies_tables_and_variables_and_nothing_else_of_the_disks)
{
    create(disk + "== end\n");
    const auto write_at = [this](std::streamoff offset) {
        std::fstream image(made / "dev/sda", std::ios::in | std::ios::out | std::ios::binary);
        image.seekp(offset);
        image << "SECRET";
    };
    write_at(100);        // where boot code stands
    write_at(64 * 512);   // in a partition
    write_at(4000 * 512); // behind it
    fs::copy(variables, made / "sys/firmware/efi/efivars",
             fs::copy_options::recursive | fs::copy_options::overwrite_existing);
    const fs::path copy = folder / "copy";
    EXPECT_THAT(run_command({"--root", made, "machine", "capture", copy, "--dry-run"}).out,
                StartsWith("would copy to "));
    EXPECT_FALSE(fs::exists(copy));
    const outcome result = run_command({"--root", made, "machine", "capture", copy});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("the partition tables of 1 disk,"));
    for (const words &shown : {words{"disks"}, words{"tree"}, words{"list", "-v"}, words{"export"}})
        EXPECT_EQ(run_command(words{"--root", copy} + shown).out,
                  run_command(words{"--root", made} + shown).out)
            << shown[0];
    EXPECT_EQ(fs::file_size(copy / "dev/sda"), fs::file_size(made / "dev/sda"));
    std::ifstream image(copy / "dev/sda", std::ios::binary);
    const std::string contents = {std::istreambuf_iterator<char>(image), {}};
    EXPECT_EQ(contents.find("SECRET"), std::string::npos);
    EXPECT_FALSE(fs::exists(copy / "sys/firmware/efi/efivars/MTC-eb704011-1402-11d3-8e77-00a0c969723b"));
}

TEST_F(machine_verb, capture_copies_a_machine_without_firmware_too)
{
    create(disk);
    fs::remove_all(made / "sys/firmware");
    const outcome result = run_command({"--root", made, "machine", "capture", folder / "copy", "--json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, HasSubstr("no firmware variables on "));
    EXPECT_EQ(json::parse(result.out)["disks"], 1);
}

// What may stand in a folder in place of what sysfs has.
TEST_F(machine_verb, capture_does_not_wait_for_a_fifo)
{
    create(disk);
    const fs::path name = "sys/devices/pci0000:00/0000:00:1f.2/vendor";
    ASSERT_EQ(mkfifo((made / name).c_str(), 0600), 0);
    EXPECT_EQ(capture_made().status, 0);
    EXPECT_FALSE(fs::exists(folder / "copy" / name));
}

// By them the place of a namespace is known.
TEST_F(machine_verb, capture_copies_the_controllers_of_nvme_subsystems)
{
    create(disk);
    const fs::path link = "sys/devices/virtual/nvme-subsystem/nvme-subsys0/nvme0";
    fs::create_directories((made / link).parent_path());
    fs::create_symlink("../../../pci0000:00/0000:00:04.0/nvme/nvme0", made / link);
    EXPECT_EQ(capture_made().status, 0);
    EXPECT_TRUE(fs::is_symlink(folder / "copy" / link));
}

// Links may lead out of the machine's folder.
TEST_F(machine_verb, capture_follows_no_links_to_disks)
{
    create(disk);
    fs::rename(made / "dev/sda", folder / "other");
    fs::create_symlink(folder / "other", made / "dev/sda");
    EXPECT_THAT(capture_made().err, HasSubstr("not in the copy: sda: its file is a link"));
    EXPECT_FALSE(fs::exists(folder / "copy/dev/sda"));
    fs::remove(made / "dev/sda");
    fs::rename(folder / "other", folder / "sda");
    fs::remove(made / "dev");
    fs::create_directory_symlink(folder, made / "dev");
    EXPECT_THAT(capture_made().err, HasSubstr("not in the copy: sda: "));
}

TEST_F(machine_verb, boot_takes_a_folder_that_is_a_machine)
{
    EXPECT_THAT(run_command({"machine", "boot", "/"}).err, StartsWith("ovra: this machine is no folder\n"));
    EXPECT_EQ(run_command({"machine", "boot", folder / "absent"}).status, 1);
    EXPECT_EQ(run({"machine", "boot", root}).status, 2);
}

} // namespace tool_test
