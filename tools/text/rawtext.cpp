// SPDX-License-Identifier: MIT
#include "tools/text/rawtext.h"

#include <algorithm>

#include "src/base/ids.h"
#include "src/base/nodes.h"
#include "tools/text/numbers.h"

namespace tool {

std::string raw_text(byte_view node)
{
    static constexpr const char *names[] = {nullptr,         "HardwarePath", "AcpiPath",
                                            "MessagingPath", "MediaPath",    "BbsPath"};
    const std::string data = hex(node.subspan(2));
    if (node[0] == 0 || node[0] >= std::size(names))
        return format("Path(0x%x,0x%x,%s)", node[0], node[1], data.c_str());
    return format(node[0] == UEFI_MESSAGING ? "%s(%u,%s)" : "%s(0x%x,%s)", names[node[0]], node[1],
                  data.c_str());
}

namespace {

std::string eisa_text(uint32_t id)
{
    if (id == 0)
        return "0";
    std::string text;
    for (unsigned place = 0; place < 3; ++place)
        text += ovra::eisa_letter(id, place);
    return text + format("%04X", ovra::eisa_product(id));
}

std::string acpi_ex_text(const uefi_acpiex_device_path_t &node)
{
    std::string text =
        "AcpiEx(" + eisa_text(node.hid) + ',' + eisa_text(node.cid) + format(",0x%X", node.uid);
    const byte_view strings = ovra::tail(node);
    std::string_view rest(reinterpret_cast<const char *>(strings.data()), strings.size());
    for (const char *name : {"HIDSTR", "UIDSTR", "CIDSTR"}) {
        const size_t end = std::min(rest.find('\0'), rest.size());
        if (end != 0)
            text += std::string(",") + name + '=' + std::string(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return text + ')';
}

} // namespace

std::vector<std::string> fuller_texts(byte_view node)
{
    if (const auto *mac = ovra::as<uefi_macaddr_device_path_t>(node)) {
        const size_t length = mac->iff_type <= 1 ? 6 : sizeof mac->mac_addr;
        return {format("MAC(%s,0x%x)", hex({mac->mac_addr, length}).c_str(), mac->iff_type)};
    }
    if (const auto *acpi = ovra::as<uefi_acpi_device_path_t>(node))
        return {format("Acpi(%s,0x%X)", eisa_text(acpi->hid).c_str(), acpi->uid)};
    if (const auto *acpi = ovra::as<uefi_acpiex_device_path_t>(node))
        return {acpi_ex_text(*acpi)};
    return {};
}

} // namespace tool
