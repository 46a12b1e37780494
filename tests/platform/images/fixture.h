/* SPDX-License-Identifier: MIT */
/* The services on a file of variables. */
#ifndef TESTS_PLATFORM_IMAGES_FIXTURE_H
#define TESTS_PLATFORM_IMAGES_FIXTURE_H

#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "tests/platform/devns_calls.h"
#include "tests/support/variable_images.h"

namespace platform_test {

using namespace ovra::test::images;

/* A file of variables in a folder of its own; HWPLAT_VARS names it, and HWPLAT_ROOT nothing. */
class image_file : public testing::Test {
protected:
    image_file() : no_root("HWPLAT_ROOT", nullptr), named("HWPLAT_VARS", nullptr)
    {
        std::string pattern = (fs::temp_directory_path() / "hwplat-test-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("mkdtemp");
        folder = pattern;
        path = folder / "VARS.fd";
        named.set(path.c_str());
    }
    ~image_file() override
    {
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    }

    void put(std::string_view contents) const { machine_folder::put_file(path, contents); }
    [[nodiscard]] std::string contents() const { return machine_folder::contents(path); }

    /* The services, opened for one request each. */
    static EFI_STATUS set(std::u16string_view name, UINT32 attributes, std::string_view data,
                          const EFI_GUID &guid = global_guid)
    {
        const device opened;
        return set_variable(opened.fd(), name, attributes, data, guid);
    }
    static value get(std::u16string_view name, const EFI_GUID &guid = global_guid)
    {
        const device opened;
        return get_variable(opened.fd(), name, guid);
    }
    static std::vector<std::u16string> names()
    {
        const device opened;
        return walk_all(opened.fd());
    }
    /* errno of a devns_open that fails; 0 when it does not. */
    static int open_error()
    {
        errno = 0;
        const device opened;
        return opened.fd() >= 0 ? 0 : errno;
    }

    /* The names in the folder beside that of the file. */
    [[nodiscard]] std::size_t left_behind() const
    {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), {})) - 1;
    }

    environment no_root;
    environment named;
    fs::path folder;
    fs::path path;
};

} // namespace platform_test

#endif
