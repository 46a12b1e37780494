// SPDX-License-Identifier: MIT
// Whole paths: instances, files, what is said on the way, and outputs that nobody wants.
#include <string>

#include <gtest/gtest.h>

#include "src/dpath/dpath.h"
#include "src/dpath/list.h"
#include "tests/encode/encoding.h"

using namespace ovra::test;

namespace {

constexpr const char *root = "02 01 0c 00  d0 41 03 0a  00 00 00 00 ";
constexpr const char *pci = "01 01 06 00  00 01 ";
constexpr const char *file_a = "04 04 08 00  61 00 00 00 ";
constexpr const char *file_b = "04 04 08 00  62 00 00 00 ";
constexpr const char *end_instance = "7f 01 04 00 ";

std::string all(std::initializer_list<const char *> nodes)
{
    std::string text;
    for (const char *node : nodes)
        text += node;
    return hex(text + end_entire);
}

} // namespace

TEST(ovra_epath_encode, file_follows_the_nodes_of_its_instance)
{
    text_path path{text_path::with_file("PciRoot(0)/Pci(1,0)", "a")};
    const encoding given = encode(path);
    EXPECT_EQ(given.bytes, all({root, pci, file_a}));
    EXPECT_EQ(given.said, "");
}

TEST(ovra_epath_encode, empty_device_text_with_a_file)
{
    text_path path{text_path::with_file("", "a")};
    EXPECT_EQ(encode(path).bytes, all({file_a}));
}

TEST(ovra_epath_encode, empty_device_text_without_a_file)
{
    text_path path{{""}};
    EXPECT_EQ(encode(path).bytes, hex(end_entire));
}

TEST(ovra_epath_encode, empty_file_is_a_node_with_a_terminator_only)
{
    text_path path{text_path::with_file("Pci(1,0)", "")};
    EXPECT_EQ(encode(path).bytes, all({pci, "04 04 06 00  00 00 "}));
}

TEST(ovra_epath_encode, file_is_taken_as_it_stands)
{
    text_path path{text_path::with_file("", "\\EFI/(x) =,\xc3\xa9")};
    EXPECT_EQ(encode(path).bytes,
              all({"04 04 1e 00  5c 00 45 00 46 00 49 00 2f 00 28 00 78 00 29 00 20 00 3d 00 2c 00 e9 00 "
                   "00 00 "}));
}

TEST(ovra_epath_encode, two_instances)
{
    text_path path{text_path::with_file("PciRoot(0)", "a"), text_path::with_file("Pci(1,0)", "b")};
    EXPECT_EQ(encode(path).bytes, all({root, file_a, end_instance, pci, file_b}));
}

TEST(ovra_epath_encode, three_instances_with_and_without_nodes)
{
    text_path path{{"PciRoot(0)"}, {""}, text_path::with_file("", "b")};
    EXPECT_EQ(encode(path).bytes, all({root, end_instance, end_instance, file_b}));
}

TEST(ovra_epath_encode, later_instances_are_uefi_text_whatever_they_hold)
{
    text_path disk{{"PciRoot(0)"}, {"c0t0d0s0"}};
    EXPECT_EQ(encode(disk).said, "invalid devnode: c0t0d0s0\nerror with encode_uefipath\n");
    text_path device{{"PciRoot(0)"}, {"/devices/x"}};
    EXPECT_EQ(encode(device).said, "invalid devnode: devices\nerror with encode_uefipath\n");
    text_path name{{""}, {"/dev/dsk/c0t0d0s0"}};
    EXPECT_EQ(encode(name).said, "invalid devnode: dev\nerror with encode_uefipath\n");
}

TEST(ovra_epath_encode, failure_in_a_later_instance_leaves_the_outputs)
{
    text_path path{text_path::with_file("PciRoot(0)", "a"), {"Foo(1)"}};
    const encoding given = encode(path);
    EXPECT_EQ(given.result, -1);
    EXPECT_EQ(given.said, "Foo not found in encode table\nerror with encode_uefipath\n");
}

TEST(ovra_epath_encode, file_that_is_no_utf8)
{
    text_path path{text_path::with_file("PciRoot(0)", "\xff")};
    const encoding given = encode(path);
    EXPECT_EQ(given.result, -1);
    EXPECT_EQ(given.said,
              "iconv(\xff) failedunable to create file device path\nerror with encode_uefipath\n");
}

TEST(ovra_epath_encode, disk_name_of_two_instances)
{
    for (const char *name : {"c0t0d0s0", "c9", "/dev/dsk/c0t0d0s0", "/dev/dsk/c"}) {
        text_path path{{name}, {"PciRoot(0)"}};
        const encoding given = encode(path);
        EXPECT_EQ(given.result, -1);
        EXPECT_EQ(given.said, "encoding composite drives not supported\n") << name;
    }
}

TEST(ovra_epath_encode, a_disk_name_has_a_digit_behind_the_c)
{
    EXPECT_EQ(encode("c").said, "invalid devnode: c\nerror with encode_uefipath\n");
    EXPECT_EQ(encode("cx").said, "invalid devnode: cx\nerror with encode_uefipath\n");
    EXPECT_EQ(encode("C0t0d0s0").said, "invalid devnode: C0t0d0s0\nerror with encode_uefipath\n");
    EXPECT_EQ(encode("c:").said, "invalid devnode: c:\nerror with encode_uefipath\n");
    EXPECT_EQ(encode("c/").said, "invalid devnode: c\nerror with encode_uefipath\n");
}

TEST(ovra_epath_encode, either_output_may_be_null)
{
    text_path path{{"PciRoot(0)/Pci(1,0)"}};
    const messages said;
    int length = 0;
    EXPECT_EQ(ovra_epath_encode(nullptr, path.get(), 0, nullptr, &length), 0);
    EXPECT_EQ(length, 22);
    ovra_epath_t packed = nullptr;
    EXPECT_EQ(ovra_epath_encode(nullptr, path.get(), 0, &packed, nullptr), 0);
    const ovra::owned<uint8_t> given(packed);
    EXPECT_EQ(to_hex(packed, 22), all({root, pci}));
    EXPECT_EQ(ovra_epath_encode(nullptr, path.get(), 0, nullptr, nullptr), 0);
    text_path bad{{"Foo(1)"}};
    EXPECT_EQ(ovra_epath_encode(nullptr, bad.get(), 0, nullptr, nullptr), -1);
}

TEST(ovra_epath_encode, flags_mean_nothing_to_uefi_text)
{
    text_path path{{"PciRoot(0)/Pci(1,0)"}};
    for (const int flags : {0, 1, -1, 0x7fffffff}) {
        ovra_epath_t packed = nullptr;
        int length = 0;
        ASSERT_EQ(ovra_epath_encode(nullptr, path.get(), flags, &packed, &length), 0);
        const ovra::owned<uint8_t> given(packed);
        EXPECT_EQ(to_hex(packed, static_cast<size_t>(length)), all({root, pci}));
    }
}

TEST(ovra_epath_encode, text_is_not_changed)
{
    std::string device = "//PciRoot(UID=0)/AcpiAdr(1,2)/Pci(1,0)/";
    std::string file = "a";
    const std::string device_before = device;
    ovra_path_t one = {device.data(), file.data()};
    ovra_path_t *paths[] = {&one, nullptr};
    EXPECT_EQ(ovra_epath_encode(nullptr, paths, 0, nullptr, nullptr), 0);
    EXPECT_EQ(device, device_before);
    EXPECT_EQ(file, "a");
}

TEST(ovra_epath_encode, traces)
{
    text_path path{{"PciRoot()/AcpiAdr(1,2)x"}};
    EXPECT_EQ(encode(path, 0, 1).said, "processing devnode: PciRoot()\n"
                                       "no args for PciRoot()\n"
                                       "free_arglist  arg_list->argc = 0\n"
                                       "processing devnode: AcpiAdr(1,2)x\n"
                                       "args for AcpiAdr(1,2)x are: '1,2'\n"
                                       "free_arglist  arg_list->argc = 0\n");
}

TEST(ovra_epath_encode, traces_and_errors_together)
{
    text_path path{{"Pci(1,0)/Pci(1,9)"}};
    const std::string said = encode(path, 1, 1).said;
    EXPECT_TRUE(said.starts_with("processing devnode: Pci(1,0)\n"
                                 "args for Pci(1,0) are: '1,0'\n"
                                 "free_arglist  arg_list->argc = 2\n"
                                 "processing devnode: Pci(1,9)\n"
                                 "args for Pci(1,9) are: '1,9'\n"
                                 "function' is greater than 7:  9\n"))
        << said;
    EXPECT_TRUE(said.ends_with("error with encode_uefipath\n")) << said;
    EXPECT_LT(said.find("function'"), said.find("failure encoding Pci\n"));
}

TEST(ovra_epath_encode, is_silent_when_both_switches_are_off)
{
    text_path path{{"Pci(1,9)"}};
    const encoding given = encode(path, 0, 0);
    EXPECT_EQ(given.result, -1);
    EXPECT_EQ(given.said, "");
}

TEST(encode_uefipath, empty_array_is_an_end_node)
{
    ovra_path_t *paths[] = {nullptr};
    uefi_device_path_t **nodes = nullptr;
    ASSERT_EQ(encode_uefipath(paths, &nodes), 0);
    const ovra::node_list list(nodes);
    ASSERT_NE(nodes[0], nullptr);
    EXPECT_EQ(to_hex(nodes[0], nodes[0]->len), end_entire);
    EXPECT_EQ(nodes[1], nullptr);
    int length = 0;
    EXPECT_EQ(device_path_pack(nodes, nullptr, &length), 0);
    EXPECT_EQ(length, 4);
}

TEST(encode_uefipath, gives_one_node_of_the_list_for_each_of_the_text)
{
    text_path path{text_path::with_file("PciRoot(0)/Pci(1,0)", "a"), {"Pci(1,0)"}};
    uefi_device_path_t **nodes = nullptr;
    ASSERT_EQ(encode_uefipath(path.get(), &nodes), 0);
    const ovra::node_list list(nodes);
    const char *expected[] = {root, pci, file_a, end_instance, pci, end_entire};
    size_t count = 0;
    for (; nodes[count]; ++count) {
        ASSERT_LT(count, std::size(expected));
        EXPECT_EQ(to_hex(nodes[count], nodes[count]->len), hex(expected[count]));
    }
    EXPECT_EQ(count, std::size(expected));
}

// The list, packed, is what comes of packing at once.
TEST(encode_uefipath, gives_the_nodes_of_the_packed_path)
{
    std::string chain;
    for (int i = 0; i < 200; ++i)
        chain += "Pci(1,0)/AcpiAdr(" + std::string(static_cast<size_t>(i * i % 500), '0') + "1,2)/";
    for (const std::string &file :
         {std::string(), std::string("a"), std::string(32765, 'x'), std::string(32769, 'x')}) {
        text_path path{text_path::with_file("", file), text_path::with_file(chain, file), {""}};
        uefi_device_path_t **nodes = nullptr;
        ASSERT_EQ(encode_uefipath(path.get(), &nodes), 0);
        const ovra::node_list list(nodes);
        ovra_epath_t packed = nullptr;
        int length = 0;
        ASSERT_EQ(device_path_pack(nodes, &packed, &length), 0);
        const ovra::owned<uint8_t> given(packed);
        EXPECT_EQ(encode(path).bytes, to_hex(packed, static_cast<size_t>(length)));
    }
}

TEST(encode_uefipath, failure_leaves_the_list)
{
    text_path path{{"PciRoot(0)"}, {"Pci"}};
    uefi_device_path_t *none = nullptr;
    uefi_device_path_t **nodes = &none;
    const messages said(1, 0);
    EXPECT_EQ(encode_uefipath(path.get(), &nodes), -1);
    EXPECT_EQ(nodes, &none);
    EXPECT_EQ(said.text(), "invalid devnode: Pci\n");
}

// Steps that other encoders share, called by themselves.

namespace {

std::string node_text(int result, uefi_device_path_t *node)
{
    EXPECT_EQ(result, 0);
    const ovra::owned<uefi_device_path_t> given(node);
    return to_hex(node, node->len);
}

ovra::owned<uefi_arg_list_t> no_arguments()
{
    return ovra::owned<uefi_arg_list_t>(static_cast<uefi_arg_list_t *>(calloc(1, sizeof(uefi_arg_list_t))));
}

} // namespace

TEST(encode_acpi_common, hid_and_uid)
{
    uefi_device_path_t *node = nullptr;
    const int result = encode_acpi_common(0x01020304, 0x05060708, &node);
    EXPECT_EQ(node_text(result, node), hex("02 01 0c 00  04 03 02 01  08 07 06 05"));
}

TEST(encode_usbclass_common, fixed_class)
{
    const auto args = no_arguments();
    uefi_device_path_t *node = nullptr;
    const int result = encode_usbclass_common(args.get(), 0x42, &node);
    EXPECT_EQ(node_text(result, node), hex("03 0f 0b 00  ff ff  ff ff  42  ff  ff"));
}

TEST(encode_usbsubclass_common, fixed_class_and_subclass)
{
    const auto args = no_arguments();
    uefi_device_path_t *node = nullptr;
    const int result = encode_usbsubclass_common(args.get(), 0x42, 0x43, &node);
    EXPECT_EQ(node_text(result, node), hex("03 0f 0b 00  ff ff  ff ff  42  43  ff"));
}

TEST(encode_path_common, type_is_given_and_failure_leaves_the_result)
{
    const auto args = no_arguments();
    auto *untouched = reinterpret_cast<uefi_device_path_t *>(args.get());
    uefi_device_path_t *node = untouched;
    const messages said(1, 0);
    EXPECT_EQ(encode_path_common(5, args.get(), &node), -1);
    EXPECT_EQ(node, untouched);
    EXPECT_EQ(said.text(), "failed to get variable 'subtype'\n");
}
