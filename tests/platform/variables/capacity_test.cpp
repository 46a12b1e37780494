// SPDX-License-Identifier: MIT
#include <string>

#include "tests/platform/variables/fixture.h"

using platform_test::global_guid;
using platform_test::not_answered;
using platform_test::ucs2;
using platform_test::variables;

namespace {

using store_capacity = variables;

TEST_F(store_capacity, empty_store_has_all_of_it)
{
    space found = query();
    EXPECT_EQ(found.status, EFI_SUCCESS);
    EXPECT_EQ(found.store, 262144u);
    EXPECT_EQ(found.remaining, 262144u);
    EXPECT_EQ(found.variable, 32768u);
}

TEST_F(store_capacity, variable_takes_attributes_name_and_data)
{
    ASSERT_EQ(set(u"BootOrder", 7, "1234"), EFI_SUCCESS);
    EXPECT_EQ(query().remaining, 262144u - (4 + 20 + 4));
    ASSERT_EQ(set(u"BootOrder", 7, ""), EFI_SUCCESS);
    EXPECT_EQ(query().remaining, 262144u);
}

TEST_F(store_capacity, attributes_without_sense_are_refused)
{
    for (UINT32 attributes : {0u, 1u, 4u, 5u, 0x80000007u})
        EXPECT_EQ(query(attributes).status, EFI_INVALID_PARAMETER) << attributes;
    EXPECT_EQ(query(0x27).status, EFI_UNSUPPORTED);
    EXPECT_EQ(query(2).status, EFI_SUCCESS);
}

TEST_F(store_capacity, variable_may_have_32_kib_and_no_more)
{
    EXPECT_EQ(set(u"A", 7, std::string(32768, 'x')), EFI_SUCCESS);
    std::string before = whole_store();
    EXPECT_EQ(set(u"A", 7, std::string(32769, 'y')), EFI_INVALID_PARAMETER);
    EXPECT_EQ(set(u"A", 0x47, "y"), EFI_INVALID_PARAMETER);
    EXPECT_EQ(set(u"B", 7, std::string(32769, 'y')), EFI_INVALID_PARAMETER);
    EXPECT_EQ(set(u"B", 7, std::string(40000, 'y')), EFI_INVALID_PARAMETER);
    EXPECT_EQ(whole_store(), before);
}

TEST_F(store_capacity, size_beyond_all_memory_is_refused_without_reading_the_data)
{
    std::vector<CHAR16> name = ucs2(u"A");
    EFI_GUID guid = global_guid;
    char data = 'x';
    for (UINTN size : {UINTN{1} << 20, UINTN{1} << 32, ~UINTN{0}, ~UINTN{0} - 3}) {
        for (UINT32 attributes : {7u, 0x47u}) {
            EFI_STATUS status = not_answered;
            UINTN copy = size;
            ovra_variable_args_t args = {name.data(), &guid, &attributes, &copy, &data, &status, 4};
            ASSERT_EQ(devns_ioctl(opened.fd(), OVRA_SET_VARIABLE, &args), 0);
            EXPECT_EQ(status, EFI_INVALID_PARAMETER);
        }
    }
    EXPECT_EQ(disk.names().size(), 0u);
}

TEST_F(store_capacity, store_takes_exactly_what_remains)
{
    disk.put_file(disk.state("capacity"), "1000 900\n");
    EXPECT_EQ(query().store, 1000u);
    EXPECT_EQ(query().variable, 900u);
    ASSERT_EQ(set(u"A", 7, std::string(900, 'x')), EFI_SUCCESS);
    UINT64 room = query().remaining;
    ASSERT_EQ(room, 1000u - 908);
    std::size_t data = room - (4 + 4);
    std::string before = whole_store();
    EXPECT_EQ(set(u"B", 7, std::string(data + 1, 'y')), EFI_OUT_OF_RESOURCES);
    EXPECT_EQ(whole_store(), before);
    EXPECT_EQ(set(u"B", 7, std::string(data, 'y')), EFI_SUCCESS);
    EXPECT_EQ(query().remaining, 0u);
}

TEST_F(store_capacity, full_store_refuses_growth_and_loses_nothing)
{
    disk.put_file(disk.state("capacity"), "100 100\n");
    ASSERT_EQ(set(u"A", 7, std::string(92, 'x')), EFI_SUCCESS);
    std::string before = whole_store();
    EXPECT_EQ(set(u"B", 7, "y"), EFI_OUT_OF_RESOURCES);
    EXPECT_EQ(set(u"A", 7, std::string(93, 'x')), EFI_OUT_OF_RESOURCES);
    EXPECT_EQ(set(u"A", 0x47, "y"), EFI_OUT_OF_RESOURCES);
    EXPECT_EQ(whole_store(), before);
}

TEST_F(store_capacity, full_store_lets_variables_be_rewritten_shortened_and_deleted)
{
    disk.put_file(disk.state("capacity"), "100 100\n");
    ASSERT_EQ(set(u"A", 7, std::string(92, 'x')), EFI_SUCCESS);
    EXPECT_EQ(set(u"A", 7, std::string(92, 'y')), EFI_SUCCESS);
    EXPECT_EQ(set(u"A", 7, std::string(91, 'z')), EFI_SUCCESS);
    EXPECT_EQ(set(u"A", 0x47, "z"), EFI_SUCCESS);
    EXPECT_EQ(set(u"A", 7, ""), EFI_SUCCESS);
    EXPECT_EQ(set(u"B", 7, "room again"), EFI_SUCCESS);
}

TEST_F(store_capacity, store_that_is_over_full_already_has_nothing_remaining)
{
    disk.put("A", std::string(30000, 'x'));
    disk.put_file(disk.state("capacity"), "1000 1000\n");
    EXPECT_EQ(query().remaining, 0u);
    EXPECT_EQ(get(u"A").data.size(), 30000u);
    EXPECT_EQ(set(u"B", 7, "y"), EFI_OUT_OF_RESOURCES);
    EXPECT_EQ(set(u"A", 7, "short"), EFI_SUCCESS);
    EXPECT_EQ(set(u"B", 7, "y"), EFI_SUCCESS);
}

} // namespace
