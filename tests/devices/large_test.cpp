// A machine far larger than any: 1,000 disks with 16 partitions each, out of one image without content.
#include <chrono>

#include <gtest/gtest.h>

#include "tests/devices/sample.h"

namespace {

using namespace devices_test;
using std::chrono::duration;
using std::chrono::steady_clock;

#ifdef __SANITIZE_ADDRESS__
constexpr double seconds_allowed = 20; // everything is checked on the way
#else
constexpr double seconds_allowed = 2;
#endif

TEST(Large, thousand_disks_are_listed_in_time)
{
    const sample machine;
    std::string script = "label: gpt\\n";
    for (int i = 0; i < 16; ++i)
        script += "size=2048\\n";
    const fs::path image = machine.image("image");
    sample::partition(image, script);
    for (int host = 0; host < 40; ++host) {
        char place[32];
        std::snprintf(place, sizeof place, "pci0000:00/0000:00:%02x.%d", host / 8 + 1, host % 8);
        const std::string function = machine.function(place, 0x010700);
        for (int target = 0; target < 25; ++target) {
            const std::string name = "sd" + std::to_string(host * 25 + target);
            const std::string number = std::to_string(host) + ":0:" + std::to_string(target) + ":0";
            machine.disk(name, function + "/host/target/" + number);
            fs::create_hard_link(image, machine.root() / "dev" / name);
        }
    }
    const auto start = steady_clock::now();
    const std::vector<std::string> found = volumes();
    const double seconds = duration<double>(steady_clock::now() - start).count();
    ASSERT_EQ(found.size(), 16000U);
    EXPECT_TRUE(found.front().starts_with("c0t0d0s0 ")) << found.front();
    EXPECT_TRUE(found.back().starts_with("c39t24d0s15 ")) << found.back();
    EXPECT_LT(seconds, seconds_allowed);
    RecordProperty("milliseconds", static_cast<int>(seconds * 1000));
}

} // namespace
