// SPDX-License-Identifier: MIT
// Every call of the platform that fails, in every way and at every place, and every refused allocation:
// nothing is lost, nothing is released twice, and the same call succeeds afterwards.
#include <algorithm>
#include <climits>
#include <functional>
#include <iterator>
#include <sstream>
#include <string_view>

#include "src/osmap/harddrive.h"
#include "tests/osmap/mapping.h"
#include "tests/osmap/options.h"
#include "tests/support/rows.h"
#include "tests/support/sweep.h"

using ovra::owned;
using namespace ovra::test;

namespace {

// One routine: its result, and in `text` what it gave, which it has released or left to the handle.
struct routine {
    const char *name;
    std::function<int(ovra_hdl_t hdl, std::string *text)> call;
    // It may succeed without some memory: an option or a drive is passed over, a message is shorter.
    bool goes_on = false;
};

int node_result(int result, uefi_device_path_t *node, std::string *text)
{
    const owned<uefi_device_path_t> owner(node);
    EXPECT_TRUE(result == 0 || !node);
    *text = node ? to_hex(node, node->len) : "";
    return result;
}

int names_result(int result, char **names, std::string *text)
{
    EXPECT_TRUE(result == 0 || !names);
    for (const std::string &name : strings_of(names))
        *text += name + " ";
    return result;
}

int translate(const char *component_of_disk, std::string *text)
{
    const ovra::snapshot root = ovra::take_snapshot();
    if (!root)
        return -1;
    // Down the first children, to the level that is asked for.
    ht_node_t node = root.get();
    for (ht_node_t child = ht_child_node(node); child; child = ht_child_node(child)) {
        node = child;
        if (std::string(ovra::name_of(node)) == component_of_disk)
            break;
    }
    uefi_device_path_t *made = nullptr;
    const int result = dinode_to_uefinode(node, &made);
    return node_result(result, made, text);
}

int walk(const char *path, std::string *text)
{
    uefi_device_path_t **nodes = nullptr;
    const int result = add_hardware_paths(path, &nodes);
    const ovra::node_list list(nodes);
    *text = bytes_of(nodes);
    return result;
}

int encode(ovra_hdl_t hdl, const char *disk, std::string *text)
{
    ovra_epath_t path = nullptr;
    int len = 0;
    const int result = encode_path_logdrive(hdl, disk, "\\EFI", 1, &path, &len);
    EXPECT_EQ(result == 0, path != nullptr);
    *text = path ? to_hex(path, static_cast<size_t>(len)) : "";
    return result;
}

// The driver of texts, which tells names of disks and of devices apart.
int encode_text(ovra_hdl_t hdl, const char *device, std::string *text)
{
    mutable_text copy = {device};
    mutable_text file = {"\\EFI"};
    ovra_path_t instance = {copy, file};
    ovra_path_t *paths[] = {&instance, nullptr};
    ovra_epath_t path = nullptr;
    int len = 0;
    const int result = ovra_epath_encode(hdl, paths, 1, &path, &len);
    // A device is looked up, and nothing packed.
    const bool packed = result == 0 && std::string_view(device).find("/devices/") != 0;
    EXPECT_EQ(packed, path != nullptr);
    *text = path ? to_hex(path, static_cast<size_t>(len)) : "";
    return result;
}

int decode(ovra_hdl_t hdl, const std::string &nodes, std::string *text)
{
    bytes packed = from_hex(nodes);
    ovra_path_t **paths = nullptr;
    const int result =
        ovra_epath_decode_to_devices(hdl, packed.data(), static_cast<int>(packed.size()), &paths);
    for (ovra_path_t **path = paths; path && *path; ++path)
        *text +=
            std::string((*path)->device_path) + " " + ((*path)->file_path ? (*path)->file_path : "") + "\n";
    return result;
}

int build(int (*make_node)(const char *, uefi_device_path_t **), const char *name, std::string *text)
{
    uefi_device_path_t *node = nullptr;
    const int result = make_node(name, &node);
    return node_result(result, node, text);
}

int find_by_node(ovra_hdl_t hdl, const char *node, std::string *text)
{
    const bytes stored = from_hex(node);
    char **names = nullptr;
    const int result =
        ovra::find_drives(hdl, reinterpret_cast<const uefi_device_path_t *>(stored.data()), &names);
    return names_result(result, names, text);
}

int with_name(int (*call)(ovra_hdl_t, char *, char ***), ovra_hdl_t hdl, const char *name, std::string *text)
{
    mutable_text copy = {name};
    char **names = nullptr;
    const int result = call(hdl, copy, &names);
    return names_result(result, names, text);
}

int signature(std::string *text)
{
    int err = 0;
    const ovra::descriptor partition(vs_get_descriptor_by_name(VS_PARTITION, "/dev/rdsk/c0t1d0p1", &err));
    uint32_t value = 0;
    const int result = partition ? get_mbr_sig(partition.get(), &value) : -1;
    *text = std::to_string(value);
    return result;
}

template <typename constructor>
routine constructing(const char *name, const constructor &construct)
{
    return {name, [construct](ovra_hdl_t, std::string *text) {
                uefi_device_path_t *node = nullptr;
                const int result = construct(&node);
                return node_result(result, node, text);
            }};
}

const routine routines[] = {
    constructing("add_acpi", [](auto **out) { return add_acpi(1, 2, out); }),
    constructing("add_pci", [](auto **out) { return add_pci(1, 2, out); }),
    constructing("add_ctrl", [](auto **out) { return add_ctrl(1, out); }),
    constructing("add_scsi", [](auto **out) { return add_scsi(1, 2, out); }),
    constructing("add_atapi", [](auto **out) { return add_atapi(1, 2, 3, out); }),
    constructing("add_sata", [](auto **out) { return add_sata(1, 2, 3, out); }),
    {"dinode_to_uefinode_of_a_bridge", [](ovra_hdl_t, std::string *text) { return translate("pci", text); }},
    {"dinode_to_uefinode_of_a_function",
     [](ovra_hdl_t, std::string *text) { return translate("pci-ide", text); }},
    {"dinode_to_uefinode_of_ide", [](ovra_hdl_t, std::string *text) { return translate("ide", text); }},
    {"dinode_to_uefinode_of_a_disk", [](ovra_hdl_t, std::string *text) { return translate("hdrv", text); }},
    {"add_hardware_paths_to_SATA",
     [](ovra_hdl_t, std::string *text) { return walk("/dev/dsk/c0t0d0s0", text); }},
    {"add_hardware_paths_to_SCSI",
     [](ovra_hdl_t, std::string *text) { return walk("/devices/pci@0,0/pci1000,30@5/sd@3,1:a", text); }},
    {"add_hardware_paths_through_ide",
     [](ovra_hdl_t, std::string *text) {
         return walk("/devices/pci@0,0/pci-ide@1f,1/ide@1/hdrv@0,0:a", text);
     }},
    {"add_hd_path_of_a_slice",
     [](ovra_hdl_t, std::string *text) { return build(add_hd_path, "c0t0d0s0", text); }},
    {"add_hd_path_of_a_partition",
     [](ovra_hdl_t, std::string *text) { return build(add_hd_path, "c0t1d0p1", text); }},
    {"get_mbr_sig", [](ovra_hdl_t, std::string *text) { return signature(text); }},
    {"encode_path_logdrive", [](ovra_hdl_t hdl, std::string *text) { return encode(hdl, "c0t0d0s0", text); }},
    {"encode_path_logdrive_of_a_partition",
     [](ovra_hdl_t hdl, std::string *text) { return encode(hdl, "c0t1d0p1", text); }},
    {"encode_path_logdrive_through_ide",
     [](ovra_hdl_t hdl, std::string *text) { return encode(hdl, "c3t0d0s0", text); }},
    {"ovra_epath_encode_of_a_disk",
     [](ovra_hdl_t hdl, std::string *text) { return encode_text(hdl, "/dev/dsk/c0t0d0s0", text); }},
    {"ovra_epath_encode_of_a_partition",
     [](ovra_hdl_t hdl, std::string *text) { return encode_text(hdl, "c0t1d0p1", text); }},
    {"ovra_epath_encode_of_a_device",
     [](ovra_hdl_t hdl, std::string *text) {
         return encode_text(hdl, "/devices/pci@0,0/pci8086,2829@1f,2/disk@0,0:a", text);
     }},
    {"find_drive_guid", [](ovra_hdl_t hdl, std::string *text) { return find_by_node(hdl, slice_node, text); },
     true},
    {"find_drive_mbrsig",
     [](ovra_hdl_t hdl, std::string *text) { return find_by_node(hdl, partition_node, text); }, true},
    {"ovra_epath_decode_to_devices_of_a_short_form",
     [](ovra_hdl_t hdl, std::string *text) { return decode(hdl, partition_node, text); }, true},
    {"ovra_epath_decode_to_devices_of_hardware_paths",
     [](ovra_hdl_t hdl, std::string *text) {
         return decode(hdl, disk_nodes + "04 04 08 00 5c 00 00 00 " + end_instance + disk_nodes + end_entire,
                       text);
     },
     true},
    {"ovra_bootopt_logdev",
     [](ovra_hdl_t hdl, std::string *text) { return with_name(ovra_bootopt_logdev, hdl, "Boot0001", text); },
     true},
    {"ovra_bootopt_logdev_of_a_partition",
     [](ovra_hdl_t hdl, std::string *text) { return with_name(ovra_bootopt_logdev, hdl, "Boot0002", text); },
     true},
    {"ovra_bootopt_find",
     [](ovra_hdl_t hdl, std::string *text) { return with_name(ovra_bootopt_find, hdl, "c0t0d0s0", text); },
     true},
    {"ovra_bootopt_find_of_a_partition",
     [](ovra_hdl_t hdl, std::string *text) { return with_name(ovra_bootopt_find, hdl, "c0t1d0p1", text); },
     true},
};

class failing_platform : public mapping {
public:
    using mapping::hdl;

protected:
    void SetUp() override
    {
        mapping::SetUp();
        put_option("Boot0001", std::string(slice_node) + end_entire);
        put_option("Boot0002", std::string(partition_node) + end_entire);
        // A second match, so that a drive can be passed over.
        fakes::add_gpt_drive("c1t0d0").add_slice("/dev/dsk/c1t0d0s0", 0x800, 0x100000,
                                                 from_hex(guid_of_slice));
        fakes::add_mbr_drive("c1t1d0", 0x12345678).add_partition("/dev/rdsk/c1t1d0p1", 2048, 409600);
        fakes::put_link("/dev/dsk/c1t1d0p1", "/devices/pci@1,0/pci8086,a282@17/disk@2,0:r");
        fakes::add_gpt_drive("c3t0d0").add_slice("/dev/dsk/c3t0d0s0", 0x800, 0x100000, bytes(16, 0x33));
        fakes::put_link("/dev/dsk/c3t0d0s0", "../../devices/pci@0,0/pci-ide@1f,1/ide@1/hdrv@0,0:a");
    }
};

std::vector<std::string> words_of(const std::string &text)
{
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), {}};
}

// How many words of `whole` are not in `text`, which has the others in their order and nothing else; LONG_MAX
// when it has.
long missing(const std::string &text, const std::string &whole)
{
    const std::vector<std::string> all = words_of(whole);
    const std::vector<std::string> some = words_of(text);
    auto next = all.begin();
    for (const std::string &word : some) {
        next = std::find(next, all.end(), word);
        if (next == all.end())
            return LONG_MAX;
        ++next;
    }
    return static_cast<long>(all.size() - some.size());
}

// Whether `whole` begins with the words of `text`.
bool begins(const std::string &whole, const std::string &text)
{
    const std::vector<std::string> all = words_of(whole);
    const std::vector<std::string> some = words_of(text);
    return some.size() <= all.size() && std::equal(some.begin(), some.end(), all.begin());
}

void at_every_call(failing_platform &test, const routine &row)
{
    std::string expected;
    ASSERT_EQ(quietly([&] { return row.call(test.hdl, &expected); }), 0);
    for (const fakes::failing how : fakes::all_failings) {
        for (unsigned n = 0;; ++n) {
            SCOPED_TRACE("call " + std::to_string(n) + " fails in way " +
                         std::to_string(static_cast<int>(how)));
            count_blocks();
            ovra_hdl_t fresh = nullptr;
            ASSERT_EQ(ovra_init(&fresh), 0);
            std::string text;
            fakes::fail_platform_call(n, how);
            const int result = quietly([&] { return row.call(fresh, &text); });
            const bool failed = fakes::stop_failing();
            EXPECT_TRUE(result == 0 || result == -1);
            if (!failed) {
                EXPECT_EQ(result, 0);
            } else if (n == 0 && how == fakes::failing::error) {
                EXPECT_EQ(result, -1) << "whatever asks the platform does so for what it cannot be without";
            }
            EXPECT_EQ(fakes::platform_objects(), 0U);
            // The same call again, with the platform in order.
            text.clear();
            EXPECT_EQ(quietly([&] { return row.call(fresh, &text); }), 0);
            EXPECT_EQ(text, expected);
            ovra_fini(fresh);
            EXPECT_EQ(live_blocks(), 0);
            stop_counting();
            if (!failed)
                break;
        }
    }
}

void at_every_allocation(failing_platform &test, const routine &row)
{
    std::string expected;
    ASSERT_EQ(quietly([&] { return row.call(test.hdl, &expected); }), 0);
    std::string text;
    const auto body = [&](ovra_hdl_t fresh) {
        text.clear();
        return row.call(fresh, &text);
    };
    const auto check = [](const attempt &) { EXPECT_EQ(fakes::platform_objects(), 0U); };
    if (!row.goes_on) {
        for_each_refused_allocation(body, check);
        return;
    }
    // The handle's list grows at the first of its blocks, at a later one, or not at all.
    for (const unsigned before : {0U, 17U, 18U, 19U}) {
        SCOPED_TRACE(std::to_string(before) + " blocks before");
        for_each_refused_allocation_any_result(
            body,
            [&](const attempt &one) {
                check(one);
                if (one.refused == 0) {
                    EXPECT_EQ(one.result, 0);
                    EXPECT_EQ(text, expected);
                    return;
                }
                if (one.result == -1)
                    return;
                // What cannot be read is passed over, for want of memory too: with one block refused one word
                // is missing and no more, without memory from then on what would have come behind.
                EXPECT_EQ(one.result, 0);
                if (one.persistent) {
                    EXPECT_TRUE(begins(expected, text)) << text << " instead of " << expected;
                } else {
                    EXPECT_LE(missing(text, expected), 1) << text << " instead of " << expected;
                }
            },
            before);
    }
}

const bool routines_registered[] = {
    register_rows("failing_platform_at_every_call", routines, at_every_call, __FILE__, __LINE__),
    register_rows("failing_platform_at_every_allocation", routines, at_every_allocation, __FILE__, __LINE__),
};

// Where one drive is all there is, there is no result without it.
TEST_F(mapping, a_refused_allocation_loses_the_only_drive)
{
    const std::deque<fakes::drive> both = fakes::drives();
    const std::pair<const char *, fakes::drive> cases[] = {{slice_node, both[0]}, {partition_node, both[1]}};
    for (const auto &one : cases) {
        fakes::drives() = {one.second};
        for_each_refused_allocation([&](ovra_hdl_t fresh) {
            std::string text;
            return find_by_node(fresh, one.first, &text);
        });
        for_each_refused_allocation([&](ovra_hdl_t fresh) {
            std::string text;
            return decode(fresh, std::string(one.first) + end_entire, &text);
        });
    }
}

} // namespace
