#!/usr/bin/env python3
"""What the catalogue makes of small sources, and whether equivalent.txt still speaks of the sources as they are."""

import pathlib
import unittest

import faults
import mutate


def lines_after(source, fault):
    return [m.after for m in faults.faults_of("a.cpp", source) if m.fault == fault]


class Catalogue(unittest.TestCase):
    def test_comparisons_are_swapped(self):
        self.assertEqual(lines_after("x = a < b;\n", "comparison"), ["x = a <= b;", "x = a > b;"])
        self.assertEqual(lines_after("x = a >= b;\n", "comparison"), ["x = a > b;"])
        self.assertEqual(lines_after("x = a == b;\n", "comparison"), ["x = a != b;"])
        self.assertEqual(lines_after("x = a != b;\n", "comparison"), ["x = a == b;"])

    def test_template_arguments_are_no_comparisons(self):
        self.assertEqual(lines_after("std::vector<int> *a = at<b>(c);\n", "comparison"), [])

    def test_numbers_and_limits_are_off_by_one(self):
        self.assertEqual(lines_after("f(0, 41);\n", "off by one"), ["f(1, 41);", "f(0, 42);"])
        self.assertEqual(lines_after("x = a + 1;\n", "off by one"), ["x = a + 2;", "x = a ;"])
        self.assertEqual(lines_after("while (i < count) {\n", "off by one"), ["while (i < count + 1) {"])

    def test_numbers_in_names_and_long_numbers_are_left(self):
        self.assertEqual(lines_after("uint32_t f1;\n", "off by one"), [])
        self.assertEqual(lines_after("f(100'000);\n", "off by one"), [])

    def test_conditions_are_turned(self):
        self.assertEqual(lines_after("    if (a) {\n", "logic"), ["if (!(a)) {"])
        self.assertEqual(lines_after("    while (f(a(b))) {\n", "logic"), ["while (!(f(a(b)))) {"])
        self.assertEqual(lines_after("return a ? b : c;\n", "logic"), ["return !(a) ? b : c;"])
        self.assertEqual(lines_after("x = a && !b;\n", "logic"), ["x = a || !b;", "x = a && b;"])

    def test_constants_are_others(self):
        self.assertEqual(lines_after("return EINVAL;\n", "constant"), ["return ENOMEM;"])
        self.assertEqual(lines_after("return EBUSY;\n", "constant"), ["return EINVAL;"])
        self.assertEqual(lines_after("f(true, 0x80U);\n", "constant"), ["f(false, 0x80U);", "f(true, 0x81U);"])
        self.assertEqual(lines_after("return EOF;\n", "constant"), [])

    def test_statements_are_dropped(self):
        self.assertEqual(lines_after("{\n    f(a);\n}\n", "dropped line"), [";"])
        self.assertEqual(lines_after("{\n    a.b[1] = c;\n}\n", "dropped line"), [";"])
        self.assertEqual(lines_after("{\n    break;\n}\n", "dropped line"), [";"])

    def test_declarations_and_results_are_not_dropped(self):
        for line in ("int a = 1;", "const auto a = f();", "return f(a);", "using a::b;", "a b(c);", "a(const b &) = delete;"):
            self.assertEqual(lines_after(f"{{\n    {line}\n}}\n", "dropped line"), [], line)

    def test_the_end_of_a_longer_statement_is_not_dropped(self):
        self.assertEqual(lines_after("{\n    x = f(a,\n      g(b));\n}\n", "dropped line"), [])

    def test_the_first_letter_of_a_text_is_another(self):
        self.assertEqual(lines_after('f("%s: zed\\n");\n', "text"), ['f("%s: aed\\n");'])
        self.assertEqual(lines_after('f("%-5ld %%", "");\n', "text"), [])

    def test_comments_texts_and_directives_are_no_code(self):
        for line in ("// a < b", "/* a\n < b */", 'f("a < b");', "f('<', ' < ');", "#if a < b", '#include "a.h"'):
            found = [m for m in faults.faults_of("a.cpp", line + "\n") if m.fault != "text" or "#" in line]
            self.assertEqual(found, [], line)

    def test_what_does_not_run_is_left(self):
        self.assertEqual(lines_after('static_assert(a < b,\n              "why");\n', "comparison"), [])
        self.assertEqual(lines_after('static_assert(a < b,\n              "why");\n', "text"), [])
        self.assertEqual(lines_after("template <int a = 1>\nvoid f() {\n    g(1);\n}\n", "off by one"), ["g(2);"])
        self.assertEqual(lines_after("#include <a>\nint x = 1;\n", "off by one"), ["int x = 2;"])

    def test_a_mutant_knows_its_place(self):
        source = "a;\nx = a < b;\nc;\n"
        first = next(faults.faults_of("a.cpp", source))
        self.assertEqual(str(first), "a.cpp:2: comparison\n- x = a < b;\n+ x = a <= b;")
        self.assertEqual(first.applied(source), "a;\nx = a <= b;\nc;\n")


class Choice(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.all = mutate.Catalogue.read([])

    def test_every_file_and_every_kind_of_fault_is_chosen_from(self):
        chosen = self.all.sample(400, 1)
        self.assertEqual({m.path for m in chosen}, set(self.all.by_file))
        self.assertEqual({m.fault for m in chosen}, {name for name, *_ in faults.SWAPS} | {"dropped line", "text"})
        self.assertEqual(len(set(chosen)), len(chosen))

    def test_the_seed_decides(self):
        self.assertEqual(self.all.sample(99, 1), self.all.sample(99, 1))
        self.assertNotEqual(self.all.sample(99, 1), self.all.sample(99, 2))

    def test_what_is_known_to_be_equivalent_is_still_in_the_catalogue(self):
        all_mutants = (m for kinds in self.all.by_file.values() for found in kinds.values() for m in found)
        possible = {(m.path, m.before, m.after) for m in all_mutants}
        self.assertEqual(mutate.read_equivalents() - possible, set())


if __name__ == "__main__":
    unittest.main(argv=[str(pathlib.Path(__file__).name)])
