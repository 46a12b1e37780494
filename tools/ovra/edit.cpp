// SPDX-License-Identifier: MIT
#include <CLI/CLI.hpp>

#include "tools/command/arguments.h"
#include "tools/command/verb.h"
#include "tools/exchange/editor.h"
#include "tools/exchange/exchange.h"
#include "tools/machine/lock.h"
#include "tools/text/failure.h"

namespace tool {

namespace {

void require_unchanged(const boot_store &before, const boot_store &now)
{
    if (now.values != before.values || now.unread != before.unread)
        throw failure("the boot variables changed while they were edited", "Nothing was written.");
}

class edit_verb : public verb {
public:
    const char *summary() const override { return "change the boot variables in an editor"; }
    void declare(CLI::App &app) override { add_example(app, "EDITOR=nano ovra edit"); }

    void run(const general_options &general) override
    {
        device_paths paths;
        firmware machine(general.folder());
        const boot_store store = read_boot_store(machine);
        const std::string text = boot_text(store, marks_of(store), paths);
        edited_file file(text);
        const std::string edited = file.edit();
        if (edited == text) {
            changes(machine, general).report();
            return;
        }
        try {
            const boot_document document = read_boot_text(edited, "the edited text", paths);
            // Not while the editor was open: others may have had to wait for hours.
            const machine_lock lock(machine, general);
            const boot_store now = read_boot_store(machine);
            require_unchanged(store, now);
            exchange(machine, general, now, wanted_values(document, now), unwanted_damage(document, now),
                     paths);
        } catch (failure &reason) {
            reason.advise(file.keep());
            throw;
        }
        if (general.dry_run)
            fprintf(stderr, "%s\n", file.keep().c_str());
    }
};

} // namespace

std::unique_ptr<verb> make_edit()
{
    return std::make_unique<edit_verb>();
}

} // namespace tool
