// SPDX-License-Identifier: MIT
#include "tests/print/golden.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "src/print/rows.h"

namespace ovra::test {

namespace {

std::vector<std::string> columns(const std::string &line)
{
    std::vector<std::string> result(1);
    for (const char c : line) {
        if (c == '\t')
            result.emplace_back();
        else
            result.back() += c;
    }
    return result;
}

std::vector<golden_case> read_table()
{
    std::ifstream file(PRINT_TABLE);
    std::vector<golden_case> cases;
    for (std::string line; std::getline(file, line);) {
        if (line.empty() || line[0] == '#')
            continue;
        std::vector<std::string> column = columns(line);
        if (column.size() < 2 || column.size() > 4)
            throw std::runtime_error("print.tsv: two to four columns: " + line);
        column.resize(4);
        golden_case one = {column[0], from_hex(column[1]), column[2], std::nullopt};
        if (!column[3].empty())
            one.file = column[3] == "\"\"" ? "" : column[3];
        cases.push_back(one);
    }
    if (cases.empty())
        throw std::runtime_error("print.tsv: no case");
    return cases;
}

} // namespace

const std::vector<golden_case> &golden_cases()
{
    static const std::vector<golden_case> cases = read_table();
    return cases;
}

std::vector<bytes> split_nodes(const bytes &path)
{
    std::vector<bytes> nodes;
    for (size_t at = 0; at < path.size();) {
        const size_t length = path.at(at + 2) | static_cast<size_t>(path.at(at + 3)) << 8;
        if (length < 4 || length > path.size() - at)
            throw std::invalid_argument("no whole nodes: " + to_hex(path));
        const auto begin = path.begin() + static_cast<ptrdiff_t>(at);
        nodes.emplace_back(begin, begin + static_cast<ptrdiff_t>(length));
        at += length;
    }
    return nodes;
}

exact_node::exact_node(const bytes &content)
{
    const size_t size = std::max(content.size(), sizeof(uefi_device_path_t));
    node = static_cast<uefi_device_path_t *>(calloc(1, size));
    if (!node)
        throw std::bad_alloc();
    if (!content.empty())
        memcpy(static_cast<void *>(node), content.data(), content.size());
}

exact_node::~exact_node()
{
    free(node);
}

bytes node_of(uint8_t type, uint8_t subtype, const bytes &data)
{
    const size_t length = data.size() + 4;
    bytes node(length);
    node[0] = type;
    node[1] = subtype;
    node[2] = static_cast<uint8_t>(length);
    node[3] = static_cast<uint8_t>(length >> 8);
    std::copy(data.begin(), data.end(), node.begin() + 4);
    return node;
}

std::optional<std::string> printed(const bytes &node, const std::optional<std::string> &before,
                                   c_printer printer)
{
    const exact_node exact(node);
    char *text = before ? strdup(before->c_str()) : nullptr;
    printer(exact.get(), &text);
    if (!text)
        return std::nullopt;
    std::string all = text;
    free(text);
    if (before && !all.starts_with(*before))
        throw std::runtime_error("the text before was changed: " + all);
    return all.substr(before ? before->size() : 0);
}

std::optional<size_t> row_size(unsigned type, unsigned subtype)
{
    for (const printed_rows &rows : {hardware_rows, acpi_rows, messaging_rows, media_rows, bios_rows}) {
        for (const ovra::printed &row : rows) {
            if (row.kind.type == type && (row.any_subtype || row.kind.subtype == subtype))
                return row.kind.size;
        }
    }
    return std::nullopt;
}

std::string dump(const bytes &node)
{
    std::string digits;
    if (node.size() > 2)
        digits = to_hex(node.data() + 2, node.size() - 2);
    std::erase(digits, ' ');
    return digits;
}

std::string generic_text(const bytes &node, bool follows)
{
    char begin[64];
    const unsigned subtype = node[1];
    switch (node[0]) {
    case 1:
        snprintf(begin, sizeof begin, "/HardwarePath(0x%x,", subtype);
        break;
    case 2:
        snprintf(begin, sizeof begin, "/AcpiPath(0x%X,", subtype);
        break;
    case 3:
        snprintf(begin, sizeof begin, "/MessagingPath(%u,", subtype);
        break;
    case 4:
        snprintf(begin, sizeof begin, "%sMediaPath(0x%x,", follows ? "/" : "", subtype);
        break;
    default:
        snprintf(begin, sizeof begin, "/Path(0x%x,0x%x,", node[0], subtype);
    }
    // No more bytes than can be seen.
    const bytes seen(node.begin(),
                     node.begin() + static_cast<ptrdiff_t>(std::min<size_t>(node.size(), 1024)));
    return (begin + dump(seen) + ")").substr(0, 1023);
}

bytes ended(bytes nodes)
{
    const bytes end_entire = from_hex("7f ff 0400");
    nodes.insert(nodes.end(), end_entire.begin(), end_entire.end());
    return nodes;
}

} // namespace ovra::test
