// SPDX-License-Identifier: MIT
// Texts made to hurt: very long, too long for a node, cut off.
#include <ctime>
#include <string>

#include <gtest/gtest.h>

#include "tests/encode/hostile.h"

using namespace ovra::test;

namespace {

constexpr size_t megabyte = 1 << 20;

// Time of the processor, so that a busy machine does not count.
double seconds_now()
{
    return static_cast<double>(clock()) / CLOCKS_PER_SEC;
}

// Seconds that suffice by far for what is linear in a text of a megabyte, under sanitizers too.
class within {
public:
    explicit within(double seconds) : limit(seconds) {}
    ~within() { EXPECT_LT(seconds_now() - start, limit); }
    within(const within &) = delete;
    within &operator=(const within &) = delete;

private:
    double limit;
    double start = seconds_now();
};

std::string repeated(const std::string &text, size_t times)
{
    std::string all;
    all.reserve(text.size() * times);
    for (size_t i = 0; i < times; ++i)
        all += text;
    return all;
}

} // namespace

TEST(long_text, path_of_100000_nodes)
{
    const no_leak blocks;
    const within limit(15);
    EXPECT_EQ(encoded_length(repeated("Pci(1,2)/", 100000)), 600004);
}

TEST(long_text, node_of_a_long_path_costs_as_much_as_one_of_a_short_path)
{
    const no_leak blocks;
    const realloc_guard moves(realloc_policy::moves);
    const std::string short_path = repeated("Pci(1,2)/", 100);
    const std::string long_path = repeated(short_path, 1000);
    const double start = seconds_now();
    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ(encoded_length(short_path), 604);
    const double between = seconds_now();
    ASSERT_EQ(encoded_length(long_path), 600004);
    const double end = seconds_now();
    // A list that moved for each node would copy 40 GB: ten times the rest, and more under sanitizers.
    EXPECT_LT(end - between, 4 * (between - start));
}

TEST(long_text, node_of_100000_arguments)
{
    const no_leak blocks;
    const within limit(15);
    EXPECT_EQ(encoded_length("Ctrl(Controller=1" + repeated(",Controller=2", 100000) + ")"), 12);
    EXPECT_EQ(encoded_length("Pci(1" + repeated(",Device=2", 100000) + ",Function=3)"), 10);
    EXPECT_EQ(encoded_length("Pci(1,2" + repeated(",3", 100000) + ")"), -1);
    EXPECT_EQ(encoded_length("Pci(1,2" + repeated(",", megabyte) + ")"), 10);
}

TEST(long_text, absent_argument_among_100000)
{
    const no_leak blocks;
    const within limit(15);
    EXPECT_EQ(encoded_length("UsbClass(VID=1" + repeated(",PID=2", 100000) + ")"), 15);
}

TEST(long_text, one_argument_of_a_megabyte)
{
    const within limit(15);
    const std::string digits(megabyte, '0');
    for (const std::string &text :
         {"Pci(" + digits + ",0)", "Pci(1,Function=" + digits + "7)", "Acpi(" + digits + ")",
          "Media(" + digits + ")", "I1394(" + digits + ")", "Infiniband(0," + digits + ",0,0,0)",
          "MAC(" + digits + ")", "IPv4(" + digits + ")", "IPv6(" + digits + ")", "Ata(" + digits + ",0,0)",
          "Uart(1,1,D" + digits + ")", "iSCSI(" + digits + ",1,0000000000000001)", "Pci(" + digits + "=1)",
          "AcpiAdr(" + digits + ")", "AcpiAdr(" + digits + "x)"}) {
        const no_leak blocks;
        const int length = encoded_length(text);
        EXPECT_TRUE(length == -1 || (length >= 4 && length < 100)) << text.substr(0, 20) << " " << length;
    }
    EXPECT_EQ(encoded_length("Pci(" + digits + ",0)"), 10);
    EXPECT_EQ(encoded_length("AcpiAdr(" + digits + ")"), 12);
    EXPECT_EQ(encoded_length("Uart(1,1,D" + digits + ")"), 23);
    EXPECT_EQ(encoded_length("Media(" + digits + ")"), -1);
}

TEST(long_text, megabyte_of_one_character)
{
    const within limit(15);
    for (const char c : {'/', '(', ')', ',', '=', 'x', '0', '%', '\\', '\n', '\xff'}) {
        const no_leak blocks;
        const std::string run(megabyte, c);
        EXPECT_EQ(encoded_length(run), -1) << c;
        EXPECT_EQ(encoded_length(run + "Pci(1,0)"), c == '/' ? 10 : -1) << c;
        EXPECT_EQ(encoded_length("Pci(1,0)" + run), c == '/' || c == ')' ? -1 : 10) << c;
    }
}

TEST(long_text, message_shows_it_whole)
{
    const std::string keyword(megabyte, 'k');
    const encoding given = encode(keyword + "(1)");
    EXPECT_EQ(given.said, keyword + " not found in encode table\n" + encode_error);
}

TEST(long_text, percent_signs_are_text)
{
    EXPECT_EQ(encode("%s%n%p(%d)").said, std::string("%s%n%p not found in encode table\n") + encode_error);
    EXPECT_EQ(encode("Pci(%s%n,0)").said,
              std::string("strtoull has endptr: arg_name: device value: %s%n: end_ptr:%s%n\n"
                          "failure encoding Pci\n") +
                  encode_error);
    EXPECT_EQ(encode("%s%n").said, std::string("invalid devnode: %s%n\n") + encode_error);
    EXPECT_EQ(encode("Pci(%n=1)").said, std::string("named argument '%n' invalid\n"
                                                    "failure setting up argument list for Pci %n=1\n") +
                                            encode_error);
}

// A node's length has 16 bits: one more byte than fits is no node.

namespace {

struct longest_node {
    const char *front; // the text up to the part that grows
    const char *unit;  // what is added for each of `bytes`
    const char *back;
    size_t fixed; // bytes of the node without it
    size_t bytes;
    const char *message;
};

#define A_GUID "e0c14753-f9be-11d2-9a0c-0090273fc14d"
constexpr longest_node longest_nodes[] = {
    {"VenHw(" A_GUID ",", "5a", ")", 20, 1, "unable to allocate venhw dpath\n"},
    {"VenMsg(" A_GUID ",", "5a", ")", 20, 1, "unable to allocate venmsg dpath\n"},
    {"AcpiEx(HIDSTR=", "h", ",UIDSTR=u)", 20, 1, "unable to allocate acpie dpath\n"},
    {"AcpiAdr(1", ",1", ")", 8, 4, "unable to allocate acpi_adr dpath\n"},
    {"UsbWwid(1,2,0,", "w", ")", 13, 2, "unable to allocate usb_wwid dpath\n"},
    {"BBS(HD,", "d", ",0)", 9, 1, "unable to allocate bbs path\n"},
};

} // namespace

TEST(long_node, longest_that_its_length_can_tell)
{
    for (const longest_node &node : longest_nodes) {
        const no_leak blocks;
        const size_t times = (UINT16_MAX - node.fixed) / node.bytes;
        const size_t length = node.fixed + times * node.bytes;
        EXPECT_EQ(encoded_length(node.front + repeated(node.unit, times) + node.back),
                  static_cast<int>(length + 4))
            << node.front;
    }
}

TEST(long_node, longer_is_refused)
{
    for (const longest_node &node : longest_nodes) {
        const no_leak blocks;
        const size_t times = (UINT16_MAX - node.fixed) / node.bytes;
        // One unit more, and what would be a length of 0 or a little more if it were cut to 16 bits.
        for (const size_t more : {size_t{1}, 8 / node.bytes, 20 / node.bytes, 65536 / node.bytes}) {
            const encoding given = encode(node.front + repeated(node.unit, times + more) + node.back);
            EXPECT_EQ(given.result, -1) << node.front << " and " << more;
            EXPECT_TRUE(given.said.starts_with(node.message)) << given.said.substr(0, 100);
        }
    }
}

TEST(long_node, raw_bytes_beyond_16_bits_do_not_match_their_length)
{
    for (const size_t size : {65533U, 65534U, 65536U, 70000U}) {
        const std::string data = "ffff" + repeated("5a", size - 2);
        const std::string calculated = std::to_string(size + 2);
        const encoding path = encode("Path(1,1," + data + ")");
        const encoding typed = encode("MediaPath(1," + data + ")");
        if (size == 65533) {
            EXPECT_EQ(path.result, 0);
            EXPECT_EQ(typed.result, 0);
            continue;
        }
        EXPECT_EQ(path.said, "invalid payload size: dpath->len = 65535  calculated size = " + calculated +
                                 "\nfailure encoding Path\n" + encode_error);
        EXPECT_EQ(typed.said, "dpath->len=65535 from data payload does not match buffer size " + calculated +
                                  "\nfailure encoding MediaPath\n" + encode_error);
    }
}

// Cut off anywhere.

TEST(cut_off_text, succeeds_behind_a_closing_parenthesis_only)
{
    const std::string whole = "/PciRoot(0x0)/Pci(0x1f,0x2)/Sata(0x0,0xFFFF,0x0)/BBS(HD,a(b)c)/VenHw(" A_GUID
                              ",0102)/Uart()/AcpiAdr(1,2)/MAC(001122334455,1)/IPv4(1.2.3.4,TCP,1,1.2.3.4)"
                              "/UsbWwid(1,2,3,Serial)/HD(1,GPT," A_GUID ",0x800,0x100000)";
    const no_leak blocks;
    for (size_t length = 0; length <= whole.size(); ++length) {
        const std::string text = whole.substr(0, length);
        // Inside "a(b)c" the argument ends early but is still one.
        const std::string node = text.substr(text.find_last_of('/', length < 2 ? 0 : length - 2) + 1);
        const bool complete = length == 0 || (length > 1 && node.find(')') != std::string::npos);
        EXPECT_EQ(encoded_length(text) >= 4, complete) << text;
    }
}

TEST(cut_off_text, every_prefix_of_every_argument_list_ends_in_a_result)
{
    const no_leak blocks;
    size_t encoded = 0;
    for (const char *prefixed :
         {"Path(type=1,subtype=1,data=0600071f",
          "AcpiEx(HID=PNP0A03,CID=PNP0A08,UID=PNP0C02,HIDSTR=,UIDSTR=u",
          "SAS(0x5000c500,0,0,SATA,External,Expanded,3,Reserved=7", "MAC(001122334455,1",
          "IPv4(192.168.0.1,TCP,1,10.1.2.3,10.1.2.254,255.255.255.0", "IPv6(::1,UDP,0,fe80::2,fe80::1",
          "iSCSI(iqn.x,1,0000000000000001,CRC32C,CRC32C,CHAP_UNI,TCP", "Uart(115200,8,Even,1.5",
          "HD(1,MBR,0x1234abcd,63,2048", "Infiniband(1,000102030405060708090a0b0c0d0e0f,1,2,3"}) {
        const std::string whole = prefixed;
        for (size_t length = whole.find('(') + 1; length <= whole.size(); ++length)
            encoded += encoded_length(whole.substr(0, length) + ")") >= 4;
    }
    EXPECT_GT(encoded, 50U);
}
