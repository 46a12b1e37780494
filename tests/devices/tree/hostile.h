/* SPDX-License-Identifier: MIT */
/* A machine's folder that somebody filled to do harm. */
#ifndef TESTS_DEVICES_TREE_HOSTILE_H
#define TESTS_DEVICES_TREE_HOSTILE_H

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/devices/sample.h"

namespace devices_test {

inline constexpr const char *controller = "/pci@0,0/pci8086,1234@1f,2";

/* What a file of sysfs might hold instead of its text. */
inline const std::vector<std::string> &nonsense()
{
    static const std::vector<std::string> contents = {"",
                                                      "\n",
                                                      "\n\n",
                                                      std::string(100000, '1'),
                                                      std::string(4097, '1'),
                                                      std::string("1\0", 2),
                                                      "\xff\xfe\x80",
                                                      "none",
                                                      "-1",
                                                      "+1",
                                                      " 1",
                                                      "0x",
                                                      "0xfg",
                                                      "1e3",
                                                      "99999999999999999999999999",
                                                      "0xffffffffffffffffffffffff"};
    return contents;
}

class hostile_machine : public testing::Test {
protected:
    hostile_machine()
        : function(machine.function("pci0000:00/0000:00:1f.2", 0x010601)),
          port(machine.ata(function, 1, 1, "0:0:0:0"))
    {
        machine.disk("sda", port);
        sample::partition(machine.image("sda"), "label: gpt\\nstart=2048,size=2048\\n");
    }

    /* The identifier of the host bridge. */
    static std::string identifier()
    {
        const snapshot tree(ht_init("/pci@0,0", HT_PROPS));
        char *text = nullptr;
        EXPECT_EQ(ht_prop_lookup_strings(HT_DEV_ANY, tree.get(), "acpi-hid", &text), 1);
        return text;
    }
    /* Another of its identifiers; "(none)" when it has none. */
    static std::string other_identifier(const char *name)
    {
        const snapshot tree(ht_init("/pci@0,0", HT_PROPS));
        char *text = nullptr;
        const int count = ht_prop_lookup_strings(HT_DEV_ANY, tree.get(), name, &text);
        EXPECT_EQ(count, text != nullptr ? 1 : -1);
        return text != nullptr ? text : "(none)";
    }

    sample machine;
    std::string function;
    std::string port;
};

} // namespace devices_test

#endif
