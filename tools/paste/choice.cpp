// SPDX-License-Identifier: MIT
#include "tools/paste/choice.h"

#include <algorithm>

#include "tools/paste/storage.h"
#include "tools/text/nodeparse.h"
#include "tools/text/rawtext.h"

namespace tool {

namespace {

bool same_reading(const reading &a, const reading &b)
{
    return a.node == b.node && a.why_not == b.why_not;
}

// What each of the dialects reads, the same reading once.
std::vector<chosen_reading> readings_of(dialects which, const std::vector<reading> &readings,
                                        const std::optional<bytes> &own, const style &style)
{
    std::vector<chosen_reading> all;
    for (const dialects each : each_dialect) {
        if (!(which & each))
            continue;
        const auto theirs = std::find_if(readings.begin(), readings.end(), [&](const reading &read) {
            return (read.by & each & (read.rare ? style.likely : each)) != 0;
        });
        if (theirs == readings.end() && !own)
            continue;
        reading read = theirs != readings.end() ? *theirs : reading{any_dialect, *own};
        const auto before = std::find_if(
            all.begin(), all.end(), [&read](const auto &other) { return same_reading(other.read, read); });
        if (before != all.end()) {
            before->by |= each;
            // Who printed it may have left out what another prints.
            if (before->read.assumed.empty())
                before->read.assumed = read.assumed;
        } else {
            all.push_back({std::move(read), each, {}});
        }
    }
    return all;
}

std::string told_reading(const chosen_reading &each)
{
    return names_of_dialects(each.by) + " means " +
           (each.read.node.empty() ? "what it does not print whole" : raw_text(each.read.node));
}

[[noreturn]] void refuse_all(const std::vector<chosen_reading> &all)
{
    std::string what = "its meaning depends on who printed it:";
    for (const chosen_reading &each : all)
        what += '\n' + told_reading(each);
    refuse(what);
}

} // namespace

chosen_reading choose(const std::string &node, const std::vector<reading> &readings,
                      const std::optional<bytes> &own, const style &style)
{
    std::vector<chosen_reading> all;
    for (const dialects which :
         {style.likely, style.possible, any_dialect & ~(of_old_efibootmgr & ~style.likely)}) {
        all = readings_of(which, readings, own, style);
        if (!all.empty())
            break;
    }
    if (all.empty())
        refuse("no tool prints it so in such a path");
    // Where the style leaves it open, the identifier of a drive shows in which order its maker comes first.
    const auto tells = [](const chosen_reading &each) { return tells_its_maker(each.read); };
    if (all.size() > 1 && std::count_if(all.begin(), all.end(), tells) == 1)
        all = {*std::find_if(all.begin(), all.end(), tells)};
    if (all.size() > 1)
        refuse_all(all);
    chosen_reading chosen = all.front();
    for (const chosen_reading &other : readings_of(any_dialect, readings, own, style)) {
        if (tells(other) && !tells(chosen) && chosen.read.node.size() == other.read.node.size())
            refuse_all({chosen, other});
    }
    if (!chosen.read.why_not.empty())
        refuse(chosen.read.why_not);
    // Of the old dialect every number would be another one.
    const dialects compared = any_dialect & ~(of_old_efibootmgr & ~chosen.by);
    if (chosen.read.assumed.empty() && readings_of(compared, readings, own, style).size() > 1) {
        const dialects by = chosen.by & ~of_ovra;
        chosen.decided = node + " is read as " + names_of_dialects(by ? by : chosen.by) + " prints it" +
                         (chosen.read.how.empty() ? "" : ", " + chosen.read.how);
    }
    if (!chosen.read.told.empty())
        chosen.decided = node + " is read with " + chosen.read.told;
    return chosen;
}

} // namespace tool
