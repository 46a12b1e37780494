/* SPDX-License-Identifier: MIT */
/* What a test changes around it, put back at the end of the scope. */
#ifndef TESTS_SUPPORT_GUARDS_H
#define TESTS_SUPPORT_GUARDS_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>

#include "tests/support/bytes.h"

namespace ovra::test {

/* Sets an environment variable, or with null takes it away. */
class environment {
public:
    environment(const char *variable, const char *value) : name(variable)
    {
        if (const char *old = getenv(variable))
            before = old;
        set(value);
    }
    ~environment() { set(before ? before->c_str() : nullptr); }
    environment(const environment &) = delete;
    environment &operator=(const environment &) = delete;

    void set(const char *value) const
    {
        if (value)
            setenv(name.c_str(), value, 1);
        else
            unsetenv(name.c_str());
    }

private:
    std::string name;
    std::optional<std::string> before;
};

/* An empty folder that is the working directory meanwhile. */
class temporary_directory {
public:
    temporary_directory()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "ovra-test-XXXXXX").string();
        if (!mkdtemp(pattern.data()))
            throw std::runtime_error("mkdtemp " + pattern);
        folder = pattern;
        std::filesystem::current_path(folder);
    }
    ~temporary_directory()
    {
        std::error_code ignored;
        std::filesystem::current_path(before, ignored);
        std::filesystem::remove_all(folder, ignored);
    }
    temporary_directory(const temporary_directory &) = delete;
    temporary_directory &operator=(const temporary_directory &) = delete;

    const std::filesystem::path &path() const { return folder; }

    void write(const std::string &name, const bytes &data) const
    {
        std::ofstream file(folder / name, std::ios::binary);
        file.write(reinterpret_cast<const char *>(data.data()), static_cast<std::streamsize>(data.size()));
        if (!file.flush())
            throw std::runtime_error("write " + name);
    }

    std::optional<bytes> read(const std::string &name) const
    {
        std::ifstream file(folder / name, std::ios::binary);
        if (!file)
            return std::nullopt;
        return bytes(std::istreambuf_iterator<char>(file), {});
    }

private:
    std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::path folder;
};

} // namespace ovra::test

#endif
