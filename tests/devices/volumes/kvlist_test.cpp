// SPDX-License-Identifier: MIT
// Lists of values by name.
#include <cerrno>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/devices/sample.h"

namespace {

using namespace devices_test;

TEST(kvlist, gives_back_what_was_added)
{
    const attributes list(kvlist_alloc());
    ASSERT_NE(list, nullptr);
    const uint8_t bytes[] = {0, 1, 0xff};
    EXPECT_EQ(kvlist_add_uint32(list.get(), "small", 0xffffffff), 0);
    EXPECT_EQ(kvlist_add_uint64(list.get(), "large", 0x123456789abcdef0), 0);
    EXPECT_EQ(kvlist_add_uint8_array(list.get(), "bytes", bytes, 3), 0);
    uint32_t small = 0;
    uint64_t large = 0;
    uint8_t *array = nullptr;
    unsigned count = 0;
    EXPECT_EQ(kvlist_lookup_uint32(list.get(), "small", &small), 0);
    EXPECT_EQ(small, 0xffffffff);
    EXPECT_EQ(kvlist_lookup_uint64(list.get(), "large", &large), 0);
    EXPECT_EQ(large, 0x123456789abcdef0);
    ASSERT_EQ(kvlist_lookup_uint8_array(list.get(), "bytes", &array, &count), 0);
    EXPECT_THAT(std::vector<uint8_t>(array, array + count), testing::ElementsAre(0, 1, 0xff));
}

TEST(kvlist, keeps_copies)
{
    const attributes list(kvlist_alloc());
    std::string name = "name";
    uint8_t bytes[] = {1, 2};
    ASSERT_EQ(kvlist_add_uint8_array(list.get(), name.c_str(), bytes, 2), 0);
    name = "other";
    bytes[0] = 9;
    uint8_t *array = nullptr;
    unsigned count = 0;
    ASSERT_EQ(kvlist_lookup_uint8_array(list.get(), "name", &array, &count), 0);
    EXPECT_NE(array, bytes);
    EXPECT_EQ(array[0], 1);
}

TEST(kvlist, values_of_another_type_or_name_are_not_found)
{
    const attributes list(kvlist_alloc());
    ASSERT_EQ(kvlist_add_uint32(list.get(), "value", 5), 0);
    uint64_t large = 77;
    uint8_t *array = nullptr;
    unsigned count = 77;
    uint32_t small = 77;
    EXPECT_EQ(kvlist_lookup_uint64(list.get(), "value", &large), ENOENT);
    EXPECT_EQ(kvlist_lookup_uint8_array(list.get(), "value", &array, &count), ENOENT);
    for (const char *name : {"Value", "valu", "value ", ""})
        EXPECT_EQ(kvlist_lookup_uint32(list.get(), name, &small), ENOENT) << name;
    EXPECT_EQ(large, 77U);
    EXPECT_EQ(array, nullptr);
    EXPECT_EQ(count, 77U);
    EXPECT_EQ(small, 77U);
}

TEST(kvlist, the_first_of_a_name_and_type_is_found)
{
    const attributes list(kvlist_alloc());
    ASSERT_EQ(kvlist_add_uint64(list.get(), "value", 1), 0);
    ASSERT_EQ(kvlist_add_uint32(list.get(), "value", 2), 0);
    ASSERT_EQ(kvlist_add_uint32(list.get(), "value", 3), 0);
    uint32_t small = 0;
    EXPECT_EQ(kvlist_lookup_uint32(list.get(), "value", &small), 0);
    EXPECT_EQ(small, 2U);
}

TEST(kvlist, empty_arrays_and_lists)
{
    const attributes list(kvlist_alloc());
    uint8_t *array = nullptr;
    unsigned count = 7;
    EXPECT_EQ(kvlist_lookup_uint8_array(list.get(), "none", &array, &count), ENOENT);
    ASSERT_EQ(kvlist_add_uint8_array(list.get(), "none", nullptr, 0), 0);
    EXPECT_EQ(kvlist_lookup_uint8_array(list.get(), "none", &array, &count), 0);
    EXPECT_EQ(count, 0U);
    kvlist_free(nullptr);
}

// A pointer into a list stays valid when more is added.
TEST(kvlist, arrays_stay_valid_while_the_list_grows)
{
    const attributes list(kvlist_alloc());
    const std::string text = "a value that is longer than a short one";
    ASSERT_EQ(kvlist_add_uint8_array(list.get(), "text", reinterpret_cast<const uint8_t *>(text.data()),
                                     static_cast<unsigned>(text.size())),
              0);
    uint8_t *array = nullptr;
    unsigned count = 0;
    ASSERT_EQ(kvlist_lookup_uint8_array(list.get(), "text", &array, &count), 0);
    for (uint32_t i = 0; i < 1000; ++i)
        ASSERT_EQ(kvlist_add_uint32(list.get(), ("n" + std::to_string(i)).c_str(), i), 0);
    EXPECT_EQ(std::string(array, array + count), text);
    EXPECT_EQ(attribute(list.get(), "n999"), 999U);
}

} // namespace
