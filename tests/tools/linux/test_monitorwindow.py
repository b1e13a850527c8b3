"""The monitor's window on an X server, a window manager and an accessibility bus of this test's own:
what a screen reader sees of it, what its keys do, the button that starts the service.

Runs inside tests/support/linux/with_xvfb. TONEWELL_PROGRAM names the service's program.
"""
import os
import re
import shutil
import socket
import subprocess
import sys
import unittest

TESTS = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
sys.path[:0] = [os.path.join(TESTS, "e2e"), os.path.join(TESTS, "support", "linux")]
import accessibility  # noqa: E402
import harness  # noqa: E402
from accessibility import PATIENCE  # noqa: E402

MONITOR = os.path.join(os.path.dirname(harness.PROGRAM), "tonewell-monitor")
DISPLAY = os.environ["DISPLAY"]
CONSUMERS = 128  # as many as the service takes


class MonitorWindow(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.world = harness.make_world()
        cls.bus = None
        cls.manager = None
        try:
            cls.bus = accessibility.Bus(cls.world.folder)
            cls.manager = subprocess.Popen(["openbox"], stderr=subprocess.DEVNULL)
            # A window that opens while the manager starts may stay without one.
            harness.wait_until(cls.is_managed, PATIENCE, "the window manager")
            cls.pictures = os.path.join(cls.world.environment["HOME"], "Pictures")
            # The processes in which a service is looked for: those that a test puts there.
            cls.processes = os.path.join(cls.world.folder, "processes")
            os.makedirs(cls.processes)
            cls.environment = {**cls.world.environment, **cls.bus.environment, "DISPLAY": DISPLAY,
                               "TONEWELL_PROCESSES": cls.processes,
                               "QT_QPA_PLATFORM": "xcb", "LC_ALL": "C.UTF-8"}
        except BaseException:
            cls.tearDownClass()
            raise

    @classmethod
    def tearDownClass(cls):
        if cls.manager:
            harness.end_process(cls.manager)
        if cls.bus:
            cls.bus.close()
        cls.world.close()

    @staticmethod
    def is_managed():
        return "window id" in subprocess.run(["xprop", "-root", "_NET_SUPPORTING_WM_CHECK"],
                                             check=True, text=True, stdout=subprocess.PIPE).stdout

    def start_monitor(self, program=MONITOR, **environment):
        process = subprocess.Popen([program], env={**self.environment, **environment},
                                   stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL)
        self.addCleanup(harness.end_process, process)
        self.process = process
        self.window = harness.wait_until(self.find_window, PATIENCE, "the window")
        return process

    def find_window(self):
        found = subprocess.run(["xdotool", "search", "--onlyvisible", "--pid", str(self.process.pid)],
                               check=False, text=True, stdout=subprocess.PIPE,
                               stderr=subprocess.DEVNULL).stdout.split()
        return found[0] if found else None

    def geometry(self):
        text = subprocess.run(["xdotool", "getwindowgeometry", "--shell", self.window], check=True,
                              text=True, stdout=subprocess.PIPE).stdout
        values = dict(line.split("=") for line in text.splitlines())
        return int(values["WIDTH"]), int(values["HEIGHT"])

    def press(self, keys):
        subprocess.run(["xdotool", "windowfocus", "--sync", self.window, "key", keys], check=True)

    def find(self, role, name="", description=""):
        return self.bus.find(self.process.pid, role, name, description)

    def wait_for_text(self, text):
        self.find("label", text)

    def value_of(self, name):
        return self.find("progress bar", name).queryValue().currentValue

    def test_screen_readers_see_levels_bars_and_status(self):
        self.world.add_sink("speaker")
        self.world.set_default("speaker")
        self.world.start_program()
        service = self.world.others[-1]
        self.addCleanup(harness.end_process, service)
        player = self.world.play_pinned("speaker", 1000, 0.5, 0.25)
        self.addCleanup(harness.end_process, player)
        self.start_monitor()

        def frequency():
            description = self.find("chart", "Spectrum", "; height fits music: ").description
            found = re.search(r"highest on the left at (\d+) Hz: (\d+)", description)
            return int(found[1]) if found and int(found[2]) > 0 else 0

        harness.wait_until(lambda: 850 < frequency() < 1150, PATIENCE, "the tone in the summary")
        harness.wait_until(lambda: 0.3 < self.value_of("peak") <= 0.6, PATIENCE, "the tone's peak")
        self.assertGreater(self.value_of("RMS"), 0.1)
        for name in ("RMS", "peak", "dynamic"):
            value = self.find("progress bar", name).queryValue()
            self.assertEqual((value.minimumValue, value.maximumValue), (0, 1))
        self.wait_for_text(" a second, newest ")
        self.find("frame", "Sound Spectrum Monitor")
        # Then nothing plays, and it says so.
        harness.end_process(player)
        self.wait_for_text("nothing is playing on ")
        self.find("chart", "Spectrum", "nothing is playing on ")
        harness.end_process(service)
        self.wait_for_text("waiting for the service")

    def test_keys_end_it(self):
        for keys in ("q", "Escape", "ctrl+q", "ctrl+w"):
            with self.subTest(keys=keys):
                process = self.start_monitor()
                self.press(keys)
                self.assertEqual(process.wait(PATIENCE), 2)  # no message had come

    def test_full_screen_and_back(self):
        process = self.start_monitor()
        before = self.geometry()
        self.press("F11")
        harness.wait_until(lambda: self.geometry() == (1280, 1024), PATIENCE, "full screen")
        self.press("Escape")
        harness.wait_until(lambda: self.geometry() == before, PATIENCE, "the size before")
        self.assertIsNone(process.poll())
        self.press("F11")
        harness.wait_until(lambda: self.geometry() == (1280, 1024), PATIENCE, "full screen again")
        self.press("F11")
        harness.wait_until(lambda: self.geometry() == before, PATIENCE, "the size before, again")

    def test_height_by_keys(self):
        self.start_monitor()
        self.find("chart", "Spectrum", "height fits music: 400")
        for key, label in (("0", "height as sent: 400"), ("plus", "height by hand: 300"),
                           ("equal", "height by hand: 250"), ("minus", "height by hand: 300"),
                           ("0", "height fits music: 400")):
            self.press(key)
            self.find("chart", "Spectrum", label)

    def test_a_picture_by_key(self):
        os.makedirs(self.pictures, exist_ok=True)
        self.start_monitor()
        self.press("s")
        self.wait_for_text("saved: " + self.pictures)
        files = os.listdir(self.pictures)
        self.assertEqual(len(files), 1)
        with open(os.path.join(self.pictures, files[0]), "rb") as file:
            self.assertEqual(file.read(4), b"\x89PNG")
        os.remove(os.path.join(self.pictures, files[0]))

    def test_the_keys_are_explained(self):
        self.start_monitor()
        self.press("F1")
        self.find("push button", "OK")

    def test_chinese(self):
        self.start_monitor(LC_ALL="zh_CN.UTF-8")
        self.find("frame", "声音频谱监视器")
        self.find("chart", "频谱")
        self.find("progress bar", "峰值")
        self.wait_for_text("正在等待服务")
        self.press("F1")
        # Qt's own button, with the letter of its key.
        self.find("push button", "确定")

    def test_a_full_service_is_told(self):
        self.world.start_program()
        service = self.world.others[-1]
        self.addCleanup(harness.end_process, service)
        link = os.path.join(self.processes, str(service.pid))
        os.symlink(f"/proc/{service.pid}", link)
        self.addCleanup(os.remove, link)
        taken = [socket.socket(socket.AF_UNIX) for _ in range(CONSUMERS)]
        for place in taken:
            self.addCleanup(place.close)
            place.connect(os.path.join(self.world.environment["TMPDIR"], "tonewell"))
        self.start_monitor()
        self.wait_for_text("it takes no more consumers")
        for place in taken:
            place.close()
        self.wait_for_text(" a second, newest ")

    def test_the_button_starts_the_service(self):
        folder = os.path.join(self.world.folder, "beside")
        os.makedirs(folder)
        shutil.copy2(MONITOR, folder)
        program = os.path.join(folder, "TonewellDetection")
        with open(program, "w", encoding="utf-8") as file:
            file.write(f'#!/bin/sh\necho started > "{folder}/started"\n')
        os.chmod(program, 0o755)
        self.start_monitor(os.path.join(folder, "tonewell-monitor"))
        self.wait_for_text(f"it is not running; this starts it: {program}")
        self.bus.press(self.process.pid, "Start the service")
        harness.wait_until(lambda: os.path.exists(os.path.join(folder, "started")), PATIENCE,
                           "the service's start")


if __name__ == "__main__":
    unittest.main(verbosity=2)
