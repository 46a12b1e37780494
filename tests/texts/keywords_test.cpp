// SPDX-License-Identifier: MIT
// The command takes a node's text apart by a table of its own, with the kinds of values; every keyword of the
// library has a row there.
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/text/nodeparse.h"

namespace texts_test {

namespace {

struct library_keyword {
    std::string name;
    std::optional<std::vector<std::string>> parameters; // nothing: the encoder reads the text itself
};

#define WHOLE_TEXT std::nullopt
#define PARAMETERS(...) std::vector<std::string>({__VA_ARGS__})
#define KEYWORD(keyword, encoder, parameters) {keyword, parameters},
const library_keyword keywords_of_the_library[] = {
#include "src/encode/keywords.def"
};
#undef KEYWORD
#undef PARAMETERS
#undef WHOLE_TEXT

} // namespace

TEST(keyword_of_the_library, has_a_row_with_its_parameters_in_the_command)
{
    for (const library_keyword &keyword : keywords_of_the_library) {
        tool::parsed_node node;
        ASSERT_NO_THROW(node = tool::parse(keyword.name + "()")) << keyword.name;
        EXPECT_EQ(node.row->name, keyword.name);
        EXPECT_EQ(node.row->parameters != nullptr, keyword.parameters.has_value()) << keyword.name;
        std::vector<std::string> names;
        for (const tool::parameter &parameter : node.parameters)
            names.emplace_back(parameter.name);
        EXPECT_THAT(names,
                    ::testing::ElementsAreArray(keyword.parameters.value_or(std::vector<std::string>())))
            << keyword.name;
    }
}

} // namespace texts_test
