// SPDX-License-Identifier: MIT
#include "tests/osmap/mapping.h"

#include "platform/include/devns.h"
#include "tests/osmap/options.h"
#include "tests/support/processor_time.h"
#include "tests/support/sweep.h"

using namespace ovra::test;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

class find : public mapping {
protected:
    // The options found; "null" for none.
    std::vector<std::string> options(const char *disk)
    {
        char **found = reinterpret_cast<char **>(&result);
        mutable_text name = {disk};
        result = ovra_bootopt_find(hdl, name, &found);
        if (!found)
            return {"null"};
        auto all = strings_of(found);
        free_str_array(hdl, found);
        return all;
    }
    std::string errors(const char *disk)
    {
        return errors_of([&] { options(disk); });
    }

    int result = 7;
};

TEST_F(find, options_of_a_slice_and_of_a_partition)
{
    put_option("Boot0001", std::string(partition_node) + end_entire);
    put_option("Boot0003", std::string(slice_node) + end_entire);
    put_option("Boot0002", std::string(root_bridge) + sata_function + sata_disk + slice_node + end_entire);
    for (const char *name : {"c0t0d0s0", "/dev/dsk/c0t0d0s0", "/dev/rdsk/c0t0d0s0"})
        EXPECT_THAT(options(name), ElementsAre("Boot0003", "Boot0002")); // in the firmware's order
    EXPECT_THAT(options("c0t1d0p1"), ElementsAre("Boot0001"));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(errors("c0t1d0p1"), "");
}

TEST_F(find, options_of_any_vendor)
{
    put_option("Boot0001", slice_node);
    put_option("Boot0004", slice_node, fakes::other_guid);
    // It is listed, but read under the global GUID.
    EXPECT_THAT(options("c0t0d0s0"), ElementsAre("Boot0001"));
    EXPECT_EQ(errors("c0t0d0s0"), "unable to read variable Boot0004\nunable to get load option for: -1\n");
}

TEST_F(find, none)
{
    EXPECT_THAT(options("c0t0d0s0"), ElementsAre("null"));
    EXPECT_EQ(result, 0);
    put_option("Boot0001", std::string(partition_node) + end_entire);
    EXPECT_THAT(options("c0t0d0s0"), ElementsAre("null"));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(errors("c0t0d0s0"), "");
}

TEST_F(find, every_byte_of_the_node_must_match)
{
    for (unsigned i = 4; i < 42; ++i) {
        std::string node = slice_node;
        node[i * 3] = node[i * 3] == 'f' ? 'e' : 'f';
        put_option("Boot0001", node + end_entire);
        EXPECT_THAT(options("c0t0d0s0"), ElementsAre("null")) << i;
    }
}

TEST_F(find, a_node_of_another_length_does_not_match)
{
    put_option("Boot0001", "04 01 08 00 01 00 00 00 7f ff 04 00");
    std::string longer = slice_node;
    longer.replace(6, 2, "2b");
    put_option("Boot0002", longer + "00 " + end_entire);
    put_option("Boot0003", "04 01 04 00");
    EXPECT_THAT(options("c0t0d0s0"), ElementsAre("null"));
    EXPECT_EQ(errors("c0t0d0s0"), "");
}

TEST_F(find, the_first_hard_drive_node_counts)
{
    put_option("Boot0001", std::string(partition_node) + slice_node + end_entire);
    EXPECT_THAT(options("c0t0d0s0"), ElementsAre("null"));
    EXPECT_THAT(options("c0t1d0p1"), ElementsAre("Boot0001"));
}

TEST_F(find, kept_the_message_about_an_unreadable_option_has_a_number)
{
    fakes::put_variable("Boot0000", {1, 2, 3});
    put_option("Boot0001", slice_node);
    EXPECT_THAT(options("c0t0d0s0"), ElementsAre("Boot0001"));
    EXPECT_THAT(errors("c0t0d0s0"), ::testing::EndsWith("unable to get load option for: -1\n"));
}

TEST_F(find, paths_that_cannot_be_used_are_passed_over)
{
    put_option("Boot0000", "04 01 2a 00");
    put_option("Boot0001", std::string(root_bridge) + end_entire);
    put_option("Boot0002", "");
    put_option("Boot0003", slice_node);
    EXPECT_THAT(options("c0t0d0s0"), ElementsAre("Boot0003"));
    EXPECT_EQ(errors("c0t0d0s0"), "encoded_path does not match encoded_path_len\n"
                                  "unable to find media path for Boot0001\n"
                                  "unable to find media path for Boot0002\n");
}

TEST_F(find, no_such_disk)
{
    EXPECT_THAT(options("c9t0d0s0"), ElementsAre("null"));
    EXPECT_EQ(result, -1);
    EXPECT_EQ(errors("c0t0d0"), "unrecognized format c0t0d0\nunable to create hd media device path\n");
    EXPECT_EQ(traces_of([&] { options("c0t0d0"); }), "");
}

TEST_F(find, options_that_cannot_be_listed)
{
    fakes::answer_command(OVRA_GET_NEXT_VARIABLE_NAME, EFI_UNSUPPORTED);
    EXPECT_THAT(options("c0t0d0s0"), ElementsAre("null"));
    EXPECT_EQ(result, -1);
    EXPECT_EQ(errors("c0t0d0s0"), "unable to get load option list\n");
}

TEST_F(find, refused_allocations)
{
    put_option("Boot0001", slice_node);
    put_option("Boot0002", slice_node);
    std::string all;
    std::vector<std::string> names;
    char **found = nullptr;
    for_each_refused_allocation_any_result(
        [&](ovra_hdl_t handle) {
            mutable_text name = {"c0t0d0s0"};
            const int code = ovra_bootopt_find(handle, name, &found);
            if (code != 0) {
                EXPECT_EQ(found, nullptr);
            }
            names = strings_of(found);
            return code;
        },
        [&](const attempt &one) {
            all += one.messages;
            if (one.refused == 0) {
                EXPECT_THAT(names, ElementsAre("Boot0001", "Boot0002"));
                EXPECT_EQ(one.result, 0);
            } else if (one.result == 0) {
                // An option that cannot be read for want of memory is passed over and said to be: that one
                // alone, or without memory from then on all that follow.
                if (one.persistent)
                    EXPECT_THAT(names, ::testing::AnyOf(ElementsAre(), ElementsAre("Boot0001")));
                else
                    EXPECT_THAT(names, ::testing::AnyOf(ElementsAre("Boot0001"), ElementsAre("Boot0002")));
                EXPECT_TRUE(one.messages.find("unable to get load option for: -1\n") != std::string::npos ||
                            one.messages.find("unable to allocate device_path\n") != std::string::npos ||
                            one.messages.find("unable to add device path\n") != std::string::npos)
                    << one.messages;
            }
        });
    for (const char *message : {"unable to create hd media device path\n", "unable to get load option list\n",
                                "unable to add to boot_name list\n"})
        EXPECT_THAT(all, HasSubstr(message));
}

TEST_F(find, what_it_reads_does_not_stay_with_the_handle)
{
    put_option("Boot0001", slice_node);
    put_option("Boot0002", partition_node);
    options("c0t0d0s0");
    for (size_t slot = 0; slot < hdl->memlist_end; ++slot)
        EXPECT_EQ(hdl->memlist_addr[slot], nullptr);
}

// The path of each option is read and given back behind the names of all.
TEST_F(find, sixty_thousand_options_cost_little_more_than_their_variables)
{
    for (unsigned number = 0; number < 60000; ++number) {
        char name[16];
        snprintf(name, sizeof name, "Boot%04X", number);
        put_option(name, number == 30000 ? slice_node : partition_node);
    }
    const double plain = seconds_of([&] {
        char **all = nullptr;
        ASSERT_EQ(ovra_bootopt_list(hdl, &all), 0);
        for (char **name = all; *name; ++name) {
            char data[128];
            UINTN size = sizeof data;
            ASSERT_EQ(get_variable(hdl, *name, &size, data), EFI_SUCCESS);
        }
        free_str_array(hdl, all);
    });
    fakes::forget_requests();
    const double search = seconds_of([&] { EXPECT_THAT(options("c0t0d0s0"), ElementsAre("Boot7530")); });
    std::printf("60000 options: their variables %.0f ms, find %.0f ms\n", plain * 1000, search * 1000);
    EXPECT_LT(search, 0.02 + 3 * plain);
}

} // namespace
