// SPDX-License-Identifier: MIT
// Texts at random, from a fixed seed: nodes that are nearly right, and any bytes at all.
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/encode/hostile.h"

using namespace ovra::test;

namespace {

class generator {
public:
    explicit generator(unsigned seed) : engine(seed) {}

    size_t below(size_t limit) { return engine() % limit; }
    bool one_in(size_t n) { return below(n) == 0; }

    std::string path()
    {
        std::string text;
        do {
            text.append(below(20) < 10 ? 1 : one_in(10) ? 2 : 0, '/');
            text += node();
            if (!one_in(10))
                text += '/';
        } while (!one_in(2));
        return text;
    }

    std::string garbage(size_t longest)
    {
        std::string text;
        for (size_t left = below(longest + 1); left > 0; --left)
            text += static_cast<char>(1 + below(255));
        return text;
    }

private:
    std::string cased(std::string text)
    {
        if (one_in(3)) {
            for (char &c : text)
                c = static_cast<char>(one_in(2) ? toupper(c) : tolower(c));
        }
        return text;
    }

    std::string number()
    {
        static constexpr const char *edges[] = {"0",          "1",   "2",   "7",     "16",
                                                "31",         "255", "256", "65535", "4294967296",
                                                "0xffffffff", "017", "-1",  "4094"};
        return one_in(3) ? std::to_string(engine() >> below(32)) : edges[below(std::size(edges))];
    }

    std::string hex_digits(size_t count)
    {
        std::string text;
        while (text.size() < count)
            text += "0123456789abcdefABCDEF"[below(22)];
        return text;
    }

    std::string guid()
    {
        return hex_digits(8) + '-' + hex_digits(4) + '-' + hex_digits(4) + '-' + hex_digits(4) + '-' +
               hex_digits(12);
    }

    // What an argument of that name often looks like.
    std::string fitting(const std::string &name)
    {
        static const std::map<std::string, std::vector<const char *>> usual = {
            {"Controller", {"Primary", "Secondary", "0", "1"}},
            {"Drive", {"Master", "Slave", "0", "1"}},
            {"SASSATA", {"SAS", "SATA", "NoTopology"}},
            {"Location", {"Internal", "External", "0", "1"}},
            {"Connect", {"Direct", "Expanded", "0", "3"}},
            {"DriveBay", {"0", "1", "3", "256"}},
            {"HeaderDigest", {"CRC32C", "NONE"}},
            {"DataDigest", {"CRC32C", "NONE"}},
            {"Authentication", {"NONE", "CHAP_UNI", "CHAP_BI"}},
            {"Protocol", {"TCP", "UDP", "6", "17"}},
            {"Type", {"MBR", "GPT", "HD", "Network", "Static", "0", "1", "2"}},
            {"Value", {"None", "Hardware", "XonXoff", "3"}},
            {"Parity", {"D", "Even", "odd", "5"}},
            {"StopBits", {"D", "1", "1.5", "2"}}};
        if (const auto words = usual.find(name); words != usual.end() && !one_in(8))
            return cased(words->second[below(words->second.size())]);
        if (name == "GUID" || name == "Signature")
            return one_in(6) ? hex_digits(one_in(2) ? 16 : 32) : guid();
        if (name == "HID" || name == "CID" || (name == "UID" && one_in(2)))
            return one_in(4) ? "0" : std::string("PNP").append(hex_digits(4));
        if (name.find("Ip") != std::string::npos || name.find("IP") != std::string::npos ||
            name == "SubnetMask")
            return one_in(2) ? std::string("10.0.0.").append(std::to_string(below(300)))
                             : std::string("fe80::").append(hex_digits(below(4)));
        if (name == "data") {
            const size_t size = 2 + below(6);
            std::string text = {'0', static_cast<char>('0' + size + 2 - (size > 7)), '0', '0'};
            return text + hex_digits(2 * (size - 2));
        }
        if (name == "Data" || name == "MacAddr" || name == "WWN" || (name == "LUN" && one_in(2)))
            return hex_digits(one_in(3) ? 12 : one_in(2) ? 16 : below(20));
        return one_in(30) ? "Expanded" : number();
    }

    std::string value(const std::string &name)
    {
        if (one_in(12))
            return garbage(6);
        return one_in(15) ? "" : fitting(name);
    }

    std::string node()
    {
        const uefi_encode_opt_t &row = encode_opt_table[below(ENCODE_OPT_COUNT)];
        // Not the name of a disk, "c" and a digit: that is for the mapping.
        std::string text = one_in(60) ? std::string("x").append(garbage(8)) : cased(row.opt_name);
        text.append(!one_in(80), '(');
        if (!row.opt_param_list) {
            while (!one_in(3))
                text += number() + ',';
        } else {
            bool named = false;
            for (const char *const *name = row.opt_param_list; *name; ++name) {
                named = named || one_in(8);
                if (one_in(12))
                    continue;
                if (named)
                    text += cased(*name) + '=';
                text += value(*name);
                if (name[1])
                    text.append(one_in(60) ? 2 : 1, ',');
            }
        }
        text.append(!one_in(80), ')');
        return text;
    }

    std::mt19937 engine;
};

// Nodes laid end to end, the last of them an END-entire node, and nothing behind.
bool well_formed(const uint8_t *path, int length)
{
    int at = 0;
    int last = -1;
    while (at < length) {
        const int size = length - at < 4 ? 0 : path[at + 2] | path[at + 3] << 8;
        if (size < 4 || size > length - at)
            return false;
        last = at;
        at += size;
    }
    return last >= 0 && length - last == 4 && memcmp(path + last, "\x7f\xff\x04", 4) == 0;
}

} // namespace

TEST(random_text, of_nodes)
{
    constexpr int cases = 100000;
    const no_leak blocks;
    generator random(20240229);
    std::set<std::string> keywords;
    int encoded = 0;
    for (int i = 0; i < cases; ++i) {
        const std::string text = random.path();
        text_path path{{text}};
        uint8_t untouched = 0;
        ovra_epath_t packed = &untouched;
        int length = -4711;
        std::string said;
        int result = 0;
        {
            const messages heard(1, i % 64 == 0);
            result = ovra_epath_encode(nullptr, path.get(), 0, &packed, &length);
            said = heard.text();
        }
        if (result == 0) {
            ++encoded;
            ASSERT_TRUE(well_formed(packed, length)) << text;
            free(packed);
            const size_t from = text.find_first_not_of('/');
            std::string keyword = text.substr(from, text.find('(') - from);
            for (char &c : keyword)
                c = static_cast<char>(tolower(c));
            keywords.insert(keyword);
        } else {
            ASSERT_EQ(result, -1) << text;
            ASSERT_EQ(packed, &untouched) << text;
            ASSERT_EQ(length, -4711) << text;
            ASSERT_TRUE(said.ends_with(encode_error)) << text << "\n" << said;
        }
    }
    // The generator has to get through, in every kind.
    EXPECT_GT(encoded, cases / 10);
    EXPECT_LT(encoded, cases * 9 / 10);
    for (const uefi_encode_opt_t &row : encode_opt_table) {
        std::string keyword = row.opt_name;
        for (char &c : keyword)
            c = static_cast<char>(tolower(c));
        EXPECT_EQ(keywords.count(keyword), 1U) << keyword;
    }
}

TEST(random_text, of_any_bytes)
{
    const no_leak blocks;
    generator random(17);
    for (int i = 0; i < 100000; ++i) {
        std::string text = random.garbage(40);
        // Names of devices are for the mapping.
        if (text.starts_with('/') || text.starts_with('c'))
            text[0] = 'x';
        encoded_length(text);
    }
}

TEST(random_text, every_byte_in_every_place_of_a_node)
{
    const no_leak blocks;
    const std::string whole = "Sata(1,PMPN=2,LUN=3)";
    for (size_t at = 1; at < whole.size(); ++at) {
        for (int byte = 1; byte < 256; ++byte) {
            std::string text = whole;
            text[at] = static_cast<char>(byte);
            const int length = encoded_length(text);
            ASSERT_TRUE(length == -1 || length == 14) << text;
        }
    }
}
