// Fields of a load option that the command line gives.
#ifndef OVRA_TOOLS_FIELDS_H
#define OVRA_TOOLS_FIELDS_H

#include "tools/ovra/options.h"

namespace tool {

// The optional data that --optdata-file or --optdata-text gives; nothing when neither is there. Throws a
// failure when the file cannot be read.
std::optional<bytes> given_optional_data(const arguments &args);

} // namespace tool

#endif
