#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Which mutants points.py makes of a source, and which it leaves alone."""

import unittest

from points import next_number, other_letter, points_of


def changes(source):
    return [(point.kind, point.change()) for point in points_of("a.cc", source)]


class Points(unittest.TestCase):
    def test_conditions_are_turned(self):
        self.assertEqual(changes("if (a == b && !c)"),
                         [("condition", "== -> !="), ("condition", "&& -> ||"), ("condition", "! -> ")])  # fmt: skip
        self.assertEqual(changes("a < b"), [("condition", "< -> <=")])
        self.assertEqual(changes("a ||\n    b"), [("condition", "|| -> &&")])

    def test_templates_references_pointers_and_signs_are_no_operators(self):
        self.assertEqual(changes("std::span<const T> f(T &a, T *b) { return -a->b; }"), [])

    def test_constants_are_changed(self):
        self.assertEqual(changes("return 0x1FU;"), [("constant", "0x1FU -> 0x20U")])
        self.assertEqual(changes("x = 1'000;"), [("constant", "1'000 -> 1001")])
        self.assertEqual(changes("return true;"), [("constant", "true -> false")])
        self.assertEqual(changes("return YB_STATUS_ERROR;"), [("constant", "YB_STATUS_ERROR -> YB_STATUS_SUCCESS")])
        self.assertIsNone(next_number("1.5"))
        self.assertEqual(next_number("0644"), "0645")

    def test_a_letter_of_each_message_is_changed_but_no_conversion_and_no_escape(self):
        self.assertEqual(other_letter('"abc %s\\n"'), '"acc %s\\n"')
        self.assertIsNone(other_letter('"%08x\\n %s"'))

    def test_comments_directives_and_static_assertions_are_left_alone(self):
        self.assertEqual(changes('// a == b\n/* 1 */\n#define A \\\n    1\nstatic_assert(sizeof(a) == 4, "no");'), [])
        self.assertEqual(changes('extern "C" int a;'), [])

    def test_what_only_the_compiler_is_told_is_left_alone(self):
        self.assertEqual(changes("exchange(a, &b, c, false,\n    __ATOMIC_RELAXED)"), [])
        self.assertEqual(changes("if (__builtin_expect(f(a), true))\n    return false;"),
                         [("constant", "false -> true")])  # fmt: skip

    def test_a_point_knows_its_place_and_makes_the_changed_source(self):
        source = "int a;\nint b = c == d;\n"
        (point,) = points_of("a.cc", source)
        self.assertEqual(point.name, "a.cc:2:11")
        self.assertEqual(point.whole_line, "int b = c == d;")
        self.assertEqual(point.apply_to(source), "int a;\nint b = c != d;\n")


if __name__ == "__main__":
    unittest.main()
