// SPDX-License-Identifier: MIT
#include "tests/osmap/mapping.h"

#include "tests/osmap/options.h"

using namespace ovra::test;
using ::testing::ElementsAre;

namespace {

class logdev : public mapping {
protected:
    // The names found; "-1" for a failure that left the output alone, "null" for one that made it null.
    std::vector<std::string> names(const char *bootname)
    {
        char *untouched[] = {nullptr};
        char **found = untouched;
        mutable_text name = {bootname};
        result = ovra_bootopt_logdev(hdl, name, &found);
        if (found == untouched)
            return {"-1"};
        if (!found)
            return {"null"};
        auto all = strings_of(found);
        free_str_array(hdl, found);
        return all;
    }
    std::string errors(const char *bootname)
    {
        return errors_of([&] { names(bootname); });
    }

    int result = 7;
};

TEST_F(logdev, disks_of_short_forms)
{
    put_option("Boot0000", std::string(slice_node) + end_entire);
    put_option("Boot0001", std::string(partition_node) + end_entire);
    EXPECT_THAT(names("Boot0000"), ElementsAre("c0t0d0s0"));
    EXPECT_EQ(result, 0);
    EXPECT_THAT(names("Boot0001"), ElementsAre("c0t1d0p1"));
    EXPECT_EQ(result, 0);
}

TEST_F(logdev, the_hard_drive_node_may_stand_anywhere)
{
    put_option("Boot0000", std::string(root_bridge) + sata_function + sata_disk + slice_node + end_entire);
    EXPECT_THAT(names("Boot0000"), ElementsAre("c0t0d0s0"));
    put_option("Boot0001", std::string(end_instance) + partition_node + slice_node); // the first one counts
    EXPECT_THAT(names("Boot0001"), ElementsAre("c0t1d0p1"));
}

TEST_F(logdev, alike_disks)
{
    fakes::add_mbr_drive("c1t0d0", 0x12345678).add_partition("/dev/rdsk/c1t0d0p3", 2048, 409600);
    put_option("Boot0001", std::string(partition_node) + end_entire);
    EXPECT_THAT(names("Boot0001"), ElementsAre("c0t1d0p1", "c1t0d0p3"));
}

TEST_F(logdev, an_option_that_cannot_be_read)
{
    EXPECT_THAT(names("Boot0009"), ElementsAre("-1"));
    EXPECT_EQ(result, -1);
    EXPECT_EQ(errors("Boot0009"), "unable to read variable Boot0009\nunable to get load option: -1\n");
    EXPECT_EQ(errors("boot9"), "incorrect bootopt name: boot9\nunable to get load option: -1\n");
}

TEST_F(logdev, a_path_that_cannot_be_unpacked)
{
    put_option("Boot0000", "04 01 2a 00");
    EXPECT_THAT(names("Boot0000"), ElementsAre("-1"));
    EXPECT_EQ(result, -1);
    EXPECT_EQ(errors("Boot0000"), "encoded_path does not match encoded_path_len\n");
}

TEST_F(logdev, a_path_without_a_hard_drive_node)
{
    put_option("Boot0000", std::string(root_bridge) + end_entire);
    put_option("Boot0001", "");
    for (const char *option : {"Boot0000", "Boot0001"}) {
        EXPECT_THAT(names(option), ElementsAre("-1"));
        EXPECT_EQ(result, -1);
        EXPECT_EQ(errors(option), "unable to find hard drive path\n");
        EXPECT_THAT(traces_of([&] { names(option); }), ::testing::Not(::testing::HasSubstr("unable")));
    }
}

TEST_F(logdev, no_such_disk)
{
    std::string node = slice_node;
    node.replace(24 * 3, 2, "38");
    put_option("Boot0000", node + end_entire);
    EXPECT_THAT(names("Boot0000"), ElementsAre("null"));
    EXPECT_EQ(result, -1);
    node.replace(41 * 3, 2, "00"); // another signature type is no disk either
    put_option("Boot0001", node + end_entire);
    put_option("Boot0002", "04 01 05 00 00"); // nor is a node too short for one
    for (const char *option : {"Boot0001", "Boot0002"}) {
        EXPECT_THAT(names(option), ElementsAre("null"));
        EXPECT_EQ(result, -1);
        EXPECT_EQ(errors(option), "");
    }
}

TEST_F(logdev, what_it_reads_does_not_stay_with_the_handle)
{
    put_option("Boot0000", std::string(slice_node) + end_entire);
    names("Boot0000");
    for (size_t slot = 0; slot < hdl->memlist_end; ++slot)
        EXPECT_EQ(hdl->memlist_addr[slot], nullptr);
}

} // namespace
