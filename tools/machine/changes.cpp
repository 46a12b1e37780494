// SPDX-License-Identifier: MIT
#include "tools/machine/changes.h"

#include "tools/text/description.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"

namespace tool {

change writes(const std::string &variable, bytes data, const std::string &meaning,
              const std::function<json()> &long_fields)
{
    auto all = [data, long_fields] {
        json members = {{"data", hex(data)}};
        if (long_fields)
            members.update(long_fields());
        return members;
    };
    return {"write", "wrote", variable + ": " + meaning, {{"variable", variable}}, variable, std::move(data),
            false,   all};
}

change deletes(const std::string &variable)
{
    return {"delete", "deleted", variable, {{"variable", variable}}, variable, {}};
}

change writes_order(const option_kind &kind, const std::vector<uint16_t> &order)
{
    if (order.empty())
        return deletes(kind.order);
    return writes(kind.order, stored(order), kind.names(order), [&kind, order] {
        return json{{"order", option_names(kind, order)}};
    });
}

change writes_option(const std::string &name, const load_option &option)
{
    std::string meaning = quoted_description(option.description) + ", " + attribute_text(option.attributes);
    if (!option.optional_data.empty())
        meaning += ", optional data " + optional_data_text(option.optional_data);
    return writes(name, as_stored(option), meaning, [option] { return as_json(option); });
}

change makes_option(const std::string &name, const load_option &option)
{
    change made = writes_option(name, option);
    made.makes = true;
    return made;
}

told_change told(const change &change)
{
    return {change.action, change.variable, change.what};
}

namespace {

// A failure of `doing` says that it is one of this change.
template <typename action>
void naming(const change &change, const action &doing)
{
    try {
        doing();
    } catch (failure &reason) {
        if (!reason.failed)
            reason.failed = told(change);
        throw;
    }
}

} // namespace

void changes::make(change change)
{
    prepare({change});
    make(
        change, [&] { attempt(change); }, [] {});
}

void changes::make(change change, const std::function<void()> &apply, const std::function<void()> &check)
{
    try {
        naming(change, [&] { dry_run ? check() : apply(); });
    } catch (failure &reason) {
        for (const auto &earlier : made) {
            if (dry_run)
                break;
            reason.advise("Already done, and not undone: " + earlier.past + ' ' + earlier.what);
            reason.done.push_back(told(earlier));
        }
        throw;
    }
    record(std::move(change));
}

void changes::prepare(const std::vector<change> &all)
{
    // What firmware has room for, only writing tells.
    if (!dry_run && machine.is_real())
        return;
    firmware::room_taken planned;
    planned.at_once = !dry_run;
    for (const change &change : all)
        naming(change, [&] { machine.check_change(change.variable, change.contents, &planned); });
}

void changes::attempt(const change &change)
{
    if (!dry_run)
        naming(change, [&] {
            try {
                machine.change_global(change.variable, change.contents);
            } catch (not_changed &reason) {
                if (reason.done_anyway)
                    reason.done.push_back(told(change));
                throw;
            }
        });
}

void changes::record(change change)
{
    made.push_back(std::move(change));
}

void changes::remark(const std::string &text, const std::string &key, json value)
{
    if (!text.empty())
        remarks += text + '\n';
    members[key] = std::move(value);
}

void changes::warn(const std::string &what)
{
    tool::warn(what);
}

void changes::report()
{
    const std::string unknown = machine.not_checked();
    if (dry_run && !made.empty() && !unknown.empty())
        remark("Not known: " + unknown + '.', "not_known", unknown);
    try {
        if (as_json)
            print_json(document());
        else
            print(text());
    } catch (const failure &reason) {
        // Also where nobody reads: that is no news then, but the changes are.
        if (!dry_run && !made.empty())
            throw failure(reason.what(), "The changes were made.");
        throw;
    }
}

json changes::document() const
{
    json list = json::array();
    for (const change &change : made) {
        json entry = {{"action", change.action}};
        entry.update(change.fields);
        if (change.long_fields)
            entry.update(change.long_fields());
        list.push_back(std::move(entry));
    }
    json all = {{"dry_run", dry_run}, {"changes", std::move(list)}};
    all.update(members);
    return all;
}

std::string changes::line_of(const change &change) const
{
    const std::string would = "would ";
    if (!change.makes)
        return (dry_run ? would + change.action : change.past) + ' ' + change.what;
    const size_t name_end = change.variable.size();
    return change.variable + (dry_run ? " would be made" : " is made") + change.what.substr(name_end);
}

std::string changes::text() const
{
    std::string lines;
    for (const change &change : made) {
        lines += broken(line_of(change), 0) + '\n';
        if (dry_run && !change.contents.empty())
            lines += "    " + hex(change.contents) + '\n';
    }
    if (made.empty() && remarks.empty())
        lines += "nothing to change\n";
    return lines + remarks;
}

} // namespace tool
