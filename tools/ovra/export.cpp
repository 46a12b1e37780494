// SPDX-License-Identifier: MIT
#include <CLI/CLI.hpp>

#include "tools/command/arguments.h"
#include "tools/command/verb.h"
#include "tools/exchange/boottext.h"
#include "tools/exchange/outfile.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"
#include "tools/text/output.h"

namespace tool {

namespace {

json to_json(const boot_store &store)
{
    json variables = json::array();
    for (const auto &[name, value] : store.values)
        variables.push_back({{"variable", name}, {"data", hex(value)}});
    json unreadable = json::array();
    for (const auto &[name, why] : store.unread)
        unreadable.push_back(name);
    return {{"format", 1}, {"variables", std::move(variables)}, {"unreadable", std::move(unreadable)}};
}

class export_verb : public verb {
public:
    const char *summary() const override { return "write all boot variables as a text, for import"; }
    void declare(CLI::App &app) override
    {
        add_value(app, "file", "FILE", "where to write it; standard output without it",
                  [this](const std::string &text) { file = text; });
        add_example(app, "ovra export boot.txt");
    }

    void run(const general_options &general) override
    {
        firmware machine(general.folder());
        device_paths paths;
        const boot_store store = read_boot_store(machine);
        for (const auto &[name, why] : store.unread)
            warn(std::string(name).append(" is ").append(why).append(": its contents are not in the text"),
                 "An import leaves it as it is.");
        const std::string text = boot_text(store, marks_of(store), paths);
        json document = to_json(store);
        if (!file) {
            document["text"] = text;
            general.json ? print_json(document) : print(text);
            return;
        }
        if (general.dry_run)
            check_write_file(*file);
        else
            write_file(*file, text);
        document["file"] = *file;
        document["dry_run"] = general.dry_run;
        if (general.json)
            print_json(document);
        else
            print((general.dry_run ? "would write " : "wrote ") + printable(*file) +
                  format(": %zu variables\n", store.values.size()));
    }

private:
    std::optional<std::string> file;
};

} // namespace

std::unique_ptr<verb> make_export()
{
    return std::make_unique<export_verb>();
}

} // namespace tool
