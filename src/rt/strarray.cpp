#include <cstdlib>
#include <cstring>

#include "src/rt/owned.h"
#include "src/rt/rt.h"
#include "src/rt/strarray.h"

static constexpr char label[] = "add_str_array";

namespace ovra {

int append_str_array(ovra_hdl_t hdl, const char *str, size_t count, char ***array)
{
    owned<char> copy(strdup(str));
    if (!copy || memlist_add(hdl, copy.get()) != 0)
        return -1;
    tracked<char> entry(copy.release(), memlist_freeing{hdl});

    auto **grown = static_cast<char **>(memlist_realloc(hdl, *array, (count + 2) * sizeof(char *), label));
    if (!grown)
        return -1;
    grown[count] = entry.release();
    grown[count + 1] = nullptr;
    *array = grown;
    return 0;
}

} // namespace ovra

int add_str_array(ovra_hdl_t hdl, const char *str, char ***array)
{
    if (!str) {
        auto **emptied = static_cast<char **>(memlist_realloc(hdl, *array, sizeof(char *), label));
        if (!emptied)
            return -1;
        emptied[0] = nullptr;
        *array = emptied;
        return 0;
    }
    size_t count = 0;
    while (*array && (*array)[count])
        ++count;
    return ovra::append_str_array(hdl, str, count, array);
}

void free_str_array(ovra_hdl_t hdl, char **array)
{
    if (!array)
        return;
    for (char **str = array; *str; ++str)
        memlist_free(hdl, *str);
    memlist_free(hdl, array);
}
