"""Real processes for the end-to-end tests: a private sound server, a tone played into it,
the program, and a consumer in a process of its own.

Everything lives below one temporary folder, which is also TMPDIR and XDG_RUNTIME_DIR, so
that neither the user's sound set-up nor a running copy of the program is ever touched.
Processes are ended by the id they were started with.
"""
import array
import contextlib
import json
import math
import os
import shutil
import subprocess
import sys
import tempfile
import threading
import wave

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(HERE)), "tools"))
import soundserver  # noqa: E402
from soundserver import SoundServerError, end_process, is_listening  # noqa: E402, F401

SEPARATOR = "/&+&/"
PROGRAM = os.environ.get("TONEWELL_PROGRAM", "TonewellDetection")
TONE_PLAYER = os.path.join(os.path.dirname(PROGRAM), "toneplayer")


def wait_until(condition, seconds, what):
    """Polls the condition; returns its first true value or fails with a text."""
    try:
        return soundserver.wait_until(condition, seconds, what)
    except soundserver.NotInTime as failure:
        raise AssertionError(str(failure)) from None


class Message:
    """One received message: its arrival time, levels (x 400) and 100 bars."""

    def __init__(self, when, text):
        self.when = when
        self.text = text
        self.fields = text.split(SEPARATOR)
        self.levels = [float(field) for field in self.fields[1:4]]
        self.bars = [int(field) for field in self.fields[4:]]

    @property
    def left(self):
        return self.bars[:50]

    @property
    def right(self):
        return self.bars[50:]

    def loudest(self):
        return max(range(len(self.bars)), key=self.bars.__getitem__)


class Client:
    """The consumer process and what it has received so far."""

    def __init__(self, world):
        self.messages = []
        self.ready = 0
        self.world = world
        self.process = subprocess.Popen(
            [sys.executable, os.path.join(HERE, "replica_client.py")], env=world.environment,
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.reader = threading.Thread(target=self._read, daemon=True)
        self.reader.start()

    def _read(self):
        for line in self.process.stdout:
            value = json.loads(line)
            if value == ["ready"]:
                self.ready += 1
            else:
                self.messages.append(Message(*value))

    def wait_for(self, condition, seconds, what, since=None):
        """The first message that meets the condition among those after `since` (default: now)."""
        begin = len(self.messages) if since is None else since
        position = [begin]

        def look():
            while position[0] < len(self.messages):
                message = self.messages[position[0]]
                position[0] += 1
                if condition(message):
                    return message
            return None

        try:
            return wait_until(look, seconds, what)
        except AssertionError as failure:
            last = self.messages[-1].text if self.messages else "none"
            raise AssertionError(f"{failure}; {len(self.messages) - begin} messages, last: {last}\n"
                                 f"{self.world.describe()}") from None

    def next(self, seconds=2):
        return self.wait_for(lambda message: True, seconds, "a message")

    def stop(self):
        with contextlib.suppress(BrokenPipeError):
            self.process.stdin.close()
        end_process(self.process)
        self.reader.join(5)
        self.process.stdout.close()


def write_tone(path, rate, seconds, left, right):
    """A stereo WAV file; left and right are (frequency in Hz, amplitude 0..1) or None."""
    period = array.array("h")
    # One second of whole cycles repeats without a seam for every whole frequency.
    for i in range(rate):
        for side in (left, right):
            value = 0.0 if side is None else side[1] * math.sin(2 * math.pi * side[0] * i / rate)
            period.append(int(round(32767 * value)))
    with wave.open(path, "wb") as out:
        out.setnchannels(2)
        out.setsampwidth(2)
        out.setframerate(rate)
        for _ in range(seconds):
            out.writeframes(period.tobytes())


class World:
    """A temporary folder with its sound server, players, program and clients."""

    def __init__(self, kind=None):
        """Of a kind of tools/soundserver.py; by default of that in the TONEWELL_SERVER variable."""
        self.kind = kind or os.environ.get("TONEWELL_SERVER", "pulseaudio")
        self.folder = tempfile.mkdtemp(prefix="tonewell-e2e.")
        environment = {key: value for key, value in os.environ.items()
                       if not key.startswith(("PULSE_", "PIPEWIRE_", "XDG_", "DBUS_"))
                       and key not in ("DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM")}
        environment.update(TMPDIR=self.folder,
                           # Without it the machine's own sessions would restart capture.
                           DBUS_SYSTEM_BUS_ADDRESS="unix:path=" + os.path.join(self.folder, "no-system-bus"))
        microphone = ("-L", "module-null-source source_name=microphone")
        self.server = soundserver.KINDS[self.kind](self.folder, environment,
                                       microphone if self.kind == "pulseaudio" else ())
        self.name = self.server.name
        self.runtime = self.server.runtime
        self.environment = self.server.environment
        self.others = []
        self.clients = []

    def close(self):
        for client in self.clients:
            client.stop()
        for process in reversed(self.others):
            end_process(process)
        self.server.close()
        shutil.rmtree(self.folder, ignore_errors=True)

    def log(self, name):
        return open(os.path.join(self.folder, name + ".log"), "ab")

    def start(self, name, *command):
        """Starts a process whose output goes to the folder's log of that name."""
        with self.log(name) as log:
            return subprocess.Popen(command, env=self.environment, stdin=subprocess.DEVNULL,
                                    stdout=log, stderr=log)

    def ask(self, *command):
        """What a command prints, on the display if one was started."""
        return subprocess.run(command, env=self.environment, check=True, timeout=20,
                              stdout=subprocess.PIPE).stdout.decode()

    def start_display(self):
        """An X server of its own; the program's windows are on it from now on."""
        read_end, write_end = os.pipe()
        with self.log("display") as log:
            server = subprocess.Popen(
                # A busy machine must not look like a key that is held down: no repetition.
                ["Xvfb", "-displayfd", str(write_end), "-screen", "0", "1280x1024x24",
                 "-nolisten", "tcp", "-noreset", "-r"],
                pass_fds=[write_end], stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        self.others.append(server)
        os.close(write_end)
        with os.fdopen(read_end) as display:
            self.environment["DISPLAY"] = ":" + display.readline().strip()

    def start_bus(self):
        """The session's bus, unless it runs."""
        address = "unix:path=" + os.path.join(self.runtime, "bus")
        if "DBUS_SESSION_BUS_ADDRESS" not in self.environment:
            self.environment["DBUS_SESSION_BUS_ADDRESS"] = address
            bus = self.start("bus", "dbus-daemon", "--session", "--nofork", "--nopidfile",
                             "--address=" + address)
            self.others.append(bus)
            wait_until(lambda: os.path.exists(os.path.join(self.runtime, "bus")), 5, "the bus")

    # The sound server

    def start_server(self):
        self.server.start()
        if self.kind == "pipewire":
            self.pactl("load-module", "module-null-sink", "media.class=Audio/Source/Virtual",
                       "sink_name=microphone", "channel_map=mono")

    def stop_server(self):
        self.server.stop()

    def kill_server(self):
        self.server.kill()

    def pactl(self, *words):
        return self.server.pactl(*words)

    def add_sink(self, name, rate=48000):
        return self.server.add_sink(name, rate=rate)

    def set_default(self, name):
        self.server.set_default(name)

    def describe(self):
        """The server's state in words, for a test that failed."""
        lines = []
        for question in (["get-default-sink"], ["list", "short", "sinks"], ["list", "short", "sink-inputs"],
                         ["list", "short", "source-outputs"]):
            try:
                answer = self.pactl(*question)
            except SoundServerError as failure:
                answer = str(failure)
            lines.append(f"{' '.join(question)}:\n{answer}")
        return "\n".join(lines)

    def sink_inputs(self):
        return {line.split("\t")[0] for line in self.pactl("list", "short", "sink-inputs").splitlines()}

    def play(self, sink, rate, left, right, seconds=120):
        path = os.path.join(self.folder, f"tone{len(self.others)}.wav")
        write_tone(path, rate, seconds, left, right)
        before = self.sink_inputs()
        player = self.start("player", "paplay", f"--device={sink}", path)
        self.others.append(player)
        wait_until(lambda: self.sink_inputs() - before, 5, "the tone's stream")
        return player

    def play_pinned(self, sink, frequency, left, right, rate=48000):
        """A tone of the given amplitudes whose stream stays on its sink when the default changes:
        servers move others along. Returns when it plays."""
        log = os.path.join(self.folder, f"pinned{len(self.others)}.log")
        player = self.start(os.path.basename(log)[:-4], TONE_PLAYER, sink, str(rate),
                            "front-left,front-right", str(frequency), str(left), str(right))
        self.others.append(player)
        wait_until(lambda: os.path.getsize(log) or player.poll() is not None, 5, "the tone")
        if player.poll() is not None:
            raise AssertionError(f"the tone's player ended with {player.poll()}")
        return player

    # The program and its consumers

    def start_program(self):
        program = self.start("program", PROGRAM)
        self.others.append(program)
        wait_until(lambda: os.path.exists(self.socket) or program.poll() is not None, 10, "the socket")
        return program

    @property
    def socket(self):
        return os.path.join(self.folder, "tonewell")

    def connect(self):
        client = Client(self)
        self.clients.append(client)
        wait_until(lambda: client.messages, 10, "the first message")
        return client


def make_world():
    """The world of the server that the TONEWELL_SERVER variable names, with the server running."""
    world = World()
    try:
        world.start_server()
    except BaseException:
        world.close()
        raise
    return world
