// SPDX-License-Identifier: MIT
#include "tools/machine/bootorder.h"

#include <algorithm>
#include <set>

namespace tool {

std::vector<uint16_t> with_inserted(std::vector<uint16_t> order, uint16_t number, int position)
{
    // A negative position counts from the end of the order as it was, the option's old places included.
    int64_t place = position;
    if (place < 0)
        place = std::max<int64_t>(static_cast<int64_t>(order.size()) + place + 1, 0);
    order = without(std::move(order), number);
    order.insert(order.begin() + std::min(place, static_cast<int64_t>(order.size())), number);
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
