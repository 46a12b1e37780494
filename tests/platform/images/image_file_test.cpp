// SPDX-License-Identifier: MIT
// The file around the variables: what it may be, and what a change makes of it.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include "tests/platform/images/fixture.h"

using platform_test::device;
using platform_test::environment;
using platform_test::in_uboot_file;
using platform_test::in_volume;
using platform_test::machine_folder;
using platform_test::number;
using platform_test::settle_checksum;
using platform_test::uboot_file;
using platform_test::volume;
namespace fs = std::filesystem;

namespace {

using any_image = platform_test::image_file;

TEST_F(any_image, what_keeps_no_variables_is_refused)
{
    const std::string sound = volume(in_volume({"A", "a"}));
    const auto expect = [&](const std::string &file, int error, const char *what) {
        put(file);
        EXPECT_EQ(open_error(), error) << what;
    };
    expect(sound, 0, "sound");
    expect("", EMEDIUMTYPE, "nothing");
    expect("short", EMEDIUMTYPE, "a few bytes");
    expect(std::string(0x20000, '\0'), EMEDIUMTYPE, "zeros");
    expect(std::string(0x20000, '\xff'), EMEDIUMTYPE, "erased flash");
    expect("QFI\xfb" + std::string(0x30000, '\0'), EOPNOTSUPP, "qcow2");
    expect(sound.substr(0, 0x10000), ERANGE, "cut off in the volume");
    expect(sound.substr(0, 80), ERANGE, "cut off in the header of the store");
    expect(sound.substr(0, 60), ERANGE, "cut off in the header");
    std::string code = sound;
    code.replace(16, 16, std::string(16, 'c'));
    settle_checksum(&code);
    expect(code, EMEDIUMTYPE, "a volume of programs");
}

TEST_F(any_image, damaged_volume_is_refused)
{
    const std::string sound = volume(in_volume({"A", "a"}));
    const auto expect = [&](std::size_t at, const std::string &bytes, const char *what, bool settle = false) {
        std::string file = sound;
        file.replace(at, bytes.size(), bytes);
        if (settle)
            settle_checksum(&file);
        put(file);
        EXPECT_EQ(open_error(), EBADMSG) << what;
        EXPECT_EQ(contents(), file) << what;
    };
    expect(50, "\1\1", "checksum");
    expect(48, number(0xffff, 2), "length of the header");
    expect(44, number(0x4f6ff, 4), "erases to zeros", true);
    expect(72, "y", "kind of store");
    expect(88, number(0xffffffff, 4), "size of the store");
    expect(88, number(0x20000, 4), "store beyond the volume");
    expect(88, number(27, 4), "store smaller than its header");
    expect(92, "\xff", "not formatted");
    expect(93, "\xff", "not healthy");
    expect(100 + 36, number(0xfffffff0, 4), "size of a name");
    expect(100 + 40, number(0xe000, 4), "size of data");
    expect(0xd000, "x", "something behind the last variable");
}

TEST_F(any_image, what_is_larger_than_any_flash_memory_is_not_searched_to_its_end)
{
    put("");
    fs::resize_file(path, std::uintmax_t{1} << 40);
    EXPECT_EQ(open_error(), EMEDIUMTYPE);
    platform_test::volume_shape shape;
    std::string header = volume("", shape).substr(0, 0x2000);
    header.replace(32, 8, number(std::uint64_t{1} << 39, 8));
    settle_checksum(&header);
    put(header);
    fs::resize_file(path, std::uintmax_t{1} << 40);
    EXPECT_EQ(open_error(), EBADMSG);
}

TEST_F(any_image, says_where_it_is_damaged_when_asked_to)
{
    std::string file = volume(in_volume({"A", "a"}));
    file.replace(140, 4, number(0xe000, 4));
    put(file);
    const environment debug("HWPLAT_DEBUG", "1");
    testing::internal::CaptureStderr();
    EXPECT_EQ(open_error(), EBADMSG);
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_NE(said.find("the variable at byte 28 of the store is larger than what is left of it"),
              std::string::npos)
        << said;
}

TEST_F(any_image, what_is_no_regular_file_is_refused)
{
    EXPECT_EQ(open_error(), ENOENT);
    fs::create_directory(path);
    EXPECT_EQ(open_error(), EISDIR);
    fs::remove(path);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(open_error(), EMEDIUMTYPE);
    fs::remove(path);
    fs::create_symlink("nowhere", path);
    EXPECT_EQ(open_error(), ENOENT);
    named.set("");
    EXPECT_EQ(open_error(), ENOENT);
    named.set("/");
    EXPECT_EQ(open_error(), EISDIR);
    named.set("/dev/null");
    EXPECT_EQ(open_error(), EMEDIUMTYPE);
}

// One move of the store that the firmware did not finish: a header and one write, of so many private bytes.
std::string queue(unsigned char work, unsigned char write, std::string_view more = {})
{
    return number(work, 1) + std::string(23, '\xff') + number(1, 8) + number(8, 8) + number(write, 1) +
           std::string(39, '\xff') + std::string(8, 'p') + std::string(more);
}

TEST_F(any_image, store_that_the_firmware_is_about_to_exchange_is_refused)
{
    const auto expect = [&](const std::string &entries, int error, const char *what) {
        put(volume(in_volume({"A", "a"}), {}, entries));
        EXPECT_EQ(open_error(), error) << what;
    };
    expect(queue(0xfc, 0xfd), EINPROGRESS, "kept aside");
    expect(queue(0xfc, 0xff), 0, "only planned");
    expect(queue(0xfc, 0xf9), 0, "in place");
    expect(queue(0xf8, 0xf9), 0, "complete");
    expect(queue(0xf8, 0xf9, queue(0xfc, 0xfd)), EINPROGRESS, "the second");
    expect(queue(0xf8, 0xf9, queue(0xf8, 0xf9)), 0, "two that are complete");
    expect(number(0xfc, 1) + std::string(23, '\xff') + std::string(16, '\xff'), 0, "no sense");
}

TEST_F(any_image, rest_of_a_flash_memory_stays_as_it_is)
{
    std::string code = volume("");
    code.replace(16, 16, std::string(16, 'c'));
    settle_checksum(&code);
    const std::string raw = std::string(0x3000, 'r');
    const std::string a = in_volume({"A", "a"});
    for (const std::string &front : {std::string(), code, raw, raw + code}) {
        const std::string back = code + std::string(5000, 'b');
        put(front + volume(a) + back);
        EXPECT_EQ(set(u"B", 7, "b"), EFI_SUCCESS);
        EXPECT_EQ(contents(), front + volume(a + in_volume({"B", "b"})) + back);
    }
}

TEST_F(any_image, links_are_followed_to_the_file)
{
    fs::create_directory(folder / "real");
    machine_folder::put_file(folder / "real/VARS.fd", volume(""));
    fs::create_symlink("real/VARS.fd", path);
    EXPECT_EQ(set(u"A", 7, "a"), EFI_SUCCESS);
    EXPECT_TRUE(fs::is_symlink(path));
    EXPECT_EQ(contents(), volume(in_volume({"A", "a"})));
    EXPECT_EQ(machine_folder::contents(folder / "real/VARS.fd"), contents());
}

TEST_F(any_image, relative_name_starts_where_the_process_was)
{
    put(volume(in_volume({"A", "a"})));
    const fs::path before = fs::current_path();
    fs::current_path(folder);
    named.set("VARS.fd");
    EXPECT_EQ(open_error(), 0);
    fs::current_path("/");
    EXPECT_EQ(get(u"A").data, "a");
    EXPECT_EQ(set(u"B", 7, "b"), EFI_SUCCESS);
    fs::current_path(before);
}

TEST_F(any_image, owner_mode_and_attributes_stay)
{
    put(volume(""));
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    const bool has_attributes = setxattr(path.c_str(), "user.note", "n", 1, 0) == 0;
    ASSERT_TRUE(geteuid() != 0 || chown(path.c_str(), 65534, 65533) == 0);
    struct stat before = {};
    ASSERT_EQ(stat(path.c_str(), &before), 0);
    const mode_t mask = umask(0077);
    EXPECT_EQ(set(u"A", 7, "a"), EFI_SUCCESS);
    umask(mask);
    struct stat after = {};
    ASSERT_EQ(stat(path.c_str(), &after), 0);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(after.st_uid, before.st_uid);
    EXPECT_EQ(after.st_gid, before.st_gid);
    EXPECT_NE(after.st_ino, before.st_ino);
    char value = 0;
    EXPECT_EQ(getxattr(path.c_str(), "user.note", &value, 1), has_attributes ? 1 : -1);
}

TEST_F(any_image, holes_stay_holes)
{
    put(volume(""));
    fs::resize_file(path, 64u << 20);
    struct stat before = {};
    ASSERT_EQ(stat(path.c_str(), &before), 0);
    if (before.st_blocks * 512 > 1 << 20)
        GTEST_SKIP() << "a file system without holes";
    EXPECT_EQ(set(u"A", 7, "a"), EFI_SUCCESS);
    struct stat after = {};
    ASSERT_EQ(stat(path.c_str(), &after), 0);
    EXPECT_EQ(after.st_size, before.st_size);
    EXPECT_LE(after.st_blocks * 512, 1 << 20);
    EXPECT_EQ(get(u"A").data, "a");
}

// In a folder in which everybody may make files.
TEST_F(any_image, things_of_others_beside_it_are_in_nobodys_way)
{
    put(volume(""));
    const fs::path file = folder / ".VARS.fd.hwplat.tmp";
    const fs::path other = folder / ".hwplat-0123456789abcdef-0123456789abcdef.tmp";
    machine_folder::put_file(file, "somebody else's");
    fs::create_directory(other);
    EXPECT_EQ(set(u"A", 7, "a"), EFI_SUCCESS);
    EXPECT_EQ(contents(), volume(in_volume({"A", "a"})));
    EXPECT_EQ(left_behind(), 2u);
    EXPECT_EQ(machine_folder::contents(file), "somebody else's");
    EXPECT_TRUE(fs::is_directory(other));
}

TEST_F(any_image, name_may_be_as_long_as_a_name_can_be)
{
    path = folder / (std::string(252, 'n') + ".fd");
    put(volume(""));
    named.set(path.c_str());
    EXPECT_EQ(set(u"A", 7, "a"), EFI_SUCCESS);
    EXPECT_EQ(contents(), volume(in_volume({"A", "a"})));
    EXPECT_EQ(left_behind(), 0u);
}

TEST_F(any_image, what_cannot_be_written_leaves_everything_as_it_was)
{
    const std::string before = volume(in_volume({"A", "a"}));
    put(before);
    rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
    const rlimit low = {0x10000, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &low), 0);
    EXPECT_EQ(set(u"B", 7, "b"), EFI_VOLUME_FULL);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    EXPECT_EQ(contents(), before);
    EXPECT_EQ(left_behind(), 0u);
    machine_folder::put_file(path, "no image any more");
    EXPECT_NE(open_error(), 0);
}

TEST_F(any_image, that_goes_bad_while_it_is_open_is_no_absent_variable)
{
    put(volume(in_volume({"A", "a"})));
    const device opened;
    put("something else");
    EXPECT_EQ(get_variable(opened.fd(), u"A").status, EFI_DEVICE_ERROR);
    EXPECT_EQ(set_variable(opened.fd(), u"B", 7, "b"), EFI_DEVICE_ERROR);
    EFI_STATUS ended = EFI_SUCCESS;
    EXPECT_EQ(walk_all(opened.fd(), &ended).size(), 0u);
    EXPECT_EQ(ended, EFI_DEVICE_ERROR);
    fs::remove(path);
    EXPECT_EQ(get_variable(opened.fd(), u"A").status, EFI_DEVICE_ERROR);
    EXPECT_EQ(set_variable(opened.fd(), u"B", 7, "b"), EFI_DEVICE_ERROR);
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(any_image, devices_are_those_of_a_named_root_only)
{
    put(volume(""));
    char link[64] = {};
    errno = 0;
    EXPECT_EQ(devns_readlink("/dev/dsk/c0t0d0s0", link, sizeof link), -1);
    EXPECT_EQ(errno, ENOENT);
    const environment debug("HWPLAT_DEBUG", "1");
    testing::internal::CaptureStderr();
    EXPECT_EQ(devns_readlink("/dev/dsk/c0t0d0s0", link, sizeof link), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "hwplat: no devices: HWPLAT_VARS names variables alone, and HWPLAT_ROOT no machine\n");
    no_root.set("/");
    testing::internal::CaptureStderr();
    EXPECT_EQ(devns_readlink("/dev/dsk/none", link, sizeof link), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr().find("no devices"), std::string::npos);
}

} // namespace
