// SPDX-License-Identifier: MIT
// Which number is free.
#include "tests/boot/fixture.h"

using namespace ovra::test;

namespace {

struct bootopt_unused : open_handle {};
struct bootopt_unused_file : file_fixture {};

std::string unused(ovra_hdl_t hdl)
{
    const messages said(1, 1);
    char *name = nullptr;
    EXPECT_EQ(ovra_bootopt_unused(hdl, &name), 0);
    EXPECT_EQ(said.text(), "");
    if (!name)
        return "none";
    const std::string copy = name;
    if (hdl) {
        EXPECT_TRUE(is_tracked(hdl, name));
    }
    memlist_free(hdl, name);
    return copy;
}

// Every option that is ever offered exists.
void put_all_options()
{
    for (unsigned number = 0; number < 0xffff; ++number)
        fakes::put_variable(boot_name(number), {1});
}

TEST_F(bootopt_unused, empty_store_gives_the_first_number)
{
    EXPECT_EQ(unused(hdl), "Boot0000");
    ASSERT_EQ(fakes::requests().size(), 1U);
    const auto &request = fakes::requests()[0];
    EXPECT_EQ(request.command, OVRA_GET_VARIABLE);
    EXPECT_EQ(request.name.narrow(), "Boot0000");
    EXPECT_EQ(request.data_size, 0U);
    EXPECT_EQ(request.data_address, nullptr);
    EXPECT_EQ(memcmp(&*request.guid, &fakes::global_guid, sizeof(EFI_GUID)), 0);
}

TEST_F(bootopt_unused, gap_is_filled_first)
{
    fakes::put_variable("Boot0000", {1});
    fakes::put_variable("Boot0002", {1});
    EXPECT_EQ(unused(hdl), "Boot0001");
    fakes::put_variable("Boot0001", {1});
    EXPECT_EQ(unused(hdl), "Boot0003");
}

TEST_F(bootopt_unused, names_have_upper_case_digits)
{
    for (unsigned number = 0; number < 0x1a; ++number)
        fakes::put_variable(boot_name(number), {1});
    EXPECT_EQ(unused(hdl), "Boot001A");
}

TEST_F(bootopt_unused, boot_order_and_other_vendors_do_not_count)
{
    put_order({0, 1});
    fakes::put_variable("Boot0000", {1}, 7, fakes::other_guid);
    EXPECT_EQ(unused(hdl), "Boot0000");
}

TEST_F(bootopt_unused, empty_variable_is_in_use)
{
    fakes::put_variable("Boot0000", {});
    EXPECT_EQ(unused(hdl), "Boot0001");
}

TEST_F(bootopt_unused, number_that_cannot_be_asked_for_counts_as_used)
{
    for (const EFI_STATUS status : failures) {
        if (status == EFI_NOT_FOUND)
            continue;
        SCOPED_TRACE(hex_status(status));
        fakes::answer_variable(OVRA_GET_VARIABLE, "Boot0000", status);
        EXPECT_EQ(unused(hdl), "Boot0001");
    }
    fakes::answer_variable(OVRA_GET_VARIABLE, "Boot0000", EFI_SUCCESS);
    EXPECT_EQ(unused(hdl), "Boot0001");
    fakes::fail_variable(OVRA_GET_VARIABLE, "Boot0000", EIO);
    EXPECT_EQ(unused(hdl), "Boot0001");
}

TEST_F(bootopt_unused, kept_last_number_is_never_offered)
{
    put_all_options();
    expect_errors("no unused Boot#### variables. ret = 8000000000000005\n", [&] {
        char *name = nullptr;
        EXPECT_EQ(ovra_bootopt_unused(hdl, &name), -1);
        EXPECT_EQ(name, nullptr);
    });
    for (const auto &request : fakes::requests())
        ASSERT_NE(request.name.narrow(), "BootFFFF");
    fakes::remove_variable("BootFFFE");
    EXPECT_EQ(unused(hdl), "BootFFFE");
}

TEST_F(bootopt_unused, message_has_the_last_status)
{
    put_all_options();
    fakes::answer_variable(OVRA_GET_VARIABLE, "Boot0000", EFI_ACCESS_DENIED);
    fakes::answer_variable(OVRA_GET_VARIABLE, "BootFFFE", EFI_DEVICE_ERROR);
    const messages said(1, 1);
    char *name = nullptr;
    EXPECT_EQ(ovra_bootopt_unused(hdl, &name), -1);
    EXPECT_EQ(said.text(), "no unused Boot#### variables. ret = 8000000000000007\n");
}

TEST_F(bootopt_unused, null_handle_and_absent_driver)
{
    fakes::put_variable("Boot0000", {1});
    EXPECT_EQ(unused(nullptr), "Boot0001");
    EXPECT_EQ(fakes::open_descriptors(), 1U);
    fakes::set_absent(ENOENT);
    expect_errors("no unused Boot#### variables. ret = 800000000000000f\n", [] {
        char *name = nullptr;
        EXPECT_EQ(ovra_bootopt_unused(nullptr, &name), -1);
        EXPECT_EQ(name, nullptr);
    });
}

TEST_F(bootopt_unused, sixty_thousand_options_take_one_request_each)
{
    for (unsigned number = 0; number < 60000; ++number)
        fakes::put_variable(boot_name(number), {1});
    double limit = 0.02;
    limit += 10 * seconds_of([&] {
                 EFI_GUID guid = fakes::global_guid;
                 for (unsigned number = 0; number <= 60000; ++number) {
                     std::u16string name = fakes::var_name(boot_name(number));
                     UINTN size = 0;
                     EFI_STATUS status = EFI_SUCCESS;
                     ovra_get_variable(hdl, reinterpret_cast<CHAR16 *>(name.data()), &guid, nullptr, &size,
                                       nullptr, &status);
                 }
             });
    fakes::forget_requests();
    EXPECT_LT(seconds_of([&] { EXPECT_EQ(unused(hdl), boot_name(60000)); }), limit);
    EXPECT_EQ(fakes::requests().size(), 60001U);
}

// A number that could not be asked about for want of memory counts as used, like any that cannot be read:
// when only one allocation is refused the next number may be the answer.
TEST_F(bootopt_unused, without_memory)
{
    std::string given;
    for_each_refused_allocation_any_result(
        [&](ovra_hdl_t handle) {
            char *name = nullptr;
            const int result = ovra_bootopt_unused(handle, &name);
            EXPECT_EQ(name == nullptr, result == -1);
            EXPECT_EQ(name != nullptr, is_tracked(handle, name));
            given = name ? name : "";
            return result;
        },
        [&](const attempt &one) {
            if (one.refused == 0 || (one.n == 0 && !one.persistent)) {
                EXPECT_EQ(one.result, 0);
                EXPECT_EQ(given, one.refused == 0 ? "Boot0000" : "Boot0001");
                EXPECT_EQ(one.messages, "");
            } else {
                EXPECT_EQ(one.result, -1);
                EXPECT_EQ(one.messages,
                          one.n == 0 ? "no unused Boot#### variables. ret = 8000000000000002\n" : "");
            }
        });
}

TEST_F(bootopt_unused_file, number_without_a_file_is_free)
{
    EXPECT_EQ(unused(hdl), "Boot0000");
    folder.write("Boot0000", {1});
    folder.write("Boot0002", {1});
    EXPECT_EQ(unused(hdl), "Boot0001");
}

TEST_F(bootopt_unused_file, removed_option_stays_in_use)
{
    folder.write("Boot0000", {1});
    folder.write("BootOrder", order_bytes({0, 1}));
    EXPECT_EQ(ovra_bootopt_remove(hdl, arg("Boot0000")), 0);
    EXPECT_EQ(unused(hdl), "Boot0001");
}

} // namespace
