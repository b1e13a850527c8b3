"""examples/web: the bridge with a stand-in for the monitor, and the page in a browser, with a tone
whose bars are found in the picture."""
import contextlib
import http.client
import importlib.util
import json
import os
import select
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import unittest

import harness
from browser import Browser
from pyqt import QtGui

BRIDGE = os.path.join(os.environ["TONEWELL_SOURCE"], "examples/web/bridge.py")
MONITOR = os.path.join(os.path.dirname(harness.PROGRAM), "tonewell-monitor")
READERS = 16
PATIENCE = 60

# Writes numbered lines, and at its start its process id into a file.
STAND_IN = """#!{python}
import os, sys, time
assert sys.argv[1:] == ["--json"], sys.argv
with open({pids!r}, "a") as file:
    print(os.getpid(), file=file)
number = 0
while True:
    number += 1
    print('{{"number":%d,"padding":"%s"}}' % (number, "x" * 500), flush=True)
    time.sleep({pause})
"""


class Bridge:
    """The running bridge."""

    def __init__(self, folder, monitor=None, environment=None, bridge=BRIDGE):
        named = ["--monitor", monitor] if monitor else []
        self.errors = os.path.join(folder, "bridge.log")
        with open(self.errors, "ab") as log:
            self.process = subprocess.Popen(
                [sys.executable, bridge, "--port", "0", *named], env=environment, text=True,
                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=log, start_new_session=True)
        self.url = self.process.stdout.readline().strip()
        self.port = int(self.url.rstrip("/").rpartition(":")[2])

    def ask(self, path, method="GET", **headers):
        """The answer, its connection open."""
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=PATIENCE)
        connection.putrequest(method, path, skip_host=True)
        for name, value in {"Host": f"127.0.0.1:{self.port}", **headers}.items():
            if value is not None:
                connection.putheader(name, value)
        connection.endheaders()
        return connection.getresponse()

    def status(self, path, **headers):
        with self.ask(path, **headers) as answer:
            return answer.status

    def stop(self, number=signal.SIGTERM):
        self.process.send_signal(number)
        try:
            code = self.process.wait(PATIENCE)
        finally:
            self.process.kill()
            self.process.stdout.close()
        with open(self.errors, encoding="utf-8") as file:
            return code, file.read()


def lines_of(answer):
    """The data of its events."""
    for line in answer:
        if line.startswith(b"data: "):
            yield line[len(b"data: "):].decode().rstrip("\n")


class BridgeCase(unittest.TestCase):
    pause = 0.02

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="tonewell-web.")
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.pids = os.path.join(self.folder, "pids")
        self.monitor = os.path.join(self.folder, "monitor")
        with open(self.monitor, "w", encoding="utf-8") as file:
            file.write(STAND_IN.format(python=sys.executable, pids=self.pids, pause=self.pause))
        os.chmod(self.monitor, 0o755)
        self.bridge = Bridge(self.folder, self.monitor)
        self.addCleanup(self.end)

    def end(self):
        if self.bridge.process.returncode is None:
            self.bridge.stop()

    def monitors(self):
        """The ids of the stand-ins so far."""
        with contextlib.suppress(FileNotFoundError), open(self.pids, encoding="ascii") as file:
            return [int(line) for line in file]
        return []

    def read(self, **headers):
        answer = self.bridge.ask("/events", **headers)
        self.addCleanup(answer.close)
        return answer


class Events(BridgeCase):
    def test_every_reader_gets_the_lines_in_order(self):
        for answer in (self.read(), self.read()):
            self.assertEqual((answer.status, answer.headers["Content-Type"]), (200, "text/event-stream"))
            lines = lines_of(answer)
            numbers = [json.loads(next(lines))["number"] for _ in range(50)]
            self.assertEqual(numbers, sorted(set(numbers)))

    def test_a_new_reader_gets_nothing_old(self):
        first = self.read()
        next(lines_of(first))
        monitor = self.monitors()[0]
        os.kill(monitor, signal.SIGSTOP)
        self.addCleanup(os.kill, monitor, signal.SIGCONT)
        while next(first) != b": no message\n":
            pass
        self.assertEqual(next(self.read()), b": no message\n")

    def test_a_monitor_that_ends_is_started_again(self):
        lines = lines_of(self.read())
        while json.loads(next(lines))["number"] < 10:
            pass
        os.kill(self.monitors()[0], signal.SIGKILL)
        harness.wait_until(lambda: len(self.monitors()) == 2, PATIENCE, "the second monitor")
        while json.loads(next(lines))["number"] >= 10:
            pass
        code, errors = self.bridge.stop()
        self.assertEqual(code, 0)
        self.assertIn("has ended with -9 and is started again", errors)

    def test_more_readers_than_it_takes_are_refused(self):
        readers = [self.read() for _ in range(READERS)]
        self.assertEqual([reader.status for reader in readers], [200] * READERS)
        self.assertEqual(self.bridge.status("/events"), 503)
        self.assertEqual(self.bridge.status("/"), 200)
        readers[3].close()
        harness.wait_until(lambda: self.bridge.status("/events") == 200, PATIENCE, "the free place")

    def test_connections_that_ask_nothing_are_limited_and_ended(self):
        idle = [socket.create_connection(("127.0.0.1", self.bridge.port)) for _ in range(80)]
        for connection in idle:
            self.addCleanup(connection.close)
        first, *_, refused = idle
        self.assertEqual(select.select([first, refused], [], [], PATIENCE)[0], [refused])
        self.assertEqual(refused.recv(1), b"")
        harness.wait_until(self.answers, PATIENCE, "an answer after the idle ones were ended")

    def answers(self):
        try:
            return self.bridge.status("/") == 200
        except (OSError, http.client.HTTPException):
            return False


class SlowReaders(BridgeCase):
    pause = 0

    def test_who_does_not_read_is_dropped(self):
        for _ in range(READERS):
            connection = socket.socket()
            self.addCleanup(connection.close)
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
            connection.connect(("127.0.0.1", self.bridge.port))
            connection.sendall(f"GET /events HTTP/1.0\r\nHost: localhost:{self.bridge.port}\r\n\r\n".encode())
            self.assertEqual(connection.recv(15), b"HTTP/1.0 200 OK")
        self.assertEqual(self.bridge.status("/events"), 503)
        harness.wait_until(lambda: self.bridge.status("/events") == 200, PATIENCE, "a place of a slow reader")
        code, errors = self.bridge.stop()
        self.assertEqual((code, errors), (0, ""))


class Strangers(BridgeCase):
    def test_only_its_own_names_are_answered(self):
        port = self.bridge.port
        for host in (f"127.0.0.1:{port}", f"localhost:{port}"):
            self.assertEqual(self.bridge.status("/", Host=host), 200)
            self.assertEqual(self.bridge.status("/events", Host=host), 200)
        for host in ("stranger.example", f"stranger.example:{port}", "127.0.0.1", f"127.0.0.1:{port}.example", "", None):
            for path in ("/", "/events"):
                self.assertEqual(self.bridge.status(path, Host=host), 403, host)

    def test_pages_of_other_sites_are_refused(self):
        own = f"http://localhost:{self.bridge.port}"
        self.assertEqual(self.bridge.status("/events", Origin=own), 200)
        for origin in ("http://stranger.example", "null", "http://localhost", own.replace("http", "https")):
            self.assertEqual(self.bridge.status("/events", Origin=origin), 403, origin)

    def test_browsers_leave_out_the_port_80(self):
        spec = importlib.util.spec_from_file_location("bridge", BRIDGE)
        bridge = importlib.util.module_from_spec(spec)
        spec.loader.exec_module(bridge)
        for host in ("127.0.0.1", "localhost", "localhost:80"):
            for origin in (None, f"http://{host}", "http://localhost"):
                self.assertTrue(bridge.is_for_us(host, origin, 80), (host, origin))
        for host, origin in (("stranger.example", None), ("localhost:81", None), ("localhost", "https://localhost"),
                             ("localhost", "http://stranger.example"), (None, None)):
            self.assertFalse(bridge.is_for_us(host, origin, 80), (host, origin))

    def test_it_listens_on_one_address(self):
        with self.assertRaises(ConnectionRefusedError):
            socket.create_connection(("127.0.0.2", self.bridge.port), PATIENCE)

    def test_there_is_nothing_else(self):
        for path in ("/bridge.py", "/../web/bridge.py", "/index.html/..", "/events/", "/%2e%2e/README.md"):
            self.assertEqual(self.bridge.status(path), 404, path)
        self.assertEqual(self.bridge.status("/", method="POST"), 501)


class Ends(BridgeCase):
    def test_a_signal_ends_it_quietly_with_its_monitor_and_readers(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            bridge = Bridge(self.folder, self.monitor)
            answer = bridge.ask("/events")
            next(lines_of(answer))
            started = self.monitors()
            self.assertEqual(bridge.stop(number), (0, ""))
            answer.read()  # up to its end
            answer.close()
            with self.assertRaises(ProcessLookupError):
                os.kill(started[-1], 0)

    def run_bridge(self, *options, bridge=BRIDGE, **environment):
        """What it says when it cannot start."""
        done = subprocess.run([sys.executable, bridge, *options], env={**os.environ, **environment}, check=False,
                              timeout=PATIENCE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        return done.stderr

    def test_without_the_monitor_it_says_so(self):
        self.assertRegex(self.run_bridge("--port", "0", "--monitor", "/no/such/program"),
                         r"^bridge.py: '/no/such/program' was not found: .* --monitor\n$")

    def test_in_a_checkout_it_finds_the_monitor_that_was_built(self):
        checkout = os.path.join(self.folder, "checkout")
        shutil.copytree(os.path.dirname(BRIDGE), os.path.join(checkout, "examples/web"))
        bridge = os.path.join(checkout, "examples/web/bridge.py")
        nowhere = {"PATH": self.folder}
        self.assertIn("'tonewell-monitor' was not found",
                      self.run_bridge("--port", "0", bridge=bridge, **nowhere))
        built = os.path.join(checkout, "build/release/bin")
        os.makedirs(built)
        shutil.move(self.monitor, os.path.join(built, "tonewell-monitor"))
        found = Bridge(self.folder, environment={**os.environ, **nowhere}, bridge=bridge)
        answer = found.ask("/events")
        self.assertEqual(json.loads(next(lines_of(answer))).keys(), {"number", "padding"})
        answer.close()
        self.assertEqual(found.stop(), (0, ""))

    def test_a_port_that_is_taken_is_named(self):
        self.assertRegex(self.run_bridge("--port", str(self.bridge.port), "--monitor", self.monitor),
                         rf"^bridge.py: port {self.bridge.port} is taken, .* --port\n$")


class Page(unittest.TestCase):
    """With the service, the monitor, a sound server and a browser."""

    WIDTH, HEIGHT = 1000, 400
    TONES = (1015, 455)  # Hz, left and right
    BARS = (35, 56)  # where the tones show

    def setUp(self):
        self.world = harness.make_world()
        self.addCleanup(self.world.close)
        self.world.add_sink("speaker")
        self.world.set_default("speaker")
        self.bridge = Bridge(self.world.folder, MONITOR, self.world.environment)
        self.addCleanup(self.bridge.stop)
        self.browser = Browser(self.world.folder, self.WIDTH, self.HEIGHT)
        self.addCleanup(self.browser.close)

    def picture(self):
        picture = QtGui.QImage.fromData(self.browser.picture(), "PNG")
        self.assertEqual((picture.width(), picture.height()), (self.WIDTH, self.HEIGHT))
        return picture

    def heights(self, picture):
        """How high each bar is: the opaque pixels in the middle of its column."""
        step = self.WIDTH / 100
        return [sum(picture.pixelColor(int((k + 0.5) * step), y).alpha() == 255 for y in range(self.HEIGHT))
                for k in range(100)]

    def test_a_tone_is_seen_in_the_overlay(self):
        self.browser.open(self.bridge.url + "?overlay")
        self.assertEqual(max(self.heights(self.picture())), 0)  # without the service: nothing at all
        self.world.start_program()
        self.world.play("speaker", 48000, (self.TONES[0], 0.5), (self.TONES[1], 0.5))

        def seen():
            """The tones set in with many bars; of a tone that goes on there are few."""
            heights = self.heights(self.picture())
            few = min(heights[:50].count(0), heights[50:].count(0)) > 35
            return heights if few and min(heights[bar] for bar in self.BARS) > 60 else None

        heights = harness.wait_until(seen, PATIENCE, "the bars of both tones, and a transparent background")
        for bar, first in zip(self.BARS, (0, 50)):
            side = heights[first:first + 50]
            highest = [first + k for k in range(50) if side[k] == max(side)]
            self.assertLessEqual(abs(highest[len(highest) // 2] - bar), 1, side)

    def texts(self):
        """What is written while one frame is drawn."""
        return self.browser.run("""
            const texts = [], write = CanvasRenderingContext2D.prototype.fillText;
            CanvasRenderingContext2D.prototype.fillText = function (text) { texts.push(text); };
            draw();
            CanvasRenderingContext2D.prototype.fillText = write;
            return texts;""")

    def shows_levels(self):
        return any(text.startswith("rms ") for text in self.texts())

    def test_the_page_says_what_it_waits_for(self):
        self.browser.open(self.bridge.url)
        background = self.picture().pixelColor(2, self.HEIGHT // 4)
        self.assertEqual(background.alpha(), 255)

        harness.wait_until(lambda: "waiting for the service" in self.texts(), PATIENCE, "what it waits for")
        program = self.world.start_program()
        harness.wait_until(self.shows_levels, PATIENCE, "levels")
        program.kill()
        program.wait()
        harness.wait_until(lambda: "waiting for the service" in self.texts(), PATIENCE, "the service's end")
        self.world.start_program()
        harness.wait_until(self.shows_levels, PATIENCE, "the service's return")
        self.bridge.process.kill()
        harness.wait_until(lambda: "waiting for bridge.py" in self.texts(), PATIENCE, "the bridge's end")

    def test_a_page_that_was_refused_asks_again(self):
        self.world.start_program()
        readers = [self.bridge.ask("/events") for _ in range(READERS)]
        self.browser.open(self.bridge.url)
        self.browser.run("window.sameDocument = true;")
        harness.wait_until(lambda: "bridge.py takes no more readers" in self.texts(), PATIENCE, "the refusal")
        for reader in readers:
            reader.close()
        harness.wait_until(self.shows_levels, PATIENCE, "levels")
        self.assertTrue(self.browser.run("return window.sameDocument === true;"))


if __name__ == "__main__":
    unittest.main(verbosity=2)
