// SPDX-License-Identifier: MIT
#include <algorithm>

#include <fnmatch.h>

#include <CLI/CLI.hpp>

#include "tools/command/arguments.h"
#include "tools/command/verb.h"
#include "tools/machine/firmware.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"
#include "tools/text/output.h"
#include "tools/text/table.h"

namespace tool {

namespace {

struct named_variable {
    std::string name;
    std::string guid;
    variable content;
};

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

std::string why(const variable &content)
{
    return is_refusal(content.status) ? "no permission" : status_name(content.status);
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

// In letters: a line of text has 80 columns.
std::string attribute_column(uint32_t attributes)
{
    const std::string text = join(attribute_letters(attributes), " ");
    constexpr size_t columns_left = 11;
    return text.size() <= columns_left ? text : format("0x%08x", attributes);
}

std::string as_text(const std::vector<named_variable> &entries, bool verbose)
{
    constexpr size_t longest = 19; // name in a column of its own; a longer one gets the line above
    table rows;
    rows.row({"Name", "GUID", "Size", "Attributes"});
    for (const auto &[name, guid, content] : entries) {
        std::string shown = printable(name);
        if (columns(shown) > longest) {
            rows.below(0, shown);
            shown.clear();
        }
        if (content.status != EFI_SUCCESS) {
            rows.row({shown, guid, "?", ""});
            rows.below(4, "(cannot be read: " + why(content) + ")");
            continue;
        }
        rows.row({shown, guid, std::to_string(content.data.size()), attribute_column(content.attributes)});
        if (!verbose)
            continue;
        for (const std::string &line : hex_dump(content.data))
            rows.below(4, line);
    }
    return rows.text();
}

class vars_verb : public verb {
public:
    const char *summary() const override { return "the firmware's variables"; }
    void declare(CLI::App &app) override
    {
        add_value(app, "name", "NAME", "only variables of this name; * and ? stand for any characters",
                  [this](const std::string &text) { filter = text; });
        app.add_flag("-v,--verbose", verbose, "also the data");
        add_example(app, "ovra vars 'Boot*'");
    }

    void run(const general_options &general) override
    {
        firmware machine(general.folder());
        const std::vector<named_variable> entries = matching(machine, filter);
        if (entries.empty() && filter != "*")
            throw failure("no variable is named " + in_quotes(filter), "'ovra vars' shows all.");
        if (general.json)
            print_json(to_json(entries));
        else
            print(as_text(entries, verbose));
    }

private:
    std::string filter = "*";
    bool verbose = false;
};

} // namespace

std::unique_ptr<verb> make_vars()
{
    return std::make_unique<vars_verb>();
}

} // namespace tool
