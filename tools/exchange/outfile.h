/* SPDX-License-Identifier: MIT */
// Files that the command writes for a person.
#ifndef OVRA_TOOLS_OUTFILE_H
#define OVRA_TOOLS_OUTFILE_H

#include <string>
#include <string_view>

namespace tool {

// Puts a file in place as a whole: one that is there is replaced, or stays if this fails. Only a regular file
// is replaced. Throws a failure.
void write_file(const std::string &file, std::string_view contents);

// Why write_file would fail, as far as can be told without writing: throws the same.
void check_write_file(const std::string &file);

// A new file of mode 0600 in the folder for temporary files, with this text. Throws a failure.
std::string write_temporary_file(std::string_view contents);

} // namespace tool

#endif
