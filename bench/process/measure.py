"""The program as a process beside others: processor time, memory, latency, many consumers.

It uses the servers, the tone and the consumers of the end-to-end tests. Processor time is what the
kernel counted for all threads (/proc/PID/task/*/schedstat). Everything that is compared is measured
at the same time, so that the machine's other work hits all alike.
"""
import contextlib
import os
import random
import socket
import statistics
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "..", "tests", "e2e"))
sys.dont_write_bytecode = True
import harness  # noqa: E402

# The program's built-in waits in ms: packet period, poll, level tick, publishing.
WAITS = (10, 5, 17, 20)


def processor_seconds(process):
    """What the threads that live now have used."""
    total = 0
    folder = f"/proc/{process.pid}/task"
    for task in os.listdir(folder):
        with contextlib.suppress(FileNotFoundError):  # a thread that has just ended
            with open(f"{folder}/{task}/schedstat") as file:
                total += int(file.read().split()[0])
    return total / 1e9


def resident_megabytes(process, kind="VmRSS"):
    """All of it, or a kind of it: RssAnon, RssFile, or RssShmem, which is the sound server's."""
    with open(f"/proc/{process.pid}/status") as file:
        for line in file:
            if line.startswith(kind + ":"):
                return int(line.split()[1]) / 1024
    raise RuntimeError(f"no {kind}")


def shares(processes, seconds):
    """Processor time of each process over the same interval, in percent of one processor."""
    begin = time.monotonic()
    before = [processor_seconds(process) for process in processes]
    time.sleep(seconds)
    after = [processor_seconds(process) for process in processes]
    elapsed = time.monotonic() - begin
    for process in processes:
        if process.poll() is not None:
            raise RuntimeError(f"{process.args[0]} has ended")
    return [100 * (b - a) / elapsed for a, b in zip(before, after)]


class Bench:
    """A world with a tone in the default sink, and the programs that are measured."""

    def __init__(self, programs):
        self.programs = programs
        self.world = harness.World("pulseaudio")
        self.others = []
        try:
            self.world.start_server()
            self.world.add_sink("speaker")
            self.world.set_default("speaker")
        except BaseException:
            self.world.close()
            raise

    def close(self):
        for process in reversed(self.others):
            harness.end_process(process)
        self.world.close()

    def start(self, name, *command, **environment):
        """A process that close() ends."""
        with self.world.log(name) as log:
            process = subprocess.Popen(command, env=dict(self.world.environment, **environment),
                                       stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        self.others.append(process)
        return process

    def start_replicas(self, count, seconds, **environment):
        """`count` consumers in one process; returns it once all of them receive."""
        process = subprocess.Popen(
            [os.path.join(self.programs, "replicas"), str(count), str(seconds)],
            env=dict(self.world.environment, **environment), stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, text=True)
        self.others.append(process)
        if process.stdout.readline() != "begin\n":
            raise RuntimeError("the replicas have ended")
        return process

    def start_bare_process(self):
        """In a folder of its own, since it takes the same socket."""
        folder = os.path.join(self.world.folder, "bare")
        os.mkdir(folder, 0o700)
        process = self.start("bare", os.path.join(self.programs, "bareprocess"), TMPDIR=folder,
                             QT_QPA_PLATFORM="offscreen")
        harness.wait_until(lambda: os.path.exists(os.path.join(folder, "tonewell")), 10, "the socket")
        return process, folder

    def start_cava(self):
        config = os.path.join(self.world.folder, "cava.conf")
        with open(config, "w") as file:
            file.write("[general]\nframerate = 60\nbars = 100\n"
                       "[input]\nmethod = pulse\nsource = speaker.monitor\n"
                       "[output]\nmethod = raw\nchannels = stereo\nraw_target = /dev/null\n"
                       "data_format = binary\nbit_format = 16bit\n")
        return self.start("cava", "cava", "-p", config)


def processor_and_memory(programs, seconds):
    """Shares and memory of the program, the bare process and cava over the same interval."""
    bench = Bench(programs)
    try:
        bench.world.play("speaker", 48000, (1000, 0.5), (3000, 0.5), 2 * seconds + 60)
        program = bench.world.start_program()
        bare, bare_folder = bench.start_bare_process()
        cava = bench.start_cava()
        bench.start_replicas(1, 2 * seconds + 600)
        bench.start_replicas(1, 2 * seconds + 600, TMPDIR=bare_folder)
        time.sleep(5)
        cpu = shares([program, bare, cava], seconds)
        memory = [resident_megabytes(process) for process in (program, bare, cava)]
        return {"cpu": dict(zip(("program", "bare", "cava"), cpu)),
                "memory": dict(zip(("program", "bare", "cava"), memory))}
    finally:
        bench.close()


def memory_over_time(programs, seconds):
    """The program's memory by its kinds, after a few seconds of tone and after so many more, with a
    consumer."""
    bench = Bench(programs)
    try:
        bench.world.pactl("load-module", "module-sine", "sink=speaker", "frequency=1000")
        program = bench.world.start_program()
        bench.start_replicas(1, 2 * seconds)
        memory = []
        for wait in (5, seconds):
            time.sleep(wait)
            memory.append({kind: resident_megabytes(program, kind)
                           for kind in ("VmRSS", "RssAnon", "RssFile", "RssShmem")})
            # Bars stand still when capture has ended, so it is the server that is asked.
            if not bench.world.pactl("list", "short", "source-outputs"):
                raise RuntimeError("the program does not capture")
        return memory
    finally:
        bench.close()


def latency(programs, bursts):
    """Milliseconds from the command that plays a burst to the message that shows it."""
    bench = Bench(programs)
    try:
        world = bench.world
        world.pactl("load-module", "module-cli-protocol-unix")
        burst = os.path.join(world.folder, "burst.wav")
        write_burst(burst)
        world.pactl("upload-sample", burst, "burst")
        world.start_program()
        client = world.connect()
        commands = socket.socket(socket.AF_UNIX)
        path = os.path.join(world.runtime, "pulse", "cli")
        harness.wait_until(lambda: os.path.exists(path), 5, "the command socket")
        commands.connect(path)
        chance = random.Random(1)
        delays = []
        while len(delays) < bursts:
            client.wait_for(lambda message: message.levels[1] < 0.5, 5, "silence")
            time.sleep(0.05 + 0.1 * chance.random())  # anywhere in the waits
            since = len(client.messages)
            begin = time.monotonic()
            commands.sendall(b"play-sample burst speaker\n")
            shown = client.wait_for(lambda message: message.levels[1] > 20, 5, "the burst", since)
            delays.append(1000 * (shown.when - begin))
        commands.close()
        return sorted(delays)
    finally:
        bench.close()


def write_burst(path):
    """20 ms at full scale, both channels."""
    import array
    import wave
    with wave.open(path, "wb") as out:
        out.setnchannels(2)
        out.setsampwidth(2)
        out.setframerate(48000)
        out.writeframes(array.array("h", [32767, 32767, -32767, -32767] * 480).tobytes())


def many_replicas(programs, count, seconds):
    """Shares of the program with no, one and `count` consumers, and the rates of the many."""
    bench = Bench(programs)
    try:
        bench.world.play("speaker", 48000, (1000, 0.5), (3000, 0.5), 4 * seconds + 120)
        program = bench.world.start_program()
        time.sleep(2)
        cpu = {0: shares([program], seconds)[0]}
        rates = []
        for consumers in (1, count):
            replicas = bench.start_replicas(consumers, seconds + 2)
            cpu[consumers] = shares([program], seconds)[0]
            rates = [float(line) for line in replicas.communicate(timeout=60)[0].split()]
        return {"cpu": cpu, "rates": rates}
    finally:
        bench.close()


def percentile(values, percent):
    return values[min(len(values) - 1, int(len(values) * percent / 100))]


def median(values):
    return statistics.median(values)
