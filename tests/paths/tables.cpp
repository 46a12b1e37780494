// SPDX-License-Identifier: MIT
#include "tests/paths/tables.h"

#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "tests/fakes/driver.h"

namespace ovra::test {

namespace {

struct finishing {
    void operator()(ovra_hdl_t hdl) const { ovra_fini(hdl); }
};
using handle = std::unique_ptr<std::remove_pointer_t<ovra_hdl_t>, finishing>;

handle new_handle()
{
    fakes::reset();
    ovra_hdl_t hdl = nullptr;
    if (ovra_init(&hdl) != 0)
        throw std::runtime_error("no handle");
    return handle(hdl);
}

} // namespace

std::vector<std::vector<std::string>> read_table(const std::string &file)
{
    std::ifstream lines(std::string(TEST_DATA) + "/" + file);
    std::vector<std::vector<std::string>> rows;
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() || line.front() == '#')
            continue;
        std::vector<std::string> &row = rows.emplace_back();
        std::istringstream fields(line);
        for (std::string field; std::getline(fields, field, '\t');)
            row.push_back(field);
        if (line.back() == '\t')
            row.emplace_back();
    }
    if (rows.empty())
        throw std::runtime_error("no rows in " + file);
    return rows;
}

std::optional<bytes> encode(const std::string &device)
{
    ovra_path_t path = {const_cast<char *>(device.c_str()), nullptr};
    ovra_path_t *paths[] = {&path, nullptr};
    ovra_epath_t packed = nullptr;
    int length = 0;
    if (ovra_epath_encode(nullptr, paths, 0, &packed, &length) != 0)
        return std::nullopt;
    bytes copy(packed, packed + length);
    free(packed);
    return copy;
}

std::optional<std::vector<instance>> decode(const bytes &packed)
{
    const handle hdl = new_handle();
    bytes copy = packed;
    ovra_path_t **paths = nullptr;
    if (ovra_epath_decode_to_uefi(hdl.get(), copy.data(), static_cast<int>(copy.size()), &paths) != 0)
        return std::nullopt;
    std::vector<instance> instances;
    for (ovra_path_t **path = paths; path && *path; ++path) {
        instances.push_back({(*path)->device_path, std::nullopt});
        if ((*path)->file_path)
            instances.back().file = (*path)->file_path;
    }
    free_dpath(hdl.get(), paths);
    return instances;
}

} // namespace ovra::test
