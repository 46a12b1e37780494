// SPDX-License-Identifier: MIT
// JSON written member by member is what the library for JSON writes for the same members.
#include "tools/text/jsontext.h"

#include "tools/text/text.h"

namespace {

using tool::json;
using tool::json_members;
using tool::json_value;

struct sample {
    std::string text;
    uint64_t number = 0;
    bool truth = false;
    std::optional<std::string> maybe;
    std::vector<sample> inner;
};

std::string random_text(std::mt19937 &random)
{
    static const std::vector<std::string> pieces = {"a",    "plain text, long enough for eight at a time",
                                                    "\"",   "\\",
                                                    "/",    "\n",
                                                    "\x01", "\t",
                                                    "\x7f", "ä",
                                                    "€",    "\u202e",
                                                    "\xff", "\xc3"};
    std::string text;
    for (auto left = random() % 4; left != 0; --left)
        text += pieces[random() % pieces.size()];
    return text;
}

sample random_sample(std::mt19937 &random, unsigned depth)
{
    sample made;
    made.text = random_text(random);
    made.number = uint64_t{random()} << (random() % 33);
    made.truth = random() % 2 != 0;
    if (random() % 2 != 0)
        made.maybe = random_text(random);
    for (auto left = depth != 0 ? random() % 3 : 0; left != 0; --left)
        made.inner.push_back(random_sample(random, depth - 1));
    return made;
}

template <typename object>
void put(object &to, const sample &of)
{
    to.member("text", of.text);
    to.member("number", of.number);
    to.member("truth", of.truth);
    to.member("nothing", nullptr);
    to.member("maybe", of.maybe);
    to.list_of("inner", of.inner, [](auto &one, const sample &each) { put(one, each); });
}

TEST(json_text, is_as_the_library_for_json_writes_it)
{
    std::mt19937 random; // NOLINT: the same values each time
    for (int round = 0; round < 500; ++round) {
        const sample of = random_sample(random, 2);
        json value;
        json_value members(&value);
        put(members, of);
        const std::string expected =
            tool::escaped_in_json(value.dump(2, ' ', false, json::error_handler_t::replace));

        std::string text;
        json_members object(&text, 0);
        put(object, of);
        object.end();
        ASSERT_EQ(text, expected);

        std::string of_value;
        tool::append_json(value, 0, &of_value);
        ASSERT_EQ(of_value, expected);
    }
}

TEST(utf8, of_a_variable_is_that_of_its_units)
{
    std::mt19937 random; // NOLINT: the same values each time
    for (int round = 0; round < 2000; ++round) {
        std::vector<CHAR16> units;
        for (auto left = random() % 20; left != 0; --left)
            units.push_back(static_cast<CHAR16>(random() % 3 != 0 ? random() % 0x80 : random()));
        const auto end = std::find(units.begin(), units.end(), 0);
        const bool whole =
            std::none_of(units.begin(), end, [](CHAR16 unit) { return unit >= 0xd800 && unit <= 0xdfff; });
        tool::bytes stored = tool::stored(units);
        if (round % 2 != 0)
            stored.push_back('x'); // half a unit
        std::string text = "what was there";
        ASSERT_EQ(tool::assign_utf8(stored, &text), whole);
        if (whole) {
            ASSERT_EQ(text, tool::to_utf8(units));
        }
    }
}

} // namespace
