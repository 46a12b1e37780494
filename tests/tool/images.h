/* SPDX-License-Identifier: MIT */
// A machine whose variables are in a file.
#ifndef TESTS_TOOL_IMAGES_H
#define TESTS_TOOL_IMAGES_H

#include <algorithm>
#include <fstream>

#include "tests/support/variable_images.h"
#include "tests/tool/obstacles.h"

namespace tool_test {

using ovra::test::images::in_uboot_file;
using ovra::test::images::in_volume;
using ovra::test::images::uboot_file;
using ovra::test::images::volume;
using ovra::test::images::volume_shape;

// The folder of the machine is only there to be named beside the file.
class image_of_variables : public writing_obstacles {
protected:
    fs::path image = folder / "VARS.fd";

    void put_image(const std::string &contents) const
    {
        std::ofstream(image, std::ios::binary | std::ios::trunc) << contents;
    }
    std::string image_contents() const
    {
        std::ifstream stream(image, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    void put_machine() const { put_image(volume(in_volume({"Boot0003", option}) + order_of_one)); }

    // Whether there is a file that a writer makes beside the image.
    bool leaves_something() const
    {
        return std::ranges::any_of(fs::directory_iterator(image.parent_path()), [](const auto &entry) {
            return entry.path().filename().string().starts_with(".hwplat-");
        });
    }

    outcome run_on_image(const words &arguments, const surroundings &around = {}) const
    {
        return run_command(words{"--vars", image} + arguments, around);
    }
    std::string shown(const words &arguments) const
    {
        const outcome done = run_on_image(arguments);
        EXPECT_EQ(done.status, 0) << done.err;
        EXPECT_EQ(done.err, "");
        return done.out;
    }
    // How a change ends; with --dry-run it ends the same and says the same, and changes nothing.
    outcome changed_as_planned(const words &arguments, const surroundings &around = {}) const
    {
        const std::string before = image_contents();
        const outcome planned = run_on_image(arguments + words{"--dry-run"}, around);
        EXPECT_EQ(image_contents(), before);
        outcome done = run_on_image(arguments, around);
        EXPECT_EQ(planned.status, done.status)
            << ::testing::PrintToString(arguments) << planned.err << done.err;
        EXPECT_EQ(planned.err, done.err);
        if (done.status != 0) {
            EXPECT_EQ(image_contents(), before);
        }
        return done;
    }
    // What a refusal says; the file is as it was, and nothing is beside it.
    std::string refused(const words &arguments, const surroundings &around = {}) const
    {
        const bool is_file = fs::is_regular_file(image);
        const std::string before = is_file ? image_contents() : "";
        const outcome done = run_on_image(arguments, around);
        EXPECT_EQ(done.status, 1) << done.out;
        EXPECT_EQ(done.out, "");
        if (is_file) {
            EXPECT_EQ(image_contents(), before);
        }
        EXPECT_FALSE(leaves_something());
        return whole(done.err);
    }

    const std::string option = load_option(1, "Debian", from_hex(sample_path_hex));
    const std::string order_of_one = in_volume({"BootOrder", std::string("\3\0", 2)});
};

} // namespace tool_test

#endif
