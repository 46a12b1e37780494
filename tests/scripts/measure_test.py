#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""scripts/measure on sources and trees whose numbers are known."""
import contextlib
import io
import tempfile
import unittest
from pathlib import Path

import script

measure = script.load("measure")

SOURCE = r'''// void comment() {
#define MACRO(a) \
    void macro() {
namespace a::b {
struct plain { int x; };
struct maker : base<int> {
    maker(int n) noexcept
        : one(n), two{n, {3}}
    {
        use("a brace { in a text", '{', '"');
    }
    int value() const { return x; }
    bool operator()(int n) const
    {
        return n;
    }
    std::vector<int> list = {1, 2};
};
const char *raw = R"x(
void text() {
)" )x";
int number = 1'000'000;
constexpr row rows[] = {
    {1, f(2)},
};
template <typename T>
requires(sizeof(T) > 1)
auto deduced(T t, void (*call)(int)) -> int
{
    const auto lambda = [&](int n) {
        if (n) {
            return n;
        }
        return 2;
    };
    for (int n : {1, 2})
        lambda(n);
    return lambda(1);
}
const auto outside = [](int n) {
    return n;
};
} // namespace a::b
extern "C" int exported(int a,
                        int b)
{
    switch (a) {
    case 1: {
        return b;
    }
    }
    return 0;
}
TEST_F(Suite, name)
{
}
TEST(suite, other) {
    do {
    } while (0);
}
'''


class Functions(unittest.TestCase):
    def test_are_found_with_their_lines(self):
        self.assertEqual(measure.functions(SOURCE), [
            ("maker", 7, 5), ("value", 12, 1), ("operator_call", 13, 4), ("deduced", 26, 14), ("exported", 44, 10),
            ("Suite.name", 54, 3), ("suite.other", 57, 4)])

    def test_unbalanced_braces_are_an_error(self):
        for text in ("void f() {", "void f() { } }"):
            with self.assertRaises(ValueError):
                measure.functions(text)


class Trees(unittest.TestCase):
    def setUp(self):
        place = tempfile.TemporaryDirectory()
        self.addCleanup(place.cleanup)
        self.root = Path(place.name)

    def write(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")

    def run_script(self, *arguments):
        out = io.StringIO()
        with contextlib.redirect_stdout(out):
            status = measure.main([*arguments, str(self.root)])
        return status, out.getvalue()

    def test_duplicates_begin_at_seven_lines(self):
        body = "".join(f"    call({n});\n" for n in range(6))
        self.write("src/a/one.cpp", f"void one()\n{{\n{body}    one();\n}}\n")
        self.write("src/a/two.cpp", f"void two()\n{{\n\n{body}    // a comment\n    two();\n}}\n")
        tree = measure.Tree(self.root)
        self.assertEqual(measure.duplicates(tree, tree.sources()), [])
        self.write("src/a/two.cpp", f"void two()\n{{\n\n{body}    // a comment\n    one();\n}}\n")
        tree = measure.Tree(self.root)
        self.assertEqual(measure.duplicates(tree, tree.sources()), [(7, ["src/a/one.cpp:3", "src/a/two.cpp:4"])])

    def test_what_stands_in_a_text_is_no_comment(self):
        for name in ("one", "two"):
            body = "".join(f'    call("//{name}/{n}");\n    call(\'"\', "/*", {n}); // {name}\n' for n in range(6))
            self.write(f"src/a/{name}.cpp", f"void {name}()\n{{\n{body}}}\n")
        tree = measure.Tree(self.root)
        self.assertEqual(measure.duplicates(tree, tree.sources()), [])

    def test_places_of_kinds_and_verbs(self):
        self.write("src/base/nodes.h", "OVRA_NODE(uefi_a_t, 1, 2);\nOVRA_TAILED_NODE(uefi_b_t, 1, 2, c);\n")
        self.write("src/encode/a.cpp", "uefi_a_t a;\n")
        self.write("tools/ovra/verbs.def", "VERB(list)\nVERB(show)\n")
        self.write("tools/ovra/main.cpp", "int make_show = 1, make_shower;\n")
        self.write("tools/ovra/show.cpp", "int make_show;\n")
        tree = measure.Tree(self.root)
        self.assertEqual(measure.node_places(tree), {
            "uefi_a_t": ["src/base/nodes.h", "src/encode/a.cpp"], "uefi_b_t": ["src/base/nodes.h"]})
        self.assertEqual(measure.verb_places(tree), {
            "list": ["tools/ovra/verbs.def:1"], "show": ["tools/ovra/main.cpp:1", "tools/ovra/verbs.def:2"]})

    def test_marks_and_tests(self):
        self.write("src/a/one.cpp", "// Kept: so\n// it is. [kept_so]\nint a;\n// Kept: too\nint b; // [kept_b]\n")
        self.write("tests/a/one_test.cpp", "TEST(a, b) {}\nTEST_F(c, d)\n{\n}\nTEST_P(e, f) {}\n// TEST(\n")
        tree = measure.Tree(self.root)
        self.assertEqual(measure.marks(tree), (2, 1))
        self.assertEqual(measure.tests(tree), {"tests/a": 3})

    def test_a_broken_bound_fails(self):
        self.write("src/a/one.cpp", "void f()\n{\n" + "".join(f"    g({n});\n" for n in range(57)) + "}\n")
        self.addCleanup(setattr, measure, "NOT_YET", measure.NOT_YET)
        measure.NOT_YET = set()
        self.assertEqual(self.run_script("--bounds")[0], 0)
        self.write("src/a/one.cpp", "void f()\n{\n" + "".join(f"    g({n});\n" for n in range(58)) + "}\n")
        status, said = self.run_script("--bounds")
        self.assertEqual(status, 1)
        self.assertIn("BROKEN     61 of at most  60  lines of a function of the product: src/a/one.cpp:1 f\n", said)
        measure.NOT_YET = {"lines of a function of the product"}
        self.assertEqual(self.run_script("--bounds")[0], 0)
        self.assertIn("Longest functions of the product\n    61  src/a/one.cpp:1  f\n", self.run_script()[1])

    def test_names_of_unfinished_bounds_are_names_of_bounds(self):
        self.write("src/a/one.cpp", "int a;\n")
        names = {name for name, *_ in measure.bounds(measure.Tree(self.root))}
        self.assertEqual(measure.NOT_YET - names, set())

    def test_a_tree_without_sources_is_an_error(self):
        with self.assertRaisesRegex(SystemExit, "no sources below"):
            measure.Tree(self.root)


if __name__ == "__main__":
    unittest.main()
