// SPDX-License-Identifier: MIT
// Load options of other kinds than Boot####, through the verbs that know them.
#include "tests/tool/support.h"

namespace tool_test {

using ::testing::HasSubstr;

namespace {

std::string storage_driver()
{
    return load_option(1, "Storage driver", from_hex("02010c00d041030a000000007fff0400"));
}

std::string network_driver()
{
    return load_option(1, "Network driver", from_hex("7fff0400"), "data");
}

std::string numbers(const std::vector<uint16_t> &order)
{
    return {reinterpret_cast<const char *>(order.data()), order.size() * sizeof(uint16_t)};
}

} // namespace

struct kind_of_options {
    const char *word;
    std::string prefix;
};

class kinds : public Machine, public ::testing::WithParamInterface<kind_of_options> {
protected:
    kinds()
    {
        put(name("0001"), storage_driver());
        put(name("0002"), network_driver());
        put(order_name(), numbers({2, 1}));
        boot_before = get("Boot0003") + get("BootOrder");
    }
    ~kinds() override { EXPECT_EQ(get("Boot0003") + get("BootOrder"), boot_before); }

    std::string name(const std::string &digits) const { return GetParam().prefix + digits; }
    std::string order_name() const { return GetParam().prefix + "Order"; }
    words of_kind(const words &arguments) const { return arguments + words{"--kind", GetParam().word}; }

    std::string boot_before;
};

TEST_P(kinds, are_listed_in_their_order)
{
    const json list = parsed(of_kind({"list"}));
    EXPECT_EQ(list["order"], json::array({name("0002"), name("0001")}));
    EXPECT_EQ(list["current"], nullptr);
    ASSERT_EQ(list["options"].size(), 2u);
    EXPECT_EQ(list["options"][0]["option"], name("0002"));
    EXPECT_EQ(list["options"][0]["description"], "Network driver");
    EXPECT_THAT(output(of_kind({"list"})), HasSubstr(name("0001") + "  *       Storage driver"));
}

TEST_P(kinds, are_named_by_number_and_description)
{
    for (const std::string &named : {name("0001"), std::string("1"), std::string("storage"), name("1")})
        EXPECT_EQ(parsed(of_kind({"show", named}))["option"], name("0001")) << named;
    EXPECT_EQ(parsed(of_kind({"show", "@first"}))["option"], name("0002"));
    EXPECT_THAT(failure(of_kind({"show", "@next"})), HasSubstr("names a boot option"));
    EXPECT_THAT(failure(of_kind({"show", "Boot0003"})), HasSubstr("--kind boot"));
    EXPECT_THAT(failure({"show", name("0001")}), HasSubstr(std::string("--kind ") + GetParam().word));
    EXPECT_THAT(failure(of_kind({"show", "9"})), HasSubstr("no such option: " + name("0009")));
}

TEST_P(kinds, are_made_changed_and_removed)
{
    EXPECT_THAT(output(of_kind({"create", "--desc", "New", "--path-hex", "7fff0400", "--first"})),
                HasSubstr(name("0000") + " is made"));
    EXPECT_EQ(get(name("0000")), load_option(1, "New", from_hex("7fff0400")));
    EXPECT_EQ(get(order_name()), numbers({0, 2, 1}));
    output(of_kind({"rename", "New", "Newer"}));
    output(of_kind({"set", "Newer", "--attr", "3"}));
    EXPECT_EQ(get(name("0000")), load_option(3, "Newer", from_hex("7fff0400")));
    output(of_kind({"copy", "2", "--number", name("0020"), "--no-order"}));
    EXPECT_EQ(get(name("0020")), network_driver());
    output(of_kind({"remove", "Newer", "2"}));
    EXPECT_EQ(get(name("0000")) + get(name("0002")), "(none)(none)");
    EXPECT_EQ(get(order_name()), numbers({1}));
}

TEST_P(kinds, have_an_order_that_changes)
{
    EXPECT_EQ(parsed(of_kind({"order"}))["order"], json::array({name("0002"), name("0001")}));
    output(of_kind({"order", "first", "storage"}));
    EXPECT_EQ(get(order_name()), numbers({1, 2}));
    output(of_kind({"order", "set", "2"}));
    EXPECT_EQ(get(order_name()), numbers({2}));
    output(of_kind({"order", "clear"}));
    EXPECT_EQ(get(order_name()), "(none)");
}

TEST_P(kinds, are_checked)
{
    put(name("0003"), storage_driver());
    put(order_name(), numbers({1, 9, 1, 3, 2}));
    const outcome found = run(of_kind({"check"}));
    EXPECT_EQ(found.status, 1);
    EXPECT_THAT(found.out,
                HasSubstr(name("0009") + ": " + order_name() + " names it, but it does not exist"));
    EXPECT_THAT(found.out, HasSubstr(name("0003") + ": it has the path, file and data of " + name("0001")));
    run(of_kind({"check", "--fix"}));
    EXPECT_EQ(get(name("0003")), "(none)");
    EXPECT_EQ(get(order_name()), numbers({1, 2}));
}

INSTANTIATE_TEST_SUITE_P(, kinds,
                         ::testing::Values(kind_of_options{"driver", "Driver"},
                                           kind_of_options{"sysprep", "SysPrep"}),
                         [](const auto &each) { return each.param.prefix; });

class recovery_options : public Machine {
protected:
    recovery_options() { put("PlatformRecovery0000", load_option(1, "Default", from_hex("7fff0400"))); }
};

TEST_F(recovery_options, are_shown)
{
    const words kind = {"--kind", "platformrecovery"};
    EXPECT_THAT(output(words{"list"} + kind), HasSubstr("-         PlatformRecovery0000  *       Default  "));
    EXPECT_EQ(parsed(words{"show", "default"} + kind)["option"], "PlatformRecovery0000");
    EXPECT_EQ(parsed(words{"show", "0"} + kind)["position"], nullptr);
    EXPECT_EQ(parsed(words{"check"} + kind)["findings"], json::array());
}

TEST_F(recovery_options, are_never_written)
{
    const auto before = snapshot();
    for (const words &arguments :
         {words{"create", "--desc", "x", "--path-hex", "7fff0400"}, words{"set", "0", "--inactive"},
          words{"rename", "0", "x"}, words{"copy", "0"}, words{"remove", "0"}, words{"order"},
          words{"order", "first", "0"}, words{"check", "--fix"}}) {
        const outcome result = run(arguments + words{"--kind", "platformrecovery"});
        EXPECT_EQ(result.status, 2) << arguments[0];
        EXPECT_THAT(result.err, HasSubstr("only the firmware writes PlatformRecovery options"));
    }
    EXPECT_EQ(run({"list", "--kind", "drivers"}).status, 2);
    EXPECT_EQ(snapshot(), before);
}

} // namespace tool_test
