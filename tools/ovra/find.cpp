#include "tools/ovra/fields.h"
#include "tools/ovra/named.h"
#include "tools/ovra/output.h"
#include "tools/ovra/verbs.h"

namespace tool {

void run_find(firmware &machine, const arguments &args)
{
    const chosen_disk disk = given_disk(args, *args.disk);
    const std::vector<uint16_t> options = machine.options_on(disk.name);
    if (args.json) {
        json document = disk.members();
        document["options"] = option_names(options);
        print_json(document);
        return;
    }
    std::string text;
    if (options.empty())
        text += "no option boots from " + printable(disk.name) + '\n';
    table rows;
    for (const uint16_t number : options)
        rows.row({option_name(number), description_of(machine, number)});
    print(text + rows.text());
}

} // namespace tool
