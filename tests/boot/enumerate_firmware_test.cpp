// SPDX-License-Identifier: MIT
// Firmware that enumerates its variables with errors, in circles, or not at all.
#include <functional>

#include "tests/boot/enumerate.h"

using namespace ovra::test;

namespace {

ovra_get_next_variable_name_args_t enumeration_args_of(const fakes::request &seen)
{
    ovra_get_next_variable_name_args_t args;
    memcpy(&args, seen.record.data(), sizeof args);
    return args;
}

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

} // namespace
