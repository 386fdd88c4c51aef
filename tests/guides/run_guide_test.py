#!/usr/bin/env python3
"""The checks of run_guide.py find what they are for."""
import os
import tempfile
import unittest

import run_guide


def block(language, *lines):
    return "\n".join(["```" + language, *lines, "```"]) + "\n"


class Following(unittest.TestCase):
    def setUp(self):
        self.scratch = tempfile.TemporaryDirectory()
        self.addCleanup(self.scratch.cleanup)

    def follow(self, *parts):
        run_guide.follow("\n".join(parts), self.scratch.name, dict(os.environ))

    def expect_refused(self, words, *parts):
        with self.assertRaisesRegex(run_guide.GuideError, words):
            self.follow(*parts)

    def test_takes_what_is_as_shown(self):
        self.follow("text", block("console", "$ echo one", "one", "$ true"))

    def test_refuses_another_output(self):
        self.expect_refused("shows\none\n.*comes\ntwo", block("console", "$ echo two", "one"))

    def test_refuses_output_that_is_not_shown(self):
        self.expect_refused("comes\nword", block("console", "$ echo word"))

    def test_refuses_output_that_does_not_come(self):
        self.expect_refused("shows\nword", block("console", "$ true", "word"))

    def test_refuses_a_command_that_fails(self):
        self.expect_refused("status 3", block("console", "$ exit 3"))

    def test_sees_both_outputs(self):
        self.expect_refused("comes\nmistake", block("console", "$ echo mistake >&2"))

    def test_lets_dots_stand_for_any_lines(self):
        self.follow(block("console", "$ printf '1\\n2\\n3\\n'", "1", "...", "3", "$ echo 1", "1", "..."))
        self.expect_refused("comes", block("console", "$ printf '1\\n2\\n'", "...", "1"))

    def test_goes_on_behind_a_backslash(self):
        self.follow(block("console", "$ echo one \\", "    two", "one two"))

    def test_writes_files_and_adds_to_them(self):
        self.follow("<!-- file: a.c -->", block("c", "int a;"), "<!-- file: a.c -->", block("c", "int b;"),
                    block("console", "$ cat a.c", "int a;", "int b;"))

    def test_refuses_code_that_is_not_used(self):
        self.expect_refused("line 1: neither", block("c", "int a;"))
        self.expect_refused("line 1: neither", block("sh", "ls"))

    def test_takes_a_fragment_that_says_so(self):
        self.follow(block("c", "/* Fragment: of a host. */", "int a"))

    def test_refuses_what_it_does_not_know(self):
        self.expect_refused("not understood", "<!-- files: a.c -->", block("c", "int a;"))

    def test_refuses_a_block_without_an_end(self):
        self.expect_refused("line 1: the block does not end", "```console\n$ true\n")

    def test_runs_on_the_systems_named(self):
        self.follow("<!-- run if glibc < 2.0 -->", block("console", "$ exit 3"))
        self.expect_refused("status 3", "<!-- run if glibc >= 2.0 -->", block("console", "$ exit 3"))

    def test_leaves_out_what_is_not_to_be_run(self):
        self.follow("<!-- not run: for root -->", block("console", "$ exit 3"))


class Links(unittest.TestCase):
    def test_lead_to_files(self):
        here = os.path.dirname(os.path.abspath(__file__))
        run_guide.check_links("[a](run_guide.py#x) [b](https://example.org/)", here)
        with self.assertRaisesRegex(run_guide.GuideError, "there is no nowhere.md"):
            run_guide.check_links("[c](nowhere.md)", here)


if __name__ == "__main__":
    unittest.main()
