// SPDX-License-Identifier: MIT
#include "tools/dropin/newentry.h"

#include <algorithm>
#include <optional>

#include "src/base/nodes.h"
#include "tools/machine/arrays.h"
#include "tools/machine/chosendisk.h"
#include "tools/machine/devicepaths.h"
#include "tools/machine/files.h"
#include "tools/machine/fullform.h"
#include "tools/machine/machinefiles.h"
#include "tools/machine/networkpath.h"
#include "tools/machine/pathnodes.h"
#include "tools/machine/sysfs.h"
#include "tools/text/failure.h"

namespace tool::dropin {

namespace {

constexpr size_t data_limit = 1u << 20;

// Hardware of a vendor's definition: a disk by its number with the BIOS, for which EDD 1.0 has this GUID.
constexpr EFI_GUID edd_one = {0xcf31fac5, 0xc24e, 0x11d2, {0x85, 0xf3, 0x00, 0xa0, 0xc9, 0x3e, 0xc9, 0x3b}};

bytes edd_node(uint32_t device)
{
    constexpr uint8_t vendor_defined = 4;
    const ovra::guid_bytes guid = ovra::stored_guid(edd_one);
    const uefi_device_path_t header = {UEFI_HARDWARE, vendor_defined,
                                       sizeof(uefi_device_path_t) + sizeof guid + sizeof device};
    bytes node;
    for (const byte_view part : {ovra::bytes_of(header), byte_view(guid), ovra::bytes_of(device)})
        node.insert(node.end(), part.begin(), part.end());
    return with_end(node);
}

std::string line_of(const machine_files &files, const std::string &path)
{
    constexpr size_t limit = 256;
    std::string text = files.text(path, limit).value_or("");
    text.erase(std::min(text.find('\n'), text.size()));
    return text;
}

bytes interface_path(const std::string &name)
{
    require_machine();
    const machine_files files;
    const std::string folder = "/sys/class/net/" + name;
    if (name.find('/') != std::string::npos || !files.find(folder).status)
        throw failure("there is no network interface " + in_quotes(name));
    const auto address = parse_mac(line_of(files, folder + "/address"));
    if (line_of(files, folder + "/type") != "1" || !address)
        throw failure("the network interface " + in_quotes(name) + " has no address of Ethernet",
                      "Firmware boots over Ethernet.");
    return network_path(address, std::nullopt);
}

// The first partition, where a whole disk is named and none of it.
chosen_disk disk_of(const settings &given)
{
    find_drives(given.disk); // tells best of a name that is no disk's
    std::optional<chosen_disk> found;
    try {
        found = find_disk(given.disk);
    } catch (const failure &) {
        return find_disk(given.disk, given.part.value_or(1));
    }
    return given.part ? find_disk(found->drive, given.part) : *found;
}

bytes whole_disk_path(device_paths &paths, const settings &given, const std::string &loader)
{
    const std::vector<drive> drives = find_drives(given.disk);
    if (drives.size() != 1)
        throw failure(in_quotes(given.disk) + " names more than one disk");
    return joined(paths.encode(hardware().text_of(drives.front()), std::nullopt), paths.encode("", loader));
}

bytes disk_path(const settings &given)
{
    const std::string loader = firmware_file(given.loader);
    if (loader.empty())
        throw failure("-l: the name of a file is needed");
    device_paths paths;
    if (given.part == 0u)
        return whole_disk_path(paths, given, loader);
    const chosen_disk found = disk_of(given);
    require_not_in_an_array(found);
    bytes path = paths.encode_disk(found.name, loader);
    if (given.form == edd::three)
        path = joined(paths.encode(hardware().text_of(drive_of(found.name)), std::nullopt), path);
    if (given.form == edd::one)
        path = joined(edd_node(given.edd_device), path);
    return path;
}

// The words one behind the other, as a loader reads its command line.
bytes optional_data(const settings &given)
{
    if (given.arguments_file == "-") {
        const std::string data = standard_input(data_limit, "larger than any firmware variable");
        return {data.begin(), data.end()};
    }
    if (given.arguments_file)
        return contents(*given.arguments_file, data_limit, "it is larger than any firmware variable");
    const std::string text = join(given.arguments, " ");
    if (!given.unicode)
        return {text.begin(), text.end()};
    const auto units = to_ucs2(text);
    if (!units)
        throw failure(in_quotes(text) + " cannot be stored as UCS-2");
    return stored(std::span(*units).first(units->size() - 1));
}

} // namespace

bytes new_entry(const settings &given)
{
    load_option option;
    if (!to_ucs2(given.label))
        throw failure(in_quotes(given.label) + " cannot be stored as UCS-2");
    option.description = given.label;
    option.optional_data = optional_data(given);
    option.path = given.interface ? interface_path(*given.interface) : disk_path(given);
    if (const auto error = path_error(option.path))
        throw failure("the path cannot be stored: " + *error);
    return as_stored(option);
}

} // namespace tool::dropin
