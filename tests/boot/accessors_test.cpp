// SPDX-License-Identifier: MIT
#include <set>
#include <utility>

#include "tests/boot/fixture.h"

using namespace ovra::test;

namespace {

// Boot0001: PciRoot(0x0)/Pci(0x1f,0x2)/Sata(0x0,0xffff,0x0), a file, and a second packed path behind the end.
constexpr char device_nodes[] = "02 01 0c 00  d0 41 03 0a  00 00 00 00"
                                "01 01 06 00  02 1f"
                                "03 12 0a 00  00 00 ff ff 00 00";
constexpr char file_node[] = "04 04 0a 00  5c 00 78 00 00 00";
constexpr char end_node[] = "7f ff 04 00";
constexpr char device_text[] = "/PciRoot(0x0)/Pci(0x1f,0x2)/Sata(0x0,0xffff,0x0)";

std::string whole_path()
{
    return std::string(device_nodes) + file_node + end_node;
}

bytes option_bytes(const std::string &path_hex, const std::string &optional_hex = "aa bb")
{
    const bytes path = from_hex(path_hex);
    bytes all = {1, 0, 0, 0, static_cast<uint8_t>(path.size()), 0, 'A', 0, 0, 0};
    all.insert(all.end(), path.begin(), path.end());
    const bytes optional = from_hex(optional_hex);
    all.insert(all.end(), optional.begin(), optional.end());
    return all;
}

class accessors : public open_handle {
protected:
    void SetUp() override
    {
        open_handle::SetUp();
        fakes::put_variable("Boot0001", option_bytes(whole_path()));
    }

    std::string stored() { return to_hex(fakes::variable("Boot0001").value()); }

    // What a call says, and that it fails.
    template <typename call>
    std::string failing(call body)
    {
        messages said(1, 0);
        EXPECT_EQ(body(), -1);
        return said.text();
    }

    // The eleven accessors, each of which must say `wanted`.
    void expect_every_accessor_fails(char *name, const std::string &wanted)
    {
        char *text = nullptr;
        uint32_t attr = 0;
        void *data = nullptr;
        size_t len = 0;
        uint8_t path[] = {0x7f, 0xff, 4, 0};
        EXPECT_EQ(failing([&] { return ovra_bootopt_devpath_get(hdl, name, &text); }), wanted);
        EXPECT_EQ(failing([&] { return ovra_bootopt_devpath_set(hdl, name, arg("Pci(0,0)")); }), wanted);
        EXPECT_EQ(failing([&] { return ovra_bootopt_bootpath_get(hdl, name, &text); }), wanted);
        EXPECT_EQ(failing([&] { return ovra_bootopt_bootpath_set(hdl, name, arg("\\x")); }), wanted);
        EXPECT_EQ(failing([&] { return ovra_bootopt_encoded_path_set(hdl, name, path, sizeof path); }),
                  wanted);
        EXPECT_EQ(failing([&] { return ovra_bootopt_desc_get(hdl, name, &text); }), wanted);
        EXPECT_EQ(failing([&] { return ovra_bootopt_desc_set(hdl, name, arg("x")); }), wanted);
        EXPECT_EQ(failing([&] { return ovra_bootopt_attr_get(hdl, name, &attr); }), wanted);
        EXPECT_EQ(failing([&] { return ovra_bootopt_attr_set(hdl, name, 1); }), wanted);
        EXPECT_EQ(failing([&] { return ovra_bootopt_optdata_get(hdl, name, &data, &len); }), wanted);
        EXPECT_EQ(failing([&] { return ovra_bootopt_optdata_set(hdl, name, path, sizeof path); }), wanted);
        EXPECT_EQ(text, nullptr);
        EXPECT_EQ(data, nullptr);
    }

    char *option = arg("Boot0001");
    char *missing = arg("Boot0002");
};

TEST_F(accessors, device_and_file_text_of_the_first_instance_are_read)
{
    char *text = nullptr;
    ASSERT_EQ(ovra_bootopt_devpath_get(hdl, option, &text), 0);
    EXPECT_STREQ(text, device_text);
    EXPECT_TRUE(is_tracked(hdl, text));
    ASSERT_EQ(ovra_bootopt_bootpath_get(hdl, option, &text), 0);
    EXPECT_STREQ(text, "\\x");
    EXPECT_TRUE(is_tracked(hdl, text));
}

TEST_F(accessors, other_fields_are_read)
{
    char *desc = nullptr;
    uint32_t attr = 0;
    void *optdata = nullptr;
    size_t optdata_len = 0;
    ASSERT_EQ(ovra_bootopt_desc_get(hdl, option, &desc), 0);
    EXPECT_STREQ(desc, "A");
    ASSERT_EQ(ovra_bootopt_attr_get(hdl, option, &attr), 0);
    EXPECT_EQ(attr, 1U);
    ASSERT_EQ(ovra_bootopt_optdata_get(hdl, option, &optdata, &optdata_len), 0);
    EXPECT_EQ(to_hex(optdata, optdata_len), "aa bb");
}

TEST_F(accessors, optional_data_that_is_not_there_is_null_and_0)
{
    fakes::put_variable("Boot0001", option_bytes(whole_path(), ""));
    int any = 0;
    void *optdata = &any;
    size_t optdata_len = 7;
    ASSERT_EQ(ovra_bootopt_optdata_get(hdl, option, &optdata, &optdata_len), 0);
    EXPECT_EQ(optdata, nullptr);
    EXPECT_EQ(optdata_len, 0U);
}

TEST_F(accessors, bootpath_of_a_path_without_file_fails_silently)
{
    fakes::put_variable("Boot0001", option_bytes(std::string(device_nodes) + end_node));
    char *text = arg("as it was");
    EXPECT_EQ(failing([&] { return ovra_bootopt_bootpath_get(hdl, option, &text); }), "");
    EXPECT_STREQ(text, "as it was");
}

TEST_F(accessors, text_of_a_path_without_an_instance_fails_silently)
{
    fakes::put_variable("Boot0001", option_bytes(""));
    char *text = nullptr;
    EXPECT_EQ(failing([&] { return ovra_bootopt_devpath_get(hdl, option, &text); }), "");
    EXPECT_EQ(failing([&] { return ovra_bootopt_bootpath_get(hdl, option, &text); }), "");
}

TEST_F(accessors, path_that_cannot_be_decoded_says_so)
{
    fakes::put_variable("Boot0001", option_bytes("01 01 07 00  02 1f"));
    char *text = nullptr;
    const std::string wanted =
        "encoded_path does not match encoded_path_len\nunable to ovra_epath_decode: Boot0001\n";
    EXPECT_EQ(failing([&] { return ovra_bootopt_devpath_get(hdl, option, &text); }), wanted);
    EXPECT_EQ(failing([&] { return ovra_bootopt_bootpath_get(hdl, option, &text); }), wanted);
    EXPECT_EQ(failing([&] { return ovra_bootopt_devpath_set(hdl, option, arg("Pci(0,0)")); }), wanted);
    EXPECT_EQ(failing([&] { return ovra_bootopt_bootpath_set(hdl, option, arg("\\y")); }), wanted);
}

TEST_F(accessors, setting_a_text_of_a_path_without_an_instance_is_refused)
{
    fakes::put_variable("Boot0001", option_bytes(""));
    const std::string before = stored();
    EXPECT_EQ(failing([&] { return ovra_bootopt_devpath_set(hdl, option, arg("Pci(0,0)")); }),
              "unable to ovra_epath_decode: Boot0001\n");
    EXPECT_EQ(stored(), before);
}

TEST_F(accessors, setting_the_device_text_keeps_file_description_and_data)
{
    ASSERT_EQ(ovra_bootopt_devpath_set(hdl, option, arg("Pci(0x1,0x2)")), 0);
    const bytes wanted = option_bytes(std::string("01 01 06 00  02 01") + file_node + end_node);
    EXPECT_EQ(stored(), to_hex(wanted));
}

TEST_F(accessors, setting_the_file_text_keeps_the_device_text)
{
    fakes::put_variable("Boot0001", option_bytes(std::string("01 01 06 00  02 1f") + file_node + end_node));
    ASSERT_EQ(ovra_bootopt_bootpath_set(hdl, option, arg("\\y")), 0);
    const bytes wanted = option_bytes("01 01 06 00  02 1f  04 04 0a 00  5c 00 79 00 00 00  7f ff 04 00");
    EXPECT_EQ(stored(), to_hex(wanted));
}

TEST_F(accessors, further_instances_stay_as_they_were_decoded)
{
    const std::string second = "7f 01 04 00  01 05 08 00  07 00 00 00";
    fakes::put_variable("Boot0001", option_bytes("01 01 06 00  02 1f" + second + end_node));
    ASSERT_EQ(ovra_bootopt_devpath_set(hdl, option, arg("Pci(1,1)")), 0);
    EXPECT_EQ(stored(), to_hex(option_bytes("01 01 06 00  01 01" + second + end_node)));
}

TEST_F(accessors, kept_sata_port_is_lost_when_a_text_goes_through_the_encoder)
{
    fakes::put_variable("Boot0001", option_bytes("03 12 0a 00  05 00 ff ff 00 00" + std::string(end_node)));
    ASSERT_EQ(ovra_bootopt_bootpath_set(hdl, option, arg("\\x")), 0);
    EXPECT_EQ(stored(),
              to_hex(option_bytes("03 12 0a 00  00 00 ff ff 00 00" + std::string(file_node) + end_node)));
}

TEST_F(accessors, text_that_cannot_be_encoded_leaves_the_option)
{
    const std::string before = stored();
    EXPECT_EQ(
        failing([&] { return ovra_bootopt_devpath_set(hdl, option, arg("Foo(1)")); }),
        "Foo not found in encode table\nerror with encode_uefipath\nunable to ovra_epath_encode: Boot0001\n");
    EXPECT_EQ(stored(), before);
}

TEST_F(accessors, packed_path_is_replaced_byte_for_byte)
{
    bytes path = from_hex("01 01 06 00  02 1f  7f ff 04 00  de ad");
    ASSERT_EQ(ovra_bootopt_encoded_path_set(hdl, option, path.data(), static_cast<int>(path.size())), 0);
    EXPECT_EQ(stored(), to_hex(option_bytes("01 01 06 00  02 1f  7f ff 04 00  de ad")));
}

TEST_F(accessors, attributes_keep_path_description_and_data_byte_for_byte)
{
    ASSERT_EQ(ovra_bootopt_attr_set(hdl, option, 0x89abcdef), 0);
    bytes wanted = option_bytes(whole_path());
    wanted[0] = 0xef, wanted[1] = 0xcd, wanted[2] = 0xab, wanted[3] = 0x89;
    EXPECT_EQ(stored(), to_hex(wanted));
}

TEST_F(accessors, description_is_replaced_alone)
{
    ASSERT_EQ(ovra_bootopt_desc_set(hdl, option, arg("B")), 0);
    bytes wanted = option_bytes(whole_path());
    wanted[6] = 'B';
    EXPECT_EQ(stored(), to_hex(wanted));
}

TEST_F(accessors, optional_data_of_length_0_ends_the_variable_at_the_path)
{
    ASSERT_EQ(ovra_bootopt_optdata_set(hdl, option, nullptr, 0), 0);
    EXPECT_EQ(stored(), to_hex(option_bytes(whole_path(), "")));
    uint8_t data[] = {1, 2, 3};
    ASSERT_EQ(ovra_bootopt_optdata_set(hdl, option, data, sizeof data), 0);
    EXPECT_EQ(stored(), to_hex(option_bytes(whole_path(), "01 02 03")));
}

TEST_F(accessors, every_accessor_fails_for_a_missing_option_and_creates_nothing)
{
    expect_every_accessor_fails(
        missing, "unable to read variable Boot0002\nunable to get existing boot option Boot0002\n");
    EXPECT_EQ(fakes::variable_count(), 1U);
}

TEST_F(accessors, every_accessor_fails_for_a_name_that_is_no_option)
{
    fakes::put_variable("Boot000a", option_bytes(whole_path())); // the name alone is what is wrong
    expect_every_accessor_fails(
        arg("Boot000a"), "incorrect bootopt name: Boot000a\nunable to get existing boot option Boot000a\n");
    EXPECT_EQ(to_hex(fakes::variable("Boot000a").value()), to_hex(option_bytes(whole_path())));
}

TEST_F(accessors, write_that_the_firmware_refuses_says_so)
{
    fakes::answer_command(OVRA_SET_VARIABLE, EFI_OUT_OF_RESOURCES);
    const std::string wanted =
        "failed to create load option Boot0001\nunable to set existing boot option Boot0001\n";
    EXPECT_EQ(failing([&] { return ovra_bootopt_attr_set(hdl, option, 0); }), wanted);
    EXPECT_EQ(failing([&] { return ovra_bootopt_desc_set(hdl, option, arg("B")); }), wanted);
    EXPECT_EQ(failing([&] { return ovra_bootopt_devpath_set(hdl, option, arg("Pci(0,0)")); }), wanted);
    EXPECT_EQ(failing([&] { return ovra_bootopt_bootpath_set(hdl, option, arg("\\y")); }), wanted);
    uint8_t path[] = {0x7f, 0xff, 4, 0};
    EXPECT_EQ(failing([&] { return ovra_bootopt_encoded_path_set(hdl, option, path, sizeof path); }), wanted);
    EXPECT_EQ(failing([&] { return ovra_bootopt_optdata_set(hdl, option, nullptr, 0); }), wanted);
}

TEST_F(accessors, nothing_is_said_while_the_switch_is_off)
{
    messages said(0, 0);
    EXPECT_EQ(ovra_bootopt_desc_set(hdl, missing, arg("x")), -1);
    EXPECT_EQ(said.text(), "");
}

// Each with every one of its allocations refused: -1, nothing leaked, and the option as it was or wholly
// changed.
TEST(accessors_without_memory, leave_the_option_as_it_was)
{
    struct accessor_case {
        const char *name;
        sweep_body call;
        bytes changed; // what the variable is after success
    };
    static uint8_t path[] = {0x7f, 0xff, 4, 0};
    static uint8_t data[] = {1};
    const bytes before = option_bytes(std::string("01 01 06 00  02 1f") + file_node + end_node);
    bytes other_desc = before;
    other_desc[6] = 'B';
    bytes other_attr = before;
    other_attr[0] = 0;
    const accessor_case cases[] = {
        {"devpath_set",
         [](ovra_hdl_t hdl) { return ovra_bootopt_devpath_set(hdl, arg("Boot0001"), arg("Pci(1,1)")); },
         option_bytes(std::string("01 01 06 00  01 01") + file_node + end_node)},
        {"bootpath_set",
         [](ovra_hdl_t hdl) { return ovra_bootopt_bootpath_set(hdl, arg("Boot0001"), arg("\\y")); },
         option_bytes("01 01 06 00  02 1f  04 04 0a 00  5c 00 79 00 00 00  7f ff 04 00")},
        {"encoded_path_set",
         [](ovra_hdl_t hdl) {
             return ovra_bootopt_encoded_path_set(hdl, arg("Boot0001"), path, sizeof path);
         },
         option_bytes(end_node)},
        {"desc_set", [](ovra_hdl_t hdl) { return ovra_bootopt_desc_set(hdl, arg("Boot0001"), arg("B")); },
         other_desc},
        {"attr_set", [](ovra_hdl_t hdl) { return ovra_bootopt_attr_set(hdl, arg("Boot0001"), 0); },
         other_attr},
        {"optdata_set",
         [](ovra_hdl_t hdl) { return ovra_bootopt_optdata_set(hdl, arg("Boot0001"), data, sizeof data); },
         option_bytes(std::string("01 01 06 00  02 1f") + file_node + end_node, "01")},
    };
    const environment no_files{"OVRA_TEST_FILE", nullptr};
    for (const accessor_case &one : cases) {
        SCOPED_TRACE(one.name);
        fakes::reset();
        fakes::put_variable("Boot0001", before);
        for_each_refused_allocation(
            [&](ovra_hdl_t hdl) {
                fakes::put_variable("Boot0001", before);
                return one.call(hdl);
            },
            [&](const attempt &attempt) {
                const bytes &wanted = attempt.result == 0 ? one.changed : before;
                EXPECT_EQ(to_hex(fakes::variable("Boot0001").value()), to_hex(wanted));
            });
    }
}

TEST(accessors_without_memory, getters_fail)
{
    const environment no_files{"OVRA_TEST_FILE", nullptr};
    fakes::reset();
    fakes::put_variable("Boot0001", option_bytes(whole_path()));
    const auto option = arg("Boot0001");
    for_each_refused_allocation([=](ovra_hdl_t hdl) {
        char *text = nullptr;
        return ovra_bootopt_desc_get(hdl, option, &text);
    });
    for_each_refused_allocation([=](ovra_hdl_t hdl) {
        void *optional = nullptr;
        size_t length = 0;
        return ovra_bootopt_optdata_get(hdl, option, &optional, &length);
    });
    uint32_t attributes = 0;
    for_each_refused_allocation(
        [&](ovra_hdl_t hdl) {
            attributes = 0x5a5a5a5a;
            return ovra_bootopt_attr_get(hdl, option, &attributes);
        },
        [&](const attempt &attempt) {
            const auto stored = fakes::variable("Boot0001").value();
            uint32_t wanted = 0;
            memcpy(&wanted, stored.data(), sizeof wanted);
            EXPECT_EQ(attributes, attempt.result == 0 ? wanted : 0x5a5a5a5a);
        });
}

// As the decoder gives it; only what is written back must be whole.
TEST(accessors_without_memory, text_getters_fail_or_give_a_shorter_text)
{
    const environment no_files{"OVRA_TEST_FILE", nullptr};
    fakes::reset();
    const std::string path = "01 03 06 00  ab cd"
                             "01 01 06 00  02 1f" +
                             std::string(file_node) + end_node;
    const bytes before = option_bytes(path);
    fakes::put_variable("Boot0001", before);
    const auto texts_of = [](auto getter) {
        std::set<std::string> whole;
        std::set<std::string> refused;
        std::string text;
        for_each_refused_allocation_any_result(
            [&](ovra_hdl_t hdl) {
                char *found = nullptr;
                const int result = getter(hdl, arg("Boot0001"), &found);
                text = result == 0 ? found : "(none)";
                return result;
            },
            [&](const attempt &attempt) {
                EXPECT_EQ(attempt.result, text == "(none)" ? -1 : 0);
                (attempt.refused == 0 ? whole : refused).insert(text);
            });
        return std::pair(whole, refused);
    };
    using set = std::set<std::string>;
    const std::string device = "/HardwarePath(0x3,0600abcd)/Pci(0x1f,0x2)";
    EXPECT_EQ(texts_of(ovra_bootopt_devpath_get),
              std::pair(set{device}, set{"(none)", "/Pci(0x1f,0x2)", device})); // the file's text was lost
    EXPECT_EQ(texts_of(ovra_bootopt_bootpath_get), std::pair(set{"\\x"}, set{"(none)", "\\x"}));

    // What the getters give shorter the setters refuse.
    for_each_refused_allocation(
        [&](ovra_hdl_t hdl) {
            fakes::put_variable("Boot0001", before);
            return ovra_bootopt_bootpath_set(hdl, arg("Boot0001"), arg("\\y"));
        },
        [&](const attempt &attempt) {
            if (attempt.result != 0) {
                EXPECT_EQ(to_hex(fakes::variable("Boot0001").value()), to_hex(before));
            }
        });
}

} // namespace
