"""Every script explains itself and refuses what it does not know, before it does anything."""
import os
import subprocess
import tempfile
import unittest

SOURCE = os.environ["TONEWELL_SOURCE"]
SCRIPTS = sorted(name for name in os.listdir(os.path.join(SOURCE, "scripts"))
                 if "." not in name and os.path.isfile(os.path.join(SOURCE, "scripts", name)))
# What a script that went on would start with; the stand-ins only say that they were called.
COMMANDS = ("apt-get", "cmake", "clang-format-14", "cpack", "ctest", "dpkg-query", "git", "lintian",
            "mktemp", "setsid", "sudo", "Xvfb")


class Options(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="tonewell-options.")
        self.addCleanup(folder.cleanup)
        self.called = os.path.join(folder.name, "called")
        self.empty = os.path.join(folder.name, "empty")
        programs = os.path.join(folder.name, "bin")
        for name in (programs, self.empty):
            os.mkdir(name)
        for name in COMMANDS:
            with open(os.path.join(programs, name), "w", encoding="ascii") as file:
                file.write(f'#!/bin/sh\necho {name} >> "{self.called}"\nexit 1\n')
            os.chmod(file.name, 0o755)
        self.environment = {**os.environ, "PATH": programs + ":" + os.environ["PATH"]}

    def run_script(self, name, *arguments):
        done = subprocess.run([os.path.join(SOURCE, "scripts", name), *arguments],
                              env=self.environment, cwd=self.empty, timeout=60, text=True,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE)
        self.assertFalse(os.path.exists(self.called), f"{name} {arguments} went on: {done.stderr}")
        self.assertEqual(os.listdir(self.empty), [])
        return done

    def assert_refused(self, name, *arguments):
        with self.subTest(script=name, arguments=arguments):
            done = self.run_script(name, *arguments)
            self.assertEqual(done.returncode, 2, done.stderr)
            self.assertEqual(done.stdout, "")
            self.assertIn("usage: ", done.stderr)

    def test_the_stand_ins_are_seen(self):
        with self.assertRaises(AssertionError):
            self.run_script("format", "--check")

    def test_help_prints_the_usage(self):
        self.assertIn("run", SCRIPTS)
        for name in SCRIPTS:
            for option in ("-h", "--help"):
                with self.subTest(script=name, option=option):
                    done = self.run_script(name, option)
                    self.assertEqual(done.returncode, 0, done.stderr)
                    self.assertIn("usage: ", done.stdout)
                    self.assertEqual(done.stderr, "")

    def test_unknown_options_are_refused(self):
        for name in SCRIPTS:
            if name != "test-windows":  # which hands them to ctest
                self.assert_refused(name, "--no-such-option")

    def test_what_is_no_preset_is_refused(self):
        for name in ("build", "test", "measure-monitor", "screenshot-dialog", "screenshot-monitor"):
            self.assert_refused(name, "relase")

    def test_an_option_is_no_preset(self):
        self.assert_refused("test", "-R")  # whose value is missing
        self.assert_refused("test", "-R", "foo", "--no-such-option")
        self.assert_refused("build", "-DBUILD_TESTING=ON", "--no-such-option")

    def test_surplus_arguments_are_refused(self):
        for name, arguments in (("package", ("folder", "surplus")), ("format", ("surplus",)),
                                ("screenshot-dialog", ("release", "folder", "surplus")),
                                ("test-package", ("surplus",)), ("bench", ("surplus",)),
                                ("run", ("surplus",)), ("setup", ("surplus",))):
            self.assert_refused(name, *arguments)

    def test_seconds_that_are_none_are_refused(self):
        for value in ("0", "0.0", "-1", "junk", "1.2.3", "3e", "2000000"):
            self.assert_refused("run", "--seconds", value)
        self.assert_refused("run", "--text", "--seconds")


if __name__ == "__main__":
    unittest.main()
