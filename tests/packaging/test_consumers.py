"""The example consumers as their readers build and run them: against an installed copy, before
the service is there, with it, and when it goes and comes back."""
import os
import re
import subprocess
import sys
import threading
import unittest

import harness
from installed import CMAKE, SOURCE, Installation, run

LINE = re.compile(r"rms (\S+)  peak (\S+)  dynamics (\S+)  left (\S+) Hz  right (\S+) Hz")
TONES = (1015, 455)  # Hz, left and right, each the middle of a bar


# Under the service's name, but without its signal.
OTHER_SOURCE = """
from pyqt import QtCore, QtRemoteObjects

class Other(QtCore.QObject):
    sigOther = QtCore.pyqtSignal(str)

app = QtCore.QCoreApplication([])
host = QtRemoteObjects.QRemoteObjectHost(QtCore.QUrl("local:tonewell"))
other = Other()
host.enableRemoting(other, "Tonewell")
app.exec()
"""


class Consumer:
    """The running consumer and the lines that it has printed."""

    def __init__(self, command, environment):
        self.lines = []
        self.process = subprocess.Popen(command, env=environment, stdin=subprocess.DEVNULL, text=True,
                                        stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.reader = threading.Thread(target=self._read, daemon=True)
        self.reader.start()

    def _read(self):
        for line in self.process.stdout:
            self.lines.append(line.rstrip("\n"))

    def wait_for(self, condition, what):
        begin = len(self.lines)
        try:
            return harness.wait_until(lambda: next(filter(condition, self.lines[begin:]), None), 20, what)
        except AssertionError as failure:
            raise AssertionError(f"{failure}; printed: {self.lines}") from None

    def stop(self):
        harness.end_process(self.process)
        self.reader.join(5)
        self.process.stdout.close()


def shows_the_tones(line):
    match = LINE.fullmatch(line)
    if not match:
        return False
    rms, peak = float(match.group(1)), float(match.group(2))
    shown = [match.group(4), match.group(5)]
    # A lone tone's highest bar may be one beside its own.
    return 50 < rms < peak < 400 and all(text != "-" and abs(float(text) - tone) <= 70
                                         for text, tone in zip(shown, TONES))


def is_silent(line):
    match = LINE.fullmatch(line)
    return match is not None and match.group(4) == match.group(5) == "-"


def is_waiting(line):
    return line == "waiting for the service"


class ConsumerCase:
    def setUp(self):
        command = self.build()
        self.world = harness.make_world()
        self.addCleanup(self.world.close)
        self.world.add_sink("speaker")
        self.world.set_default("speaker")
        self.consumer = Consumer(command, self.world.environment)
        self.addCleanup(self.consumer.stop)

    def test_a_service_that_comes_goes_and_comes_back(self):
        self.consumer.wait_for(is_waiting, "waiting before the service is there")
        program = self.world.start_program()
        self.consumer.wait_for(is_silent, "silence")
        self.world.play("speaker", 48000, (TONES[0], 0.5), (TONES[1], 0.5))
        self.consumer.wait_for(shows_the_tones, "the tones")
        program.kill()
        program.wait()
        self.consumer.wait_for(is_waiting, "waiting after the service was killed")
        self.world.start_program()
        self.consumer.wait_for(shows_the_tones, "the tones after the service's return")
        self.assertIsNone(self.consumer.process.poll())


class PythonConsumer(ConsumerCase, unittest.TestCase):
    def build(self):
        return [sys.executable, os.path.join(SOURCE, "examples/python/spectrum_consumer.py")]

    def test_a_source_of_another_type_is_named(self):
        self.consumer.wait_for(is_waiting, "waiting before anything is there")
        self.world.others.append(self.world.start("other", sys.executable, "-c", OTHER_SOURCE))
        self.consumer.wait_for(lambda line: line == "something else is published under that name",
                               "the other source's naming")
        self.consumer.wait_for(is_waiting, "waiting while the other source is there")
        self.assertIsNone(self.consumer.process.poll())


class CppConsumer(ConsumerCase, unittest.TestCase):
    def build(self):
        copy = Installation()
        self.addCleanup(copy.close)
        folder = os.path.join(copy.folder, "build")
        run(CMAKE, "-S", copy.path("share/doc/tonewell-detection/examples/cpp"), "-B", folder,
            f"-DCMAKE_PREFIX_PATH={copy.prefix}")
        run(CMAKE, "--build", folder)
        return [os.path.join(folder, "spectrum-consumer")]


if __name__ == "__main__":
    unittest.main(verbosity=2)
