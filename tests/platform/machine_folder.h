/* SPDX-License-Identifier: MIT */
/* A machine in a temporary folder, and the calls that most tests of the platform make on it. */
#ifndef TESTS_PLATFORM_MACHINE_FOLDER_H
#define TESTS_PLATFORM_MACHINE_FOLDER_H

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <unistd.h>

#include <ovra/uefi.h>

#include "tests/support/guards.h"

namespace platform_test {

namespace fs = std::filesystem;
using ovra::test::environment;

inline constexpr EFI_GUID global_guid = {
    0x8be4df61, 0x93ca, 0x11d2, {0xaa, 0x0d, 0x00, 0xe0, 0x98, 0x03, 0x2b, 0x8c}};
inline constexpr std::string_view global_suffix = "-8be4df61-93ca-11d2-aa0d-00e098032b8c";
inline constexpr EFI_GUID other_guid = {
    0x00112233, 0x4455, 0x6677, {0x88, 0x99, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff}};
inline constexpr std::string_view other_suffix = "-00112233-4455-6677-8899-aabbccddeeff";

/* UCS-2 with its terminator. */
inline std::vector<CHAR16> ucs2(std::u16string_view text)
{
    std::vector<CHAR16> units(text.begin(), text.end());
    units.push_back(0);
    return units;
}

inline std::string in_attributes(UINT32 attributes)
{
    std::string text;
    for (int i = 0; i < 4; ++i)
        text.push_back(static_cast<char>((attributes >> (8 * i)) & 0xff));
    return text;
}

/* A new folder with an empty store; HWPLAT_ROOT names it for as long as it lives. */
class machine_folder {
public:
    machine_folder() : root_variable("HWPLAT_ROOT", nullptr)
    {
        std::string pattern = (fs::temp_directory_path() / "hwplat-test-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("mkdtemp");
        top = pattern;
        fs::create_directories(store());
        root_variable.set(top.c_str());
    }
    machine_folder(const machine_folder &) = delete;
    machine_folder &operator=(const machine_folder &) = delete;
    ~machine_folder()
    {
        std::error_code ignored;
        fs::remove_all(top, ignored);
    }

    [[nodiscard]] const fs::path &root() const { return top; }
    [[nodiscard]] fs::path store() const { return top / "sys/firmware/efi/efivars"; }
    [[nodiscard]] fs::path state(std::string_view name) const { return top / "var/lib/hwplat" / name; }

    /* The file of a variable, of the global vendor unless said otherwise. */
    [[nodiscard]] fs::path file(std::string_view variable, std::string_view suffix = global_suffix) const
    {
        return store() / std::string(variable).append(suffix);
    }

    static void put_file(const fs::path &path, std::string_view contents)
    {
        fs::create_directories(path.parent_path());
        std::ofstream stream(path, std::ios::binary | std::ios::trunc);
        stream.write(contents.data(), static_cast<std::streamsize>(contents.size()));
        stream.close();
        if (!stream)
            throw std::runtime_error("cannot write " + path.string());
    }

    void put(std::string_view variable, std::string_view data, UINT32 attributes = 7) const
    {
        put_file(file(variable), in_attributes(attributes) + std::string(data));
    }

    /* A file's contents; "(none)" if it is absent. */
    static std::string contents(const fs::path &path)
    {
        std::ifstream stream(path, std::ios::binary);
        if (!stream)
            return "(none)";
        std::ostringstream text; // an iterator over an image takes seconds without optimisation
        text << stream.rdbuf();
        return text.str();
    }

    /* A global variable's attributes and data; "(none)" if it is absent. */
    [[nodiscard]] std::string get(std::string_view variable) const { return contents(file(variable)); }

    /* The names in the store, sorted. */
    [[nodiscard]] std::vector<std::string> names() const
    {
        std::vector<std::string> found;
        for (const auto &entry : fs::directory_iterator(store()))
            found.push_back(entry.path().filename().string());
        std::ranges::sort(found);
        return found;
    }

private:
    environment root_variable;
    fs::path top;
};

} // namespace platform_test

#endif
