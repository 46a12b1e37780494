// SPDX-License-Identifier: MIT
// Stores with any bytes in them: they are refused, or served without a step outside them.
#include <random>

#include <gtest/gtest.h>

#include "platform/machine/image.h"
#include "platform/machine/imagefile.h"
#include "tests/platform/images/fixture.h"

using machine::byte_view;
using machine::bytes;
using machine::variable_image;
using platform_test::in_uboot_file;
using platform_test::in_volume;

namespace {

bytes as_bytes(std::string_view text)
{
    const auto view = std::as_bytes(std::span(text));
    return {view.begin(), view.end()};
}

std::string file_name(std::string_view variable)
{
    return std::string(variable).append(platform_test::global_suffix);
}

// What counts in a store. Every byte of it is looked at.
std::vector<std::string> values_in(const variable_image &image)
{
    std::vector<std::string> values;
    for (const machine::image_variable &each : image.variables()) {
        std::string value = std::to_string(each.attributes) + ":";
        for (const byte_view part : {image.name_of(each), image.data_of(each)})
            value.append(reinterpret_cast<const char *>(part.data()), part.size());
        values.push_back(std::move(value));
    }
    return values;
}

// What else than the variable counts.
std::vector<std::string> others_in(const variable_image &image, const std::string &name)
{
    std::vector<std::string> values = values_in(image);
    const std::string stored = platform_test::stored_units(name);
    std::erase_if(values, [&](const std::string &value) { return value.find(":" + stored) != value.npos; });
    return values;
}

// Writes and removes a variable: what else counts stays.
void use(const variable_image &image)
{
    const std::vector<std::string> before = others_in(image, "Own");
    const std::string own = file_name("Own");
    const bytes data(20, std::byte{'d'});
    const machine::new_value value = {7, {data, data}};
    const auto written = image.with(own, &value);
    if (written) {
        ASSERT_NE(written->find(own), nullptr);
        EXPECT_EQ(written->find(own)->data_size, 40u);
    }
    for (const std::string &name : image.file_names())
        ASSERT_NE(image.find(name), nullptr) << name;
    EXPECT_LE(image.free_space(), image.capacity());
    const auto without = (written ? *written : image).with(own, nullptr);
    ASSERT_NE(without, nullptr);
    EXPECT_EQ(without->find(own), nullptr);
    EXPECT_EQ(values_in(*without), before);
}

// Changes some bytes, mostly to values that matter in headers.
std::string mutated(std::string text, std::mt19937 *random, std::size_t within)
{
    constexpr unsigned char telling[] = {0x00, 0x01, 0x02, 0x3c, 0x3d, 0x3e, 0x3f, 0x55,
                                         0x7f, 0x80, 0xaa, 0xfc, 0xfd, 0xfe, 0xff, 0x10};
    const auto below = [&](std::size_t limit) { return (*random)() % limit; };
    for (std::size_t changes = 1 + below(6); changes > 0; --changes)
        text[below(within)] = static_cast<char>(below(2) == 0 ? telling[below(16)] : below(256));
    return text;
}

std::string store_of(std::string_view volume, std::size_t size)
{
    return std::string(volume.substr(72, size));
}

// Each image that `make` gives is none, or can be used. There are some of both.
template <typename maker>
void expect_refused_or_served(unsigned seed, maker make)
{
    std::mt19937 random(seed);
    int served = 0;
    constexpr int times = 30'000;
    for (int i = 0; i < times; ++i) {
        const auto image = make(&random);
        if (!image)
            continue;
        ++served;
        use(*image);
        ASSERT_FALSE(testing::Test::HasFailure()) << "round " << i;
    }
    EXPECT_GT(served, times / 20);
    EXPECT_LT(served, times);
}

TEST(hostile_image, changed_volumes_are_refused_or_served)
{
    platform_test::volume_shape shape;
    shape.store = 600;
    const std::string variables = in_volume({"A", "data"}) + in_volume({"PK", "key", 0x27}) +
                                  in_volume({"A", "x", 7, platform_test::being_replaced}) +
                                  in_volume({"Gone", std::string(50, 'g'), 7, platform_test::deleted}) +
                                  in_volume({"B", "more"});
    const std::string sound = store_of(platform_test::volume(variables, shape), shape.store);
    expect_refused_or_served(1, [&](std::mt19937 *random) {
        return machine::volume_image(as_bytes(mutated(sound, random, 28 + variables.size() + 8)));
    });
}

// With the checksum corrected, as its writer would do.
TEST(hostile_image, changed_uboot_files_are_refused_or_served)
{
    const std::string entries =
        in_uboot_file({"A", "data"}) + in_uboot_file({"db", "key", 0x27}) + in_uboot_file({"B", "more"});
    expect_refused_or_served(2, [&](std::mt19937 *random) {
        return machine::uboot_image(
            as_bytes(platform_test::uboot_file(mutated(entries, random, entries.size()))));
    });
}

TEST(hostile_image, store_full_of_values_that_are_being_replaced_takes_no_ages)
{
    std::string variables;
    for (int i = 0; i < 50'000; ++i)
        variables += in_volume({"A", "", 7, platform_test::being_replaced});
    variables += in_volume({"A", "new"});
    platform_test::volume_shape shape;
    shape.store = 28 + variables.size();
    shape.length = 0x600000;
    const auto image =
        machine::volume_image(as_bytes(store_of(platform_test::volume(variables, shape), shape.store)));
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->variables().size(), 1u);
    EXPECT_EQ(image->data_of(image->variables()[0]).size(), 3u);
    ASSERT_NE(image->with(file_name("B"), nullptr), nullptr);
}

using hostile_file = platform_test::image_file;

// The headers around the store, with the volume's checksum corrected.
TEST_F(hostile_file, changed_headers_are_refused_or_served)
{
    const std::string sound = platform_test::volume(in_volume({"A", "data"}));
    std::mt19937 random(3);
    for (int i = 0; i < 2'000; ++i) {
        std::string file = mutated(sound, &random, 110);
        if (i % 2 == 0)
            platform_test::settle_checksum(&file);
        if (i % 5 == 0)
            file.resize(random() % 0x1000);
        put(file);
        const machine::machine_root root = machine::open_root_of_variables();
        machine::known_image image;
        if (machine::read_image(root, &image) == 0)
            use(*image->store);
        ASSERT_FALSE(testing::Test::HasFailure()) << "round " << i;
    }
}

} // namespace
