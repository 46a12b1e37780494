// SPDX-License-Identifier: MIT
#include "tools/exchange/plan.h"

#include <algorithm>

#include "tools/exchange/reach.h"
#include "tools/text/failure.h"
#include "tools/text/loadoption.h"

namespace tool {

namespace {

using name_list = std::vector<std::string>;

class planner {
public:
    planner(const variable_values &before, const variable_values &after, const std::set<std::string> &taken)
        : now(before), goal(after), in_use(taken)
    {}

    std::vector<planned_step> plan();

private:
    void put(const std::string &name, const bytes &contents, bool passing = false);
    void put_goal(const std::string &name);
    bool differs(const std::string &name) const;
    const bytes &now_of(const std::string &name) const;

    void forget_next();
    void change_family(const option_kind &family);
    name_list put_new_options(const option_kind &family);
    void put_safe_ones(reach *started, name_list *left);
    bool put_order_if_safe(const option_kind &family, reach *started);
    void put_by_copies(const option_kind &family, const name_list &left);
    name_list free_names(const option_kind &family, size_t wanted) const;
    void delete_options(const option_kind &family);

    variable_values now;
    const variable_values &goal;
    const std::set<std::string> &in_use;
    std::vector<planned_step> steps;
};

const bytes nothing;

const bytes &planner::now_of(const std::string &name) const
{
    const auto found = now.find(name);
    return found == now.end() ? nothing : found->second;
}

bool planner::differs(const std::string &name) const
{
    const auto wanted = goal.find(name);
    return now_of(name) != (wanted == goal.end() ? nothing : wanted->second);
}

void planner::put(const std::string &name, const bytes &contents, bool passing)
{
    if (now_of(name) == contents)
        return;
    steps.push_back({name, contents, passing});
    if (contents.empty())
        now.erase(name);
    else
        now[name] = contents;
}

void planner::put_goal(const std::string &name)
{
    const auto wanted = goal.find(name);
    put(name, wanted == goal.end() ? nothing : wanted->second);
}

// What BootNext names is not to be another option than was meant when it was set.
void planner::forget_next()
{
    const bytes &next = now_of("BootNext");
    if (next.size() == sizeof(uint16_t) && differs(boot_options.name(ovra::unit_at(next, 0))))
        put("BootNext", nothing, goal.contains("BootNext"));
}

name_list planner::put_new_options(const option_kind &family)
{
    name_list changed;
    for (const auto &[name, value] : goal) {
        if (family_of(name) != &family || !differs(name))
            continue;
        if (now.contains(name))
            changed.push_back(name);
        else
            put(name, value);
    }
    return changed;
}

// Those that can be written over where they stand; writing one may make it possible for another.
void planner::put_safe_ones(reach *started, name_list *left)
{
    constexpr int rounds = 8;
    bool goes_on = true;
    for (int round = 0; round < rounds && goes_on; ++round) {
        name_list still_left;
        for (const std::string &name : *left) {
            const bytes before = now_of(name);
            const bytes &after = goal.at(name);
            started->replace(name, before, after);
            if (started->is_safe()) {
                put(name, after);
                continue;
            }
            started->replace(name, after, before);
            still_left.push_back(name);
        }
        goes_on = still_left.size() < left->size();
        *left = std::move(still_left);
    }
}

bool planner::put_order_if_safe(const option_kind &family, reach *started)
{
    const bytes before = now_of(family.order);
    variable_values changed = now;
    const auto wanted = goal.find(family.order);
    if (wanted == goal.end())
        changed.erase(family.order);
    else
        changed[family.order] = wanted->second;
    started->set_order(changed);
    if (started->is_safe()) {
        put_goal(family.order);
        return true;
    }
    started->set_order(now);
    return false;
}

// Names that nothing has and nothing leads to.
name_list planner::free_names(const option_kind &family, size_t wanted) const
{
    std::set<std::string> ordered;
    for (const variable_values *values : {&now, &goal}) {
        const auto order = values->find(family.order);
        const name_list all = order == values->end() ? name_list() : ordered_names(family, order->second);
        ordered.insert(all.begin(), all.end());
    }
    name_list all;
    for (unsigned number = UINT16_MAX; number-- > 0 && all.size() < wanted;) {
        std::string name = family.name(static_cast<uint16_t>(number));
        if (!now.contains(name) && !goal.contains(name) && !in_use.contains(name) && !ordered.contains(name))
            all.push_back(std::move(name));
    }
    if (all.size() < wanted)
        throw failure("too few option numbers are free for a while", "Remove options that are not needed.");
    return all;
}

// The order names copies of the new options while these are written over the old ones.
void planner::put_by_copies(const option_kind &family, const name_list &left)
{
    name_list free = free_names(family, left.size());
    std::map<std::string, std::string> copies;
    for (const std::string &name : left) {
        copies[name] = std::move(free.back());
        free.pop_back();
        put(copies[name], goal.at(name), true);
    }
    bytes order = goal.at(family.order);
    for (size_t at = 0; at + sizeof(uint16_t) <= order.size(); at += sizeof(uint16_t)) {
        const auto copy = copies.find(family.name(ovra::unit_at(byte_view(order).subspan(at), 0)));
        if (copy == copies.end())
            continue;
        const unsigned number =
            static_cast<unsigned>(std::stoul(copy->second.substr(family.prefix.size()), nullptr, 16));
        order[at] = static_cast<uint8_t>(number & 0xff);
        order[at + 1] = static_cast<uint8_t>(number >> 8);
    }
    put(family.order, order, true);
    for (const std::string &name : left)
        put_goal(name);
    put_goal(family.order);
    for (const auto &[name, copy] : copies)
        put(copy, nothing, true);
}

void planner::change_family(const option_kind &family)
{
    name_list left = put_new_options(family);
    reach started(family, now, goal);
    put_safe_ones(&started, &left);
    if (!left.empty() && put_order_if_safe(family, &started))
        put_safe_ones(&started, &left);
    if (left.empty())
        put_goal(family.order);
    else
        put_by_copies(family, left);
}

void planner::delete_options(const option_kind &family)
{
    name_list gone;
    for (const auto &[name, value] : now) {
        if (family_of(name) == &family && !goal.contains(name))
            gone.push_back(name);
    }
    for (const std::string &name : gone)
        put(name, nothing);
}

std::vector<planned_step> planner::plan()
{
    forget_next();
    // What a boot option may need comes before it, and goes after it.
    for (auto family = families.rbegin(); family != families.rend(); ++family)
        change_family(*family);
    put_goal("Timeout");
    for (const option_kind &family : families)
        delete_options(family);
    put_goal("BootNext");
    return std::move(steps);
}

} // namespace

std::vector<planned_step> plan_steps(const variable_values &before, const variable_values &after,
                                     const std::set<std::string> &taken)
{
    return planner(before, after, taken).plan();
}

} // namespace tool
