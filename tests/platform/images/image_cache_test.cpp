// SPDX-License-Identifier: MIT
// How often a file of variables is read: once while it is known to be the same.
#include <ctime>
#include <thread>

#include <linux/magic.h>

#include "platform/machine/enumerate.h"
#include "platform/machine/imagefile.h"
#include "platform/machine/lock.h"
#include "platform/machine/services.h"
#include "platform/machine/variables.h"
#include "tests/platform/failing_calls.h"
#include "tests/platform/images/fixture.h"

using platform_test::calls_of;
using platform_test::in_uboot_file;
using platform_test::in_volume;
using platform_test::wrapped;
namespace fs = std::filesystem;

namespace {

using services_of_image = std::unique_ptr<machine::runtime_services>;

class image_cache : public platform_test::image_file {
protected:
    // A store with so many options.
    void put_options(int options, bool uboot) const
    {
        std::string entries;
        for (int i = 0; i < options; ++i) {
            std::array<char, 16> name = {};
            std::snprintf(name.data(), name.size(), "Boot%04X", static_cast<unsigned>(i));
            entries += uboot ? in_uboot_file({name.data(), "option"}) : in_volume({name.data(), "option"});
        }
        platform_test::volume_shape large;
        large.store = 0x40000 - 72;
        large.length = 0x84000;
        put(uboot ? platform_test::uboot_file(entries) : platform_test::volume(entries, large));
    }

    // While it lives, what was written before was written long ago.
    struct a_minute_later {
        a_minute_later()
        {
            const timespec minute = {60, 0};
            nanosleep(&minute, nullptr);
        }
        platform_test::skipped_sleep sleeping;
    };

    static std::string value_of(const machine::runtime_services &services, std::u16string_view name)
    {
        const std::vector<CHAR16> units(name.begin(), name.end());
        std::string data(100, '\0');
        UINTN size = data.size();
        const EFI_STATUS status =
            machine::get_variable(services, units, platform_test::global_guid, nullptr, &size, data.data());
        return status == EFI_SUCCESS ? data.substr(0, size) : "none";
    }

    static EFI_STATUS write(const machine::runtime_services &services, std::u16string_view name,
                            std::string_view data)
    {
        const std::vector<CHAR16> units(name.begin(), name.end());
        return machine::set_variable(services, units, platform_test::global_guid, 7, data.size(),
                                     data.data());
    }

    // Reads all variables one by one, as a list of options does. Returns how many.
    static int read_all(const machine::runtime_services &services)
    {
        std::array<CHAR16, 64> name = {};
        EFI_GUID guid = {};
        for (int count = 0;; ++count) {
            UINTN size = sizeof name;
            if (machine::next_variable(services, &size, name.data(), &guid) != EFI_SUCCESS)
                return count;
            const std::u16string text(name.begin(), std::ranges::find(name, 0));
            EXPECT_EQ(value_of(services, text), "option");
        }
    }

    // How often something opens a file.
    template <typename body>
    static int files_opened(body run)
    {
        const int before = calls_of(wrapped::openat);
        run();
        return calls_of(wrapped::openat) - before;
    }
};

TEST_F(image_cache, settled_file_is_read_once_however_many_variables_there_are)
{
    for (const bool uboot : {false, true}) {
        for (const int options : {100, 1000}) {
            put_options(options, uboot);
            const a_minute_later now;
            const services_of_image services = machine::open_services();
            ASSERT_TRUE(services);
            EXPECT_EQ(files_opened([&] { EXPECT_EQ(read_all(*services), options); }), 0);
            // Other openings know it too, in other threads.
            std::thread([&] {
                EXPECT_LE(files_opened([&] {
                              const services_of_image another = machine::open_services();
                              EXPECT_EQ(read_all(*another), options);
                          }),
                          4);
            }).join();
        }
    }
}

TEST_F(image_cache, new_file_is_read_once_under_the_lock_and_not_again_after_a_write)
{
    for (const int options : {100, 1000}) {
        put_options(options, false);
        const services_of_image services = machine::open_services();
        ASSERT_TRUE(services);
        const machine::held_lock lock(services->root);
        EXPECT_EQ(lock.error(), 0);
        EXPECT_EQ(files_opened([&] { EXPECT_EQ(read_all(*services), options); }), 1);
        EXPECT_EQ(write(*services, u"Boot0007", "changed"), EFI_SUCCESS);
        EXPECT_EQ(write(*services, u"Boot0007", "option"), EFI_SUCCESS);
        EXPECT_EQ(files_opened([&] { EXPECT_EQ(read_all(*services), options); }), 0);
    }
}

// A write in the same tick of the clock may leave the file's times as they are.
TEST_F(image_cache, file_that_was_just_written_is_read_anew_each_time)
{
    put(platform_test::volume(in_volume({"A", "1"})));
    const services_of_image services = machine::open_services();
    ASSERT_TRUE(services);
    for (const char *value : {"2", "3", "4"}) {
        put(platform_test::volume(in_volume({"A", value})));
        EXPECT_EQ(value_of(*services, u"A"), value);
        EXPECT_EQ(files_opened([&] { EXPECT_EQ(value_of(*services, u"A"), value); }), 1);
    }
}

TEST_F(image_cache, write_and_exchange_by_others_are_seen)
{
    put(platform_test::volume(in_volume({"A", "1"})));
    const a_minute_later now;
    const services_of_image services = machine::open_services();
    ASSERT_TRUE(services);
    EXPECT_EQ(value_of(*services, u"A"), "1");
    put(platform_test::volume(in_volume({"A", "22"})));
    EXPECT_EQ(value_of(*services, u"A"), "22");
    const fs::path other = folder / "other";
    platform_test::machine_folder::put_file(other, platform_test::volume(in_volume({"A", "3"})));
    fs::rename(other, path);
    EXPECT_EQ(value_of(*services, u"A"), "3");
    std::thread([&] { EXPECT_EQ(write(*services, u"A", "4"), EFI_SUCCESS); }).join();
    EXPECT_EQ(value_of(*services, u"A"), "4");
}

// The times of a file on FAT are those of every second second.
TEST_F(image_cache, tick_of_the_file_system_is_waited_for)
{
    put(platform_test::volume(""));
    const machine::machine_root root = machine::open_root_of_variables();
    const machine::owned_fd file = machine::open_image(root);
    const auto is_kept = [&](timespec begun, long nanoseconds) {
        static off_t size = 0;
        const std::string store = platform_test::volume("").substr(72, 0xe000 - 72);
        const auto bytes = std::as_bytes(std::span(store));
        const auto read = std::make_shared<machine::image_contents>();
        read->version = {{1, 1}, ++size, {1'000, 0}, {1'000, nanoseconds}};
        read->store = machine::volume_image({bytes.begin(), bytes.end()});
        machine::keep_version(root, file.get(), begun, read);
        return machine::known_version(root, read->version) == read;
    };
    EXPECT_FALSE(is_kept({1'003, 0}, 0));
    EXPECT_TRUE(is_kept({1'003, 1}, 0));
    EXPECT_FALSE(is_kept({1'000, 100'000'001}, 1));
    EXPECT_TRUE(is_kept({1'000, 100'000'002}, 1));
    EXPECT_FALSE(is_kept({999, 0}, 1));
    EXPECT_TRUE(is_kept({1'000'000, 0}, 0));
    const platform_test::replaced_fstatfs far([](int, struct statfs *info) {
        info->f_type = NFS_SUPER_MAGIC;
        return 0;
    });
    EXPECT_FALSE(is_kept({1'000'000, 0}, 0));
}

} // namespace
