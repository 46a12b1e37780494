// SPDX-License-Identifier: MIT
#include "platform/machine/nvme.h"

#include <optional>
#include <string_view>
#include <tuple>

#include "platform/machine/buses.h"

namespace machine {

namespace {

constexpr std::string_view subsystems = "sys/devices/virtual/nvme-subsystem/";

// The hidden disk of one path to a namespace: "nvme0n1" through controller nvme3 is "nvme0c3n1"
// (drivers/nvme/host/multipath.c).
std::string path_disk(std::string_view disk, std::string_view controller)
{
    const std::size_t space = disk.rfind('n');
    return std::string(disk.substr(0, space)) + 'c' + std::string(controller.substr(4)) +
           std::string(disk.substr(space));
}

// Files of older kernels are fewer: what is not said is taken for good.
bool is_live(const sysfs &files, const std::string &controller, const std::string &path_disk)
{
    const std::string access = files.text(controller + '/' + path_disk + "/ana_state").value_or("optimized");
    return files.text(controller + "/state").value_or("live") == "live" &&
           (access == "optimized" || access == "non-optimized");
}

} // namespace

functions_by_path::const_iterator function_above(const functions_by_path &functions, std::string path)
{
    auto function = functions.end();
    while (function == functions.end() && path.find('/') != std::string::npos) {
        path.resize(path.rfind('/'));
        function = functions.find(path);
    }
    return function;
}

std::string nvme_path_of(const sysfs &files, const std::string &path, const functions_by_path &functions)
{
    const std::size_t slash = path.rfind('/');
    const std::string_view disk = std::string_view(path).substr(slash + 1);
    if (!path.starts_with(subsystems) || slash < subsystems.size() || !disk.starts_with("nvme"))
        return path;
    const std::string folder = path.substr(0, slash + 1);
    // By whether it leads to the namespace at all, is live, and its place in the tree.
    std::optional<std::tuple<bool, bool, std::size_t, std::string>> best;
    for (const std::string &name : files.names(path.substr(0, slash))) {
        if (!is_numbered(name, "nvme"))
            continue;
        const auto controller = files.link(folder + name);
        if (!controller)
            continue;
        const std::string through = path_disk(disk, name);
        const std::string of_path = *controller + '/' + through;
        const auto function = function_above(functions, of_path);
        if (function == functions.end())
            continue;
        const bool leads = files.number(of_path + "/size").has_value();
        std::tuple next(!leads, !is_live(files, *controller, through), function->second, of_path);
        if (!best || next < *best)
            best = std::move(next);
    }
    return best ? std::get<3>(*best) : path;
}

} // namespace machine
