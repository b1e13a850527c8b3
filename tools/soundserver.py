#!/usr/bin/python3
"""Private sound servers: PulseAudio, or PipeWire with its session manager and its PulseAudio
protocol, in a folder of their own and without any hardware. The user's own server is neither used
nor touched. Everything that was started ends by its process id, and with the process that
started it, whatever ends that.

usage: soundserver.py [--commands] [--sink NAME=DESCRIPTION] KIND FOLDER [-- OPTION...]
  KIND        pulseaudio, pipewire, or any: PulseAudio where it is installed, else PipeWire
  FOLDER      for its files: runtime/, home/ and NAME.log of every process
  OPTION      for the command line of PulseAudio

Starts the server, and the sink as its default. Then prints how a client's environment differs from
this process's, NAME=VALUE or -NAME (to be removed) a line, and "ready"; with SIGTERM, SIGINT or
SIGHUP the server ends. Exits with 1 when it does not start or a process of it ends.

--commands: starts nothing at first, and obeys the lines start, kill (like a crash), hang and resume
on standard input, whose end ends the server. Each answer is "ok", or what went wrong, in a line.
"""
import argparse
import contextlib
import os
import shutil
import signal
import socket
import subprocess
import sys
import time

PATIENCE = 15  # seconds for anything that a loaded machine may take its time for


class SoundServerError(Exception):
    """The server did not start, refused a request, or is not there."""


class NotInTime(SoundServerError):
    """What was waited for has not come."""


def wait_until(condition, seconds, what):
    """Polls the condition; returns its first true value, or raises NotInTime."""
    end = time.monotonic() + seconds
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            raise NotInTime(f"not within {seconds} s: {what}")
        time.sleep(0.02)


def end_process(process, seconds=5):
    """Ends a process politely, then for good; returns its exit status."""
    if process.poll() is None:
        process.terminate()
        try:
            process.wait(seconds)
        except subprocess.TimeoutExpired:
            process.kill()
    return process.wait()


def is_listening(path):
    """Whether a process accepts connections at a local socket of that name."""
    with socket.socket(socket.AF_UNIX) as probe:
        try:
            probe.connect(path)
        except (FileNotFoundError, ConnectionRefusedError):
            return False
    return True


class SoundServer:
    """One server and its place; to be started, ended and started again. For one thread."""

    programs = ()
    sink_options = ()

    def __init__(self, folder, environment=None, options=()):
        """In this folder, for clients that start from this environment (default: the process's)."""
        self.folder = os.path.abspath(folder)
        self.options = options
        self.runtime = os.path.join(self.folder, "runtime")
        home = os.path.join(self.folder, "home")
        for path in (self.runtime, home):
            os.makedirs(path, 0o700, exist_ok=True)
        base = os.environ if environment is None else environment
        # What makes a process a client of this server and of no other.
        self.environment = {name: value for name, value in base.items()
                            if not name.startswith(("PULSE_", "PIPEWIRE_"))
                            and name not in ("XDG_CONFIG_HOME", "XDG_STATE_HOME")}
        self.environment.update(HOME=home, XDG_RUNTIME_DIR=self.runtime)
        self.processes = []  # in the order of their start

    @classmethod
    def is_installed(cls):
        return all(map(shutil.which, cls.programs))

    def start(self):
        """Starts it, or starts it again in the same place. It answers, and has no sink (PipeWire
        may show one that leads nowhere)."""
        raise NotImplementedError

    def stop(self):
        self.signal(signal.SIGCONT)
        for process in reversed(self.processes):
            end_process(process)
        self.processes.clear()

    def kill(self):
        """Like a crash."""
        # All at once, then wait: a server that notices another one's end would tidy up.
        self.signal(signal.SIGKILL)
        for process in self.processes:
            process.wait()
        self.processes.clear()

    def close(self):
        """Ends it and what it needed."""
        self.stop()

    def signal(self, number):
        for process in self.processes:
            process.send_signal(number)

    def has_ended(self):
        return any(process.poll() is not None for process in self.processes)

    def launch(self, name, *arguments):
        """A process whose output goes to the folder's log of that name."""
        with open(os.path.join(self.folder, name + ".log"), "ab") as log:
            return subprocess.Popen(["setpriv", "--pdeathsig", "KILL", name, *arguments],
                                    env=self.environment, stdin=subprocess.DEVNULL, stdout=log, stderr=log)

    def wait_for(self, condition, what):
        """Waits for what the processes bring about while they live."""
        wait_until(lambda: self.has_ended() or condition(), PATIENCE, what)
        if self.has_ended():
            raise SoundServerError(f"a process has ended before {what}, see {self.folder}/*.log")

    def answers(self):
        with contextlib.suppress(SoundServerError):
            return self.pactl("info")
        return None

    def pactl(self, *words):
        """The answer to a command of pactl."""
        # Named, so that nobody starts another one while this one comes up.
        named = {**self.environment, "PULSE_SERVER": f"unix:{self.runtime}/pulse/native"}
        try:
            done = subprocess.run(["pactl", *words], env=named, timeout=10, check=False,
                                  stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        except subprocess.TimeoutExpired as failure:
            raise SoundServerError(str(failure)) from None
        if done.returncode != 0:
            raise SoundServerError(f"pactl {' '.join(words)}: {done.stderr.strip()}")
        return done.stdout.strip()

    def add_sink(self, name, description=None, rate=48000):
        """A sink that goes nowhere; returns its module's number when the server shows it."""
        module = self.pactl("load-module", "module-null-sink", f"sink_name={name}", f"rate={rate}",
                            f"sink_properties=\"device.description='{description or name}'\"",
                            *self.sink_options)
        wait_until(lambda: f"\t{name}\t" in self.pactl("list", "short", "sinks"), PATIENCE, f"sink {name}")
        return module

    def set_default(self, name):
        self.pactl("set-default-sink", name)
        wait_until(lambda: self.pactl("get-default-sink") == name, PATIENCE, f"default sink {name}")


class PulseAudio(SoundServer):
    name = "PulseAudio"
    programs = ("pulseaudio", "pactl")
    # As far ahead as a sound card's driver renders. A sink that can take back what it has rendered
    # allows itself two seconds, and who comes meanwhile hears nothing until they are over.
    sink_options = ("norewinds=1",)

    def start(self):
        self.processes.append(self.launch(
            "pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1", "--use-pid-file=no",
            "-L", "module-native-protocol-unix", *self.options))
        self.wait_for(self.answers, "PulseAudio's answer")


class PipeWire(SoundServer):
    name = "PipeWire"
    programs = ("dbus-daemon", "pipewire", "wireplumber", "pipewire-pulse", "pactl", "pw-metadata")

    def __init__(self, folder, environment=None, options=()):
        super().__init__(folder, environment, options)
        self.bus = None
        self.bus_path = os.path.join(self.runtime, "bus")
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=" + self.bus_path
        # The machine's own devices are left to the desktop's server.
        settings = os.path.join(self.environment["HOME"], ".config", "wireplumber")
        for part, monitors in (("main", ("alsa", "v4l2", "libcamera")), ("bluetooth", ("bluez",))):
            path = os.path.join(settings, part + ".lua.d")
            os.makedirs(path, exist_ok=True)
            with open(os.path.join(path, "90-no-devices.lua"), "w", encoding="ascii") as file:
                file.writelines(f"{monitor}_monitor.enabled = false\n" for monitor in monitors)

    def start(self):
        if self.bus is None:
            self.bus = self.launch("dbus-daemon", "--session", "--nofork", "--nopidfile",
                                   "--address=unix:path=" + self.bus_path)
        wait_until(lambda: is_listening(self.bus_path), PATIENCE, "the bus")
        for name, listener in (("pipewire", "pipewire-0"), ("wireplumber", None),
                               ("pipewire-pulse", "pulse/native")):
            self.processes.append(self.launch(name))
            if listener:
                # A killed server leaves its socket's name behind, so only an answer counts: the
                # session manager ends at once when it finds nobody there.
                self.wait_for(lambda: is_listening(os.path.join(self.runtime, listener)), name)
        self.wait_for(self.answers, "PipeWire's answer")
        # The session manager keeps the defaults and may come up after the servers.
        self.wait_for(self.has_defaults, "the session manager")

    def has_defaults(self):
        with contextlib.suppress(subprocess.TimeoutExpired):
            done = subprocess.run(["pw-metadata", "-n", "default"], env=self.environment, timeout=10,
                                  check=False, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
            return 'Found "default"' in done.stdout
        return False

    def close(self):
        super().close()
        if self.bus is not None:
            end_process(self.bus)
            self.bus = None


KINDS = {"pulseaudio": PulseAudio, "pipewire": PipeWire}


def print_environment(server):
    for name, value in server.environment.items():
        if os.environ.get(name) != value:
            print(f"{name}={value}")
    for name in os.environ:
        if name not in server.environment:
            print(f"-{name}")


def obey(server):
    """Commands from standard input, until it ends."""
    commands = {"start": server.start, "kill": server.kill,
                "hang": lambda: server.signal(signal.SIGSTOP),
                "resume": lambda: server.signal(signal.SIGCONT)}
    for line in sys.stdin:
        try:
            commands[line.strip()]()
            print("ok", flush=True)
        except (SoundServerError, OSError) as failure:
            print(str(failure).replace("\n", " "), flush=True)


def serve(server, sink):
    server.start()
    if sink:
        name, _, description = sink.partition("=")
        server.add_sink(name, description)
        server.set_default(name)
    print("ready", flush=True)
    while not server.has_ended():
        time.sleep(0.5)
    raise SoundServerError(f"a process has ended, see {server.folder}/*.log")


def main():
    words, options = sys.argv[1:], []
    if "--" in words:
        options = words[words.index("--") + 1:]
        words = words[:words.index("--")]
    parser = argparse.ArgumentParser(usage=__doc__.split("usage: ")[1])
    parser.add_argument("--commands", action="store_true")
    parser.add_argument("--sink")
    parser.add_argument("kind", choices=[*KINDS, "any"])
    parser.add_argument("folder")
    given = parser.parse_args(words)
    kind = given.kind
    if kind == "any":
        kind = "pulseaudio" if PulseAudio.is_installed() else "pipewire"

    for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
        signal.signal(number, lambda number, frame: sys.exit(0))
    server = None
    try:
        server = KINDS[kind](given.folder, options=options)
        print_environment(server)
        if given.commands:
            print("ready", flush=True)
            obey(server)
        else:
            serve(server, given.sink)
    except (SoundServerError, OSError) as failure:
        print(f"soundserver.py: {failure}", file=sys.stderr)
        return 1
    finally:
        # A second signal changes nothing.
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            signal.signal(number, signal.SIG_IGN)
        if server is not None:
            server.close()
    return 0


if __name__ == "__main__":
    sys.exit(main())
