// SPDX-License-Identifier: MIT
// Device texts that name devices of the machine, set in a boot option.
#include <algorithm>
#include <cstdio>
#include <utility>

#include "tests/fakes/driver.h"
#include "tests/osmap/mapping.h"
#include "tests/support/processor_time.h"

using namespace ovra::test;

namespace {

// Boot0001: Pci(0x1,0x2), the file \x, and optional data.
const std::string pci_node_of_option = "01 01 06 00 02 01 ";
const std::string file_node_of_option = "04 04 0a 00 5c 00 78 00 00 00 ";

bytes option_of_path(const std::string &path_hex)
{
    const bytes path = from_hex(path_hex);
    bytes option = {1, 0, 0, 0, static_cast<uint8_t>(path.size()), 0, 'A', 0, 0, 0};
    option.insert(option.end(), path.begin(), path.end());
    option.insert(option.end(), {0xaa, 0xbb});
    return option;
}

class accessors_of_devices : public mapping {
protected:
    void SetUp() override
    {
        mapping::SetUp();
        fakes::put_variable("Boot0001",
                            option_of_path(pci_node_of_option + file_node_of_option + end_entire));
    }

    static std::string stored() { return to_hex(fakes::variable("Boot0001").value()); }

    // What setting a device text, respectively a file text, says; the result must be as wanted.
    std::string set_device(const char *text, int wanted)
    {
        mutable_text device = {text};
        return errors_of([&] { EXPECT_EQ(ovra_bootopt_devpath_set(hdl, option, device), wanted); });
    }
    std::string set_file(const char *text, int wanted)
    {
        mutable_text file = {text};
        return errors_of([&] { EXPECT_EQ(ovra_bootopt_bootpath_set(hdl, option, file), wanted); });
    }

    mutable_text option = {"Boot0001"};
};

TEST_F(accessors_of_devices, kept_name_of_the_tree_leaves_the_path_that_was_read)
{
    const std::string before = stored();
    EXPECT_EQ(set_device("/devices/pci@0,0/pci8086,2829@1f,2/disk@0,0:a", 0),
              "encoding non block /dev or any /devices paths not available\n");
    EXPECT_EQ(stored(), before);
    ovra_fini(std::exchange(hdl, nullptr));
}

TEST_F(accessors_of_devices, name_of_a_disk_becomes_its_short_form)
{
    EXPECT_EQ(set_device("c0t0d0s0", 0), "");
    EXPECT_EQ(stored(), to_hex(option_of_path(slice_node + file_node_of_option + end_entire)));
    // The path that was encoded is the handle's, and is released once.
    ovra_fini(std::exchange(hdl, nullptr));
}

TEST_F(accessors_of_devices, file_of_an_option_that_was_set_to_a_disk)
{
    EXPECT_EQ(set_device("c0t0d0s0", 0), "");
    EXPECT_EQ(set_file("\\y", 0), "");
    EXPECT_EQ(stored(), to_hex(option_of_path(std::string(slice_node) + "04 04 0a 00 5c 00 79 00 00 00 " +
                                              end_entire)));
}

TEST_F(accessors_of_devices, name_that_is_not_in_the_tree_is_refused)
{
    const std::string before = stored();
    const std::string said = set_device("/devices/pci@9,0", -1);
    EXPECT_THAT(
        said, ::testing::EndsWith("unable to construct full path\nunable to ovra_epath_encode: Boot0001\n"));
    EXPECT_EQ(stored(), before);
}

TEST_F(accessors_of_devices, disk_that_is_not_there_is_refused)
{
    const std::string before = stored();
    const std::string said = set_device("c9t0d0s0", -1);
    EXPECT_THAT(said, ::testing::EndsWith(
                          "unable to create hd media device path\nunable to ovra_epath_encode: Boot0001\n"));
    EXPECT_EQ(stored(), before);
}

TEST_F(accessors_of_devices, name_of_a_disk_needs_the_only_instance)
{
    fakes::put_variable("Boot0001",
                        option_of_path(pci_node_of_option + end_instance + pci_node_of_option + end_entire));
    const std::string before = stored();
    EXPECT_EQ(set_device("c0t0d0s0", -1),
              "encoding composite drives not supported\nunable to ovra_epath_encode: Boot0001\n");
    EXPECT_EQ(stored(), before);
    // A name of the tree is accepted all the same, and a file does not ask.
    EXPECT_EQ(set_device("/devices/pci@0,0", 0),
              "encoding non block /dev or any /devices paths not available\n");
    EXPECT_EQ(stored(), before);
    EXPECT_EQ(set_file("\\x", 0), "");
    EXPECT_EQ(stored(), to_hex(option_of_path(pci_node_of_option + file_node_of_option + end_instance +
                                              pci_node_of_option + end_entire)));
}

// What getters give stays with the handle, which makes its list long.
TEST_F(accessors_of_devices, getters_and_setters_of_one_handle_cost_the_same_for_ever)
{
#ifdef OVRA_SANITIZED
    GTEST_SKIP() << "AddressSanitizer copies all of a list whenever it grows";
#endif
    char title[] = "a title";
    const auto turns = [&](int count) {
        for (int i = 0; i < count; ++i) {
            char *text = nullptr;
            ASSERT_EQ(ovra_bootopt_desc_get(hdl, option, &text), 0);
            ASSERT_EQ(ovra_bootopt_desc_set(hdl, option, title), 0);
            ASSERT_EQ(ovra_bootopt_bootpath_get(hdl, option, &text), 0);
        }
        fakes::forget_requests();
    };
    turns(10);
    double first = 1e9;
    double last = 1e9;
    for (int i = 0; i < 5; ++i)
        first = std::min(first, seconds_of([&] { turns(1000); }));
    for (int i = 0; i < 400000; ++i) // as the texts of 200,000 turns
        ASSERT_NE(memlist_malloc(hdl, 8, "test"), nullptr);
    for (int i = 0; i < 5; ++i)
        last = std::min(last, seconds_of([&] { turns(1000); }));
    std::printf("1000 turns: %.1f ms at first, %.1f ms after 200000\n", first * 1000, last * 1000);
    EXPECT_GT(hdl->memlist_end, 400000U);
    EXPECT_LT(last, 2 * first);
}

} // namespace
