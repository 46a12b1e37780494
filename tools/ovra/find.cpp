#include "tools/ovra/drives.h"
#include "tools/ovra/named.h"
#include "tools/ovra/output.h"
#include "tools/ovra/verbs.h"

namespace tool {

void run_find(firmware &machine, const arguments &args)
{
    const std::string disk = disk_argument(*args.disk, nullptr);
    const std::vector<uint16_t> options = machine.options_on(disk);
    if (args.json) {
        print_json({{"disk", disk}, {"options", option_names(options)}});
        return;
    }
    std::string text;
    if (!args.disk->ends_with(disk))
        text = printable(*args.disk) + " is " + disk + ".\n";
    if (options.empty())
        text += "no option boots from " + printable(disk) + '\n';
    table rows;
    for (const uint16_t number : options)
        rows.row({option_name(number), description_of(machine, number)});
    print(text + rows.text());
}

} // namespace tool
