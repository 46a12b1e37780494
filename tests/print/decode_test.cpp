// SPDX-License-Identifier: MIT
// Packed paths as a whole.
#include <climits>
#include <ctime>
#include <utility>

#include "tests/print/golden.h"
#include "tests/rt/open_handle.h"
#include "tests/support/messages.h"
#include "tests/support/sweep.h"

using namespace ovra::test;

namespace {

const char pci_root[] = "02 01 0c00 d041030a 00000000";
const char pci[] = "01 01 0600 02 1f";
const char sata[] = "03 12 0a00 0000 ffff 0000";
const char hard_drive[] = "04 01 2a00 01000000 0008000000000000 0000100000000000"
                          "33221100 5544 7766 8899 aabbccddeeff 02 02";
const char file_path[] = "04 04 0e00 5c00 6100 2e00 6500 0000";
const char end_instance[] = "7f 01 0400";
const char end_entire[] = "7f ff 0400";

class decode : public open_handle {
protected:
    struct instance {
        std::string device;
        std::optional<std::string> file;
        bool operator==(const instance &) const = default;
    };

    // Decodes exactly these bytes. Fails the test unless the result is 0.
    std::vector<instance> decoded(const bytes &path)
    {
        const exact_node exact(path);
        EXPECT_EQ(ovra_epath_decode_to_uefi(hdl, reinterpret_cast<uint8_t *>(exact.get()),
                                            static_cast<int>(path.size()), &paths),
                  0);
        std::vector<instance> result;
        for (ovra_path_t **one = paths; one && *one; ++one) {
            result.push_back({(*one)->device_path, std::nullopt});
            if ((*one)->file_path)
                result.back().file = (*one)->file_path;
        }
        return result;
    }

    std::vector<instance> decoded(const std::string &path) { return decoded(from_hex(path)); }

    ovra_path_t **paths = nullptr;
};

std::string joined(std::initializer_list<const char *> nodes)
{
    std::string path;
    for (const char *node : nodes)
        path += node;
    return path;
}

// Of this process: other work of the machine does not count.
double processor_seconds()
{
    return static_cast<double>(clock()) / CLOCKS_PER_SEC;
}

bytes repeated(const std::string &node, size_t times, const std::string &last)
{
    const bytes one = from_hex(node);
    bytes path;
    for (size_t i = 0; i < times; ++i)
        path.insert(path.end(), one.begin(), one.end());
    for (const uint8_t byte : from_hex(last))
        path.push_back(byte);
    return path;
}

TEST_F(decode, disk_partition_and_file)
{
    const auto result = decoded(joined({pci_root, pci, sata, hard_drive, file_path, end_entire}));
    ASSERT_EQ(result.size(), 1U);
    EXPECT_EQ(result[0].device, "/PciRoot(0x0)/Pci(0x1f,0x2)/Sata(0x0,0xffff,0x0)/HD(1,GPT,"
                                "00112233-4455-6677-8899-AABBCCDDEEFF,0x800,0x100000)");
    EXPECT_EQ(result[0].file, "\\a.e");
}

TEST_F(decode, two_instances_in_order)
{
    const std::vector<instance> expected = {{"/PciRoot(0x0)", std::nullopt}, {"/Pci(0x1f,0x2)", "\\a.e"}};
    EXPECT_EQ(decoded(joined({pci_root, end_instance, pci, file_path, end_entire})), expected);
}

TEST_F(decode, file_text_does_not_pass_on_to_the_next_instance)
{
    const std::vector<instance> expected = {{"/Pci(0x1f,0x2)", "\\a.e"}, {"/PciRoot(0x0)", std::nullopt}};
    EXPECT_EQ(decoded(joined({pci, file_path, end_instance, pci_root, end_entire})), expected);
}

TEST_F(decode, path_that_starts_with_a_hard_drive_has_no_slash_in_front)
{
    const auto result = decoded(joined({hard_drive, end_instance, hard_drive, end_entire}));
    ASSERT_EQ(result.size(), 2U);
    EXPECT_TRUE(result[0].device.starts_with("HD("));
    EXPECT_TRUE(result[1].device.starts_with("HD("));
}

TEST_F(decode, kept_nodes_behind_the_last_end_node_are_lost)
{
    EXPECT_EQ(decoded(joined({pci_root, end_instance, pci, file_path})),
              (std::vector<instance>{{"/PciRoot(0x0)", std::nullopt}}));
    EXPECT_EQ(decoded(joined({pci_root, pci})), std::vector<instance>());
    EXPECT_EQ(paths, nullptr);
}

TEST_F(decode, nodes_behind_end_entire_are_not_looked_at)
{
    EXPECT_EQ(decoded(joined({pci_root, end_entire, pci, end_entire, "ffffffff"})),
              (std::vector<instance>{{"/PciRoot(0x0)", std::nullopt}}));
}

TEST_F(decode, instance_without_device_nodes_has_an_empty_device_text)
{
    EXPECT_EQ(decoded(joined({file_path, end_entire})), (std::vector<instance>{{"", "\\a.e"}}));
    EXPECT_EQ(decoded(joined({end_instance, end_instance, end_entire})),
              (std::vector<instance>{{"", std::nullopt}, {"", std::nullopt}, {"", std::nullopt}}));
    EXPECT_EQ(decoded(end_entire), (std::vector<instance>{{"", std::nullopt}}));
}

TEST_F(decode, end_node_of_any_subtype_closes_its_instance)
{
    EXPECT_EQ(decoded(joined({pci_root, "7f 02 0400", pci, "7f 00 0600 0102", end_entire})),
              (std::vector<instance>{
                  {"/PciRoot(0x0)", std::nullopt}, {"/Pci(0x1f,0x2)", std::nullopt}, {"", std::nullopt}}));
}

TEST_F(decode, length_below_1_gives_no_instance)
{
    ovra_path_t *none = nullptr;
    for (const int length : {0, -1, INT_MIN}) {
        const messages said;
        paths = &none;
        EXPECT_EQ(ovra_epath_decode_to_uefi(hdl, nullptr, length, &paths), 0);
        EXPECT_EQ(paths, nullptr);
        EXPECT_EQ(said.text(), "device does not have END type\n");
    }
}

TEST_F(decode, path_that_cannot_be_unpacked_leaves_the_output)
{
    ovra_path_t *before = nullptr;
    const std::pair<const char *, const char *> cases[] = {
        {"01 01 0700 02 1f", "encoded_path does not match encoded_path_len\n"},
        {"01 01", "encoded_path does not match encoded_path_len\n"},
        {"7f 01 0400 06 01 0400 7f ff 0400", "corrupted node-type for node in unpack: type: 6\n"},
        {"01 01 0000 7f ff 0400", "corrupted node-type for node in unpack: type: 1\n"},
    };
    for (const auto &[hex, message] : cases) {
        const messages said;
        bytes path = from_hex(hex);
        paths = &before;
        EXPECT_EQ(ovra_epath_decode_to_uefi(hdl, path.data(), static_cast<int>(path.size()), &paths), -1)
            << hex;
        EXPECT_EQ(paths, &before);
        EXPECT_EQ(said.text(), message);
    }
}

TEST_F(decode, result_belongs_to_the_handle)
{
    count_blocks();
    decoded(joined({pci, file_path, end_instance, pci, end_entire}));
    EXPECT_TRUE(memlist_holds(hdl, paths));
    for (ovra_path_t **one = paths; *one; ++one) {
        EXPECT_TRUE(memlist_holds(hdl, *one));
        EXPECT_TRUE(memlist_holds(hdl, (*one)->device_path));
    }
    EXPECT_TRUE(memlist_holds(hdl, paths[0]->file_path));
    // One array, two records, three texts, and the handle's own list: nothing else is left.
    EXPECT_EQ(live_blocks(), 7);
    free_dpath(hdl, paths);
    EXPECT_EQ(live_blocks(), 1);
    stop_counting();
}

TEST_F(decode, path_of_10000_nodes)
{
    constexpr size_t nodes = 10000;
    const bytes path = repeated(pci, nodes, end_entire);
    const double start = processor_seconds();
    count_blocks();
    const auto result = decoded(path);
    // Nodes are read where they stand; the text and the result grow a few times only.
    EXPECT_LE(allocations(), 50);
    stop_counting();
    ASSERT_EQ(result.size(), 1U);
    EXPECT_EQ(result[0].device.size(), nodes * strlen("/Pci(0x1f,0x2)"));
    EXPECT_TRUE(result[0].device.ends_with("/Pci(0x1f,0x2)/Pci(0x1f,0x2)"));
    EXPECT_LT(processor_seconds() - start, 2);
}

TEST_F(decode, path_of_10000_instances)
{
    constexpr size_t instances = 10000;
    const bytes path = repeated(joined({pci, end_instance}), instances, end_entire);
    const double start = processor_seconds();
    const auto result = decoded(path);
    EXPECT_EQ(result, [] {
        std::vector<instance> expected(instances, {"/Pci(0x1f,0x2)", std::nullopt});
        expected.push_back({"", std::nullopt});
        return expected;
    }());
    ovra_fini(std::exchange(hdl, nullptr));
    EXPECT_LT(processor_seconds() - start, 2);
}

TEST_F(decode, node_of_a_long_path_costs_as_much_as_one_of_a_short_path)
{
    constexpr int short_paths = 2000;
    constexpr size_t nodes = 100;
    const bytes short_path = repeated(pci, nodes, end_entire);
    const bytes long_path = repeated(pci, short_paths * nodes, end_entire);
    count_blocks();
    const realloc_guard moves(realloc_policy::moves);
    const double start = processor_seconds();
    for (int i = 0; i < short_paths; ++i) {
        ASSERT_EQ(decoded(short_path).size(), 1U);
        free_dpath(hdl, paths);
    }
    const double between = processor_seconds();
    ASSERT_EQ(decoded(long_path).front().device.size(), short_paths * nodes * strlen("/Pci(0x1f,0x2)"));
    const double end = processor_seconds();
    stop_counting();
    // A text that was walked or moved for each node would be 280 GB.
    EXPECT_LT(end - between, 4 * (between - start));
}

TEST_F(decode, instance_of_many_is_freed_as_fast_as_one_of_few)
{
    const auto seconds = [this](size_t instances) {
        decoded(repeated(joined({pci, file_path, end_instance}), instances - 1, end_entire));
        const double start = processor_seconds();
        free_dpath(hdl, paths);
        return processor_seconds() - start;
    };
    double few = 0;
    for (int i = 0; i < 10; ++i)
        few += seconds(2000);
    // Each searched for from the beginning of the handle's list, they would take ten times as long.
    EXPECT_LT(seconds(20000), 4 * few);
}

TEST_F(decode, path_of_10000_file_nodes)
{
    const auto result = decoded(repeated("04 04 0800 6100 0000", 10000, end_entire));
    ASSERT_EQ(result.size(), 1U);
    EXPECT_EQ(result[0].file, std::string(10000, 'a'));
}

TEST_F(decode, result_without_memory_is_null)
{
    bytes path = from_hex(joined({pci, end_instance, pci, end_entire}));
    void *slot = memlist_malloc(hdl, 1, "test"); // the handle's list has room now
    ASSERT_NE(slot, nullptr);
    messages said;
    std::string all;
    int failures = 0;
    for (long n = 0;; ++n) {
        ovra_path_t *before = nullptr;
        ovra_path_t **result = &before;
        refuse_from(n, false);
        const int status =
            ovra_epath_decode_to_uefi(hdl, path.data(), static_cast<int>(path.size()), &result);
        if (stop_refusing() == 0)
            break;
        const std::string message = said.take();
        all += message;
        if (status == 0)
            continue;
        ++failures;
        EXPECT_EQ(result, nullptr) << message;
    }
    EXPECT_GT(failures, 4);
    for (const char *message : {"malloc failed for struct ovra_path_t\n", "malloc failed for decoded_path\n",
                                "realloc failed for decoded_path\n"})
        EXPECT_NE(all.find(message), std::string::npos) << message;
}

} // namespace
