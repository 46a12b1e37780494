// SPDX-License-Identifier: MIT
#include "tools/exchange/exchange.h"

#include <algorithm>

#include "tools/exchange/plan.h"
#include "tools/exchange/settings.h"
#include "tools/text/description.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"
#include "tools/text/terminal.h"

namespace tool {

namespace {

const bytes *value_in(const variable_values &values, const std::string &name)
{
    const auto found = values.find(name);
    return found == values.end() ? nullptr : &found->second;
}

} // namespace

std::vector<std::string> differing(const variable_values &before, const variable_values &after)
{
    std::vector<std::string> all;
    const auto add = [&](const std::string &name) {
        const bytes *old_value = value_in(before, name);
        const bytes *new_value = value_in(after, name);
        if (!old_value != !new_value || (old_value && *old_value != *new_value))
            all.push_back(name);
    };
    std::set<std::string> names;
    for (const variable_values *values : {&before, &after}) {
        for (const auto &[name, value] : *values)
            names.insert(name);
    }
    for (const char *setting : settings)
        add(setting);
    for (const option_kind &family : families) {
        for (const std::string &name : names) {
            if (family_of(name) == &family)
                add(name);
        }
    }
    return all;
}

namespace {

std::string meaning_of(const std::string &name, byte_view value)
{
    if (is_setting(name))
        return setting_text(name, value);
    const auto parts = split(value);
    if (!parts)
        return format("%zu bytes", value.size());
    return quoted_description(description_of_units(parts->description)) + ", " +
           attribute_text(parts->attributes);
}

} // namespace

change change_of(const std::string &name, const bytes *value)
{
    return value ? writes(name, *value, meaning_of(name, *value)) : deletes(name);
}

namespace {

class exchanging {
public:
    exchanging(firmware &changed, const boot_store &old, changes *report)
        : machine(changed), now(old.values), result(report)
    {}

    void run(const std::vector<planned_step> &steps)
    {
        progress progress(steps.size(), "variables", 20);
        for (const planned_step &step : steps) {
            try {
                result->attempt(change_of(step.name, step.contents.empty() ? nullptr : &step.contents));
            } catch (not_changed &reason) {
                if (reason.done_anyway)
                    keep(step);
                undo(&reason);
                throw;
            } catch (failure &reason) { // whether it is done is not known
                keep(step);
                undo(&reason);
                throw;
            }
            keep(step);
            progress.step();
        }
    }

private:
    void keep(const planned_step &step)
    {
        const bytes *before = value_in(now, step.name);
        done.push_back({step.name, before ? *before : bytes{}});
        if (step.contents.empty())
            now.erase(step.name);
        else
            now[step.name] = step.contents;
    }

    // Backwards, through the states that the machine was in.
    void undo(failure *reason)
    {
        std::vector<std::string> stay;
        const auto stays = [&](const old_value &step, const std::string &why) {
            const bytes *is = value_in(now, step.name);
            reason->done.push_back(told(change_of(step.name, is)));
            stay.push_back(why);
        };
        reason->done.clear();
        for (auto step = done.rbegin(); step != done.rend(); ++step) {
            try {
                machine.change_global(step->name, step->before);
            } catch (const not_changed &second) {
                if (!second.done_anyway)
                    stays(*step, step->name + " is not put back: " + second.what());
            } catch (const failure &second) {
                stays(*step, "Whether " + step->name + " is put back is not known: " + second.what());
            }
        }
        if (stay.empty())
            reason->advise(done.empty() ? "Nothing was changed." : "What was changed before is put back.");
        for (const std::string &line : stay)
            reason->advise(line);
    }

    struct old_value {
        std::string name;
        bytes before; // none: there was no such variable
    };

    firmware &machine;
    variable_values now;
    changes *result;
    std::vector<old_value> done;
};

void show_differences(const std::vector<std::string> &names, const boot_store &before,
                      const variable_values &after, const general_options &general, changes *report,
                      device_paths &paths)
{
    json list = json::array();
    std::string text;
    for (const std::string &name : names) {
        const bytes *old_value = value_in(before.values, name);
        const bytes *new_value = value_in(after, name);
        if (general.json)
            list.push_back({{"variable", name},
                            {"before", old_value ? json(hex(*old_value)) : json(nullptr)},
                            {"after", new_value ? json(hex(*new_value)) : json(nullptr)}});
        else if (!old_value && !new_value)
            text +=
                (is_setting(name) ? "- " + name + " = unreadable" : '[' + name + "]\n- unreadable") + "\n\n";
        else
            text += difference(name, old_value, new_value, paths) + '\n';
    }
    if (general.json)
        report->remark({}, "differences", std::move(list));
    else
        print(text);
}

// A text may say more than the machine can be: what it then is.
void warn_of_orders(const option_kind &family, const boot_store &before, const variable_values &after)
{
    const bytes *order = value_in(after, family.order);
    const bytes *order_before = value_in(before.values, family.order);
    const bool is_new = order && (!order_before || *order != *order_before);
    std::set<std::string> named;
    for (const std::string &name : order ? ordered_names(family, *order) : std::vector<std::string>()) {
        const bool is_repeated = !named.insert(name).second;
        const bool is_absent = !after.contains(name) && !before.unread.contains(name);
        if (is_repeated && is_new)
            warn(std::string(family.order) + " names " + name + " more than once");
        if (!is_repeated && is_absent && (is_new || before.values.contains(name)))
            warn(std::string(family.order) + " names " + name + ", which the text does not have");
    }
}

void warn_of_next(const boot_store &before, const variable_values &after)
{
    const bytes *next = value_in(after, "BootNext");
    if (!next || next->size() != sizeof(uint16_t))
        return;
    const std::string name = boot_options.name(ovra::unit_at(*next, 0));
    if (!after.contains(name) && !before.unread.contains(name))
        warn("BootNext names " + name + ", which the text does not have");
}

} // namespace

void exchange(firmware &machine, const general_options &general, const boot_store &before,
              const variable_values &after, const std::vector<std::string> &unwanted, device_paths &paths)
{
    changes report(machine, general);
    std::vector<std::string> names = differing(before.values, after);
    names.insert(names.end(), unwanted.begin(), unwanted.end());
    for (const option_kind &family : families)
        warn_of_orders(family, before, after);
    warn_of_next(before, after);
    std::set<std::string> taken;
    for (const auto &[name, why] : before.unread)
        taken.insert(name);
    std::vector<planned_step> steps = plan_steps(before.values, after, taken);
    for (const std::string &name : unwanted)
        steps.push_back({name, {}});
    std::vector<change> all;
    all.reserve(steps.size());
    for (const planned_step &step : steps)
        all.push_back(change_of(step.name, step.contents.empty() ? nullptr : &step.contents));
    show_differences(names, before, after, general, &report, paths);
    report.prepare(all);
    if (!general.dry_run)
        exchanging(machine, before, &report).run(steps);
    for (const std::string &name : names)
        report.record(change_of(name, value_in(after, name)));
    report.report();
}

void require_same_machine(const machine_marks &text, const boot_store &here)
{
    const std::string why = why_other(text, marks_of(here));
    if (!why.empty())
        throw failure("the text is another machine's: " + why,
                      "--other-machine takes it all the same; the disks that its options name may be\n"
                      "absent here.");
}

} // namespace tool
