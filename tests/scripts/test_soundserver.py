"""tools/soundserver.py as a script uses it: a default sink, the environment of a client, and an end
that leaves nothing running, however it comes."""
import os
import signal
import subprocess
import sys
import tempfile
import unittest

from marked import Mark

SOURCE = os.environ["TONEWELL_SOURCE"]
sys.path.insert(0, os.path.join(SOURCE, "tools"))
import soundserver  # noqa: E402

PROCESSES = {"pulseaudio": {"pulseaudio"},
             "pipewire": {"dbus-daemon", "pipewire", "wireplumber", "pipewire-pulse"}}


class Server(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="tonewell-server-test.")
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.mark = Mark()

    def start(self, kind, *options, **environment):
        self.environment = {**os.environ, "PULSE_SINK": "elsewhere", **environment, **self.mark.environment}
        process = subprocess.Popen(
            [sys.executable, os.path.join(SOURCE, "tools/soundserver.py"), *options, kind, self.folder],
            env=self.environment, text=True, stdin=subprocess.PIPE,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE)

        def end():
            soundserver.end_process(process)
            process.communicate()
            self.mark.kill()

        self.addCleanup(end)
        return process

    def read_environment(self, process):
        environment = dict(self.environment)
        for line in iter(process.stdout.readline, "ready\n"):
            self.assertTrue(line, "ended before it was ready")
            name, _, value = line.rstrip("\n").partition("=")
            if name.startswith("-"):
                environment.pop(name[1:], None)
            else:
                environment[name] = value
        return environment

    def expect_nothing_left(self):
        soundserver.wait_until(lambda: not self.mark.processes(), 10, "the end of all processes")

    def test_a_client_finds_the_sink_and_nothing_is_left(self):
        for kind, processes in PROCESSES.items():
            with self.subTest(kind=kind):
                process = self.start(kind, "--sink", "tune=A tune")
                environment = self.read_environment(process)
                self.assertNotIn("PULSE_SINK", environment)
                self.assertLessEqual(processes, set(self.mark.processes().values()))
                self.assertEqual(environment["HOME"], os.path.join(self.folder, "home"))
                answer = subprocess.run(["pactl", "list", "sinks"], env=environment, check=True, timeout=10,
                                        stdout=subprocess.PIPE, text=True).stdout
                self.assertIn("Description: A tune\n", answer)
                self.assertEqual(subprocess.run(
                    ["pactl", "get-default-sink"], env=environment, check=True, timeout=10,
                    stdout=subprocess.PIPE, text=True).stdout, "tune\n")
                process.send_signal(signal.SIGTERM)
                self.assertEqual(process.wait(20), 0, process.stderr.read())
                self.expect_nothing_left()

    def test_killed_it_takes_all_along(self):
        for kind in PROCESSES:
            with self.subTest(kind=kind):
                process = self.start(kind)
                self.read_environment(process)
                process.kill()
                process.wait()
                self.expect_nothing_left()

    def test_the_death_of_a_process_is_its_end(self):
        process = self.start("pipewire")
        self.read_environment(process)
        names = {name: pid for pid, name in self.mark.processes().items()}
        os.kill(names["wireplumber"], signal.SIGKILL)
        self.assertEqual(process.wait(20), 1)
        self.assertIn("a process has ended", process.stderr.read())
        self.expect_nothing_left()

    def test_what_cannot_start_is_told_at_once(self):
        folder = os.path.join(self.folder, "bin")
        os.mkdir(folder)
        with open(os.path.join(folder, "pulseaudio"), "w", encoding="ascii") as file:
            file.write("#!/bin/sh\nexit 3\n")
        os.chmod(file.name, 0o755)
        process = self.start("any", PATH=f"{folder}:{os.environ['PATH']}")
        self.assertEqual(process.wait(20), 1)
        self.assertNotIn("ready", process.stdout.read())
        self.assertIn("ended before PulseAudio's answer", process.stderr.read())
        self.expect_nothing_left()

    def test_commands(self):
        for kind in PROCESSES:
            with self.subTest(kind=kind):
                process = self.start(kind, "--commands")
                environment = self.read_environment(process)

                def command(word):
                    process.stdin.write(word + "\n")
                    process.stdin.flush()
                    return process.stdout.readline()

                def answers():
                    return subprocess.run(["pactl", "info"], env=environment, timeout=10, check=False,
                                          stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0

                self.assertFalse(answers())
                for _ in range(2):  # a killed one starts again in the same place
                    self.assertEqual(command("start"), "ok\n")
                    self.assertTrue(answers())
                    self.assertEqual(command("kill"), "ok\n")
                    self.assertFalse(answers())
                self.assertEqual(command("start"), "ok\n")
                self.assertEqual(command("hang"), "ok\n")
                with self.assertRaises(subprocess.TimeoutExpired):
                    subprocess.run(["pactl", "info"], env=environment, timeout=1, check=False,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
                self.assertEqual(command("resume"), "ok\n")
                self.assertTrue(answers())
                process.stdin.close()
                self.assertEqual(process.wait(20), 0, process.stderr.read())
                process.stdin = None
                self.expect_nothing_left()


if __name__ == "__main__":
    unittest.main()
