#include <algorithm>

#include <fnmatch.h>

#include "tools/ovra/failure.h"
#include "tools/ovra/output.h"
#include "tools/ovra/verbs.h"

namespace tool {

namespace {

struct named_variable {
    std::string name;
    std::string guid;
    variable content;
};

std::string guid_text(const EFI_GUID &guid)
{
    return format("%08x-%04x-%04x-", guid.Data1, guid.Data2, guid.Data3) + hex({guid.Data4, 2}) + '-' +
           hex({guid.Data4 + 2, 6});
}

std::vector<std::string> attribute_words(uint32_t attributes)
{
    static constexpr struct {
        uint32_t bit;
        const char *word;
    } words[] = {{EFI_VARIABLE_NON_VOLATILE, "non-volatile"},
                 {EFI_VARIABLE_BOOTSERVICE_ACCESS, "boot-service"},
                 {EFI_VARIABLE_RUNTIME_ACCESS, "run-time"},
                 {0x08, "hardware-error"},
                 {0x10, "authenticated"},
                 {0x20, "time-authenticated"},
                 {0x80, "enhanced-authenticated"}};
    std::vector<std::string> set;
    for (const auto &[bit, word] : words) {
        if ((attributes & bit) != 0)
            set.emplace_back(word);
        attributes &= ~bit;
    }
    if (attributes != 0)
        set.push_back(format("0x%x", attributes));
    return set;
}

std::vector<named_variable> matching(firmware &machine, const std::string &filter)
{
    std::vector<named_variable> entries;
    for (const variable_id &id : machine.variables()) {
        const std::string name = to_utf8(id.name);
        if (fnmatch(filter.c_str(), name.c_str(), 0) == 0)
            entries.push_back({name, guid_text(id.guid), machine.read(id)});
    }
    std::sort(entries.begin(), entries.end(), [](const named_variable &a, const named_variable &b) {
        return std::tie(a.name, a.guid) < std::tie(b.name, b.guid);
    });
    return entries;
}

json to_json(const std::vector<named_variable> &entries)
{
    json variables = json::array();
    for (const auto &[name, guid, content] : entries) {
        json fields = {{"name", name}, {"guid", guid}};
        if (content.status != EFI_SUCCESS) {
            fields["error"] = status_name(content.status);
        } else {
            fields["attributes"] = attribute_words(content.attributes);
            fields["size"] = content.data.size();
            fields["data"] = hex(content.data);
        }
        variables.push_back(std::move(fields));
    }
    return {{"variables", std::move(variables)}};
}

std::string as_text(const std::vector<named_variable> &entries, bool verbose)
{
    table rows;
    rows.row({"Name", "GUID", "Size", "Attributes"});
    for (const auto &[name, guid, content] : entries) {
        if (content.status != EFI_SUCCESS) {
            rows.row({printable(name), guid, "?", "(cannot be read: " + status_name(content.status) + ")"});
            continue;
        }
        rows.row({printable(name), guid, std::to_string(content.data.size()),
                  join(attribute_words(content.attributes), ", ")});
        if (!verbose)
            continue;
        for (const std::string &line : hex_dump(content.data))
            rows.below(4, line);
    }
    return rows.text();
}

} // namespace

void run_vars(firmware &machine, const arguments &args)
{
    const std::vector<named_variable> entries = matching(machine, args.name_filter);
    if (entries.empty() && args.name_filter != "*")
        throw failure("no variable is named " + in_quotes(args.name_filter), "'ovra vars' shows all.");
    if (args.json)
        print_json(to_json(entries));
    else
        print(as_text(entries, args.verbose));
}

} // namespace tool
