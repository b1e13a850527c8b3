"""One scenario of scripts/soak: soak_scenario.py NAME SECONDS SEED FOLDER

Runs the program in a world of its own and writes down what it does, to be judged later:
  samples.csv     a line every 30 s (a tenth of a run that is shorter than five minutes), see COLUMNS
  events.csv      begin, end, kind, text: every gap of more than 100 ms, every lateness of the bare
                  timer, every fault, and how it began and ended; seconds since the beginning
  smaps.N.txt     the program's memory by mapping after N seconds, every ten minutes
  program.log     what the program has said
Ends with 1 if the scenario itself could not go on.
"""
import contextlib
import csv
import glob
import json
import os
import random
import shutil
import signal
import socket
import struct
import subprocess
import sys
import threading
import time

import harness

COLUMNS = ("seconds", "load", "anonymous_kb", "rss_file_kb", "rss_shmem_kb", "descriptors", "sockets",
           "threads", "pid", "messages", "short", "tone", "longest_gap_ms", "control_gap_ms", "faults",
           "voluntary", "involuntary", "cpu_s", "waited_s")
RATE = 50
GAP = 0.1  # seconds between messages that are written down
CORPUS = os.path.join(os.path.dirname(harness.HERE), "remote", "corpus")
SMAPS_EVERY = 600
SIGNALS = (signal.SIGTERM, signal.SIGINT, signal.SIGHUP)


def read(path):
    with open(path, encoding="ascii", errors="replace") as file:
        return file.read()


def fields_of(text):
    return {name: value.split()[0] for name, _, value in
            (line.partition(":") for line in text.splitlines()) if value.strip()}


def side_of(message):
    """Where the tone is: left, right, both or nowhere."""
    left, right = max(message.left) >= 60, max(message.right) >= 60
    if left and right:
        return "both"
    if left and not any(message.right):
        return "left"
    return "right" if right and not any(message.left) else "nowhere"


class Lines:
    """A process of Python that prints JSON, read by a thread; ends with its standard input."""

    def __init__(self, script, environment, handle):
        self.process = subprocess.Popen(
            [sys.executable, os.path.join(harness.HERE, script)], env=environment, text=True,
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.reader = threading.Thread(target=self._read, args=[handle], daemon=True)
        self.reader.start()

    def _read(self, handle):
        for line in self.process.stdout:
            handle(json.loads(line))

    def stop(self):
        self.process.stdin.close()
        harness.end_process(self.process)
        self.reader.join(5)
        self.process.stdout.close()


class Record:
    """The files, and the count since the last sample. Any thread."""

    def __init__(self, folder):
        self.lock = threading.Lock()
        self.folder = folder
        self.begin = time.monotonic()
        self.samples = open(os.path.join(folder, "samples.csv"), "w", newline="", encoding="ascii")
        self.events = open(os.path.join(folder, "events.csv"), "w", newline="", encoding="utf-8")
        self.write(self.samples, COLUMNS)
        self.write(self.events, ("begin", "end", "kind", "text"))
        self.now("clock", f"{time.time() - time.monotonic() + self.begin:.3f}")
        self.messages = self.tone = self.faults = 0
        self.last = None  # message
        self.last_sample = None  # time and messages
        self.longest = self.control = 0
        self.expected = None  # side of the tone, since when, after what

    def close(self):
        self.samples.close()
        self.events.close()

    @staticmethod
    def write(file, row):
        csv.writer(file, lineterminator="\n").writerow(row)
        file.flush()

    def event(self, kind, begin, end, text=""):
        with self.lock:
            self._event(kind, begin, end, text)

    def end(self):
        """What is still waited for."""
        with self.lock:
            now = time.monotonic()
            if self.expected:
                self._event("unfollowed", self.expected[1], now, self.expected[2])
            if self.last and now - self.last > GAP:
                self._event("gap", self.last, now)

    def _event(self, kind, begin, end, text=""):
        self.write(self.events, (f"{begin - self.begin:.3f}", f"{end - self.begin:.3f}", kind, text))

    def now(self, kind, text=""):
        now = time.monotonic()
        self.event(kind, now, now, text)

    def expect(self, side, what):
        """The next message with the tone on that side is the answer to what happened."""
        with self.lock:
            now = time.monotonic()
            if self.expected:
                self._event("unfollowed", self.expected[1], now, self.expected[2])
            self.expected = (side, now, what)

    def receive(self, value):
        """A line of the consumer."""
        if value == ["ready"]:
            self.now("connected")
            return
        message = harness.Message(*value)
        side = side_of(message)
        with self.lock:
            self.messages += 1
            self.tone += side != "nowhere"
            if self.last is not None:
                gap = message.when - self.last
                self.longest = max(self.longest, gap)
                if gap > GAP:
                    self._event("gap", self.last, message.when)
            self.last = message.when
            if self.expected and side == self.expected[0] and message.when > self.expected[1]:
                self._event("followed", self.expected[1], message.when, self.expected[2])
                self.expected = None

    def late(self, interval):
        """A line of the bare timer."""
        with self.lock:
            self.control = max(self.control, interval[1] - interval[0])
            self._event("late", *interval)

    def sample(self, pid, listener):
        process = f"/proc/{pid}/"
        rollup, status = fields_of(read(process + "smaps_rollup")), fields_of(read(process + "status"))
        links = []
        for number in os.listdir(process + "fd"):
            with contextlib.suppress(FileNotFoundError):  # closed meanwhile
                links.append(os.readlink(process + "fd/" + number))
        ticks = read(process + "stat").rsplit(")", 1)[1].split()
        waited = 0
        for task in os.listdir(process + "task"):
            with contextlib.suppress(FileNotFoundError):  # ended meanwhile
                waited += int(read(f"{process}task/{task}/schedstat").split()[1])
        serving = listener()  # a consumer more, after all figures
        with self.lock:
            now = time.monotonic()
            gap = max(self.longest, now - self.last if self.last else 0)
            before, count = self.last_sample or (now, self.messages)
            short = round((now - before) * RATE) - (self.messages - count)
            self.write(self.samples, (
                f"{now - self.begin:.1f}", read("/proc/loadavg").split()[0], rollup["Anonymous"],
                status["RssFile"], status["RssShmem"], len(links),
                sum(link.startswith("socket:") for link in links), status["Threads"], serving,
                self.messages, short, self.tone, round(1000 * gap), round(1000 * self.control), self.faults,
                status["voluntary_ctxt_switches"], status["nonvoluntary_ctxt_switches"],
                (int(ticks[11]) + int(ticks[12])) / os.sysconf("SC_CLK_TCK"), f"{waited * 1e-9:.2f}"))
            self.last_sample = (now, self.messages)
            self.longest = self.control = 0


class Scenario:
    """The program while nothing happens but a tone; others add what happens."""

    def __init__(self, world, record, seconds, seed):
        self.world = world
        self.record = record
        self.interval = min(30, seconds / 10)
        self.seconds = seconds
        self.random = random.Random(seed)
        self.guests = []
        self.next_sample = self.next_smaps = None

    def begin(self):
        self.world.add_sink("first")
        self.world.set_default("first")
        self.play("first", 0.5, 0.5)

    def play(self, sink, left, right):
        """A tone that stays on its sink until the server ends."""
        self.world.others.append(self.world.start(
            "player", harness.TONE_PLAYER, sink, "48000", "front-left,front-right", "1000", str(left), str(right)))

    def start(self):
        self.before = self.names()
        self.program = self.world.start_program()
        self.control = Lines("soak_control.py", self.world.environment, self.record.late)
        self.client = Lines("replica_client.py", self.world.environment, self.record.receive)
        harness.wait_until(lambda: self.record.tone and not self.record.expected, 20, "the tone")
        self.record.now("start", f"pid {self.program.pid}")
        self.next_sample = self.next_smaps = self.started = time.monotonic()
        self.end = self.started + self.seconds

    def names(self):
        """What there is below the world's folder but logs and recordings of the server."""
        found = set()
        for folder in (self.world.folder, self.world.runtime):
            found |= {os.path.join(folder, name) for name in os.listdir(folder) if not name.endswith(".log")}
        return found

    def listener(self):
        """The id of the process that answers at the socket's name."""
        with socket.socket(socket.AF_UNIX) as probe:
            probe.settimeout(10)
            probe.connect(self.world.socket)
            return struct.unpack("3i", probe.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, 12))[0]

    def sample(self):
        if self.program.poll() is not None:
            raise AssertionError(f"the program ended with {self.program.returncode}")
        self.record.sample(self.program.pid, self.listener)
        now = time.monotonic()
        if now >= self.next_smaps:
            self.snapshot(round(now - self.record.begin))
            self.next_smaps = now + SMAPS_EVERY
        self.next_sample += self.interval

    def snapshot(self, seconds):
        """The memory by mapping, and where each thread's stack is (the last field but one)."""
        process = f"/proc/{self.program.pid}/"
        shutil.copyfile(process + "smaps", os.path.join(self.record.folder, f"smaps.{seconds}.txt"))
        with open(os.path.join(self.record.folder, f"threads.{seconds}.txt"), "w", encoding="ascii") as file:
            for task in sorted(os.listdir(process + "task")):
                with contextlib.suppress(FileNotFoundError):  # ended meanwhile
                    name, call = (read(f"{process}task/{task}/{what}").strip() for what in ("comm", "syscall"))
                    file.write(f"{task} {name}: {call}\n")

    def sleep_until(self, when):
        """Sleeps, and samples when it is time; the last sample is finish()'s."""
        while True:
            samples = self.next_sample <= when and self.next_sample < self.end - 1
            time.sleep(max(0, (self.next_sample if samples else when) - time.monotonic()))
            if not samples:
                return
            self.sample()

    def rounds(self, period):
        """The times at which the rounds begin, one after the other, until the end."""
        begin = self.started
        while begin + period <= self.end:
            yield begin
            begin += period
            self.sleep_until(begin)
        self.sleep_until(self.end)

    def run(self):
        self.sleep_until(self.end)

    def fault(self, what, begin):
        with self.record.lock:
            self.record.faults += 1
            self.record._event("fault", begin, time.monotonic(), what)

    def finish(self):
        """Ends the program politely."""
        with contextlib.suppress(AssertionError):
            harness.wait_until(lambda: not self.record.expected, 10, "the tone")
        self.next_smaps = time.monotonic()
        self.sample()
        self.record.end()
        self.client.stop()
        begin = time.monotonic()
        self.program.terminate()
        try:
            code = self.program.wait(30)
        except subprocess.TimeoutExpired:
            code = "none within 30 s"
        self.record.event("exit", begin, time.monotonic(), str(code))
        for name in sorted(self.names() - self.before):
            self.record.now("left", name)

    def close(self):
        for guest in self.guests:
            harness.end_process(guest)
        for lines in ("client", "control"):
            if hasattr(self, lines):
                with contextlib.suppress(BrokenPipeError, ValueError):
                    getattr(self, lines).stop()


class Switches(Scenario):
    """Two sinks, one with a tone on the left and one on the right. Every 4 s the other one becomes the
    default; once a minute the server is killed, and started again at once or 3 s later."""

    def begin(self):
        self.default = None
        self.kills = 0
        self.server_begins()

    def server_begins(self):
        self.world.add_sink("first")
        self.world.add_sink("second")
        self.play("first", 0.5, 0)
        self.play("second", 0, 0.5)
        self.choose("server")

    def choose(self, what):
        self.default = "second" if self.default == "first" else "first"
        self.record.expect("left" if self.default == "first" else "right", what)
        self.world.pactl("set-default-sink", self.default)

    def switch(self):
        begin = time.monotonic()
        self.choose("switch")
        self.fault("switch", begin)

    def kill(self):
        begin = time.monotonic()
        self.world.kill_server()
        for player in self.world.others:
            if player is not self.program:
                harness.end_process(player)
        self.world.others = [self.program]
        time.sleep(3 * (self.kills % 2))
        self.kills += 1
        self.world.start_server()
        self.server_begins()
        self.fault("kill", begin)

    def run(self):
        period = min(60, self.seconds / 2)
        kill = 0.8 * period
        steps = [(at, self.switch) for at in range(0, int(period), 4) if at < kill or at >= kill + 8]
        steps = sorted([*steps, (kill, self.kill)], key=lambda step: step[0])
        for begin in self.rounds(period):
            for at, step in steps:
                self.sleep_until(begin + at)
                step()


class Consumers(Scenario):
    """Consumers come and go, stall, and send what nobody should. Before each sample all have gone."""

    def begin(self):
        super().begin()
        self.recorded = []
        for path in sorted(glob.glob(os.path.join(CORPUS, "*", "*.bin"))):
            with open(path, "rb") as file:
                self.recorded.append(file.read())
        if not self.recorded:
            raise AssertionError(f"no recorded sessions in {CORPUS}")
        self.sockets = []
        self.counts = {}

    def count(self, kind):
        self.counts[kind] = self.counts.get(kind, 0) + 1
        with self.record.lock:
            self.record.faults += 1

    def guest(self, name, argument):
        self.count(name)
        self.guests.append(subprocess.Popen(
            [os.path.join(os.path.dirname(harness.PROGRAM), name), "local:tonewell", str(argument)],
            env=self.world.environment, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL))

    def damaged(self):
        content = bytearray(self.random.choice(self.recorded))
        for _ in range(self.random.randint(1, 8)):
            at = self.random.randrange(8 * len(content))
            content[at // 8] ^= 1 << at % 8
        return bytes(content)

    def noise(self):
        """What a connection sends, and what that is called."""
        kind = self.random.choice(("damaged",) * 4 + ("random", "random", "cut", "whole", "silent"))
        if kind == "damaged":
            return kind, self.damaged()
        if kind == "random":
            return kind, self.random.randbytes(self.random.randint(1, 4096))
        if kind == "silent":
            return kind, b""
        content = self.random.choice(self.recorded)
        return kind, content if kind == "whole" else content[:self.random.randrange(len(content))]

    def connect(self):
        kind, content = self.noise()
        self.count(kind)
        connection = socket.socket(socket.AF_UNIX)
        self.sockets.append(connection)
        connection.settimeout(5)
        try:
            connection.connect(self.world.socket)
            connection.sendall(content)
        except OSError as failure:  # it may drop us before it has all
            self.count(type(failure).__name__)
        if len(self.sockets) > 8:
            self.sockets.pop(self.random.randrange(len(self.sockets))).close()

    def leave(self):
        for connection in self.sockets:
            connection.close()
        self.sockets.clear()
        for guest in self.guests:
            guest.kill()
            guest.wait()
        self.guests.clear()

    def run(self):
        period = min(30, self.seconds / 2)
        for begin in self.rounds(period):
            self.guest("stallingconsumers", 3)
            replica = begin
            while time.monotonic() < begin + 5 / 6 * period:
                if time.monotonic() >= replica:
                    self.guest("replicaprobe", self.random.randint(1, 500))
                    replica = time.monotonic() + self.random.uniform(0.5, 3)
                self.connect()
                self.sleep_until(time.monotonic() + self.random.uniform(0, 0.1))
            self.leave()

    def finish(self):
        self.leave()
        super().finish()
        for kind, count in sorted(self.counts.items()):
            self.record.now("count", f"{kind} {count}")


SCENARIOS = {"steady": Scenario, "switches": Switches, "consumers": Consumers}


def ignore_signals():
    """The end has begun: another request for it changes nothing."""
    for number in SIGNALS:
        signal.signal(number, signal.SIG_IGN)


def main():
    name, seconds, seed, folder = sys.argv[1:]

    def stop(number, frame):
        ignore_signals()
        raise SystemExit(1)

    for number in SIGNALS:
        signal.signal(number, stop)
    world, scenario, record = None, None, Record(folder)
    try:
        world = harness.make_world()
        scenario = SCENARIOS[name](world, record, float(seconds), int(seed))
        scenario.begin()
        scenario.start()
        scenario.run()
        scenario.finish()
    except (AssertionError, OSError, harness.SoundServerError) as failure:
        record.now("failed", str(failure))
        print(f"{name}: {failure}", file=sys.stderr)
        return 1
    finally:
        ignore_signals()
        if scenario:
            scenario.close()
        if world:
            with contextlib.suppress(FileNotFoundError):
                shutil.copyfile(os.path.join(world.folder, "program.log"), os.path.join(folder, "program.log"))
            world.close()
        record.close()
    return 0


if __name__ == "__main__":
    sys.exit(main())
