// SPDX-License-Identifier: MIT
#include "tools/machine/machinefiles.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <unistd.h>

#include "tools/machine/files.h"
#include "tools/machine/sysfs.h"
#include "tools/text/failure.h"
#include "tools/text/text.h"

namespace tool {

namespace {

constexpr unsigned most_links = 40; // as the kernel

// The names of a path, the first one last.
void push_names(const std::string &path, std::vector<std::string> *names)
{
    std::vector<std::string> found;
    for (size_t begin = 0; begin < path.size();) {
        const size_t end = std::min(path.find('/', begin), path.size());
        if (end > begin && path.substr(begin, end - begin) != ".")
            found.push_back(path.substr(begin, end - begin));
        begin = end + 1;
    }
    names->insert(names->end(), found.rbegin(), found.rend());
}

bool means_absent(int error)
{
    return error == ENOENT || error == ENOTDIR;
}

[[noreturn]] void cannot_follow(const std::string &path, int error)
{
    throw failure("cannot follow " + in_quotes(path) + ": " + strerror(error),
                  error == EACCES || error == EPERM ? "Run this as root." : "");
}

} // namespace

machine_files::machine_files()
{
    const std::optional<std::string> folder = named_root();
    if (!folder)
        return;
    if (folder->empty())
        throw failure("HWPLAT_ROOT is empty: there is no machine");
    std::error_code error;
    live = std::filesystem::canonical(*folder, error) == "/" && !error;
    if (!live)
        root = *folder;
}

found_file machine_files::find(const std::string &path) const
{
    std::vector<std::string> left;
    push_names(path, &left);
    if (!path.starts_with('/')) {
        if (!live)
            throw failure(in_quotes(path) + " is no absolute path",
                          "In the machine's folder a path begins at its root, as /boot/efi.");
        push_names(std::filesystem::current_path().string(), &left);
    }
    found_file found;
    found.status.emplace();
    unsigned links = 0;
    while (!left.empty()) {
        const std::string name = left.back();
        left.pop_back();
        if (name == "..") {
            if (!found.status)
                cannot_follow(path, ENOENT);
            found.path.resize(std::min(found.path.rfind('/'), found.path.size()));
            continue;
        }
        const std::string next = found.path + '/' + name;
        if (found.status && lstat(on_host(next).c_str(), &*found.status) != 0) {
            if (!means_absent(errno))
                cannot_follow(path, errno);
            found.status.reset();
        }
        if (!found.status || !S_ISLNK(found.status->st_mode)) {
            found.path = next;
            continue;
        }
        char target[PATH_MAX];
        const ssize_t size = readlink(on_host(next).c_str(), target, sizeof target);
        if (size == -1 || ++links > most_links)
            cannot_follow(path, size == -1 ? errno : ELOOP);
        push_names({target, static_cast<size_t>(size)}, &left);
        if (target[0] == '/')
            found.path.clear();
    }
    if (found.path.empty())
        found.path = "/";
    if (found.status && lstat(on_host(found.path).c_str(), &*found.status) != 0)
        cannot_follow(path, errno);
    return found;
}

std::optional<std::string> machine_files::link_name(const std::string &path) const
{
    const found_file found = find(path);
    if (!found.status)
        return std::nullopt;
    return found.path.substr(found.path.rfind('/') + 1);
}

std::optional<std::string> machine_files::text(const std::string &path, size_t limit) const
{
    const found_file found = find(path);
    if (!found.status)
        return std::nullopt;
    const bytes data = contents(on_host(found.path), limit, "it is too large");
    return std::string(data.begin(), data.end());
}

std::vector<std::string> machine_files::names(const std::string &path) const
{
    std::vector<std::string> found;
    std::error_code error;
    std::filesystem::directory_iterator at(on_host(find(path).path), error);
    for (; !error && at != std::filesystem::directory_iterator(); at.increment(error))
        found.push_back(at->path().filename().string());
    std::sort(found.begin(), found.end());
    return found;
}

} // namespace tool
