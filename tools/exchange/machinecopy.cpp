// SPDX-License-Identifier: MIT
#include "tools/exchange/machinecopy.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "src/base/whole_number.h"
#include "tools/exchange/tablecopy.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

namespace fs = std::filesystem;

// What paths to disks are made from. Of serial numbers those are among them by which paths name disks.
constexpr std::string_view copied_attributes[] = {"adr",
                                                  "ana_state",
                                                  "class",
                                                  "class_id",
                                                  "cntlid",
                                                  "dev",
                                                  "device",
                                                  "devtype",
                                                  "eui",
                                                  "hid",
                                                  "hidden",
                                                  "level",
                                                  "logical_block_size",
                                                  "maxchild",
                                                  "metadata_version",
                                                  "modalias",
                                                  "mode",
                                                  "name",
                                                  "nodename",
                                                  "nr_pmp_links",
                                                  "nr_sectors",
                                                  "nsid",
                                                  "partition",
                                                  "port_name",
                                                  "port_no",
                                                  "removable",
                                                  "revision",
                                                  "sas_address",
                                                  "sector",
                                                  "size",
                                                  "speed",
                                                  "start",
                                                  "state",
                                                  "subsysnqn",
                                                  "targetname",
                                                  "transport",
                                                  "type",
                                                  "uid",
                                                  "uuid",
                                                  "vendor",
                                                  "wwid",
                                                  "zoned"};

constexpr std::string_view links[] = {"device", "firmware_node", "of_node", "subsystem"};

// Where sysfs has links to devices, and nothing else of interest.
constexpr const char *folders_of_links[] = {"sys/block", "sys/bus/pci/devices", "sys/class/block",
                                            "sys/dev/block"};

template <typename names>
bool is_among(const names &all, std::string_view name)
{
    return std::find(std::begin(all), std::end(all), name) != std::end(all);
}

// A line of sysfs; nothing where it cannot be read, as some attributes never can.
std::optional<std::string> line_in(const fs::path &file)
{
    constexpr size_t longest = 4096;
    // Of the folder of another machine, in which anything may be: to open a FIFO must not wait.
    const int fd = open(file.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd == -1)
        return std::nullopt;
    struct stat info = {};
    std::string text(longest, '\0');
    size_t size = 0;
    ssize_t part = fstat(fd, &info) == 0 && S_ISREG(info.st_mode) ? 1 : 0;
    while (part > 0 && size < longest) {
        part = read(fd, text.data() + size, longest - size);
        size += part > 0 ? static_cast<size_t>(part) : 0;
    }
    close(fd);
    if (size == 0)
        return std::nullopt;
    text.resize(size);
    return text;
}

class machine_copy {
public:
    machine_copy(firmware *machine_of, const std::string &root, const fs::path &folder)
        : machine(machine_of), from(root.empty() ? "/" : root), to(folder)
    {}

    copied_machine copy()
    {
        copy_devices();
        for (const char *folder : folders_of_links)
            copy_links(folder);
        copy_disks();
        if (machine)
            copy_variables();
        fs::create_directories(to / "var/lib/hwplat");
        return std::move(copied);
    }

private:
    void put(const fs::path &name, std::string_view contents) const
    {
        fs::create_directories((to / name).parent_path());
        std::ofstream stream(to / name, std::ios::binary);
        stream << contents;
        if (!stream.flush())
            throw failure("cannot write " + printable((to / name).string()));
    }

    void put_link(const fs::directory_entry &link) const
    {
        const fs::path place = to / link.path().lexically_relative(from);
        fs::create_directories(place.parent_path());
        fs::create_symlink(fs::read_symlink(link.path()), place);
    }

    // Of processors and the like there is much, and no disk is below them.
    static bool is_of_interest(const fs::path &folder)
    {
        const std::string name = folder.filename();
        const std::string above = folder.parent_path().filename();
        if (above == "devices" && name == "system")
            return false;
        return above != "virtual" || name == "block" || name.starts_with("nvme");
    }

    static bool is_copied_link(const fs::path &link)
    {
        const std::string name = link.filename();
        const std::string above = link.parent_path().filename();
        return is_among(links, name) || above == "slaves" || above == "holders" ||
               (above.starts_with("nvme-subsys") && name.starts_with("nvme")); // to its controllers
    }

    void copy_devices()
    {
        std::error_code error;
        fs::recursive_directory_iterator at(from / "sys/devices",
                                            fs::directory_options::skip_permission_denied, error);
        for (; !error && at != fs::recursive_directory_iterator(); at.increment(error)) {
            const std::string name = at->path().filename();
            std::error_code ignored; // devices come and go
            if (at->is_symlink(ignored)) {
                if (is_copied_link(at->path()))
                    put_link(*at);
            } else if (at->is_directory(ignored)) {
                if (!is_of_interest(at->path()))
                    at.disable_recursion_pending();
            } else if (is_among(copied_attributes, name)) {
                if (const auto line = line_in(at->path()))
                    put(at->path().lexically_relative(from), *line);
            }
        }
        if (error)
            copied.left_out.push_back("sys/devices: " + error.message());
    }

    void copy_links(const char *folder) const
    {
        std::error_code error;
        for (const auto &entry : fs::directory_iterator(from / folder, error)) {
            if (entry.is_symlink(error))
                put_link(entry);
        }
    }

    static uint64_t number_in(const fs::path &file)
    {
        std::string text = line_in(file).value_or("");
        text.erase(text.find_last_not_of('\n') + 1);
        return ovra::whole_number<uint64_t>(text).value_or(0);
    }

    void copy_disks()
    {
        constexpr uint64_t unit = 512; // of sysfs
        constexpr uint64_t most_units = uint64_t{1} << 53;
        constexpr uint64_t largest_block = 65536;
        std::error_code error;
        for (const auto &disk : fs::directory_iterator(from / "sys/block", error)) {
            const std::string name = disk.path().filename();
            const uint64_t units = number_in(disk.path() / "size");
            const uint64_t block = number_in(disk.path() / "queue/logical_block_size");
            if (units == 0 || units > most_units || block < unit || block > largest_block)
                continue;
            std::string node = name; // a slash in a name is an exclamation mark in sysfs
            std::replace(node.begin(), node.end(), '!', '/');
            if (node.find("..") != std::string::npos)
                continue;
            fs::create_directories((to / "dev" / node).parent_path());
            const int why = copy_tables(from, "dev/" + node, to / "dev" / node, units * unit,
                                        static_cast<uint32_t>(block));
            if (why != 0)
                copied.left_out.push_back(name + ": " +
                                          (why == ELOOP ? "its file is a link" : strerror(why)));
            else
                ++copied.disks;
        }
    }

    void copy_variables()
    {
        const fs::path folder = "sys/firmware/efi/efivars";
        fs::create_directories(to / folder);
        for (const variable_id &id : machine->variables()) {
            if (!ovra::same_guid(id.guid, ovra::global_variable_guid))
                continue;
            std::string name = to_utf8(id.name);
            const variable is = machine->read(id);
            if (is.status != EFI_SUCCESS) {
                copied.left_out.push_back(name + ": " + status_name(is.status));
                continue;
            }
            std::replace(name.begin(), name.end(), '/', '!'); // as efivarfs has it
            std::string contents(reinterpret_cast<const char *>(&is.attributes), sizeof is.attributes);
            contents.append(is.data.begin(), is.data.end());
            put(folder / (name + '-' + guid_text(id.guid)), contents);
            ++copied.variables;
        }
    }

    firmware *machine;
    const fs::path from;
    const fs::path to;
    copied_machine copied;
};

} // namespace

copied_machine copy_machine(firmware *machine, const std::string &root, const fs::path &to)
{
    return machine_copy(machine, root, to).copy();
}

} // namespace tool
