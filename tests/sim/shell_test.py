#!/usr/bin/env python3
"""The interactive shell of umonat-sim in a real pseudo-terminal.

    shell_test.py SIM

Types at the prompt as a person does, with Tab, '?', Ctrl-C and Ctrl-D, and checks what the
terminal shows. Each session runs with HOME and the history file in a temporary directory, so
the user's own history is never read or written.
"""
import os
import sys
import tempfile
import unittest

import pexpect

PROMPT = "umonat-sim> "
SIM = None


class ShellTest(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.TemporaryDirectory(prefix="umonat-shell-")
        self.history = os.path.join(self.dir.name, "history")
        # A terminal without escape sequences, so that the screen reads as plain text.
        inputrc = os.path.join(self.dir.name, "inputrc")
        with open(inputrc, "w") as f:
            f.write("set enable-bracketed-paste off\n")
        self.env = dict(os.environ, HOME=self.dir.name, UMONAT_SIM_HISTORY=self.history,
                        INPUTRC=inputrc, TERM="dumb")
        self.env.pop("MOX_TRACE", None)

    def tearDown(self):
        self.dir.cleanup()

    def start(self, *args):
        shell = pexpect.spawn(SIM, ["-i", *args], env=self.env, cwd=self.dir.name,
                              encoding="utf-8", timeout=30, dimensions=(50, 200))
        shell.expect_exact(PROMPT)
        return shell

    def run_line(self, shell, line):
        """Types `line` and Enter; returns what the line printed."""
        shell.send(line + "\r")
        shell.expect_exact(PROMPT)
        return shell.before

    def leave(self, shell, keys):
        shell.send(keys)
        shell.expect(pexpect.EOF)
        shell.close()
        self.assertEqual(shell.exitstatus, 0)

    def test_tab_completes_commands_and_the_names_that_exist(self):
        shell = self.start()
        shell.send("pol\t")
        shell.expect_exact("policy ")
        self.run_line(shell, "video")
        # "vi" completes to the policy just made, so the match is made in it.
        shell.send("match vi\t")
        shell.expect_exact("video ")
        self.run_line(shell, "news")
        self.assertIn("match video news flow", self.run_line(shell, "show inputs"))
        self.leave(shell, "exit\r")

    def test_question_mark_lists_what_may_come_next_and_keeps_the_line(self):
        shell = self.start()
        shell.send("show ?")
        shell.expect_exact(PROMPT + "show ")
        listing = shell.before
        self.assertRegex(listing, r"\n  calls +print the chip calls made since the last look")
        self.assertRegex(listing, r"\n  table +run showNatFlowActionHw through the agent")
        # The line is still there: Enter runs it as typed.
        self.assertIn("# no inputs", self.run_line(shell, "inputs"))
        shell.send("shwo ?")
        shell.expect_exact("unknown command 'shwo'; did you mean 'show'?")
        shell.expect_exact(PROMPT + "shwo ")
        shell.send("\x15")  # Ctrl-U: drop the line
        self.leave(shell, "quit\r")

    def test_help_prints_the_forms_of_a_command(self):
        shell = self.start()
        forms = self.run_line(shell, "help vlan")
        self.assertIn("vlan V [member INTF...]", forms)
        self.assertIn("vlan V remove INTF...", forms)
        self.assertNotIn("policy NAME", forms)
        self.leave(shell, "exit\r")

    def test_ctrl_c_drops_the_line_only(self):
        shell = self.start()
        self.run_line(shell, "policy kept")
        shell.send("policy dropped")
        shell.expect_exact("policy dropped")
        shell.sendintr()
        shell.expect_exact("^C")
        shell.expect_exact(PROMPT)
        self.assertTrue(shell.isalive())
        inputs = self.run_line(shell, "show inputs")
        self.assertIn("policy kept", inputs)
        self.assertNotIn("policy dropped", inputs)
        self.leave(shell, "exit\r")

    def test_history_survives_a_restart(self):
        shell = self.start()
        self.run_line(shell, "policy first")
        self.run_line(shell, "help start")
        self.leave(shell, "\x04")  # Ctrl-D on an empty line
        shell = self.start()
        shell.send("\x10")  # Ctrl-P: the line before, from the last session
        shell.expect_exact("help start")
        self.assertIn("create the system's root", self.run_line(shell, ""))
        self.leave(shell, "exit\r")
        with open(self.history) as f:
            self.assertEqual(f.read().split("\n")[-4:], ["help start", "help start", "exit", ""])

    def test_a_file_runs_before_the_prompt_in_the_same_simulation(self):
        scenario = os.path.join(self.dir.name, "setup.scn")
        with open(scenario, "w") as f:
            f.write("policy fromfile\n")
        shell = self.start(scenario)
        self.assertIn("> policy fromfile", shell.before)
        self.assertIn("policy fromfile", self.run_line(shell, "show inputs"))
        self.leave(shell, "exit\r")


if __name__ == "__main__":
    SIM = os.path.abspath(sys.argv.pop(1))
    unittest.main()
