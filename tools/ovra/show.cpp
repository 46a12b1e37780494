// SPDX-License-Identifier: MIT
#include <algorithm>

#include "tools/machine/devicepaths.h"
#include "tools/ovra/verbs.h"
#include "tools/text/failure.h"
#include "tools/text/output.h"

namespace tool {

void run_show(firmware &machine, const arguments &args)
{
    const uint16_t number = args.options.front();
    machine.require_option(number);
    const load_option option = machine.read_option(number);
    std::optional<std::vector<uint16_t>> order;
    std::string why_no_order;
    try {
        order = machine.order();
    } catch (const failure &reason) {
        why_no_order = reason.what();
        warn(printable(why_no_order), reason.advice);
    }
    const std::vector<uint16_t> numbers = order.value_or(std::vector<uint16_t>());
    const auto found = std::find(numbers.begin(), numbers.end(), number);
    const bool ordered = found != numbers.end();
    const auto position = found - numbers.begin();
    device_paths paths;
    const decoded_path path = paths.decode(option.path);
    const std::vector<std::string> disks = machine.disks_of(number);
    if (args.json) {
        json fields = {{"option", option_name(number)},
                       {"position", ordered ? json(position) : json(nullptr)}};
        fields.update(as_json(option));
        fields.update(as_json(path));
        fields["disks"] = disks;
        print_json(fields);
        return;
    }
    table rows;
    rows.row({"Option", option_name(number)});
    rows.row({"Description", printable(option.description)});
    rows.row({"Attributes", attribute_text(option.attributes)});
    rows.row({"Position", !order    ? '(' + printable(why_no_order) + ')'
                          : ordered ? std::to_string(position)
                                    : "not in BootOrder"});
    rows.row({"Path", hex(option.path) + format(" (%zu bytes)", option.path.size())});
    for (auto &row : as_rows(path))
        rows.row(std::move(row));
    for (const std::string &disk : disks)
        rows.row({"Disk", printable(disk)});
    rows.row(
        {"Optional data", option.optional_data.empty() ? "none" : optional_data_text(option.optional_data)});
    print(rows.text());
}

} // namespace tool
