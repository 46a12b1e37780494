/* String arrays that grow entry by entry. */
#ifndef SRC_RT_STRARRAY_H
#define SRC_RT_STRARRAY_H

#include "src/rt/rt.h"

namespace ovra {

/* add_str_array for a caller that knows the number of entries, so that a long list is not counted again. */
int append_str_array(ovra_hdl_t hdl, const char *str, size_t count, char ***array);

} // namespace ovra

#endif
