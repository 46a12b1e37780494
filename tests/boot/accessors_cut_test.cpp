// SPDX-License-Identifier: MIT
#include "tests/boot/fixture.h"

using namespace ovra::test;

namespace {

class text_setters : public open_handle {};

TEST_F(text_setters, kept_a_text_that_was_printed_cut_is_written_back_cut)
{
    fakes::put_variable("Boot0001", from_hex("01 00 00 00  04 00  41 00 00 00  7f ff 04 00"));
    char *option = arg("Boot0001");
    const auto with_file = [](const std::u16string &name) {
        const auto size = static_cast<char16_t>(6 + 2 * name.size());
        return to_hex((char16_t{0x0404} + (size + name) + u'\0').data(), size);
    };
    const auto path_after = [&](const std::u16string &name) {
        bytes path = from_hex("01 01 06 00  02 1f" + with_file(name) + "7f ff 04 00");
        EXPECT_EQ(ovra_bootopt_encoded_path_set(hdl, option, path.data(), static_cast<int>(path.size())), 0);
        EXPECT_EQ(ovra_bootopt_devpath_set(hdl, option, arg("Pci(1,1)")), 0);
        ovra_epath_t stored_path = nullptr;
        int size = 0;
        EXPECT_EQ(ovra_bootopt_get(hdl, option, &stored_path, &size, nullptr, nullptr, nullptr, nullptr), 0);
        return to_hex(stored_path, static_cast<size_t>(size));
    };
    const auto expected = [&](const std::u16string &name) {
        return to_hex(from_hex("01 01 06 00  01 01" + with_file(name) + "7f ff 04 00"));
    };
    EXPECT_EQ(path_after(std::u16string(1023, u'x')), expected(std::u16string(1023, u'x')));
    EXPECT_EQ(path_after(std::u16string(1024, u'x')), expected(std::u16string(1023, u'x')));
    EXPECT_EQ(path_after(std::u16string(u"a") + char16_t{0xd800} + u"b"), expected(u"a"));
}

} // namespace
