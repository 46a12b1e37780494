// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstring>

#include "src/base/ascii.h"
#include "src/encode/args.h"
#include "src/rt/diag.h"

using ovra::alike;
using ovra::fail;
using ovra::say;
using ovra::trace;
using ovra::tracing;

namespace {

// The pairs of a list; there may be more than the array was declared with.
uefi_nv_pair_t *pairs_of(uefi_arg_list_t *list)
{
    return list->arg_nv;
}

struct contents {
    size_t fields = 0; // that are not empty
    bool blank = false;
};

contents look_through(std::string_view text)
{
    contents found;
    bool inside = false; // of a field
    for (const char c : text) {
        if (c == ',') {
            inside = false;
            continue;
        }
        found.blank |= c == ' ';
        found.fields += !inside;
        inside = true;
    }
    return found;
}

bool is_parameter(const char *const *param_list, const char *name)
{
    for (; *param_list; ++param_list) {
        if (alike(*param_list, name))
            return true;
    }
    return false;
}

// Fills a list of the fields of a text, one pair a field. The text, which the list holds, becomes that of the
// pairs: commas and equals signs turn into terminators.
class splitter {
public:
    splitter(uefi_arg_list_t *args, const char *const *names) : list(args), parameters(names)
    {
        while (parameters[parameter_count])
            ++parameter_count;
    }

    int split(char *text)
    {
        // An empty field takes up a position without giving a pair.
        for (size_t position = 0;; ++position) {
            char *const field = text;
            char *equals = nullptr;
            for (; *text != ',' && *text != '\0'; ++text) {
                if (*text == '=' && !equals)
                    equals = text;
            }
            const bool last = *text == '\0';
            *text++ = '\0';
            if (text - field > 1 && add_field(field, equals, position) != 0)
                return -1;
            if (last)
                return 0;
        }
    }

private:
    int add_field(char *field, char *equals, size_t position)
    {
        if (stored == list->argc)
            return fail("error processing too many arguments argc = %d\n", static_cast<int>(list->argc));
        if (!equals)
            return add_positional(field, position);
        *equals = '\0';
        return add_named(field, equals + 1);
    }

    int add_named(const char *name, char *value)
    {
        any_named = true;
        if (!is_parameter(parameters, name))
            return fail("named argument '%s' invalid\n", name);
        return store(name, value);
    }

    int add_positional(char *value, size_t position)
    {
        if (any_named)
            return fail("non-named arg cannot follow named arg\n");
        if (position >= parameter_count)
            return fail("too many arguments\n");
        return store(parameters[position], value);
    }

    int store(const char *name, char *value)
    {
        pairs_of(list)[stored++] = {name, value};
        return 0;
    }

    uefi_arg_list_t *list;
    size_t stored = 0;
    const char *const *parameters;
    size_t parameter_count = 0;
    bool any_named = false;
};

} // namespace

void ovra::arg_list_ending::operator()(const uefi_arg_list_t *list) const
{
    if (tracing())
        trace("free_arglist  arg_list->argc = %lu\n", list->argc);
}

bool ovra::arg_list_room::reserve(size_t bytes)
{
    if (bytes <= size)
        return true;
    const size_t larger = std::max(bytes, first);
    block.reset(static_cast<uefi_arg_list_t *>(malloc(larger)));
    size = block ? larger : 0;
    return block != nullptr;
}

ovra::lent_arg_list ovra::arg_list_room::make(std::string_view arg_text, const char *const *param_list)
{
    const contents found = look_through(arg_text);
    if (found.blank) {
        say("spaces are not allowed in argument list\n");
        return nullptr;
    }
    const size_t argc = param_list ? found.fields : 0;
    const size_t text_offset = offsetof(uefi_arg_list_t, arg_nv) + argc * sizeof(uefi_nv_pair_t);
    if (!reserve(text_offset + arg_text.size() + 1)) {
        say(param_list ? "unable to allocate arglistp\n" : "unable to alloc arg_list\n");
        return nullptr;
    }
    lent_arg_list list(block.get());
    char *text = reinterpret_cast<char *>(list.get()) + text_offset;
    memcpy(text, arg_text.data(), arg_text.size());
    text[arg_text.size()] = '\0';
    list->arg_str = param_list ? nullptr : text;
    list->argc = argc;
    if (param_list && splitter(list.get(), param_list).split(text) != 0)
        return nullptr;
    return list;
}

int arg_list_init(uefi_arg_list_t **out, const char *arg_text, const char *const *param_list)
{
    ovra::arg_list_room room(0);
    ovra::lent_arg_list list = room.make(arg_text, param_list);
    if (!list)
        return -1;
    static_cast<void>(list.release());
    *out = room.release().release();
    return 0;
}

void free_arglist(uefi_arg_list_t *list)
{
    ovra::arg_list_ending()(list);
    free(list);
}

char *ovra_get_arg(uefi_arg_list_t *list, const char *name)
{
    const uefi_nv_pair_t *pairs = pairs_of(list);
    for (size_t i = 0; i < list->argc; ++i) {
        if (alike(pairs[i].name, name))
            return pairs[i].value;
    }
    return nullptr;
}
