// SPDX-License-Identifier: MIT
#include <algorithm>

#include "src/base/ascii.h"
#include "tools/paste/partition.h"
#include "tools/paste/reading.h"
#include "tools/paste/storage.h"
#include "tools/text/nodeparse.h"
#include "tools/text/nodevalues.h"

namespace tool {

namespace {

constexpr uint8_t messaging = UEFI_MESSAGING;

// The first three bytes of an identifier say who made the drive.
bool is_of_a_maker(const bytes &identifier)
{
    static constexpr uint32_t makers[] = {0x002538, 0x001b44, 0x8ce38e, 0xace42e, 0x5cd2e4,
                                          0x00a075, 0x000cca, 0x00080d, 0x0026b7, 0x6479a7};
    const uint32_t first = static_cast<uint32_t>(identifier[0] << 16 | identifier[1] << 8 | identifier[2]);
    return std::find(std::begin(makers), std::end(makers), first) != std::end(makers);
}

// Firmware prints the last byte of the identifier first, efibootmgr the first.
std::vector<reading> read_nvme(const node_fields &fields)
{
    require_count(fields, 2, 2);
    const uint64_t name_space = sized_number(fields.values[0], 4);
    bytes in_order;
    for (const std::string_view each : parts_of(fields.values[1], '-'))
        in_order.push_back(static_cast<uint8_t>(hexadecimal_of(each.size() == 2 ? each : "", 1)));
    if (in_order.size() != 8)
        refuse("the identifier of a namespace is eight bytes, as 00-25-38-00-00-00-00-01");
    const bytes reversed(in_order.rbegin(), in_order.rend());
    const auto node = [name_space](const bytes &identifier) {
        return new_node(messaging, 23).number(name_space, 4).append(identifier).done();
    };
    // Other firmware has small letters, and ovra's slash in front.
    const bool is_small = std::any_of(fields.values[1].begin(), fields.values[1].end(),
                                      [](char c) { return c >= 'a' && c <= 'f'; });
    const dialects others = of_efibootmgr | of_old_efibootmgr | (is_small ? of_ovra : 0);
    return {{of_firmware, node(reversed), {}, {}, false, "the last byte first"},
            {others, node(in_order), {}, {}, false, "the first byte first"}};
}

// Nodes of these kinds have a reserved word that ours leaves out; efibootmgr prints both by one keyword.
std::vector<reading> read_fibre(const node_fields &fields)
{
    const auto &values = fields.values;
    if (fields.count() != 2)
        return {};
    if (fields.is("FibreEx")) {
        if (!has_prefix(values[0]) || !has_prefix(values[1]))
            return {};
        const bytes name = bytes_of_digits(values[0].substr(2));
        const bytes unit = bytes_of_digits(values[1].substr(2));
        if (name.size() != 8 || unit.size() != 8)
            refuse("both are 16 hexadecimal digits");
        return {{of_firmware, new_node(messaging, 21).number(0, 4).append(name).append(unit).done()}};
    }
    std::vector<reading> all;
    if (has_prefix(values[0]) && has_prefix(values[1]))
        all.push_back({of_firmware, new_node(messaging, 3)
                                        .number(0, 4)
                                        .number(sized_number(values[0], 8), 8)
                                        .number(sized_number(values[1], 8), 8)
                                        .done()});
    all.push_back({of_efibootmgr, {}, "efibootmgr prints the nodes Fibre and FibreEx alike"});
    return all;
}

// As a number; ours takes the bytes as they stand.
std::vector<reading> read_i1394(const node_fields &fields)
{
    if (fields.count() != 1)
        return {};
    const uint64_t number = hexadecimal_of(fields.values[0], 8);
    return {{of_firmware | of_efibootmgr, new_node(messaging, 4).number(0, 4).number(number, 8).done()}};
}

uint64_t topology_of(const node_fields &fields)
{
    const auto &values = fields.values;
    if (ovra::alike(values[3], "NoTopology"))
        return 0;
    const auto kind = index_of(values[3], {"SAS", "SATA"});
    const auto place = index_of(values[4], {"Internal", "External"});
    const auto connect = index_of(values[5], {"Direct", "Expanded"});
    if (!kind || !place || !connect)
        refuse(
            "it is NoTopology,0,0,0 or SAS or SATA, Internal or External, Direct or Expanded, and a drive bay");
    const uint64_t bay = sized_number(values[6], 2);
    if (bay > 256)
        refuse("drive bays are numbered from 1 to 256");
    return *kind << 4 | *place << 5 | *connect << 6 | (bay == 0 ? 1 : 2 | (bay - 1) << 8);
}

// The identifier of ours has its bytes in another order.
std::vector<reading> read_sas(const node_fields &fields)
{
    const auto &values = fields.values;
    if (fields.arguments.find('=') != std::string::npos)
        return {};
    if (fields.is("SAS") && fields.count() != 8)
        return {{any_dialect & ~of_ovra, {}, "its eight values are not all there"}};
    if (fields.is("SAS") && !has_prefix(values[0]))
        return {{any_dialect & ~of_ovra, {}, "efibootmgr does not print all of a SAS node"}};
    if (fields.is("SasEx") && (fields.count() != 7 || !has_prefix(values[0])))
        return {};
    const uint64_t topology = topology_of(fields);
    const uint64_t port = sized_number(values[2], 2);
    if (fields.is("SasEx")) {
        const bytes address = bytes_of_digits(values[0].substr(2));
        const bytes unit = bytes_of_digits(has_prefix(values[1]) ? values[1].substr(2) : values[1]);
        if (address.size() != 8 || unit.size() != 8)
            refuse("Address and LUN are 16 hexadecimal digits");
        return {{of_firmware, new_node(messaging, 22)
                                  .append(address)
                                  .append(unit)
                                  .number(topology, 2)
                                  .number(port, 2)
                                  .done()}};
    }
    const bytes node = new_node(messaging, 10)
                           .append(guid_bytes_of("d487ddb4-008b-11d9-afdc-001083ffca4d"))
                           .number(sized_number(values[7], 4), 4)
                           .number(sized_number(values[0], 8), 8)
                           .number(sized_number(values[1], 8), 8)
                           .number(topology, 2)
                           .number(port, 2)
                           .done();
    return {{of_firmware, node},
            {any_dialect & ~(of_ovra | of_firmware), {}, "efibootmgr does not print all of a SAS node"}};
}

std::vector<reading> read_infiniband(const node_fields &fields)
{
    const auto &values = fields.values;
    if (fields.count() != 5)
        return {};
    if (!is_guid(values[1])) {
        if (has_prefix(values[0]) || values[0].size() != 8)
            return {};
        return {{of_efibootmgr, {}, "efibootmgr does not print all of an Infiniband node"}};
    }
    return {{any_dialect, new_node(messaging, 9)
                              .number(sized_number(values[0], 4), 4)
                              .append(guid_bytes_of(values[1]))
                              .number(sized_number(values[2], 8), 8)
                              .number(sized_number(values[3], 8), 8)
                              .number(sized_number(values[4], 8), 8)
                              .done()}};
}

// Ours puts the name in 16-bit characters, and takes the unit without 0x.
std::vector<reading> read_iscsi(const node_fields &fields)
{
    const auto &values = fields.values;
    if (fields.arguments.find("LUN=") != std::string::npos) // names of values are ours
        return {};
    if (fields.count() != 7)
        return {{any_dialect & ~of_ovra, {}, "its seven values are not all there"}};
    // Of a unit's number without its zeros tools print the bytes in one order or the other.
    const bool prefixed = has_prefix(values[2]);
    std::string unit(values[2].substr(prefixed ? 2 : 0));
    if (unit.find_first_not_of('0') == std::string::npos)
        unit = std::string(16, '0');
    if (unit.size() != 16)
        refuse("LUN has 16 hexadecimal digits, or is 0x0");
    const auto header = index_of(values[3], {"None", "CRC32C", "CRC32"});
    const auto data = index_of(values[4], {"None", "CRC32C", "CRC32"});
    const auto login = index_of(values[5], {"CHAP_BI", "CHAP_UNI", "None"});
    if (!header || !data || !login || !ovra::alike(values[6], "TCP"))
        refuse("digests are None or CRC32C, the authentication None, CHAP_UNI or CHAP_BI, the protocol TCP");
    constexpr uint64_t logins[] = {0, 0x1000, 0x0800};
    const uint64_t options = (*header ? 2 : 0) | (*data ? 8 : 0) | logins[*login];
    reading read;
    read.node = new_node(3, 19)
                    .number(0, 2)
                    .number(options, 2)
                    .append(bytes_of_digits(unit))
                    .number(sized_number(values[1], 2), 2)
                    .text(values[0])
                    .number(0, 1)
                    .done();
    read.assumed = "a target name with a null at its end";
    // efibootmgr prints authentications that are not CHAP as CHAP_BI.
    read.by = any_dialect & ~(of_efibootmgr | (prefixed ? 0 : of_ovra));
    return {read, {of_efibootmgr, {}, "efibootmgr does not print iSCSI options as they are"}};
}

// Without blocks: the disks of this machine know them.
std::vector<reading> read_hard_drive(const node_fields &fields)
{
    const auto &values = fields.values;
    constexpr std::string_view part = "Part"; // as the shell of early firmware prints it
    constexpr std::string_view signature = "Sig";
    const auto of_this_machine = [&fields](std::string_view number, std::string_view guid) {
        const taken_partition taken =
            partition_on_this_machine(sized_number(number, 4), guid_bytes_of(guid), fields.before);
        reading read = {any_dialect, taken.node};
        read.told = "the blocks of " + taken.names;
        return std::vector<reading>{read};
    };
    if (fields.count() == 2 && values[0].starts_with(part) && values[1].starts_with(signature))
        return of_this_machine(values[0].substr(part.size()), values[1].substr(signature.size()));
    if (fields.count() != 3 || !ovra::alike(values[1], "GPT") || !is_guid(values[2]))
        return {};
    return of_this_machine(values[0], values[2]);
}

} // namespace

bool tells_its_maker(const reading &read)
{
    constexpr size_t size = 16;
    const bytes &node = read.node;
    return node.size() == size && node[0] == messaging && node[1] == 23 &&
           is_of_a_maker({node.begin() + 8, node.end()});
}

std::vector<reading> read_storage_node(const node_fields &fields)
{
    if (fields.is("NVMe"))
        return read_nvme(fields);
    if (fields.is("Fibre") || fields.is("FibreEx"))
        return read_fibre(fields);
    if (fields.is("I1394"))
        return read_i1394(fields);
    if (fields.is("SAS") || fields.is("SasEx"))
        return read_sas(fields);
    if (fields.is("Infiniband"))
        return read_infiniband(fields);
    if (fields.is("iSCSI"))
        return read_iscsi(fields);
    if (fields.is("HD"))
        return read_hard_drive(fields);
    return {};
}

} // namespace tool
