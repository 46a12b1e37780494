// SPDX-License-Identifier: MIT
#include <algorithm>

#include "tools/ovra/changes.h"
#include "tools/ovra/devicepaths.h"
#include "tools/ovra/failure.h"
#include "tools/ovra/fields.h"
#include "tools/ovra/lock.h"
#include "tools/ovra/verbs.h"

namespace tool {

namespace {

// The library cuts long descriptions and finds optional data by a 16-bit offset: what it returned is written
// back only if it is what the variable holds.
void require_kept(uint16_t number, const variable &stored_option, const load_option &read,
                  bool keeps_description, bool keeps_optional_data)
{
    const std::string cannot = "cannot change " + option_name(number) + ": ";
    const auto parts = split(stored_option.data);
    if (!parts)
        throw failure(cannot + "it is damaged");
    const auto differs = [](byte_view is, const bytes &returned) {
        return !std::equal(is.begin(), is.end(), returned.begin(), returned.end());
    };
    if (keeps_description) {
        const auto text = to_ucs2(read.description);
        if (!text || differs(parts->description, stored(*text)))
            throw failure(cannot + "its description would not stay as it is",
                          "It is longer than can be read back, or has characters that are no text. Give\n"
                          "--desc as well.");
    }
    if (differs(parts->path, read.path))
        throw failure(cannot + "its path would not stay as it is");
    if (keeps_optional_data && differs(parts->optional_data, read.optional_data))
        throw failure(cannot + "its optional data would not stay as it is",
                      "It begins further in than can be read back. Give the optional data as well.");
}

// Text does not carry all of a path: only what is new goes through it.
bytes changed_path(bytes path, const arguments &args, changes *changes)
{
    device_paths paths;
    if (args.device_text) {
        const given_path devices = given_devices(paths, args, std::nullopt);
        path = with_devices(path, devices.packed);
        for (const auto &[name, value] : devices.disk.items())
            changes->remark({}, name, value);
    }
    if (args.file)
        path = with_file(path, paths.encode("", args.file));
    return path;
}

} // namespace

void run_set(firmware &machine, const arguments &args)
{
    const uint16_t number = args.options.front();
    const std::optional<bytes> optional_data = args.no_optional_data ? bytes{} : given_optional_data(args);
    const machine_lock lock(machine, args);
    machine.require_option(number);
    load_option option = machine.read_option(number);
    const variable before = machine.read_global(option_name(number));
    require_kept(number, before, option, !args.description, !optional_data);

    if (args.description)
        option.description = *args.description;
    if (args.attributes)
        option.attributes = *args.attributes;
    if (args.active)
        option.attributes =
            *args.active ? option.attributes | LOAD_OPTION_ACTIVE : option.attributes & ~LOAD_OPTION_ACTIVE;
    if (optional_data)
        option.optional_data = *optional_data;
    changes changes(machine, args);
    if (args.device_text || args.file)
        option.path = changed_path(option.path, args, &changes);
    check_size(option);

    if (as_stored(option) != before.data)
        changes.make(writes_option(number, option));
    changes.report();
}

} // namespace tool
