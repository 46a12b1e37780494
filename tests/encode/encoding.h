/* SPDX-License-Identifier: MIT */
/* One call of ovra_epath_encode, with what it gave and said. */
#ifndef TESTS_ENCODE_ENCODING_H
#define TESTS_ENCODE_ENCODING_H

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "src/encode/encode.h"
#include "src/rt/owned.h"
#include "tests/support/bytes.h"
#include "tests/support/messages.h"

namespace ovra::test {

/* A path as the library takes it. An instance without a file has a null one. */
class text_path {
public:
    struct instance {
        std::string device;
        std::string file = {};
        bool has_file = false;
    };
    static instance with_file(std::string device, std::string file)
    {
        return {std::move(device), std::move(file), true};
    }

    text_path(std::initializer_list<instance> list) : instances(list)
    {
        for (instance &one : instances)
            paths.push_back({one.device.data(), one.has_file ? one.file.data() : nullptr});
        for (ovra_path_t &path : paths)
            pointers.push_back(&path);
        pointers.push_back(nullptr);
    }
    text_path(const text_path &) = delete;
    text_path &operator=(const text_path &) = delete;

    ovra_path_t **get() { return pointers.data(); }

private:
    std::vector<instance> instances;
    std::vector<ovra_path_t> paths;
    std::vector<ovra_path_t *> pointers;
};

struct encoding {
    int result = 0;
    std::string bytes; /* "01 01 06 00 ..."; empty when refused */
    std::string said;
};

/* Fails the test when a failure has written an output. */
inline encoding encode(text_path &path, int eprint = 1, int debug = 0)
{
    uint8_t untouched = 0;
    ovra_epath_t packed = &untouched;
    int length = -4711;
    encoding result;
    {
        const messages said(eprint, debug);
        result.result = ovra_epath_encode(nullptr, path.get(), 0, &packed, &length);
        result.said = said.text();
    }
    if (result.result == 0) {
        const owned<uint8_t> given(packed);
        EXPECT_GE(length, 4);
        result.bytes = to_hex(packed, static_cast<size_t>(length));
    } else {
        EXPECT_EQ(result.result, -1);
        EXPECT_EQ(packed, &untouched);
        EXPECT_EQ(length, -4711);
    }
    return result;
}

inline encoding encode(const std::string &text)
{
    text_path path{{text}};
    return encode(path);
}

inline constexpr const char *end_entire = "7f ff 04 00";

} // namespace ovra::test

#endif
