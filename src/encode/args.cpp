// SPDX-License-Identifier: MIT
#include <algorithm>

#include "src/base/ascii.h"
#include "src/encode/args.h"
#include "src/rt/diag.h"

using ovra::alike;
using ovra::arg_list;
using ovra::copy_of;
using ovra::fail;
using ovra::owned;
using ovra::trace;

namespace {

arg_list new_list(size_t argc)
{
    return arg_list(static_cast<uefi_arg_list_t *>(
        calloc(1, offsetof(uefi_arg_list_t, arg_nv) + argc * sizeof(uefi_nv_pair_t))));
}

// The pairs of a list; there may be more than the array was declared with.
uefi_nv_pair_t *pairs_of(uefi_arg_list_t *list)
{
    return list->arg_nv;
}

// Number of fields that are not empty.
size_t count_fields(std::string_view text)
{
    size_t count = 0;
    char before = ',';
    for (const char c : text) {
        count += before == ',' && c != ',';
        before = c;
    }
    return count;
}

const char *find_parameter(const char *const *param_list, const char *name)
{
    for (; *param_list; ++param_list) {
        if (alike(*param_list, name))
            return *param_list;
    }
    return nullptr;
}

// Fills a list of the fields of a text, one pair a field.
class splitter {
public:
    splitter(uefi_arg_list_t *args, const char *const *names) : list(args), parameters(names)
    {
        while (parameters[parameter_count])
            ++parameter_count;
    }

    int split(std::string_view text)
    {
        size_t position = 0;
        for (;;) {
            // An empty field takes up a position without giving a pair.
            for (; !text.empty() && text.front() == ','; ++position)
                text.remove_prefix(1);
            if (text.empty())
                return 0;
            const size_t end = std::min(text.find(','), text.size());
            if (add_field({text.data(), end}, position) != 0)
                return -1;
            text.remove_prefix(end);
        }
    }

private:
    int add_field(std::string_view text, size_t position)
    {
        const owned<char> field = copy_of(text);
        if (!field)
            return fail("unable to allocate arg_process\n");
        if (stored == list->argc)
            return fail("error processing too many arguments argc = %d\n", static_cast<int>(list->argc));
        char *equals = strchr(field.get(), '=');
        if (equals) {
            *equals = '\0';
            return add_named(field.get(), equals + 1);
        }
        return add_positional(field.get(), position);
    }

    int add_named(const char *name, const char *value)
    {
        any_named = true;
        owned<char> name_copy(strdup(name));
        if (!name_copy)
            return fail("cannot allocate arg_nv[].name\n");
        owned<char> value_copy(strdup(value));
        if (!value_copy)
            return fail("unable to allocate value\n");
        if (!find_parameter(parameters, name))
            return fail("named argument '%s' invalid\n", name);
        return store(std::move(name_copy), std::move(value_copy));
    }

    int add_positional(const char *value, size_t position)
    {
        if (any_named)
            return fail("non-named arg cannot follow named arg\n");
        if (position >= parameter_count)
            return fail("too many arguments\n");
        owned<char> name_copy(strdup(parameters[position]));
        if (!name_copy)
            return fail("cannot allocate arg_nv[].name\n");
        owned<char> value_copy(strdup(value));
        if (!value_copy)
            return fail("unable to allocate value\n");
        return store(std::move(name_copy), std::move(value_copy));
    }

    int store(owned<char> name, owned<char> value)
    {
        pairs_of(list)[stored++] = {name.release(), value.release()};
        return 0;
    }

    uefi_arg_list_t *list;
    size_t stored = 0;
    const char *const *parameters;
    size_t parameter_count = 0;
    bool any_named = false;
};

} // namespace

int arg_list_init(uefi_arg_list_t **out, const char *arg_text, const char *const *param_list)
{
    const std::string_view text = arg_text;
    if (text.find(' ') != std::string_view::npos)
        return fail("spaces are not allowed in argument list\n");

    if (!param_list) {
        arg_list list = new_list(0);
        if (!list)
            return fail("unable to alloc arg_list\n");
        list->arg_str = strdup(arg_text);
        if (!list->arg_str)
            return fail("unable to allocate arg_str\n");
        *out = list.release();
        return 0;
    }

    const size_t argc = count_fields(text);
    arg_list list = new_list(argc);
    if (!list)
        return fail("unable to allocate arglistp\n");
    list->argc = argc;
    if (splitter(list.get(), param_list).split(text) != 0)
        return -1;
    *out = list.release();
    return 0;
}

void free_arglist(uefi_arg_list_t *list)
{
    trace("free_arglist  arg_list->argc = %lu\n", list->argc);
    uefi_nv_pair_t *pairs = pairs_of(list);
    for (size_t i = 0; i < list->argc; ++i) {
        free(pairs[i].name);
        free(pairs[i].value);
    }
    free(list->arg_str);
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
