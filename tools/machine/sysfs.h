/* SPDX-License-Identifier: MIT */
// Whether the machine's devices can be seen: without sysfs an empty list would not mean that there are none.
#ifndef OVRA_TOOLS_SYSFS_H
#define OVRA_TOOLS_SYSFS_H

#include <optional>
#include <string>

namespace tool {

// Whether the machine has devices. One whose variables are in a file has none unless something names them;
// require_machine then throws a failure.
bool has_devices();
void require_machine();

// The folder of another machine that the platform libraries are told; it may be empty.
std::optional<std::string> named_root();

// Throws a failure when there is no sysfs. `folder` is that of another machine, else empty.
void require_sysfs(const std::string &folder);

// Throws a failure when sysfs has no devices.
void require_devices();

} // namespace tool

#endif
