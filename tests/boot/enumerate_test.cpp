// SPDX-License-Identifier: MIT
// Which options exist.
#include <functional>
#include <set>

#include "tests/boot/fixture.h"

using namespace ovra::test;

namespace {

using option_names = std::vector<std::string>;

struct bootopt_list : driver_fixture {};
struct bootopt_list_file : driver_fixture {};

option_names names_in(char **array)
{
    option_names all;
    for (char **name = array; *name; ++name)
        all.emplace_back(*name);
    return all;
}

// The list, which must be had without a word; empty when it was not.
option_names option_list(ovra_hdl_t hdl)
{
    const messages said(1, 1);
    char **array = nullptr;
    EXPECT_EQ(ovra_bootopt_list(hdl, &array), 0);
    EXPECT_EQ(said.text(), "");
    if (!array) {
        ADD_FAILURE() << "no array";
        return {};
    }
    const option_names all = names_in(array);
    free_str_array(hdl, array);
    return all;
}

// Fails without a word, gives no array and leaves nothing behind.
void expect_no_list(ovra_hdl_t hdl)
{
    const messages said(1, 1);
    char *marker = nullptr;
    char **array = &marker;
    EXPECT_EQ(ovra_bootopt_list(hdl, &array), -1);
    EXPECT_EQ(array, nullptr);
    EXPECT_EQ(said.text(), "");
    EXPECT_EQ(tracked_blocks(hdl), 0U);
}

ovra_get_next_variable_name_args_t enumeration_args_of(const fakes::request &seen)
{
    ovra_get_next_variable_name_args_t args;
    memcpy(&args, seen.record.data(), sizeof args);
    return args;
}

constexpr size_t buffer_units = 257;

// Firmware that writes into the buffer as it likes and always gives the same answer; after far more requests
// than any routine may make of it, it gives up.
constexpr unsigned patience = 10000;
void firmware_writes(EFI_STATUS status,
                     std::function<void(unsigned request, CHAR16 *name, EFI_GUID *guid)> write)
{
    fakes::before_each([write, made = 0U](const fakes::request &seen) mutable {
        if (seen.command == OVRA_GET_NEXT_VARIABLE_NAME)
            write(made++, enumeration_args_of(seen).variable_name, enumeration_args_of(seen).vendor_guid);
    });
    fakes::answer_command(OVRA_GET_NEXT_VARIABLE_NAME, status, 0, patience);
    fakes::answer_command(OVRA_GET_NEXT_VARIABLE_NAME, EFI_NOT_FOUND, patience);
}

void write_name(CHAR16 *to, const std::string &name)
{
    for (const char c : name)
        *to++ = static_cast<unsigned char>(c);
    *to = 0;
}

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

} // namespace

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

TEST_F(bootopt_list, firmware_without_enumeration)
{
    fakes::script_enumeration({{.status = EFI_UNSUPPORTED}}, true);
    expect_no_list(hdl);
    EXPECT_EQ(fakes::requests().size(), 1U);
    fakes::script_enumeration({{.name = "Boot0001"}, {.status = EFI_UNSUPPORTED}}, true);
    expect_no_list(hdl);
    EXPECT_EQ(fakes::requests().size(), 3U);
}

TEST_F(bootopt_list, failing_request_ends_it_with_what_was_found)
{
    fakes::script_enumeration(
        {{.name = "Boot0001"}, {.name = "Boot0002"}, {.error = EIO}, {.name = "Boot0003"}});
    EXPECT_EQ(option_list(hdl), (option_names{"Boot0001", "Boot0002"}));
    fakes::script_enumeration({{.error = EIO}, {.name = "Boot0003"}});
    EXPECT_EQ(option_list(hdl), option_names());
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

TEST_F(bootopt_list, kept_error_is_stepped_over_and_the_name_counts_once_more)
{
    for (const EFI_STATUS status : failures) {
        if (status == EFI_NOT_FOUND || status == EFI_UNSUPPORTED || status == EFI_BUFFER_TOO_SMALL)
            continue;
        SCOPED_TRACE(hex_status(status));
        fakes::script_enumeration({{.status = status},
                                   {.name = "Boot0001"},
                                   {.status = status},
                                   {.name = "A"},
                                   {.status = status}});
        EXPECT_EQ(option_list(hdl), (option_names{"Boot0001", "Boot0001"}));
    }
}

TEST_F(bootopt_list, two_errors_in_a_row_that_leave_the_name_end_it)
{
    for (const EFI_STATUS status : failures) {
        if (status == EFI_NOT_FOUND)
            continue;
        SCOPED_TRACE(hex_status(status));
        fakes::forget_requests();
        fakes::script_enumeration(
            {{.name = "Boot0001"}, {.status = status}, {.status = status}, {.name = "A"}});
        expect_no_list(hdl);
        EXPECT_LE(fakes::requests().size(), 3U);
        fakes::script_enumeration({{.status = status}, {.status = status}, {.name = "A"}});
        expect_no_list(hdl);
    }
    fakes::script_enumeration({{.name = "Boot0001"},
                               {.status = EFI_DEVICE_ERROR},
                               {.status = EFI_ACCESS_DENIED},
                               {.name = "Boot0002"}});
    expect_no_list(hdl);
}

TEST_F(bootopt_list, errors_that_give_other_names_are_stepped_over)
{
    firmware_writes(EFI_DEVICE_ERROR, [](unsigned request, CHAR16 *name, EFI_GUID *) {
        if (request == 4)
            fakes::answer_command(OVRA_GET_NEXT_VARIABLE_NAME, EFI_NOT_FOUND);
        write_name(name, boot_name(request));
    });
    EXPECT_EQ(option_list(hdl), (option_names{"Boot0000", "Boot0001", "Boot0002", "Boot0003"}));
}

TEST_F(bootopt_list, firmware_that_gives_the_same_name_for_ever_ends_it)
{
    fakes::script_enumeration({{.name = "Boot0001"}}, true);
    expect_no_list(hdl);
    EXPECT_LT(fakes::requests().size(), 100U);
    fakes::script_enumeration({{.name = ""}}, true);
    expect_no_list(hdl);
}

TEST_F(bootopt_list, firmware_that_goes_in_circles_ends_it)
{
    for (const unsigned length : {1U, 2U, 3U, 7U, 8U, 100U, 1000U})
        for (const unsigned lead : {0U, 1U, 5U, 300U}) {
            SCOPED_TRACE(std::to_string(length) + " names behind " + std::to_string(lead));
            fakes::reset();
            ovra_hdl_t one = nullptr;
            ASSERT_EQ(ovra_init(&one), 0);
            firmware_writes(EFI_SUCCESS, [=](unsigned request, CHAR16 *name, EFI_GUID *) {
                write_name(name, boot_name(request < lead ? request : lead + (request - lead) % length));
            });
            expect_no_list(one);
            // Twice round after a power of two of steps that leaves room for that.
            EXPECT_LT(fakes::requests().size(), 6 * (length + lead) + 16);
            ovra_fini(one);
        }
    fakes::reset(); // the fixture's handle is of before
    hdl->ovra_fd = -1;
}

TEST_F(bootopt_list, bytes_behind_the_name_are_no_part_of_it)
{
    for (const EFI_STATUS status : {EFI_DEVICE_ERROR, EFI_SUCCESS}) {
        SCOPED_TRACE(hex_status(status));
        fakes::forget_requests();
        firmware_writes(status, [](unsigned request, CHAR16 *name, EFI_GUID *) {
            write_name(name, "Boot0001");
            name[9] = static_cast<CHAR16>(request);
        });
        expect_no_list(hdl);
        EXPECT_LT(fakes::requests().size(), 100U);
    }
}

TEST_F(bootopt_list, name_without_terminator_ends_with_the_buffer)
{
    firmware_writes(EFI_SUCCESS, [](unsigned request, CHAR16 *name, EFI_GUID *) {
        if (request == 2)
            fakes::answer_command(OVRA_GET_NEXT_VARIABLE_NAME, EFI_NOT_FOUND);
        std::fill(name, name + buffer_units, static_cast<CHAR16>('A' + request));
        if (request == 1)
            write_name(name, "Boot0001");
    });
    EXPECT_EQ(option_list(hdl), option_names{"Boot0001"});
}

TEST_F(bootopt_list, size_that_the_firmware_gives_back_is_not_believed)
{
    fakes::script_enumeration({{.name = "Boot0001", .size = SIZE_MAX}, {.name = "Boot0002", .size = 0}});
    EXPECT_EQ(option_list(hdl), (option_names{"Boot0001", "Boot0002"}));
    for (const auto &request : fakes::requests())
        EXPECT_EQ(request.variable_name_size, 514U);
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
    EXPECT_EQ(names_in(array), all);
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
                    EXPECT_EQ(names_in(array), all);
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
