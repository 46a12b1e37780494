// SPDX-License-Identifier: MIT
#include "tools/machine/bootorder.h"

#include <algorithm>
#include <set>

#include "tools/text/output.h"

namespace tool {

std::vector<uint16_t> with_inserted(const option_kind &kind, std::vector<uint16_t> order, uint16_t number,
                                    int position)
{
    // A negative position counts from the end of the order as it was, the option's old places included.
    const int64_t place = position < 0 ? static_cast<int64_t>(order.size()) + position + 1 : position;
    order = without(std::move(order), number);
    const auto last = static_cast<int64_t>(order.size());
    if (place < 0 || (position >= 0 && place > last))
        warn(kind.order + format(" has no position %d: ", position) + kind.name(number) +
             (place < 0 ? " becomes the first" : " becomes the last"));
    order.insert(order.begin() + std::clamp<int64_t>(place, 0, last), number);
    return order;
}

std::vector<uint16_t> without(std::vector<uint16_t> order, uint16_t number)
{
    std::erase(order, number);
    return order;
}

std::vector<uint16_t> without_all(std::vector<uint16_t> order, const std::vector<uint16_t> &options)
{
    const std::set<uint16_t> out(options.begin(), options.end());
    std::erase_if(order, [&out](uint16_t number) { return out.contains(number); });
    return order;
}

std::vector<uint16_t> distinct(const std::vector<uint16_t> &options)
{
    std::set<uint16_t> seen;
    std::vector<uint16_t> once;
    for (const uint16_t number : options) {
        if (seen.insert(number).second)
            once.push_back(number);
    }
    return once;
}

} // namespace tool
