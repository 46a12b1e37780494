// SPDX-License-Identifier: MIT
// What the firmware's menu waits for, and Secure Boot.
#include "tests/tool/support.h"

namespace tool_test {

using ::testing::HasSubstr;

class timeout_verb : public Machine {};

TEST_F(timeout_verb, shows_sets_and_clears)
{
    EXPECT_EQ(output({"timeout"}), "0 seconds: it boots at once\n");
    EXPECT_EQ(output({"timeout", "7", "--dry-run"}), "would write Timeout: 7 seconds\n    0700\n");
    EXPECT_EQ(output({"timeout", "258"}), "wrote Timeout: 258 seconds\n");
    EXPECT_EQ(get("Timeout"), "\x02\x01");
    EXPECT_EQ(parsed({"timeout"}), json({{"timeout", 258}}));
    EXPECT_EQ(parsed({"timeout", "65535"})["changes"][0]["timeout"], 65535);
    EXPECT_EQ(output({"timeout"}), "65535: it waits until somebody chooses\n");
    EXPECT_EQ(output({"timeout", "--clear"}), "deleted Timeout\n");
    EXPECT_EQ(output({"timeout", "--clear"}), "nothing to change\n");
    EXPECT_EQ(output({"timeout"}), "Timeout is not set: the firmware decides how long it waits\n");
    EXPECT_EQ(parsed({"timeout"}), json({{"timeout", nullptr}}));
    put("Timeout", "1");
    EXPECT_EQ(failure({"timeout"}), "ovra: Timeout is damaged: it has 1 bytes instead of 2\n");
}

class secureboot_verb : public Machine {};

TEST_F(secureboot_verb, tells_the_state)
{
    put("SecureBoot", "\x01", 6);
    put("SetupMode", std::string(1, '\0'), 6);
    put("DeployedMode", "\x01", 6);
    EXPECT_EQ(output({"secureboot"}), "Secure Boot is on\n"
                                      "deployed mode: the modes cannot be left without the platform key\n");
    EXPECT_EQ(parsed({"secureboot"}), json({{"secure_boot", true},
                                            {"setup_mode", false},
                                            {"audit_mode", nullptr},
                                            {"deployed_mode", true}}));
    put("SecureBoot", std::string(1, '\0'), 6);
    EXPECT_THAT(output({"secureboot"}), HasSubstr("Secure Boot is off\n"));
    std::filesystem::remove(file("SecureBoot"));
    EXPECT_THAT(output({"secureboot"}),
                HasSubstr("SecureBoot is not set: the firmware has no Secure Boot\n"));
    put("SecureBoot", "12", 6);
    EXPECT_EQ(failure({"secureboot"}), "ovra: SecureBoot is damaged: it has 2 bytes instead of 1\n");
}

} // namespace tool_test
