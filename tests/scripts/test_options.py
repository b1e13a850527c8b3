"""Every script explains itself and refuses what it does not know, before it does anything."""
import os
import shutil
import subprocess
import tempfile
import unittest

SOURCE = os.environ["TONEWELL_SOURCE"]
SCRIPTS = sorted(name for name in os.listdir(os.path.join(SOURCE, "scripts"))
                 if "." not in name and os.path.isfile(os.path.join(SOURCE, "scripts", name)))
# What a script that went on would start with; the stand-ins only say that they were called.
COMMANDS = ("apt-get", "cmake", "clang-format-14", "cpack", "ctest", "dpkg-query", "git", "lintian",
            "mktemp", "setsid", "sudo", "Xvfb")
PROCESSORS = subprocess.run("nproc", check=True, stdout=subprocess.PIPE, text=True).stdout.strip()


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
            # One line: after more than that the error would have scrolled away.
            self.assertRegex(done.stderr, rf"\Ascripts/{name}: [^\n]+; see --help\n\Z")

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
            if name not in ("test", "test-debian", "test-windows"):  # which hand them to ctest
                self.assert_refused(name, "--no-such-option")

    def test_what_is_no_preset_is_refused(self):
        for name in ("build", "test", "measure-monitor", "screenshot-dialog", "screenshot-monitor", "screenshot-web"):
            self.assert_refused(name, "relase")

    def test_an_option_is_no_preset(self):
        self.assert_refused("build", "--no-such-option", "release")
        self.assert_refused("build", "-DBUILD_TESTING=ON", "--no-such-option")

    def test_a_build_on_windows_wants_its_qt_and_windows(self):
        self.assert_refused("on-windows")
        self.assert_refused("on-windows", "-G", "Ninja")
        self.assert_refused("on-windows", "/no/such/folder")
        with tempfile.TemporaryDirectory(prefix="tonewell-options.") as qt:
            os.makedirs(os.path.join(qt, "lib/cmake/Qt5"))
            with open(os.path.join(qt, "lib/cmake/Qt5/Qt5Config.cmake"), "w", encoding="ascii"):
                pass
            self.assert_refused("on-windows", qt)

    def test_what_is_no_release_is_refused(self):
        for name in ("test-debian", "test-package"):
            self.assert_refused(name, "11")

    def test_the_windows_tests_want_a_tarball(self):
        self.assert_refused("test-windows", "--qt")
        self.assert_refused("test-windows", "--qt", "")

    def run_without_apt(self, script, *arguments, **environment):
        """A script on a system that has no packages of this kind, nor what installs or makes them."""
        bare = os.path.join(os.path.dirname(self.called), "bare")
        os.makedirs(bare, exist_ok=True)
        for name in ("awk", "bash", "dirname", "env", "nproc"):
            if not os.path.lexists(os.path.join(bare, name)):
                os.symlink(shutil.which(name), os.path.join(bare, name))
        return subprocess.run([os.path.join(SOURCE, "scripts", script), *arguments], check=False,
                              env={**self.environment, "PATH": bare, **environment}, timeout=60, text=True,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def test_without_apt_the_packages_are_listed(self):
        done = self.run_without_apt("setup", "build", "run")
        self.assertEqual(done.returncode, 1, done.stderr)
        self.assertEqual(done.stdout, "")
        self.assertIn("installed by hand", done.stderr)
        self.assertNotIn("not found", done.stderr)
        listed = [line.strip() for line in done.stderr.splitlines() if line.startswith("    ")]
        for package in ("cmake", "qtbase5-dev", "libpulse-dev", "pulseaudio-utils"):
            self.assertIn(package, listed)

    def test_packages_that_were_installed_by_hand_are_believed(self):
        done = self.run_without_apt("setup", "build", "run", TONEWELL_PACKAGES="by-hand")
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))

    def test_a_package_needs_what_makes_packages(self):
        done = self.run_without_apt("package", TONEWELL_PACKAGES="by-hand")
        self.assertEqual((done.returncode, done.stdout), (1, ""), done.stderr)
        self.assertRegex(done.stderr, r"\Ascripts/package: [^\n]*dpkg-dev\n\Z")

    def test_surplus_arguments_are_refused(self):
        for name, arguments in (("package", ("folder", "surplus")), ("recipes", ("folder", "surplus")),
                                ("format", ("surplus",)),
                                ("screenshot-dialog", ("release", "folder", "surplus")),
                                ("test-package", ("surplus",)), ("bench", ("surplus",)),
                                ("run", ("surplus",)), ("setup", ("surplus",))):
            self.assert_refused(name, *arguments)

    def test_seconds_that_are_none_are_refused(self):
        for value in ("0", "0.0", "-1", "junk", "1.2.3", "3e", "2000000"):
            self.assert_refused("run", "--seconds", value)
        self.assert_refused("run", "--text", "--seconds")

    def pretend(self, name, output=""):
        """A stand-in that succeeds and says what it was called with, and for how many jobs."""
        path = os.path.join(os.path.dirname(self.called), "bin", name)
        with open(path, "w", encoding="ascii") as file:
            file.write(f'''#!/bin/sh
echo "{name} $* jobs $CMAKE_BUILD_PARALLEL_LEVEL $CTEST_PARALLEL_LEVEL" >> "{self.called}"
printf %s "{output}"''')

    def what_test_calls(self, *arguments, **environment):
        """The calls of cmake and ctest by scripts/test, on a machine that lacks nothing."""
        if os.path.exists(self.called):
            os.remove(self.called)
        self.pretend("dpkg-query", "installed")
        self.pretend("cmake")
        self.pretend("ctest")
        subprocess.run([os.path.join(SOURCE, "scripts", "test"), *arguments], check=True,
                       env={**self.environment, **environment}, timeout=60)
        with open(self.called, encoding="ascii") as file:
            return [line.strip() for line in file if line.startswith(("cmake", "ctest"))]

    def test_all_but_the_preset_goes_to_ctest(self):
        jobs = f"jobs {PROCESSORS} {PROCESSORS}"
        for name in ("CMAKE_BUILD_PARALLEL_LEVEL", "CTEST_PARALLEL_LEVEL", "CI"):
            self.environment.pop(name, None)
        self.assertEqual(self.what_test_calls("asan", "-R", "tst_a", "--any-option", "--repeat", "until-fail:3"), [
            f"cmake --preset asan -DBUILD_TESTING=ON {jobs}",
            f"cmake --build --preset asan {jobs}",
            f"ctest --preset asan -R tst_a --any-option --repeat until-fail:3 {jobs}"])
        self.assertEqual(self.what_test_calls("-L", "matrix")[-1],
                         f"ctest --preset release -L matrix {jobs}")

    def test_a_warning_is_an_error_where_the_project_checks_itself(self):
        option = " -DTONEWELL_WARNINGS_AS_ERRORS=ON "
        self.assertIn(option, self.what_test_calls("release", CI="true")[0])
        self.assertNotIn(option, self.what_test_calls("release", CI="")[0])

    def test_the_caller_chooses_the_jobs(self):
        calls = self.what_test_calls(CMAKE_BUILD_PARALLEL_LEVEL="5", CTEST_PARALLEL_LEVEL="7")
        self.assertEqual(len(calls), 3)
        for call in calls:
            self.assertIn(" jobs 5 7", call)


if __name__ == "__main__":
    unittest.main()
