// SPDX-License-Identifier: MIT
#include "platform/machine/sysfs.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/machine/debug.h"
#include "platform/machine/failure.h"
#include "platform/machine/files.h"

namespace machine {

namespace {

// A sysfs file is at most one page (fs/sysfs/file.c). No kernel makes a folder with more entries.
constexpr std::size_t largest_text = 4096;
constexpr std::size_t most_names = 65536;

struct closing {
    void operator()(DIR *folder) const { closedir(folder); }
};

// Appends `path` to the components of a resolved path. False when it leads above the root.
bool resolve(std::string_view path, std::vector<std::string_view> *components)
{
    while (!path.empty()) {
        const std::size_t end = std::min(path.find('/'), path.size());
        const std::string_view component = path.substr(0, end);
        path.remove_prefix(std::min(end + 1, path.size()));
        if (component.empty() || component == ".")
            continue;
        if (component != "..") {
            components->push_back(component);
            continue;
        }
        if (components->empty())
            return false;
        components->pop_back();
    }
    return true;
}

// Opens `path` below `folder`, through real folders only. It may be longer than PATH_MAX.
owned_fd open_path(int folder, std::string_view path, int flags)
{
    std::array<char, NAME_MAX + 1> name;
    owned_fd above;
    for (;;) {
        const std::size_t end = std::min(path.find('/'), path.size());
        if (end == 0 || end >= name.size()) {
            errno = ENOENT; // no name has that length
            return {};
        }
        *std::copy_n(path.data(), end, name.data()) = '\0';
        const bool last = end == path.size();
        const int wanted = last ? flags : O_PATH | O_DIRECTORY;
        owned_fd next(openat(above ? above.get() : folder, name.data(), wanted | O_NOFOLLOW | O_CLOEXEC));
        if (last || !next)
            return next;
        above = std::move(next);
        path.remove_prefix(end + 1);
    }
}

// Much of sysfs may be absent. Any other errno ends the reading.
void pass_over_if_absent(const std::string &path)
{
    const int error = errno;
    if (error == ENOENT)
        return;
    debug("%s: cannot be read: %s", path.c_str(), std::strerror(error));
    if (!means_absent(error))
        throw read_failure{error};
}

} // namespace

std::optional<std::uint64_t> parse_number(std::string_view text, int base)
{
    std::uint64_t value = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, base);
    if (error != std::errc() || stop != end)
        return std::nullopt;
    return value;
}

std::optional<std::string> sysfs::text(const std::string &path) const
{
    const owned_fd file = open_path(folder, path, O_RDONLY | O_NONBLOCK | O_NOCTTY);
    struct stat status = {};
    if (!file || fstat(file.get(), &status) != 0) {
        pass_over_if_absent(path);
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode))
        return std::nullopt;
    std::array<char, largest_text + 1> buffer;
    std::size_t length = 0;
    while (length < buffer.size()) {
        const ssize_t count = read(file.get(), buffer.data() + length, buffer.size() - length);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0) {
            pass_over_if_absent(path);
            return std::nullopt;
        }
        if (count == 0)
            break;
        length += static_cast<std::size_t>(count);
    }
    if (length > largest_text) {
        debug("%s: longer than a sysfs file can be", path.c_str());
        return std::nullopt;
    }
    std::string_view contents(buffer.data(), length);
    if (contents.ends_with('\n'))
        contents.remove_suffix(1);
    if (contents.find('\0') != std::string_view::npos)
        return std::nullopt;
    return std::string(contents);
}

std::optional<std::uint64_t> sysfs::number(const std::string &path) const
{
    const auto contents = text(path);
    if (!contents)
        return std::nullopt;
    const std::string_view digits = *contents;
    return digits.starts_with("0x") ? parse_number(digits.substr(2), 16) : parse_number(digits, 10);
}

std::optional<std::string> sysfs::link(const std::string &path) const
{
    std::array<char, PATH_MAX> target;
    const owned_fd link = open_path(folder, path, O_PATH);
    const ssize_t length = link ? readlinkat(link.get(), "", target.data(), target.size()) : -1;
    if (length < 0) {
        pass_over_if_absent(path); // ENOENT also for what is not a link (fs/stat.c, do_readlinkat)
        return std::nullopt;
    }
    if (length == 0 || static_cast<std::size_t>(length) == target.size() || target[0] == '/')
        return std::nullopt;
    std::vector<std::string_view> components;
    if (!resolve(std::string_view(path).substr(0, path.rfind('/') + 1), &components) ||
        !resolve({target.data(), static_cast<std::size_t>(length)}, &components))
        return std::nullopt;
    std::string resolved;
    for (const std::string_view component : components) {
        if (!resolved.empty())
            resolved += '/';
        resolved += component;
    }
    return resolved;
}

std::vector<std::string> sysfs::names(const std::string &path) const
{
    std::vector<std::string> names;
    owned_fd opened = open_path(folder, path, O_RDONLY | O_DIRECTORY);
    if (!opened) {
        pass_over_if_absent(path);
        return names;
    }
    const std::unique_ptr<DIR, closing> stream(fdopendir(opened.get()));
    if (!stream)
        throw read_failure{errno};
    opened.release();
    for (;;) {
        errno = 0;
        const dirent *entry = readdir(stream.get());
        if (entry == nullptr) {
            if (errno != 0) {
                pass_over_if_absent(path);
                names.clear();
            }
            break;
        }
        if (entry->d_name[0] == '.')
            continue;
        if (names.size() == most_names) {
            debug("%s: only the first %zu names are looked at", path.c_str(), most_names);
            break;
        }
        names.emplace_back(entry->d_name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace machine
