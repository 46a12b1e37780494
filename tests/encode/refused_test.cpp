// SPDX-License-Identifier: MIT
// Refused allocations in argument lists, getters and the driver: what is said, -1, and nothing left behind.
#include <string>

#include <gtest/gtest.h>

#include "src/dpath/list.h"
#include "tests/encode/encoding.h"
#include "tests/encode/refused.h"

using namespace ovra::test;

#define A_GUID "e0c14753-f9be-11d2-9a0c-0090273fc14d"

namespace {

void sweep_arguments(const char *text, const char *const *parameters, const texts &wanted)
{
    SCOPED_TRACE(text);
    expected_messages messages{wanted};
    char untouched = 0;
    for_each_refused_allocation(
        [&](ovra_hdl_t) {
            auto *list = reinterpret_cast<uefi_arg_list_t *>(&untouched);
            const int result = arg_list_init(&list, text, parameters);
            if (result == 0)
                free_arglist(list);
            else
                EXPECT_EQ(reinterpret_cast<char *>(list), &untouched);
            return result;
        },
        [&](const attempt &attempt) { messages.look(attempt); });
    EXPECT_EQ(messages.seen, wanted);
}

} // namespace

TEST(refused_allocation, arg_list_init)
{
    constexpr const char *parameters[] = {"A", "B", "C", nullptr};
    for (const char *text : {"", "1", "1,,3", "A=1", "1,C=2,B=3"})
        sweep_arguments(text, parameters, {"unable to allocate arglistp\n"});
}

TEST(refused_allocation, arg_list_init_of_a_text_kept_whole)
{
    for (const char *text : {"", "1,2"})
        sweep_arguments(text, nullptr, {"unable to alloc arg_list\n"});
}

TEST(refused_allocation, getters)
{
    const made_arguments number("Ctrl(7)");
    const made_arguments id("Acpi(PNP0A03)");
    const made_arguments guid("VenHw(" A_GUID ",0102)");
    long refused = 0;
    const auto count = [&](const attempt &one) { refused += one.refused; };
    const auto sweep_number = [&](auto getter, auto value) {
        for_each_refused_allocation(
            [&](ovra_hdl_t) { return static_cast<int>(getter(number.list.get(), "Controller", &value, 0)); },
            count);
    };
    sweep_number(encode_arg_uint_common, uint64_t{0});
    sweep_number(encode_arg_uint8, uint8_t{0});
    sweep_number(encode_arg_uint16, uint16_t{0});
    sweep_number(encode_arg_uint32, uint32_t{0});
    sweep_number(encode_arg_uint64, uint64_t{0});
    for_each_refused_allocation(
        [&](ovra_hdl_t) {
            uint32_t value = 0;
            return encode_arg_eisaid(id.list.get(), "HID", &value);
        },
        count);
    for_each_refused_allocation(
        [&](ovra_hdl_t) {
            EFI_GUID value = {};
            return encode_arg_guid(guid.list.get(), "GUID", &value);
        },
        count);
    EXPECT_EQ(refused, 0) << "of these getters only the one below allocates";
    for_each_refused_allocation(
        [&](ovra_hdl_t) {
            void *bytes = &refused;
            size_t size = 0;
            const int result = encode_arg_hexdump(guid.list.get(), "Data", &bytes, &size, 1, 2);
            if (result == 0)
                free(bytes);
            else
                EXPECT_EQ(bytes, &refused);
            return result;
        },
        [&](const attempt &one) {
            count(one);
            EXPECT_EQ(one.messages, one.refused ? hexdump : "");
        });
    EXPECT_EQ(refused, 2);
}

namespace {

// Of argument lists one is longer than the room that the first has made.
const std::string long_number = "0x" + std::string(1000, '0') + "1";

text_path two_instances()
{
    return {text_path::with_file("PciRoot(0)/VenHw(" A_GUID ",00)", "a"), {"AcpiAdr(" + long_number + ")"}};
}

const texts path_messages = {"failure setting up argument list for PciRoot 0\n",
                             "failure setting up argument list for AcpiAdr " + long_number + "\n",
                             "failure encoding PciRoot\n",
                             "failure encoding VenHw\n",
                             "failure encoding AcpiAdr\n",
                             "unable to create file device path\n",
                             "unable to add dpath_node\n"};

// A list of nodes has its END nodes in blocks of their own.
texts list_messages()
{
    texts all = path_messages;
    all.insert("failed adding end instance\n");
    return all;
}

} // namespace

TEST(refused_allocation, encode_uefipath)
{
    text_path path = two_instances();
    expected_messages messages{list_messages()};
    for_each_refused_allocation(
        [&](ovra_hdl_t) {
            uefi_device_path_t *none = nullptr;
            uefi_device_path_t **nodes = &none;
            const int result = encode_uefipath(path.get(), &nodes);
            if (result == 0)
                free_device_path(nodes);
            else
                EXPECT_EQ(nodes, &none);
            return result;
        },
        [&](const attempt &one) { messages.look(one); });
    EXPECT_EQ(messages.seen, messages.wanted);
}

TEST(refused_allocation, ovra_epath_encode)
{
    text_path path = two_instances();
    expected_messages messages{path_messages};
    uint8_t untouched = 0;
    for_each_refused_allocation(
        [&](ovra_hdl_t hdl) {
            ovra_epath_t packed = &untouched;
            int length = -4711;
            const int result = ::ovra_epath_encode(hdl, path.get(), 0, &packed, &length);
            if (result == 0) {
                free(packed);
            } else {
                EXPECT_EQ(packed, &untouched);
                EXPECT_EQ(length, -4711);
            }
            return result;
        },
        [&](const attempt &one) {
            messages.look(one);
            if (one.refused > 0) {
                EXPECT_TRUE(one.messages.ends_with("error with encode_uefipath\n")) << one.messages;
            }
        });
    EXPECT_EQ(messages.seen, path_messages);
}

TEST(refused_allocation, long_path_that_grows_its_list)
{
    std::string text;
    for (int i = 0; i < 100; ++i) // 600 bytes
        text += "Pci(1,2)/";
    text_path path{{text}};
    const realloc_guard moves(realloc_policy::moves);
    for_each_refused_allocation([&](ovra_hdl_t hdl) {
        ovra_epath_t packed = nullptr;
        const int result = ::ovra_epath_encode(hdl, path.get(), 0, &packed, nullptr);
        free(packed);
        return result;
    });
}
