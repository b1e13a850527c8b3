"""scripts/run with the programs of the build: the private sound server, the bars, and the end that
leaves nothing running. Everything that it starts inherits a mark and is found by that."""
import os
import shutil
import signal
import subprocess
import tempfile
import time
import unittest

from marked import Mark

SOURCE = os.environ["TONEWELL_SOURCE"]
BINARIES = os.environ["TONEWELL_BINARIES"]


def wait_until(condition, seconds):
    end = time.monotonic() + seconds
    while not condition() and time.monotonic() < end:
        time.sleep(0.1)
    return condition()


class Run(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="tonewell-run-test.")
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        for name in ("runtime", "home", "tmp"):
            os.mkdir(os.path.join(self.folder, name), 0o700)
        self.mark = Mark()
        self.environment = {key: value for key, value in os.environ.items()
                            if not key.startswith(("PULSE_", "PIPEWIRE_", "XDG_", "DBUS_"))
                            and key not in ("DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM")}
        self.environment.update({
            **self.mark.environment, "TONEWELL_BINARIES": BINARIES, "HOME": os.path.join(self.folder, "home"),
            "XDG_RUNTIME_DIR": os.path.join(self.folder, "runtime"),
            "TMPDIR": os.path.join(self.folder, "tmp")})
        self.log = os.path.join(self.folder, "output")

    def started(self):
        return self.mark.processes()

    def start_display(self):
        """An X server, on which the window is to be shown; it does not carry the mark."""
        read_end, write_end = os.pipe()
        server = subprocess.Popen(
            ["Xvfb", "-displayfd", str(write_end), "-screen", "0", "1280x1024x24", "-nolisten", "tcp", "-noreset"],
            pass_fds=[write_end], env={**os.environ, self.mark.name: ""}, stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

        def end():
            server.terminate()
            server.wait()

        self.addCleanup(end)
        os.close(write_end)
        with os.fdopen(read_end) as display:
            self.environment["DISPLAY"] = ":" + display.readline().strip()
        # Qt's X plugin leaves key symbols behind, which no suppression can name.
        self.environment["ASAN_OPTIONS"] = os.environ.get("ASAN_OPTIONS", "") + ":detect_leaks=0"

    def start(self, *options, text=True):
        def defaults():
            for number in (signal.SIGINT, signal.SIGTERM):
                signal.signal(number, signal.SIG_DFL)

        with open(self.log, "wb") as log:
            process = subprocess.Popen(
                [os.path.join(SOURCE, "scripts/run"), *(["--text"] if text else []), *options], env=self.environment,
                cwd=self.folder, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                start_new_session=True, preexec_fn=defaults)

        def end():
            self.mark.kill()
            process.wait()

        self.addCleanup(end)
        return process

    def output(self):
        with open(self.log, encoding="utf-8") as file:
            return file.read()

    def expect_nothing_left(self):
        self.assertTrue(wait_until(lambda: not self.started(), 5), self.started())
        self.assertEqual(os.listdir(self.environment["TMPDIR"]), [])

    def wait_for_bars(self, process):
        self.assertTrue(wait_until(
            lambda: process.poll() is not None or any(bar in self.output() for bar in "▁▂▃▄▅▆▇█"),
            60), self.output())
        self.assertIsNone(process.poll(), self.output())

    def check_end(self, number, code, whole_group):
        process = self.start()
        self.wait_for_bars(process)
        names = {"TonewellDetecti", "tonewell-monito", "paplay"}  # as the kernel cuts them
        self.assertTrue(wait_until(lambda: names <= set(self.started().values()), 20), self.started())
        if whole_group:  # as a terminal does
            os.killpg(process.pid, number)
        else:
            process.send_signal(number)
        self.assertEqual(process.wait(30), code, self.output())
        self.expect_nothing_left()

    def test_bars_of_the_tune_and_nothing_left_after_the_seconds(self):
        process = self.start("--seconds", "9.5")
        self.wait_for_bars(process)
        self.assertIn("Starting a private sound server with a tune.", self.output())
        self.assertEqual(process.wait(60), 0, self.output())
        self.expect_nothing_left()

    def test_a_window_without_a_session_bus_leaves_none(self):
        self.start_display()
        process = self.start("--private", "--seconds", "4", text=False)
        self.assertEqual(process.wait(90), 0, self.output())
        self.expect_nothing_left()

    def test_interrupt_leaves_nothing(self):
        self.check_end(signal.SIGINT, 130, whole_group=True)

    def test_termination_leaves_nothing(self):
        self.check_end(signal.SIGTERM, 143, whole_group=False)

    def test_without_pulseaudio_pipewire_plays_the_tune(self):
        programs = os.path.join(self.folder, "bin")
        os.mkdir(programs)
        for folder in ("/bin", "/usr/bin"):
            for name in os.listdir(folder):
                if name != "pulseaudio" and not os.path.lexists(os.path.join(programs, name)):
                    os.symlink(os.path.join(folder, name), os.path.join(programs, name))
        self.environment["PATH"] = programs
        process = self.start()
        self.wait_for_bars(process)
        self.assertLessEqual({"pipewire", "pipewire-pulse", "wireplumber"}, set(self.started().values()))
        process.send_signal(signal.SIGTERM)
        self.assertEqual(process.wait(30), 143, self.output())
        self.expect_nothing_left()

    def test_a_service_that_fails_ends_it_with_its_code(self):
        binaries = os.path.join(self.folder, "bin")
        os.mkdir(binaries)
        shutil.copy2(os.path.join(BINARIES, "tonewell-monitor"), binaries)
        for delay in (0, 3):  # at once; when the monitor shows bars or waits for them
            with self.subTest(delay=delay):
                service = os.path.join(binaries, "TonewellDetection")
                with open(service, "w", encoding="ascii") as file:
                    file.write(f"#!/bin/sh\nsleep {delay}\nexit 7\n")
                os.chmod(service, 0o755)
                self.environment["TONEWELL_BINARIES"] = binaries
                process = self.start("--seconds", "60")
                self.assertEqual(process.wait(50), 1, self.output())
                self.assertIn("TonewellDetection has ended with exit code 7", self.output())
                self.expect_nothing_left()

    def serve(self, *options):
        """A sound server where a desktop's would be."""
        server = subprocess.Popen(
            ["pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1",
             "-L", "module-native-protocol-unix", *options], env={**self.environment, self.mark.name: ""},
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

        def end():
            server.terminate()
            server.wait()

        self.addCleanup(end)
        self.assertTrue(wait_until(lambda: subprocess.run(
            ["pactl", "info"], env=self.environment, check=False, timeout=10, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL).returncode == 0, 20))
        return server

    def test_a_server_without_a_device_counts_as_none(self):
        self.serve("-L", "module-null-sink sink_name=auto_null")
        process = self.start("--seconds", "4")
        self.assertEqual(process.wait(60), 0, self.output())
        self.assertIn("Starting a private sound server", self.output())

    def test_a_running_server_is_used_and_left_alone(self):
        server = self.serve("-L", "module-null-sink sink_name=speaker")
        process = self.start("--seconds", "4")
        self.assertEqual(process.wait(60), 0, self.output())
        self.assertIn("Using the running sound server.", self.output())
        self.assertTrue(wait_until(lambda: not self.started(), 5), self.started())
        self.assertIsNone(server.poll())


if __name__ == "__main__":
    unittest.main()
