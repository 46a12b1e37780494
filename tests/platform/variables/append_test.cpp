// SPDX-License-Identifier: MIT
#include <string>

#include "tests/platform/variables/fixture.h"

using platform_test::variables;

namespace {

using variable_append = variables;

TEST_F(variable_append, adds_to_the_data_and_is_not_stored_as_an_attribute)
{
    ASSERT_EQ(set(u"A", 7, "one"), EFI_SUCCESS);
    EXPECT_EQ(set(u"A", 0x47, "two"), EFI_SUCCESS);
    EXPECT_EQ(disk.get("A"), std::string("\7\0\0\0onetwo", 10));
}

TEST_F(variable_append, makes_a_variable_that_is_not_there)
{
    EXPECT_EQ(set(u"A", 0x47, "two"), EFI_SUCCESS);
    EXPECT_EQ(disk.get("A"), std::string("\7\0\0\0two", 7));
}

TEST_F(variable_append, of_nothing_succeeds_and_changes_nothing)
{
    ASSERT_EQ(set(u"A", 7, "one"), EFI_SUCCESS);
    EXPECT_EQ(set(u"A", 0x47, ""), EFI_SUCCESS);
    EXPECT_EQ(disk.get("A"), std::string("\7\0\0\0one", 7));
}

TEST_F(variable_append, of_nothing_to_nothing_is_not_found)
{
    EXPECT_EQ(set(u"A", 0x47, ""), EFI_NOT_FOUND);
    EXPECT_EQ(disk.names().size(), 0u);
}

TEST_F(variable_append, needs_the_stored_attributes)
{
    ASSERT_EQ(set(u"A", 7, "one"), EFI_SUCCESS);
    EXPECT_EQ(set(u"A", 0x43, "two"), EFI_INVALID_PARAMETER);
    EXPECT_EQ(get(u"A").data, "one");
}

TEST_F(variable_append, to_a_damaged_variable_is_a_device_error)
{
    disk.put_file(disk.file("A"), "12");
    EXPECT_EQ(set(u"A", 0x47, "two"), EFI_DEVICE_ERROR);
    EXPECT_EQ(disk.get("A"), "12");
}

} // namespace
