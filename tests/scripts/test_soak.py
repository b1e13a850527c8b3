"""scripts/soak: what it fails for, by records made up here, and a short run of it."""
import csv
import os
import re
import signal
import subprocess
import sys
import tempfile
import unittest

from marked import Mark

SOURCE = os.environ["TONEWELL_SOURCE"]
BINARIES = os.environ["TONEWELL_BINARIES"]
SOAK = os.path.join(SOURCE, "scripts", "soak")
sys.path.insert(0, os.path.join(SOURCE, "tools"))
import soundserver  # noqa: E402

NAMES = ("steady", "switches", "consumers")
HALF_MINUTES = 60
SAMPLE = {"load": 1, "anonymous_kb": 4300, "rss_file_kb": 26000, "rss_shmem_kb": 100, "descriptors": 16,
          "sockets": 5, "threads": 6, "pid": 77, "longest_gap_ms": 25, "control_gap_ms": 22, "faults": 0,
          "cpu_s": 1}
# What a busy machine may bring about; all else has to hold on any.
TIMING = ("longest gap", " missing, ", " times not", " have the tone in them")


def good_record():
    samples = [{"seconds": 30 * i, "messages": 1500 * i, "tone": 1500 * i, **SAMPLE}
               for i in range(1, HALF_MINUTES + 1)]
    return samples, [(0, 0, "start", "pid 77"), (1800, 1800.1, "exit", "0"), (0, 0, "clock", "5000.000")]


class Judging(unittest.TestCase):
    """Each record is right but for one thing, in the scenario "switches"."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="tonewell-soak-test.")
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        for name in NAMES:
            os.mkdir(os.path.join(self.folder, name))
            self.write(name, *good_record())
        self.samples, self.events = good_record()

    def write(self, name, samples, events):
        with open(os.path.join(self.folder, name, "samples.csv"), "w", encoding="ascii") as file:
            rows = csv.DictWriter(file, ["seconds", "messages", "tone", *SAMPLE])
            rows.writeheader()
            rows.writerows(samples)
        with open(os.path.join(self.folder, name, "events.csv"), "w", encoding="ascii") as file:
            csv.writer(file).writerows([("begin", "end", "kind", "text"), *events])

    def judge(self, *options):
        return subprocess.run([SOAK, *options, "--judge", self.folder], check=False, timeout=60, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def failures(self):
        """The lines that failed, which the exit code tells as well."""
        self.write("switches", self.samples, self.events)
        done = self.judge()
        self.assertEqual(done.stderr, "")
        failed = re.findall(r"^  FAILED +(.*)$", done.stdout, re.M)
        self.assertEqual(done.returncode, 1 if failed else 0, done.stdout)
        return failed

    def assert_fails(self, pattern):
        failed = self.failures()
        self.assertEqual(len(failed), 1, failed)
        self.assertRegex(failed[0], pattern)

    def grow(self, name, most, since=0.5):
        """Steadily, after so much of the run."""
        first = int(since * len(self.samples))
        for i, sample in enumerate(self.samples[first:], 1):
            sample[name] += most * i / (len(self.samples) - first)

    def gap(self, begin, seconds):
        self.events.append((begin, begin + seconds, "gap", ""))

    def test_what_is_right_passes_and_is_drawn(self):
        self.assertEqual(self.failures(), [])
        with open(os.path.join(self.folder, "soak.svg"), encoding="utf-8") as file:
            self.assertEqual(file.read().count("<polyline"), 9)

    def test_memory_may_grow_by_less_than_256_kb(self):
        self.grow("anonymous_kb", 255)
        self.assertEqual(self.failures(), [])

    def test_memory_that_grows_fails(self):
        self.grow("anonymous_kb", 256)
        self.assert_fails(r"^own memory after 10 min 4300 kB, at the end 4556 \(\+256\), at most 4556")

    def test_memory_that_was_higher_for_a_while_fails(self):
        self.samples[40]["anonymous_kb"] += 300
        self.assert_fails(r"^own memory .* at the end 4300 \(\+0\), at most 4600 \(\+300\)")

    def test_memory_of_the_first_ten_minutes_does_not_count(self):
        for sample in self.samples[:19]:
            sample["anonymous_kb"] -= 2000
        self.assertEqual(self.failures(), [])

    def test_what_leaks_fails(self):
        for name in ("descriptors", "sockets", "threads"):
            with self.subTest(name=name):
                self.samples, self.events = good_record()
                self.samples[-1][name] += 50  # once is no leak
                self.assertEqual(self.failures(), [])
                self.grow(name, 3)
                self.assert_fails(f"^{name}: ")

    def test_a_short_run_says_that_it_does_not_judge_growth(self):
        del self.samples[20:]
        self.grow("anonymous_kb", 5000)
        self.assertEqual(self.failures(), [])
        self.assertIn("too short", self.judge().stdout)

    def test_a_gap_outside_faults_fails(self):
        self.gap(900, 0.251)
        self.assert_fails(r"^longest gap .* 1 by nothing known \(up to 251 ms\)")

    def test_a_gap_of_250_ms_passes(self):
        self.gap(900, 0.250)
        self.assertEqual(self.failures(), [])

    def test_a_gap_belongs_to_a_fault_until_its_recovery_is_over(self):
        for what, seconds in (("switch", 2), ("kill", 5)):
            with self.subTest(fault=what):
                self.samples, self.events = good_record()
                self.events += [(899, 900, "fault", what), (899, 900.5, "followed", what)]
                self.gap(900 + seconds - 0.1, 0.4)
                self.assertEqual(self.failures(), [])
                self.gap(900 + seconds + 0.1, 0.4)
                self.assert_fails("1 by a fault .* 1 by nothing known")

    def test_a_gap_is_the_machines_only_as_far_as_the_bare_timer_was_late(self):
        self.gap(900, 0.6)
        self.events.append((900.2, 900.6, "late", ""))
        self.assertEqual(self.failures(), [])
        self.assertIn("1 by the machine (up to 600 ms)", self.judge().stdout)
        self.events[-1] = (900.4, 901.4, "late", "")
        self.assert_fails("0 by the machine, 1 by nothing known")

    def test_a_gap_is_the_machines_as_far_as_another_copy_of_the_program_waited_as_well(self):
        samples, events = good_record()
        events[2] = (0, 0, "clock", "5010.000")
        self.write("steady", samples, [*events, (890.1, 890.3, "gap", ""), (890.25, 890.5, "late", "")])
        self.gap(900, 0.6)
        self.assertEqual(self.failures(), [])
        self.gap(890, 0.6)
        self.assert_fails("1 by the machine .* 1 by nothing known")
        self.events.pop()
        self.events.remove((0, 0, "clock", "5000.000"))
        self.assert_fails("0 by the machine, 1 by nothing known")

    def test_another_process_fails(self):
        self.samples[30]["pid"] = 78
        self.assert_fails("^processes that answered: 2, id 77, 78")

    def test_missing_messages_fail(self):
        for sample in self.samples:
            sample["messages"] = sample["tone"] = sample["messages"] * 0.98
        self.assert_fails(" missing, ")

    def test_messages_that_the_bare_timer_would_have_missed_pass(self):
        for sample in self.samples:
            sample["messages"] = sample["tone"] = sample["messages"] * 0.98
        self.events += [(100 + i, 100.5 + i, "late", "") for i in range(100)]
        self.assertEqual(self.failures(), [])

    def test_a_tone_that_is_not_heard_fails(self):
        for sample in self.samples:
            sample["tone"] *= 0.9
        self.assert_fails("have the tone in them")

    def test_a_switch_that_is_not_followed_fails(self):
        self.events += [(50, 50, "fault", "switch"), (50, 50.5, "followed", "switch"),
                        (54, 54, "fault", "switch"), (54, 58, "unfollowed", "switch")]
        self.assert_fails(r"^2 switches, 0 killed servers: .* 1 times not \(after switch at 54 s\)")

    def test_an_end_that_is_not_clean_fails(self):
        self.events[1] = (1800, 1800.1, "exit", "-9")
        self.assert_fails("^exit code on SIGTERM: -9")

    def test_files_left_behind_fail(self):
        self.events.append((1801, 1801, "left", "tonewell"))
        self.assert_fails("^files left behind: tonewell")

    def test_a_run_without_its_end_fails(self):
        del self.events[1]
        self.assert_fails("not come to its end")

    def test_a_scenario_that_could_not_go_on_fails(self):
        self.events.append((1801, 1801, "failed", "the program ended with 1"))
        self.assert_fails("could not go on: the program ended with 1")

    def test_no_samples_fail(self):
        self.samples = []
        self.assertIn("there are no samples", self.failures())

    def test_one_scenario_alone_can_be_judged(self):
        self.grow("anonymous_kb", 500)
        self.write("switches", self.samples, self.events)
        for name, code in (("steady", 0), ("switches", 1)):
            done = self.judge("--only", name)
            self.assertEqual(done.returncode, code, done.stdout)
            self.assertEqual(re.findall(r"^\w+:", done.stdout, re.M), [name + ":", "drawn:"])

    def test_what_is_no_record_is_refused(self):
        path = os.path.join(self.folder, "steady", "samples.csv")
        for content in ("", "seconds,load\n1,x\n", None):
            with self.subTest(content=content):
                if content is None:
                    os.remove(path)
                else:
                    with open(path, "w", encoding="ascii") as file:
                        file.write(content)
                done = self.judge()
                self.assertEqual(done.returncode, 1, done.stdout)
                if content != "":
                    self.assertRegex(done.stderr, r"\Ascripts/soak: no record of a run in [^\n]+\n\Z")


class Options(unittest.TestCase):
    def test_wrong_ones_are_refused(self):
        for words in ([], ["0"], ["-1"], ["junk"], ["nan"], ["1e9"], ["1", "2"], ["1", "--judge", SOURCE],
                      ["--judge", "/no/such/folder"], ["1", "--programs", SOURCE], ["1", "--seed", "x"],
                      ["1", "--only", "x"], ["1", "--programs", BINARIES, "--folder", SOURCE]):
            with self.subTest(words=words):
                done = subprocess.run([SOAK, *words], check=False, timeout=60, text=True,
                                      stdout=subprocess.PIPE, stderr=subprocess.PIPE)
                self.assertEqual((done.returncode, done.stdout), (2, ""))
                self.assertRegex(done.stderr, r"\Ascripts/soak: [^\n]+; see --help\n\Z")


class Running(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="tonewell-soak-test.")
        self.addCleanup(folder.cleanup)
        self.folder = os.path.join(folder.name, "record")
        self.mark = Mark()
        self.addCleanup(self.mark.kill)

    def start(self, minutes):
        return subprocess.Popen([SOAK, "--programs", BINARIES, "--folder", self.folder, "--seed", "1", minutes],
                                env={**os.environ, **self.mark.environment, "TMPDIR": os.path.dirname(self.folder)},
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)

    def rows(self, scenario, name):
        with open(os.path.join(self.folder, scenario, name), newline="", encoding="utf-8") as file:
            return list(csv.DictReader(file))

    def expect_nothing_left(self):
        soundserver.wait_until(lambda: not self.mark.processes(), 10, "the end of all processes")
        self.assertEqual(os.listdir(os.path.dirname(self.folder)), ["record"])

    def test_a_short_run_records_judges_and_leaves_nothing(self):
        output, errors = self.start("0.4").communicate(timeout=200)
        self.assertEqual(errors, "")
        self.expect_nothing_left()
        failed = [line for line in re.findall(r"^  FAILED .*$", output, re.M)
                  if not any(words in line for words in TIMING)]
        self.assertEqual(failed, [], output)
        for name in NAMES:
            samples = self.rows(name, "samples.csv")
            self.assertGreaterEqual(len(samples), 8)
            self.assertGreater(int(samples[-1]["messages"]), 200)
            self.assertGreater(int(samples[-1]["anonymous_kb"]), 1000)
            self.assertEqual(len({sample["pid"] for sample in samples}), 1)
        events = {(row["kind"], row["text"]) for row in self.rows("switches", "events.csv")}
        self.assertLessEqual({("fault", "switch"), ("fault", "kill"), ("followed", "switch"),
                              ("followed", "server")}, events)
        counts = {row["text"].split()[0] for row in self.rows("consumers", "events.csv") if row["kind"] == "count"}
        self.assertLessEqual({"damaged", "random", "replicaprobe", "stallingconsumers"}, counts)
        self.assertTrue(os.path.exists(os.path.join(self.folder, "soak.svg")))

    def interrupt(self, number):
        run = self.start("60")
        self.addCleanup(soundserver.end_process, run)
        samples = [os.path.join(self.folder, name, "samples.csv") for name in NAMES]
        soundserver.wait_until(lambda: all(os.path.exists(path) and os.path.getsize(path) > 300
                                           for path in samples), 120, "samples")
        run.send_signal(number)
        _, errors = run.communicate(timeout=60)
        self.assertEqual(run.returncode, 1)
        self.assertEqual(errors, f"scripts/soak: ended early by signal {number:d}\n")
        self.expect_nothing_left()

    def test_a_run_that_is_interrupted_leaves_nothing(self):
        self.interrupt(signal.SIGINT)

    def test_a_run_that_is_terminated_leaves_nothing(self):
        self.interrupt(signal.SIGTERM)


if __name__ == "__main__":
    unittest.main()
