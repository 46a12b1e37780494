// SPDX-License-Identifier: MIT
#include <CLI/CLI.hpp>

#include "tools/command/arguments.h"
#include "tools/command/verb.h"
#include "tools/exchange/exchange.h"
#include "tools/machine/files.h"
#include "tools/machine/lock.h"
#include "tools/text/failure.h"

namespace tool {

namespace {

class import_verb : public verb {
public:
    const char *summary() const override { return "make the boot variables what an exported text says"; }
    void declare(CLI::App &app) override
    {
        add_value(app, "file", "FILE", "the text; - reads it from standard input",
                  [this](const std::string &text) { file = text; })
            ->required();
        app.add_flag("--other-machine", other_machine, "also a text of another machine");
        add_example(app, "ovra import boot.txt --dry-run");
    }

    void run(const general_options &general) override
    {
        const bool from_input = file == "-";
        device_paths paths;
        const std::string text = from_input ? standard_input(boot_text_limit, too_long) : text_of_file();
        const boot_document document =
            read_boot_text(text, from_input ? "standard input" : printable(file), paths);
        firmware machine(general.folder());
        const machine_lock lock(machine, general);
        const boot_store store = read_boot_store(machine);
        if (!other_machine)
            require_same_machine(document.marks, store);
        exchange(machine, general, store, wanted_values(document, store), unwanted_damage(document, store),
                 paths);
    }

private:
    std::string text_of_file() const
    {
        const bytes text = contents(file, boot_text_limit, "it is longer than any text of boot variables");
        return {text.begin(), text.end()};
    }

    static constexpr const char *too_long = "longer than any text of boot variables";

    std::string file;
    bool other_machine = false;
};

} // namespace

std::unique_ptr<verb> make_import()
{
    return std::make_unique<import_verb>();
}

} // namespace tool
