// SPDX-License-Identifier: MIT
// Machines whose variables are in a file.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "tests/support/captured.h"
#include "tests/tool/images.h"

namespace tool_test {

using ::testing::AllOf;
using ::testing::HasSubstr;

TEST_F(image_of_variables, options_are_shown_and_changed)
{
    put_machine();
    EXPECT_THAT(shown({"list"}), HasSubstr("0         Boot0003  *       Debian"));
    EXPECT_THAT(shown({"create", "--desc", "New", "--path-hex", "7fff0400", "--position", "0"}),
                HasSubstr("wrote BootOrder: Boot0000 Boot0003\n"));
    EXPECT_EQ(shown({"remove", "Boot0000"}), "deleted Boot0000\nwrote BootOrder: Boot0003\n");
    EXPECT_EQ(shown({"vars"}).substr(0, 4), "Name");
    EXPECT_THAT(shown({"show", "Boot0003"}), HasSubstr("Debian"));
    EXPECT_THAT(shown({"list", "-v"}), HasSubstr("Debian"));
    EXPECT_EQ(shown({"next", "Boot0003"}), "wrote BootNext: Boot0003\n");
    EXPECT_EQ(shown({"reset"}), "reset the machine (cold)\nbooted Boot0003  Debian\n");
    EXPECT_EQ(shown({"next"}), "BootNext is not set: the machine boots by BootOrder\n");
    EXPECT_EQ(shown({"current"}), "BootCurrent is not set: the firmware does not say what it booted\n");
}

TEST_F(image_of_variables, file_can_be_named_in_the_environment_or_by_a_link)
{
    put_machine();
    surroundings around;
    around.environment = {{"HWPLAT_VARS", image}};
    const outcome listed = run_command({"list"}, around);
    EXPECT_EQ(listed.out, shown({"list"}));
    fs::create_symlink("VARS.fd", folder / "link.fd");
    const outcome changed = run_command({"--vars", folder / "link.fd", "next", "3"});
    EXPECT_EQ(changed.status, 0) << changed.err;
    EXPECT_TRUE(fs::is_symlink(folder / "link.fd"));
    EXPECT_THAT(shown({"next"}), HasSubstr("Boot0003"));
}

TEST_F(image_of_variables, uboot_file_is_one_too)
{
    put_image(uboot_file(in_uboot_file({"PlatformLang", "en-US"})));
    shown({"create", "--desc", "Linux", "--path-hex", "7fff0400"});
    EXPECT_EQ(image_contents(),
              uboot_file(in_uboot_file({"PlatformLang", "en-US"}) +
                         in_uboot_file({"Boot0000", load_option(1, "Linux", from_hex("7fff0400"))}) +
                         in_uboot_file({"BootOrder", std::string(2, '\0')})));
}

TEST_F(image_of_variables, what_is_none_is_refused_with_what_it_is)
{
    EXPECT_EQ(refused({"list"}),
              "ovra: --vars: cannot find \"" + image.string() + "\": No such file or directory\n");
    put_image("nothing of the kind, but long enough");
    EXPECT_EQ(refused({"list"}),
              "ovra: " + image.string() +
                  " is no file of firmware variables\n"
                  "  Wanted is the raw image of a virtual machine's variables, such as a copy of\n"
                  "  OVMF_VARS.fd, or U-Boot's file ubootefi.var. A blank image, which Debian's\n"
                  "  AAVMF_VARS.fd is, becomes one when its machine first starts.\n");
    put_image(std::string(1 << 16, '\0'));
    EXPECT_THAT(refused({"list"}), HasSubstr("A blank image"));
    EXPECT_EQ(image_contents(), std::string(1 << 16, '\0'));
    put_image("QFI\xfb" + std::string(1000, '\0'));
    EXPECT_THAT(refused({"list"}), AllOf(HasSubstr(" is a qcow2 image, and a raw one is needed\n"),
                                         HasSubstr("'qemu-img convert -f qcow2 -O raw' makes one of it")));
    put_image(volume("").substr(0, 0x10000));
    EXPECT_THAT(refused({"list"}), HasSubstr(" is cut off: a part of its variables is missing\n"));
    std::string bad = volume(order_of_one);
    bad[50] = '\1';
    put_image(bad);
    EXPECT_THAT(refused({"list"}), AllOf(HasSubstr("ovra: the variables in "), HasSubstr(" are damaged\n"),
                                         HasSubstr("HWPLAT_DEBUG=1")));
    const std::string half_moved =
        "\xfc" + std::string(23, '\xff') + "\1" + std::string(15, '\0') + "\xfd" + std::string(39, '\xff');
    put_image(volume(order_of_one, {}, half_moved));
    EXPECT_THAT(refused({"next", "--clear"}),
                AllOf(HasSubstr("the firmware was stopped while it moved the variables in "),
                      HasSubstr("Start the virtual machine once")));
    fs::remove(image);
    fs::create_directory(image);
    EXPECT_THAT(refused({"list"}), AllOf(HasSubstr(" is a folder\n"), HasSubstr("'--root DIR'")));
}

TEST_F(image_of_variables, file_of_a_running_machine_is_read_and_not_changed)
{
    put_machine();
    const int held = open(image.c_str(), O_RDWR | O_CLOEXEC);
    struct flock emulator = {};
    emulator.l_type = F_RDLCK;
    emulator.l_whence = SEEK_SET;
    emulator.l_start = 100;
    emulator.l_len = 1;
    ASSERT_EQ(fcntl(held, F_OFD_SETLK, &emulator), 0);
    EXPECT_THAT(shown({"list"}), HasSubstr("Debian"));
    for (const words &mode : {words{}, words{"--dry-run"}}) {
        EXPECT_EQ(refused(words{"next", "3"} + mode),
                  "ovra: cannot lock the machine: another program has " + image.string() +
                      " open\n"
                      "  A virtual machine that runs keeps it so: change its options from within, or\n"
                      "  shut it down first.\n");
    }
    close(held);
    shown({"next", "3"});
}

TEST_F(image_of_variables, dry_run_changes_nothing_and_ends_as_the_change_does)
{
    for (const bool uboot : {false, true}) {
        const std::string machine =
            uboot ? uboot_file(in_uboot_file({"Boot0000", option}) +
                               in_uboot_file({"BootOrder", std::string(2, '\0')}))
                  : volume(in_volume({"Boot0000", option}) + in_volume({"BootOrder", std::string(2, '\0')}));
        for (const words &arguments : writers) {
            put_image(machine);
            const outcome tried = run_on_image(arguments + words{"--dry-run"});
            EXPECT_EQ(image_contents(), machine) << arguments[0];
            const outcome done = run_on_image(arguments);
            EXPECT_EQ(tried.status, done.status) << arguments[0] << ' ' << tried.err << done.err;
            EXPECT_EQ(done.status, arguments[0] == "time" ? 1 : 0) << arguments[0] << ' ' << done.err;
        }
    }
}

// Options of every size around that for which there is just room.
TEST_F(image_of_variables, full_store_is_refused_the_same_with_dry_run)
{
    volume_shape small;
    small.store = 28 + 600;
    const words create = {"create", "--path-hex", "7fff0400", "--desc"};
    int refusals = 0;
    for (std::size_t size = 110; size < 126; ++size) {
        put_image(volume(in_volume({"PK", std::string(124, 'k'), 0x27}), small));
        const words arguments = create + words{std::string(size, 'x')};
        const outcome tried = run_on_image(arguments + words{"--dry-run"});
        const std::string before = image_contents();
        const outcome done = run_on_image(arguments);
        EXPECT_EQ(tried.status, done.status) << size << tried.err << done.err;
        if (done.status == 0)
            continue;
        ++refusals;
        EXPECT_THAT(done.err, HasSubstr("no room in the variable store"));
        EXPECT_EQ(image_contents(), before);
    }
    EXPECT_GT(refusals, 0);
    EXPECT_LT(refusals, 16);
}

TEST_F(image_of_variables, clock_is_not_in_the_file)
{
    put_machine();
    EXPECT_THAT(shown({"time"}), HasSubstr("+00:00"));
    for (const words &arguments : {words{"time", "--set", "2031-02-03T04:05:06"}, words{"time", "--wakeup"},
                                   words{"time", "--wakeup", "--clear"}}) {
        EXPECT_THAT(refused(arguments),
                    AllOf(HasSubstr(image.string() + " keeps variables alone\n"),
                          HasSubstr("The clock of a virtual machine is that of its emulator.")));
    }
}

TEST_F(image_of_variables, devices_are_those_of_the_root_that_is_named)
{
    put_machine();
    const std::string unknown =
        "ovra: the disks and devices of this machine are not known, only its variables\n";
    for (const words &arguments :
         {words{"disks"}, words{"tree"}, words{"find", "/dev/sda1"},
          words{"create", "--desc", "x", "--disk", "/dev/sda1", "--file", "\\a.efi"}}) {
        EXPECT_THAT(refused(arguments),
                    AllOf(HasSubstr(unknown), HasSubstr("'--root /' takes those of the")));
    }
    fs::remove_all(root);
    ovra::test::unpack_machine("q35", root);
    const words with_root = {"--root", root};
    const outcome disks = run_on_image(with_root + words{"disks"});
    EXPECT_EQ(disks.status, 0) << disks.err;
    EXPECT_THAT(disks.out, HasSubstr("c5t0d0  sda"));
    const auto before = snapshot();
    const outcome created =
        run_on_image(with_root + words{"create", "--desc", "x", "--disk", "c5t0d0s0", "--file", "\\a.efi"});
    EXPECT_EQ(created.status, 0) << created.err;
    EXPECT_EQ(snapshot(), before);
    EXPECT_THAT(shown({"list"}), HasSubstr("Boot0000  *       x"));
}

} // namespace tool_test
