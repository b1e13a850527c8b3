"""scripts/mutate: the breaks that it makes, and what it says of them, in a small project."""
import os
import subprocess
import tempfile
import unittest

SOURCE = os.environ["TONEWELL_SOURCE"]
MUTATE = os.path.join(SOURCE, "scripts", "mutate")

PRESETS = """{"version": 3,
 "configurePresets": [{"name": "release", "generator": "Ninja",
   "binaryDir": "${sourceDir}/build/release", "cacheVariables": {
     "CMAKE_BUILD_TYPE": "Release", "CMAKE_EXPORT_COMPILE_COMMANDS": "ON"}}],
 "buildPresets": [{"name": "release", "configurePreset": "release"}],
 "testPresets": [{"name": "release", "configurePreset": "release"}]}
"""
PROJECT = """cmake_minimum_required(VERSION 3.21)
project(small CXX)
enable_testing()
add_executable(small small.cpp test.cpp)
add_test(NAME small COMMAND small)
"""
# The test holds the first clause alone; the third function is never called.
CODE = """int held(int a) { return a + 3; } // a + 9
const char *text() { return "a + b"; }
static int dead(int a)
{
    return a >= 7;
}
bool free(int a)
{
    return a < 0;
}
"""
TEST = """int held(int a);
int main() { return held(1) == 4 ? 0 : 1; }
"""


class Mutate(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="tonewell-mutate.")
        self.addCleanup(folder.cleanup)
        self.temporary = os.path.join(folder.name, "tmp")
        self.project = os.path.join(folder.name, "small")
        os.mkdir(self.temporary)
        os.mkdir(self.project)
        for name, text in (("CMakePresets.json", PRESETS), ("CMakeLists.txt", PROJECT),
                           ("small.cpp", CODE), ("test.cpp", TEST)):
            with open(os.path.join(self.project, name), "w", encoding="utf-8") as file:
                file.write(text)
        for command in (["init", "-q"], ["add", "."],
                        ["commit", "-qm", "t"]):
            self.git(*command)

    def git(self, *command):
        subprocess.run(["git", "-c", "user.name=t", "-c", "user.email=t@localhost", *command],
                       cwd=self.project, check=True)

    def mutate(self, *options):
        done = subprocess.run([MUTATE, *options, "small.cpp"], cwd=self.project, timeout=250,
                              env={**os.environ, "TMPDIR": self.temporary}, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertEqual(done.stderr, "")
        return done.returncode, done.stdout.splitlines()

    def test_breaks_are_in_code_alone(self):
        code, lines = self.mutate("--list", "--sample", "0")
        self.assertEqual(code, 0)
        self.assertEqual(lines, [
            "small.cpp:1: int held(int a) { return a - 3; }",
            "small.cpp:1: int held(int a) { return a + 4; }",
            'small.cpp:2: const char *text() { return "a + b "; }',
            "small.cpp:5: return a > 7;",
            "small.cpp:5: return a >= 8;",
            "small.cpp:9: return a <= 0;",
            "small.cpp:9: return a < 1;"])

    def test_a_seed_draws_the_same_again(self):
        draws = {seed: self.mutate("--list", "--sample", "3", "--seeds", seed)[1]
                 for seed in ("1", "2", "1,2")}
        self.assertEqual(draws["1"], self.mutate("--list", "--sample", "3", "--seeds", "1")[1])
        self.assertEqual(len(draws["1"]), 3)
        self.assertNotEqual(draws["1"], draws["2"])
        self.assertEqual(set(draws["1,2"]), set(draws["1"]) | set(draws["2"]))

    def test_each_break_is_judged(self):
        code, lines = self.mutate("--sample", "0", "--targets", "small", "--tests", "small")
        self.assertEqual(code, 1)
        states = [line.split("] ")[1].split(": small.cpp:")[0] for line in lines[:-1]]
        self.assertEqual(states, ["killed"] * 2 + ["SURVIVES"] + ["the same program"] * 2
                         + ["SURVIVES"] * 2)
        self.assertEqual(lines[-1], "7 breaks of seeds 1: 0 do not compile, "
                         "2 are the same program, killed 2 of 5")
        with open(os.path.join(self.project, "small.cpp"), encoding="utf-8") as file:
            self.assertEqual(file.read(), CODE)

    def test_an_unbroken_program_must_pass(self):
        with open(os.path.join(self.project, "test.cpp"), "w", encoding="utf-8") as file:
            file.write("int main() { return 1; }\n")
        self.git("commit", "-qam", "t")
        code, lines = self.mutate("--sample", "1")
        self.assertEqual(code, 2)
        self.assertRegex(lines[0], "^the unbroken program does not pass; see ")


if __name__ == "__main__":
    unittest.main()
