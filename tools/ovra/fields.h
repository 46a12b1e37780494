/* SPDX-License-Identifier: MIT */
// Fields of a load option that the command line gives.
#ifndef OVRA_TOOLS_FIELDS_H
#define OVRA_TOOLS_FIELDS_H

#include "tools/machine/devicepaths.h"
#include "tools/machine/drives.h"
#include "tools/ovra/options.h"

namespace tool {

// The optional data that --optdata-file or --optdata-text gives; nothing when neither is there. Throws a
// failure when the file cannot be read.
std::optional<bytes> given_optional_data(const arguments &args);

struct given_path {
    bytes packed;
    json disk = json::object(); // for programs: which disk was taken, if one was
};

// What --devpath, or the text of path encode, packs to with a file, and --disk. A disk that is taken is told
// of on standard error, but for programs. Throws a failure.
given_path given_devices(device_paths &paths, const arguments &args, const std::optional<std::string> &file);

// The disk that --disk names, told of in the same way.
chosen_disk given_disk(const arguments &args, const std::string &name);

} // namespace tool

#endif
