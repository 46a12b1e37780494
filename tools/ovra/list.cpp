// SPDX-License-Identifier: MIT
#include <CLI/CLI.hpp>

#include "src/base/ascii.h"
#include "tools/command/arguments.h"
#include "tools/command/verb.h"
#include "tools/machine/contents.h"
#include "tools/machine/devicepaths.h"
#include "tools/machine/named.h"
#include "tools/machine/optionmarks.h"
#include "tools/text/description.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"
#include "tools/text/output.h"
#include "tools/text/table.h"
#include "tools/text/terminal.h"

namespace tool {

namespace {

// What is shown of one option: at first where, then what it holds.
struct place {
    uint16_t number = 0;
    std::optional<uint32_t> position; // in BootOrder
};

struct entry {
    place where;
    bool exists = false;
    std::string error;  // why it could not be read
    std::string damage; // what is damaged; empty when nothing is
    load_option option;
    decoded_path path;
    option_marks marks;
};

struct listing {
    std::optional<uint16_t> current;
    std::optional<uint16_t> next;
    std::vector<uint16_t> order;
    std::string order_problem; // why the order is not known
    std::vector<place> places; // in boot order, then the others
};

// Paths that nobody sees are not decoded: `paths` is null then. `read` may be another option's before, whose
// memory it takes over.
void read_entry(firmware &machine, device_paths *paths, const place &where, entry *read)
{
    read->where = where;
    read->exists = true;
    read->error.clear();
    read->damage.clear();
    try {
        read->exists = machine.find_option(where.number, &read->option);
        if (read->exists && paths)
            read->path = paths->decode(read->option.path);
    } catch (const unreadable &reason) {
        read->exists = !reason.is_gone;
        if (reason.is_gone)
            return;
        warn_of_unreadable(reason);
        read->error = reason.why;
        read->damage = reason.damage;
    } catch (const failure &reason) {
        warn(printable(reason.what()));
        read->error = reason.what();
    }
}

void put_marks(option_marker *marker, entry *of)
{
    of->marks.same.reset();
    of->marks.is_stale = false;
    of->marks.device.clear();
    if (of->exists && of->error.empty())
        marker->put_marks(of->where.number, of->option, &of->marks);
}

// BootNext and BootCurrent only mark options: the list is worth showing without them.
std::optional<uint16_t> named_if_readable(firmware &machine, named_option get)
{
    try {
        return named_or_none(machine, get);
    } catch (const failure &reason) {
        warn(printable(reason.what()), reason.advice);
        return std::nullopt;
    }
}

listing read_listing(firmware &machine)
{
    listing all;
    all.current = named_if_readable(machine, &firmware::current);
    all.next = named_if_readable(machine, &firmware::next);
    try {
        all.order = machine.order();
    } catch (const damaged &reason) {
        all.order_problem = reason.what() + ("; " + reason.advice);
    }
    std::vector<bool> listed(UINT16_MAX + 1);
    all.places.reserve(all.order.size());
    for (uint32_t position = 0; position < all.order.size(); ++position) {
        const uint16_t number = all.order[position];
        if (listed[number])
            continue;
        listed[number] = true;
        all.places.push_back({number, position});
    }
    for (const uint16_t number : machine.options()) {
        if (!listed[number])
            all.places.push_back({number, std::nullopt});
    }
    return all;
}

// What is not in BootOrder was found by its name alone, which that of a variable without data may be.
bool is_shown(const entry &entry)
{
    return entry.exists || entry.where.position;
}

std::string notes(const option_kind &kind, const listing &all, const entry &entry)
{
    const uint16_t number = entry.where.number;
    std::string notes;
    const auto add = [&notes](const std::string &note) { notes += (notes.empty() ? "" : ", ") + note; };
    if (all.current == number)
        add("current");
    if (all.next == number)
        add("next");
    if (entry.marks.is_stale)
        add("stale");
    if (entry.marks.same)
        add("duplicate of " + kind.name(*entry.marks.same));
    if (is_damaged_text(entry.option.description))
        add("damaged text");
    return notes;
}

std::string described(const entry &entry)
{
    if (!entry.exists)
        return "(no such option)";
    if (!entry.error.empty())
        return '(' + printable(entry.error) + ')';
    return shown_description(entry.option.description);
}

void put_members(json_members &to, const option_kind &kind, const listing &all, const entry &entry)
{
    to.member("option", kind.name(entry.where.number));
    to.member("position", entry.where.position);
    to.member("current", all.current == entry.where.number);
    to.member("next", all.next == entry.where.number);
    if (!entry.exists) {
        to.member("error", std::string_view("no such option"));
    } else if (!entry.error.empty()) {
        to.member("error", entry.error);
        if (!entry.damage.empty())
            to.member("damage", entry.damage);
    } else {
        put_members(to, entry.option);
        to.member("device", description_for_json(entry.marks.device));
        put_members(to, entry.path);
        if (entry.marks.is_stale)
            to.member("stale", true);
        if (entry.marks.same)
            to.member("duplicate_of", kind.name(*entry.marks.same));
    }
}

void print_as_json(firmware &machine, const listing &all, bool verbose)
{
    const option_kind &kind = machine.kind();
    json_list document(
        {{"current", as_json(kind, all.current)},
         {"next", as_json(kind, all.next)},
         {"order", !all.order_problem.empty() ? json(nullptr) : option_names(kind, all.order)}},
        "options");
    device_paths paths;
    option_marker marker(all.current, verbose);
    entry entry;
    for (const place &where : all.places) {
        read_entry(machine, &paths, where, &entry);
        put_marks(&marker, &entry);
        if (is_shown(entry))
            document.add([&](json_members &to) { put_members(to, kind, all, entry); });
    }
    document.end();
}

void add_details(const entry &entry, table *rows)
{
    constexpr size_t indent = 10; // to the options' names
    if (!entry.damage.empty())
        rows->below(indent, "damage         " + entry.damage);
    if (!entry.exists || !entry.error.empty())
        return;
    rows->below(indent, "attributes     " + attribute_text(entry.option.attributes));
    rows->below(indent, "path           " + hex(entry.option.path));
    for (const auto &row : as_rows(entry.path)) {
        std::string name = row.front();
        name[0] = ovra::ascii_lower(name[0]);
        rows->below(indent, name + std::string(15 - name.size(), ' ') + row.back());
    }
    if (!entry.option.optional_data.empty())
        rows->below(indent, "optional data  " + optional_data_text(entry.option.optional_data));
}

std::string no_options(const option_kind &kind)
{
    return kind.is_boot() ? "no boot options\n" : "no " + std::string(kind.prefix) + " options\n";
}

tint tint_of(const listing &all, const entry &entry)
{
    if (!entry.exists || !entry.error.empty() || entry.marks.is_stale)
        return tint::alarming;
    if (!entry.option.active())
        return tint::faint;
    return all.current == entry.where.number ? tint::emphasised : tint::plain;
}

void print_as_text(firmware &machine, const listing &all, bool verbose)
{
    constexpr size_t widest_column = 28; // with the columns before it there is room for a device
    constexpr size_t description = 3;
    table rows(widest_column, description);
    device_paths paths;
    option_marker marker(all.current, verbose);
    entry entry;
    std::optional<progress> shown_progress(std::in_place, all.places.size(), "options", 500);
    for (const place &where : all.places) {
        read_entry(machine, verbose ? &paths : nullptr, where, &entry);
        put_marks(&marker, &entry);
        shown_progress->step();
        if (!is_shown(entry))
            continue;
        if (rows.empty())
            rows.row({"Position", "Option", "Active", "Description", "", "Device"});
        const bool readable = entry.exists && entry.error.empty();
        const char *active = !readable ? "?" : entry.option.active() ? "*" : "";
        const std::string position = where.position ? std::to_string(*where.position) : "-";
        rows.row({position, machine.name_of(where.number), active, described(entry),
                  notes(machine.kind(), all, entry), printable(entry.marks.device)});
        rows.tint_row(tint_of(all, entry));
        if (verbose)
            add_details(entry, &rows);
    }
    shown_progress.reset();
    if (!all.order_problem.empty())
        print(printable(all.order_problem) + '\n');
    if (rows.empty())
        print(no_options(machine.kind()));
    rows.print();
}

class list_verb : public verb {
public:
    const char *summary() const override { return "the boot options, in boot order"; }
    void declare(CLI::App &app) override
    {
        kind.declare(app, false);
        app.add_flag("-v,--verbose", verbose,
                     "also paths, attributes, optional data, and what the disks say");
        add_example(app, "ovra list -v");
    }

    void run(const general_options &general) override
    {
        firmware machine(general.folder(), *kind.kind);
        const one_moment of_many_reads;
        const listing all = read_listing(machine);
        if (general.json)
            print_as_json(machine, all, verbose);
        else
            print_as_text(machine, all, verbose);
    }

private:
    kind_argument kind;
    bool verbose = false;
};

} // namespace

std::unique_ptr<verb> make_list()
{
    return std::make_unique<list_verb>();
}

} // namespace tool
