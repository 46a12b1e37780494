// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstring>

#include "src/boot/boot.h"
#include "src/rt/diag.h"
#include "src/rt/strarray.h"

using ovra::fail;
using ovra::str_array_builder;

int ovra_bootopt_unused(ovra_hdl_t hdl, char **bootname)
{
    EFI_STATUS status = EFI_SUCCESS;
    // Kept: FFFF is never offered. [kept_last_number_is_never_offered]
    for (uint16_t number = 0; number < UINT16_MAX; ++number) {
        const ovra::option_name name(number);
        UINTN size = 0;
        status = get_variable(hdl, name, &size, nullptr);
        if (status != EFI_NOT_FOUND)
            continue;
        auto copy = ovra::copy_string(hdl, name);
        if (!copy)
            return -1;
        *bootname = copy.release();
        return 0;
    }
    return fail("no unused Boot#### variables. ret = %lx\n", status);
}

namespace {

constexpr size_t name_units = 257; // the longest name asked for: 256 characters and the terminator
constexpr size_t text_limit = 256; // bytes of a name in UTF-8; more is cut

struct variable_id {
    EFI_GUID vendor;
    CHAR16 name[name_units];

    // Zeroes what follows the terminator, which is not part of the name.
    void trim()
    {
        CHAR16 *terminator = std::find(name, name + name_units, 0);
        std::fill(terminator, name + name_units, 0);
    }
    bool has_name_of(const variable_id &other) const { return memcmp(name, other.name, sizeof name) == 0; }
    bool operator==(const variable_id &other) const
    {
        return has_name_of(other) && memcmp(&vendor, &other.vendor, sizeof vendor) == 0;
    }
};

// Notices firmware whose enumeration never ends: Brent's cycle detection. A name may come again once, as with
// some firmware, but not twice.
class loop_guard {
public:
    bool seen_again(const variable_id &id)
    {
        if (steps != 0 && id == remembered && ++hits == 2)
            return true;
        if (++steps == limit) {
            hits = 0;
            remembered = id;
            limit *= 2;
        }
        return false;
    }

private:
    variable_id remembered = {};
    unsigned hits = 0;
    size_t steps = 0;
    size_t limit = 1;
};

int append_if_option(const variable_id &id, str_array_builder *list)
{
    // An option's name has eight characters; what only begins like one, up to a unit that is no text, has
    // not.
    if (id.name[8] != 0)
        return 0;
    char text[text_limit + 1];
    text[convert_utf16_to_utf8(id.name, name_units, text, text_limit)] = '\0';
    return validate_bootopt(text) == 0 ? list->append(text) : 0;
}

// Collects the names. 0 at the end of the store, also when the firmware stops answering; -1 else.
int enumerate(ovra_hdl_t hdl, str_array_builder *list)
{
    variable_id current = {};
    loop_guard guard;
    bool stuck = false;
    for (;;) {
        const variable_id previous = current;
        UINTN size = sizeof current.name;
        EFI_STATUS status = EFI_SUCCESS;
        if (ovra_get_next_variable_name(hdl, &size, current.name, &current.vendor, &status) != 0)
            return 0;
        current.trim();
        if (status == EFI_NOT_FOUND)
            return 0;
        // Of a name that is too long the same would be asked for again.
        if (status == EFI_UNSUPPORTED || status == EFI_BUFFER_TOO_SMALL)
            return -1;
        if (status == EFI_SUCCESS || !current.has_name_of(previous)) {
            stuck = false;
            if (guard.seen_again(current))
                return -1;
        } else {
            // Kept: any other error is stepped over, and the name counts once more. A second one in a row is
            // the end. [kept_error_is_stepped_over_and_the_name_counts_once_more]
            if (stuck)
                return -1;
            stuck = true;
        }
        if (append_if_option(current, list) != 0)
            return -1;
    }
}

} // namespace

int ovra_bootopt_list(ovra_hdl_t hdl, char ***names)
{
    *names = nullptr;
    str_array_builder list(hdl);
    if (enumerate(hdl, &list) != 0)
        return -1;
    char **found = list.release();
    if (!found && add_str_array(hdl, nullptr, &found) != 0)
        return -1;
    *names = found;
    return 0;
}
