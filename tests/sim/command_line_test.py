#!/usr/bin/env python3
"""Where umonat-sim takes its scenario from, and how it prints it.

    command_line_test.py SIM

-c lines, standard input (a pipe, a file, /dev/null), --no-echo, --version and the command
lines that are refused.
"""
import os
import re
import subprocess
import sys
import tempfile
import unittest

SIM = None


def run(args, stdin=subprocess.DEVNULL, input=None):
    env = dict(os.environ)
    env.pop("MOX_TRACE", None)
    return subprocess.run([SIM, *args], stdin=None if input is not None else stdin, input=input,
                          capture_output=True, text=True, env=env, timeout=60)


class CommandLineTest(unittest.TestCase):
    def test_c_lines_run_in_order_as_one_scenario(self):
        done = run(["-c", "policy P", "-c", "match P M", "-c", "show inputs"])
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(done.stdout,
                         "> policy P\n> match P M\n> show inputs\n"
                         "policy P\nmatch P M flow src 0.0.0.0/0:0 dst 0.0.0.0/0:0\n")
        quiet = run(["--no-echo", "-c", "policy P", "-c", "show inputs"])
        self.assertEqual(quiet.stdout, "policy P\n")

    def test_c_lines_stop_at_the_first_error_unless_keep_going(self):
        done = run(["-c", "policy P", "-c", "shwo inputs", "-c", "show inputs"])
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stderr,
                         "<-c>:2: error: unknown command 'shwo'; did you mean 'show'?\n")
        self.assertEqual(done.stdout, "> policy P\n> shwo inputs\n")
        going = run(["-k", "--no-echo", "-c", "shwo", "-c", "policy P", "-c", "show inputs"])
        self.assertEqual((going.returncode, going.stdout), (1, "policy P\n"))

    def test_standard_input_is_read_when_it_is_a_pipe_or_a_file(self):
        lines = "policy P\nshow inputs\n"
        piped = run(["--no-echo"], input=lines)
        self.assertEqual((piped.returncode, piped.stdout), (0, "policy P\n"))
        with tempfile.TemporaryFile("w+") as f:
            f.write("show nothing\n")
            f.seek(0)
            from_file = run([], stdin=f)
        self.assertEqual(from_file.returncode, 1)
        self.assertIn("<stdin>:1: error: cannot show 'nothing'", from_file.stderr)
        # /dev/null is no scenario: the built-in tour runs.
        tour = run(["--no-echo"], stdin=subprocess.DEVNULL)
        self.assertEqual(tour.returncode, 0, tour.stderr)
        self.assertIn("createNatFlowGroup", tour.stdout)

    def test_version_prints_the_library_version(self):
        done = run(["--version"])
        self.assertEqual(done.returncode, 0)
        self.assertRegex(done.stdout, r"^umonat-sim \d+\.\d+\.\d+\n$")

    def test_refuses_command_lines_that_mix_sources(self):
        with tempfile.NamedTemporaryFile("w", suffix=".scn") as f:
            for args in (["-c", "policy P", f.name], ["-i", f.name, f.name], ["-i", "-"], ["-c"],
                         ["--generate", "1", "-c", "policy P"]):
                done = run(args)
                self.assertEqual(done.returncode, 2, args)
                self.assertTrue(re.match(r"umonat-sim: .*; try umonat-sim --help\n$", done.stderr),
                                done.stderr)


if __name__ == "__main__":
    SIM = os.path.abspath(sys.argv.pop(1))
    unittest.main()
