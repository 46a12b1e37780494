// SPDX-License-Identifier: MIT
#include <CLI/CLI.hpp>

#include "src/base/ascii.h"
#include "tools/command/arguments.h"
#include "tools/command/verb.h"
#include "tools/machine/contents.h"
#include "tools/machine/devicepaths.h"
#include "tools/machine/health.h"
#include "tools/machine/named.h"
#include "tools/text/description.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"
#include "tools/text/output.h"
#include "tools/text/terminal.h"

namespace tool {

namespace {

// What is shown of one option: at first where, then what it holds.
struct place {
    uint16_t number = 0;
    std::optional<size_t> position; // in BootOrder
};

struct entry : place {
    bool exists = false;
    std::string error;  // why it could not be read
    std::string damage; // what is damaged; empty when nothing is
    load_option option;
    decoded_path path;
    std::optional<uint16_t> same = {}; // an option before it
    bool is_stale = false;
};

struct listing {
    std::optional<uint16_t> current;
    std::optional<uint16_t> next;
    std::vector<uint16_t> order;
    std::string order_problem; // why the order is not known
    std::vector<place> places; // in boot order, then the others
};

// Paths that nobody sees are not decoded: `paths` is null then.
entry read_entry(firmware &machine, device_paths *paths, const place &where)
{
    entry read = {where, true, {}, {}, {}, {}};
    try {
        auto found = machine.find_option(where.number);
        read.exists = found.has_value();
        if (!found)
            return read;
        read.option = *std::move(found);
        if (paths)
            read.path = paths->decode(read.option.path);
    } catch (const unreadable &reason) {
        read.exists = !reason.is_gone;
        if (reason.is_gone)
            return read;
        warn_of_unreadable(reason);
        read.error = reason.why;
        read.damage = reason.damage;
    } catch (const failure &reason) {
        warn(printable(reason.what()));
        read.error = reason.what();
    }
    return read;
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
    for (size_t position = 0; position < all.order.size(); ++position) {
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
    return entry.exists || entry.position;
}

// What the other options and the disks say of one.
class marks {
public:
    // All disks are read to tell which options are stale.
    marks(firmware &machine, const listing &all, bool tells_stale) : booted(all.current), seen(machine)
    {
        if (tells_stale)
            partitions.emplace();
    }

    entry marked(entry of)
    {
        if (!of.exists || !of.error.empty())
            return of;
        of.same = seen.same_as(of.number, of.option);
        of.is_stale = partitions && of.number != booted && partitions->are_gone(of.option.path);
        return of;
    }

private:
    std::optional<uint16_t> booted;
    seen_options seen;
    std::optional<present_partitions> partitions;
};

std::string notes(const option_kind &kind, const listing &all, const entry &entry)
{
    std::vector<std::string> notes;
    if (all.current == entry.number)
        notes.emplace_back("current");
    if (all.next == entry.number)
        notes.emplace_back("next");
    if (entry.is_stale)
        notes.emplace_back("stale");
    if (entry.same)
        notes.push_back("duplicate of " + kind.name(*entry.same));
    if (is_damaged_text(entry.option.description))
        notes.emplace_back("damaged text");
    return join(notes, ", ");
}

std::string described(const entry &entry)
{
    if (!entry.exists)
        return "(no such option)";
    if (!entry.error.empty())
        return format("(%s)", printable(entry.error).c_str());
    return shown_description(entry.option.description);
}

json to_json(const option_kind &kind, const listing &all, const entry &entry)
{
    json fields;
    fields["option"] = kind.name(entry.number);
    fields["position"] = entry.position ? json(*entry.position) : json(nullptr);
    fields["current"] = all.current == entry.number;
    fields["next"] = all.next == entry.number;
    if (!entry.exists) {
        fields["error"] = "no such option";
    } else if (!entry.error.empty()) {
        fields["error"] = entry.error;
        if (!entry.damage.empty())
            fields["damage"] = entry.damage;
    } else {
        append_members(&fields, as_json(entry.option));
        append_members(&fields, as_json(entry.path));
        if (entry.is_stale)
            fields["stale"] = true;
        if (entry.same)
            fields["duplicate_of"] = kind.name(*entry.same);
    }
    return fields;
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
    marks marks(machine, all, verbose);
    for (const place &where : all.places) {
        const entry entry = marks.marked(read_entry(machine, &paths, where));
        if (is_shown(entry))
            document.add(to_json(kind, all, entry));
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
    if (!entry.exists || !entry.error.empty() || entry.is_stale)
        return tint::alarming;
    if (!entry.option.active())
        return tint::faint;
    return all.current == entry.number ? tint::emphasised : tint::plain;
}

std::string text_of(firmware &machine, const listing &all, bool verbose)
{
    constexpr size_t widest_column = 48; // with the columns before it less than 80
    table rows(widest_column);
    device_paths paths;
    marks marks(machine, all, verbose);
    progress progress(all.places.size(), "options", 500);
    for (const place &where : all.places) {
        const entry entry = marks.marked(read_entry(machine, verbose ? &paths : nullptr, where));
        progress.step();
        if (!is_shown(entry))
            continue;
        if (rows.empty())
            rows.row({"Position", "Option", "Active", "Description", ""});
        const bool readable = entry.exists && entry.error.empty();
        rows.row({entry.position ? std::to_string(*entry.position) : "-", machine.name_of(entry.number),
                  !readable               ? "?"
                  : entry.option.active() ? "*"
                                          : "",
                  described(entry), notes(machine.kind(), all, entry)});
        rows.tint_row(tint_of(all, entry));
        if (verbose)
            add_details(entry, &rows);
    }
    return rows.empty() ? no_options(machine.kind()) : rows.text();
}

void print_as_text(firmware &machine, const listing &all, bool verbose)
{
    const std::string order = all.order_problem.empty() ? "" : printable(all.order_problem) + '\n';
    print(order + text_of(machine, all, verbose));
}

class list_verb : public verb {
public:
    const char *summary() const override { return "the boot options, in boot order"; }
    void declare(CLI::App &app) override
    {
        kind.declare(app, false);
        app.add_flag("-v,--verbose", verbose,
                     "also paths, attributes, optional data, and which partitions are gone");
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
