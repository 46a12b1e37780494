/* Lists of decoded instances that grow one by one. */
#ifndef SRC_PRINT_PATHS_H
#define SRC_PRINT_PATHS_H

#include "src/print/print.h"

namespace ovra {

/* add_path for a caller that knows the number of instances, so that a long list is not counted again. */
int append_path(ovra_hdl_t hdl, const char *device, const char *file, size_t count, ovra_path_t ***list);

} // namespace ovra

#endif
