// SPDX-License-Identifier: MIT
// A machine larger than any real one: 1,000 disks with 16 partitions each, all from one empty image.
#include <algorithm>

#include <gtest/gtest.h>

#include <ovra/ovra.h>

#include "tests/devices/library.h"
#include "tests/devices/sample.h"
#include "tests/support/gpt.h"
#include "tests/support/processor_time.h"
#include "tests/support/strings.h"

namespace {

using namespace devices_test;
using ovra::test::seconds_of;
using ovra::test::strings_of;

#ifdef OVRA_SANITIZED
constexpr double seconds_allowed = 20; // with all checks of the build
#else
constexpr double seconds_allowed = 2;
#endif

// Disks of 16 slices each, 25 on a controller.
void fill(const sample &machine, int controllers)
{
    std::vector<ovra::test::gpt_entry> entries;
    for (unsigned i = 1; i <= 16; ++i)
        entries.push_back({i, i * 2048, i * 2048 + 2047});
    const fs::path image = machine.image("image");
    ovra::test::write_gpt(image, 65536, ovra::test::make_gpt(65536, entries));
    for (int host = 0; host < controllers; ++host) {
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
}

TEST(large_machine, thousand_disks_are_listed_in_time)
{
    const sample machine;
    fill(machine, 40);
    std::vector<std::string> found;
    const double seconds = seconds_of([&] { found = volumes(); });
    ASSERT_EQ(found.size(), 16000U);
    EXPECT_TRUE(found.front().starts_with("c0t0d0s0 ")) << found.front();
    EXPECT_TRUE(found.back().starts_with("c39t24d0s15 ")) << found.back();
    EXPECT_LT(seconds, seconds_allowed);
    RecordProperty("milliseconds", static_cast<int>(seconds * 1000));
}

// Through all layers, the search for an option's disks costs the same per drive for many and for few.
TEST(large_machine, disks_of_an_option_are_found_in_linear_time)
{
    const auto seconds_on = [&](int controllers) {
        const sample machine;
        fill(machine, controllers);
        std::string option = "Boot0001";
        const library ovra;
        ovra.put_option(option.c_str(), "c0t0d0s15");
        // The fastest of some runs, against noise from other work.
        double least = 1e9;
        for (int i = 0; i < 3; ++i) {
            char **names = nullptr;
            const double taken =
                seconds_of([&] { EXPECT_EQ(ovra_bootopt_logdev(ovra.get(), option.data(), &names), 0); });
            least = std::min(least, taken);
            // All disks are alike.
            EXPECT_EQ(strings_of(names).size(), static_cast<size_t>(controllers) * 25);
        }
        return least;
    };
    const double few = seconds_on(10);
    const double many = seconds_on(40);
    EXPECT_LE(many, few * 8) << "four times as many drives";
    RecordProperty("milliseconds", static_cast<int>(many * 1000));
}

} // namespace
