// SPDX-License-Identifier: MIT
// Which options exist.
#include <set>

#include "tests/boot/enumerate.h"

using namespace ovra::test;

namespace {

struct bootopt_list_file : open_handle {};

// What the same requests cost without the library.
void plain_enumeration(ovra_hdl_t hdl)
{
    CHAR16 name[buffer_units] = {};
    EFI_GUID guid = {};
    EFI_STATUS status = EFI_SUCCESS;
    while (status == EFI_SUCCESS) {
        UINTN size = sizeof name;
        ASSERT_EQ(ovra_get_next_variable_name(hdl, &size, name, &guid, &status), 0);
    }
}

TEST_F(bootopt_list, options_are_listed_in_the_order_of_the_firmware)
{
    for (const char *name : {"Boot0010", "BootOrder", "Boot0002", "Timeout", "BootFFFF", "Boot0001"})
        fakes::put_variable(name, {1});
    EXPECT_EQ(option_list(hdl), (option_names{"Boot0010", "Boot0002", "BootFFFF", "Boot0001"}));
    EXPECT_EQ(tracked_blocks(hdl), 0U);
}

TEST_F(bootopt_list, other_names_are_not_listed)
{
    for (const char *name : {"Boot000a", "BootOrder", "BootNext", "boot0001", "Boot001", "Boot00001", "Boot",
                             "BOOT0001", "Driver0001", "xBoot0001"})
        fakes::put_variable(name, {1});
    fakes::put_variable(u"Boot000\uff11", {1});
    fakes::put_variable(u"\u0142oot0001", {1}); // its low byte is that of "B"
    EXPECT_EQ(option_list(hdl), option_names());
}

TEST_F(bootopt_list, options_of_any_vendor_are_listed)
{
    fakes::put_variable("Boot0010", {1}, 7, fakes::other_guid);
    fakes::put_variable("Boot0001", {1});
    fakes::put_variable("Boot0001", {1}, 7, fakes::other_guid);
    EXPECT_EQ(option_list(hdl), (option_names{"Boot0010", "Boot0001", "Boot0001"}));
}

TEST_F(bootopt_list, store_without_options_gives_an_empty_array)
{
    EXPECT_EQ(option_list(hdl), option_names());
    fakes::put_variable("BootOrder", {1, 0});
    char **array = nullptr;
    EXPECT_EQ(ovra_bootopt_list(hdl, &array), 0);
    ASSERT_NE(array, nullptr);
    EXPECT_EQ(array[0], nullptr);
    EXPECT_TRUE(is_tracked(hdl, array));
}

TEST_F(bootopt_list, array_and_names_belong_to_the_handle)
{
    fakes::put_variable("Boot0001", {1});
    fakes::put_variable("Boot0002", {1});
    char **array = nullptr;
    ASSERT_EQ(ovra_bootopt_list(hdl, &array), 0);
    EXPECT_TRUE(is_tracked(hdl, array));
    EXPECT_TRUE(is_tracked(hdl, array[0]));
    EXPECT_TRUE(is_tracked(hdl, array[1]));
    EXPECT_EQ(tracked_blocks(hdl), 3U);
}

TEST_F(bootopt_list, enumeration_starts_with_the_empty_name_and_no_vendor)
{
    fakes::put_variable("Boot0001", {1});
    fakes::put_variable("A", {1}, 7, fakes::other_guid);
    option_list(hdl);
    ASSERT_EQ(fakes::requests().size(), 3U);
    const EFI_GUID nobody = {};
    EXPECT_EQ(fakes::requests()[0].name.narrow(), "");
    EXPECT_EQ(memcmp(&*fakes::requests()[0].guid, &nobody, sizeof nobody), 0);
    EXPECT_EQ(fakes::requests()[1].name.narrow(), "Boot0001");
    EXPECT_EQ(fakes::requests()[2].name.narrow(), "A");
    EXPECT_EQ(memcmp(&*fakes::requests()[2].guid, &fakes::other_guid, sizeof nobody), 0);
    for (const auto &request : fakes::requests()) {
        EXPECT_EQ(request.command, OVRA_GET_NEXT_VARIABLE_NAME);
        EXPECT_EQ(request.variable_name_size, 514U);
    }
}

TEST_F(bootopt_list, name_of_256_characters_is_stepped_over)
{
    fakes::put_variable("Boot0001", {1});
    fakes::put_variable(std::string(256, 'x'), {1});
    fakes::put_variable(std::u16string(256, u'\u20ac'), {1}); // 768 bytes in UTF-8: cut
    fakes::put_variable("Boot0002", {1});
    EXPECT_EQ(option_list(hdl), (option_names{"Boot0001", "Boot0002"}));
}

TEST_F(bootopt_list, name_of_257_characters_ends_it)
{
    fakes::put_variable("Boot0001", {1});
    fakes::put_variable(std::string(257, 'x'), {1});
    fakes::put_variable("Boot0002", {1});
    expect_no_list(hdl);
    EXPECT_EQ(fakes::requests().size(), 2U);
}

TEST_F(bootopt_list, absent_driver_lists_nothing)
{
    fakes::set_absent(ENOENT);
    EXPECT_EQ(option_list(nullptr), option_names());
}

TEST_F(bootopt_list, null_handle_opens_the_driver_for_each_request)
{
    fakes::put_variable("Boot0001", {1});
    fakes::put_variable("Boot0002", {1});
    EXPECT_EQ(option_list(nullptr), (option_names{"Boot0001", "Boot0002"}));
    EXPECT_EQ(fakes::openings().size(), 4U);
    EXPECT_EQ(fakes::open_descriptors(), 1U);
}

// A way that looks at every name for every name takes far more than ten times as long as one that does not.
TEST_F(bootopt_list, sixty_thousand_options_take_linear_time)
{
    option_names all;
    for (unsigned number = 60000; number-- > 0;) {
        all.push_back(boot_name(number));
        fakes::put_variable(all.back(), {1});
    }
    const double limit = 0.02 + 10 * seconds_of([&] { plain_enumeration(hdl); });
    fakes::forget_requests();
    char **array = nullptr;
    EXPECT_LT(seconds_of([&] { EXPECT_EQ(ovra_bootopt_list(hdl, &array), 0); }), limit);
    ASSERT_NE(array, nullptr);
    EXPECT_EQ(strings_of(array), all);
    EXPECT_LT(seconds_of([&] {
                  ovra_fini(hdl);
                  hdl = nullptr;
              }),
              limit);
}

// More names than the array and the handle's list have room for at first.
TEST_F(bootopt_list, without_memory_the_names_are_taken_back)
{
    option_names all;
    for (unsigned number = 0; number < 30; ++number) {
        all.push_back(boot_name(number));
        fakes::put_variable(all.back(), {1});
    }
    for (const realloc_policy policy : {realloc_policy::moves, realloc_policy::stays}) {
        const realloc_guard guard(policy);
        std::set<std::string> said;
        for_each_refused_allocation(
            [&](ovra_hdl_t handle) {
                char **array = nullptr;
                const int result = ovra_bootopt_list(handle, &array);
                EXPECT_EQ(array == nullptr, result == -1);
                if (array) {
                    EXPECT_EQ(strings_of(array), all);
                }
                EXPECT_TRUE(array || tracked_blocks(handle) == 0);
                return result;
            },
            [&](const attempt &one) {
                said.insert(one.messages);
                EXPECT_TRUE(one.refused != 0 || one.messages.empty()) << one.messages;
            });
        EXPECT_EQ(said, (std::set<std::string>{"", "malloc failed for add_str_array\n",
                                               "realloc failed for add_str_array\n"}));
    }
}

TEST_F(bootopt_list, without_memory_for_the_empty_array)
{
    const std::string said[] = {"malloc failed for add_str_array\n",
                                "failed to add add_str_array to memlist\n"};
    for_each_refused_allocation(
        [](ovra_hdl_t handle) {
            char **array = nullptr;
            const int result = ovra_bootopt_list(handle, &array);
            EXPECT_EQ(array == nullptr, result == -1);
            return result;
        },
        [&](const attempt &one) {
            ASSERT_LE(one.n, 2);
            EXPECT_EQ(one.messages, one.refused == 0 ? "" : said[one.n]);
        });
}

TEST_F(bootopt_list_file, the_driver_is_asked_also_in_test_file_mode)
{
    fakes::put_variable("Boot0001", {1});
    const environment files("OVRA_TEST_FILE", "");
    const temporary_directory folder;
    folder.write("Boot0002", {1});
    ovra_hdl_t one = nullptr;
    ASSERT_EQ(ovra_init(&one), 0);
    EXPECT_EQ(option_list(one), option_names{"Boot0001"});
    fakes::set_absent(ENOENT);
    EXPECT_EQ(option_list(one), option_names());
    ovra_fini(one);
}

} // namespace
