"""Surroundings that fail, and what a user gets then: the tone's bars, or one clear line and an end.

docs/reliability.md lists them. Limits and users come from util-linux, file systems from a mount
namespace of the program's own, so that nothing of the machine changes.
"""
import configparser
import contextlib
import fcntl
import os
import re
import signal
import socket
import sys
import time
import unittest

import harness
from harness import PROGRAM

TESTS = os.path.dirname(harness.HERE)
sys.path.insert(0, os.path.join(TESTS, "support", "linux"))
import accessibility  # noqa: E402

UNIT = os.path.join(os.path.dirname(TESTS), "packaging", "linux", "tonewell-detection.service.in")
PATIENCE = 30  # s
TRY_AGAIN = 75  # the exit code
STOP = 30  # s
MEGABYTE = 1 << 20
BANNER = "     TonewellDetection Error Report\n"
LAST_LINE = "  pwfx = null (device not initialized)\n"  # of the report of a failed start
WHOLE_REPORT = "\n            End of Report\n"
NAMESPACE = ("unshare", "--mount") if os.getuid() == 0 else \
    ("unshare", "--user", "--map-root-user", "--mount")


def in_namespace(script):
    """The program's command line behind a shell script that mounts for this process alone."""
    return (*NAMESPACE, "sh", "-ec", script + '\nexec "$0"', PROGRAM)


def as_user(number):
    """The program's command line as that user, if it can be: only an administrator can be another."""
    if os.getuid() != 0:
        return (PROGRAM,)
    return ("setpriv", f"--reuid={number}", f"--regid={number}", "--clear-groups", PROGRAM)


class Surroundings(unittest.TestCase):
    """A world with a speaker, whose server the test starts; and a program in it."""

    def setUp(self):
        self.world = harness.World()
        self.addCleanup(self.world.close)
        self.side = 0
        self.player = None
        self.program = None

    def start_sound(self):
        self.world.start_server()
        self.world.add_sink("speaker")
        self.world.set_default("speaker")
        self.player = None

    def start(self, *command):
        self.program = self.world.start("program", *command)
        self.world.others.append(self.program)

    def connect(self):
        """The program has come up and serves a consumer."""
        harness.wait_until(lambda: os.path.exists(self.world.socket) or self.program.poll() is not None,
                           PATIENCE, "the socket")
        return self.world.connect()

    def printed(self):
        with open(os.path.join(self.world.folder, "program.log"), encoding="utf-8") as log:
            return log.read()

    def switch_tone(self):
        """Plays a tone on the other side than before."""
        if self.player:
            harness.end_process(self.player)
        self.side = 1 - self.side
        self.player = self.world.play_pinned("speaker", 1000, 0.5 * self.side, 0.5 * (1 - self.side))

    def shows_tone(self, message):
        sides = (message.left, message.right) if self.side else (message.right, message.left)
        return max(sides[0]) >= 60 > max(sides[1])

    def check_bars(self, client):
        self.switch_tone()
        client.wait_for(self.shows_tone, PATIENCE, "the tone's bars")
        self.assertIsNone(self.program.poll())

    def check_level(self, client):
        """Of a tone, after a failed first start: the analyser stays busy by design then."""
        self.switch_tone()
        client.wait_for(lambda message: message.levels[0] >= 60, PATIENCE, "the tone")
        self.assertIsNone(self.program.poll())

    def check_whole_report(self, text):
        self.assertEqual(text.count(BANNER), 1, text)
        self.assertEqual(text.count(WHOLE_REPORT), 1, text)


class NobodyCanConnect(unittest.TestCase):
    """No consumer could ever reach the program: it says why, tries for a while, and ends in a way that
    makes systemd start it again. All of them run at the same time, since each takes its while."""

    @classmethod
    def setUpClass(cls):
        cls.worlds = {}
        cls.programs = {}
        for prepare in (cls.missing_folder, cls.read_only_folder, cls.full_folder, cls.folder_of_the_name,
                        cls.name_of_another_user):
            world = harness.World()
            cls.addClassCleanup(world.close)
            cls.worlds[prepare.__name__] = world
            command = prepare(world)
            if command:
                program = world.start("program", *command)
                world.others.append(program)
                cls.programs[prepare.__name__] = (time.monotonic(), program)

    @staticmethod
    def missing_folder(world):
        os.chmod(world.folder, 0o755)  # so that its absence can be seen
        world.environment["TMPDIR"] = os.path.join(world.folder, "missing")
        return as_user(65534)  # Qt goes to the root folder instead, where an administrator may write

    @staticmethod
    def mounted(world, options):
        path = world.environment["TMPDIR"] = os.path.join(world.folder, "mounted")
        os.mkdir(path)
        return in_namespace(f'mount -t tmpfs -o "{options}" tmpfs "$TMPDIR"')

    @classmethod
    def read_only_folder(cls, world):
        return cls.mounted(world, "ro")

    @classmethod
    def full_folder(cls, world):
        return cls.mounted(world, "nr_inodes=1")

    @staticmethod
    def folder_of_the_name(world):
        os.mkdir(world.socket)
        return (PROGRAM,)

    @staticmethod
    def name_of_another_user(world):
        if os.getuid() != 0:
            return ()
        os.chmod(world.folder, 0o1777)
        world.others.append(world.start("first", *as_user(65534)))
        harness.wait_until(lambda: harness.is_listening(world.socket), PATIENCE, "the other user's program")
        return as_user(65533)

    def check(self, case, reason):
        begin, program = self.programs[case]
        world = self.worlds[case]
        log = os.path.join(world.folder, "program.log")

        def lines():
            with open(log, encoding="utf-8") as file:
                return [line for line in file.read().split("\n") if line.startswith("TonewellDetection:")]

        harness.wait_until(lines, PATIENCE, "a line")
        self.assertEqual(program.wait(PATIENCE), TRY_AGAIN)
        took = time.monotonic() - begin
        self.assertEqual(lines(), [
            f"TonewellDetection: nobody can connect: {reason}; trying for 15 s",
            "TonewellDetection: ending, since nobody can connect"])
        self.check_systemd_starts_it_for_ever(took)

    def check_systemd_starts_it_for_ever(self, took):
        unit = configparser.ConfigParser(strict=False, interpolation=None)
        unit.optionxform = str
        unit.read(UNIT)
        self.assertEqual(unit["Service"]["Restart"], "on-failure")
        self.assertNotIn("RestartPreventExitStatus", unit["Service"])
        self.assertNotIn("SuccessExitStatus", unit["Service"])
        cycle = took + int(unit["Service"]["RestartSec"])
        self.assertGreater(cycle * int(unit["Unit"]["StartLimitBurst"]),
                           int(unit["Unit"]["StartLimitIntervalSec"]))

    def test_missing_folder(self):
        folder = os.path.join(self.worlds["missing_folder"].folder, "missing")
        self.check("missing_folder", f"TMPDIR names no folder: {folder}")

    def test_folder_that_cannot_be_written(self):
        folder = os.path.join(self.worlds["read_only_folder"].folder, "mounted")
        self.check("read_only_folder", f"{folder}: Read-only file system")

    def test_full_folder(self):
        folder = os.path.join(self.worlds["full_folder"].folder, "mounted")
        self.check("full_folder", f"{folder}: No space left on device")

    def test_folder_has_the_name(self):
        path = self.worlds["folder_of_the_name"].socket
        self.check("folder_of_the_name", f"{path} is a folder")

    @unittest.skipIf(os.getuid() != 0, "only root can act as other users")
    def test_another_user_has_the_name(self):
        world = self.worlds["name_of_another_user"]
        self.check("name_of_another_user", f"{world.socket} belongs to nobody")
        self.assertTrue(harness.is_listening(world.socket), "the first user's program has been harmed")


class Temporary(Surroundings):
    def test_name_that_becomes_free_is_taken(self):
        os.mkdir(self.world.socket)
        self.start(PROGRAM)
        harness.wait_until(lambda: "nobody can connect" in self.printed(), PATIENCE, "the line")
        os.rmdir(self.world.socket)
        harness.wait_until(lambda: os.path.exists(self.world.socket), PATIENCE, "the socket")
        self.connect().next()
        self.assertIsNone(self.program.poll())
        self.assertNotIn("ending, since", self.printed())

    def test_without_tmpdir_it_is_in_tmp(self):
        self.start_sound()
        # A /tmp of the program's own, through which the rest can still be reached.
        tmp = os.path.join(self.world.folder, "tmp")
        script = ""
        for folder in (self.world.folder, os.path.dirname(PROGRAM)):
            if folder.startswith("/tmp/"):
                inside = tmp + folder[len("/tmp"):]
                os.makedirs(inside, exist_ok=True)
                script += f'mount --bind "{folder}" "{inside}"\n'
        os.makedirs(tmp, exist_ok=True)
        command = in_namespace(script + f'mount --rbind "{tmp}" /tmp')
        self.start("env", "--unset=TMPDIR", *command)
        harness.wait_until(lambda: harness.is_listening(os.path.join(tmp, "tonewell")), PATIENCE, "the socket")
        self.world.environment["TMPDIR"] = tmp  # of the consumer
        self.check_bars(self.world.connect())


class Descriptors(Surroundings):
    def test_24_descriptors_are_enough_for_one_consumer(self):
        self.start_sound()
        self.start("prlimit", "--nofile=24", PROGRAM)
        client = self.connect()
        self.check_bars(client)
        with socket.socket(socket.AF_UNIX) as newcomer:
            newcomer.settimeout(PATIENCE)
            newcomer.connect(self.world.socket)
            with contextlib.suppress(ConnectionResetError):
                self.assertEqual(newcomer.recv(1), b"", "a second consumer is dropped")
        self.world.kill_server()
        self.start_sound()
        self.check_bars(client)


class Memory(Surroundings):
    def test_64_megabytes_are_enough(self):
        # The most that is ever needed: a report on the screen, and then sound as well.
        self.world.start_display()
        self.start("prlimit", f"--data={64 * MEGABYTE}", PROGRAM)
        harness.wait_until(
            lambda: "错误报告" in self.world.ask("xwininfo", "-root", "-tree"), PATIENCE, "the report's window")
        client = self.connect()
        self.start_sound()
        self.check_level(client)
        self.assertEqual(self.printed(), "")

    def test_64_megabytes_of_addresses_are_refused_in_words(self):
        self.start("prlimit", f"--as={64 * MEGABYTE}", PROGRAM)
        self.assertGreater(self.program.wait(PATIENCE), 0)
        self.assertIn("TonewellDetection", self.printed())


class Desktop(Surroundings):
    def test_no_bus(self):
        self.start_sound()
        self.world.start_display()
        for name in list(self.world.environment):
            if name.startswith("DBUS_"):
                del self.world.environment[name]
        self.world.environment["DBUS_SYSTEM_BUS_ADDRESS"] = "unix:path=" + self.world.folder + "/none"
        self.start(PROGRAM)
        self.check_bars(self.connect())
        self.assertEqual(self.printed(), "")

    def test_missing_locale(self):
        self.start("env", "LC_ALL=xx_XX.UTF-8", PROGRAM)
        client = self.connect()
        harness.wait_until(lambda: LAST_LINE in self.printed(), PATIENCE, "the report")
        self.check_whole_report(self.printed())
        self.assertIn("  Current Device: 默认输出设备\n", self.printed())
        self.start_sound()
        self.check_level(client)
        self.assertRegex(client.next().fields[1], r"^\d+(\.\d+)?$")


class SavedReport(Surroundings):
    """The report's window, operated as a screen reader does."""

    @classmethod
    def setUpClass(cls):
        screen = harness.World()
        cls.addClassCleanup(screen.close)
        screen.start_display()
        os.environ["DISPLAY"] = screen.environment["DISPLAY"]
        cls.bus = accessibility.Bus(screen.folder)
        cls.addClassCleanup(cls.bus.close)

    def setUp(self):
        super().setUp()
        self.world.environment.update(self.bus.environment, DISPLAY=os.environ["DISPLAY"])
        self.disk = os.path.join(self.world.folder, "disk")
        os.mkdir(self.disk)

    def save(self):
        self.bus.press(self.program.pid, "保存到文件")
        self.bus.press(self.program.pid, "Save")

    def check_is_told_that_it_failed(self):
        self.bus.find(self.program.pid, "label", "无法保存文件")
        self.bus.press(self.program.pid, "OK")

    def seen(self, name=""):
        """A path on the disk as the program sees it."""
        return f"/proc/{self.program.pid}/root{self.disk}/{name}"

    def test_full_disk_then_room(self):
        self.start(*in_namespace(f'cd "{self.disk}"\nmount -t tmpfs -o size=64k tmpfs .\ncd "{self.disk}"\n'
                                 'head -c 1M /dev/zero >filling 2>/dev/null || true'))
        self.save()
        self.check_is_told_that_it_failed()
        # Nothing is lost: the window is still there.
        os.remove(self.seen("filling"))
        time.sleep(1.1)  # the proposed name has the second in it
        self.save()
        told = self.bus.find(self.program.pid, "label", "错误报告已保存到：").name
        with open(self.seen(os.path.basename(told)), encoding="utf-8") as file:
            self.check_whole_report(file.read())

    def test_read_only_folder(self):
        self.start(*in_namespace(f'mount -t tmpfs -o ro tmpfs "{self.disk}"\ncd "{self.disk}"'))
        self.save()
        self.check_is_told_that_it_failed()
        self.assertEqual(os.listdir(self.seen()), [])
        self.bus.find(self.program.pid, "push button", "保存到文件")


class Stopped(Surroundings):
    """The program is stopped for half a minute, as a debugger or a terminal does."""

    def stop(self):
        self.program.send_signal(signal.SIGSTOP)
        time.sleep(STOP / 2)

    def resume(self):
        time.sleep(STOP / 2)
        self.program.send_signal(signal.SIGCONT)


class StoppedInATone(Stopped):
    def test_in_the_middle_of_a_tone(self):
        self.start_sound()
        self.start(PROGRAM)
        client = self.connect()
        self.check_bars(client)
        self.stop()
        before = len(client.messages)
        self.switch_tone()
        self.resume()
        self.assertEqual(len(client.messages), before, "it was not stopped")
        client.wait_for(self.shows_tone, PATIENCE, "the bars of what is played now", before)
        # What was played meanwhile does not follow.
        after = len(client.messages)
        client.wait_for(lambda message: len(client.messages) >= after + 100, PATIENCE, "more messages")
        wrong = [message.bars for message in client.messages[after:] if not self.shows_tone(message)]
        self.assertEqual(wrong, [])
        self.check_bars(client)


class StoppedInAReport(Stopped):
    def start_with_full_errors(self, *command):
        """Nothing of what the program prints fits: a report that has begun does not end. Returns the
        end to read from, and what comes first there."""
        read_end, write_end = os.pipe()
        self.addCleanup(os.close, read_end)
        filling = b"x" * fcntl.fcntl(write_end, fcntl.F_SETPIPE_SZ, 4096)
        os.write(write_end, filling)
        log = self.world.log
        self.world.log = lambda name: os.fdopen(os.dup(write_end), "ab")
        self.start(*command)
        self.world.log = log
        os.close(write_end)
        return read_end, filling

    def read_until(self, end, wanted):
        """What comes until the wanted text is there, or nobody can write any more."""
        text = b""
        while wanted is None or wanted not in text:
            part = os.read(end, 65536)
            if not part:
                break
            text += part
        return text

    def test_in_the_middle_of_a_crash_report(self):
        errors, filling = self.start_with_full_errors(
            "env", "LD_PRELOAD=" + os.environ["TONEWELL_FAULT_INJECTOR"], "QT_QPA_PLATFORM=offscreen",
            "TONEWELL_INJECT=", PROGRAM)
        self.world.stop_server()
        harness.wait_until(lambda: harness.is_listening(self.world.socket), PATIENCE, "the socket")
        self.program.send_signal(signal.SIGUSR1)
        time.sleep(1)
        self.stop()
        self.resume()
        text = self.read_until(errors, None)[len(filling):].decode()
        self.assertEqual(self.program.wait(PATIENCE), -signal.SIGSEGV)
        report = text.partition("Program crash:\n")[2]
        self.check_whole_report(report)
        self.assertIn("\n[Stack Trace]\n  # 0 0x", report)
        self.assertNotIn("could not be finished", text)

    def test_in_the_middle_of_a_start_report(self):
        errors, filling = self.start_with_full_errors(PROGRAM)
        harness.wait_until(lambda: harness.is_listening(self.world.socket), PATIENCE, "the socket")
        time.sleep(1)
        self.stop()
        self.resume()
        text = self.read_until(errors, LAST_LINE.encode())[len(filling):].decode()
        self.check_whole_report(text)
        self.start_sound()
        client = self.connect()
        self.check_level(client)


class Clock(Surroundings):
    def test_set_back_an_hour(self):
        self.start_sound()
        self.start("env", "TONEWELL_INJECT=", "LD_PRELOAD=" + " ".join(
            os.environ[name] for name in ("TONEWELL_WALL_CLOCK", "TONEWELL_FAULT_INJECTOR")), PROGRAM)
        client = self.connect()
        self.check_bars(client)
        self.program.send_signal(signal.SIGURG)
        self.check_bars(client)
        self.world.kill_server()
        self.start_sound()
        self.check_bars(client)
        # The hour was really gone, and nothing has waited for a time of day.
        self.program.send_signal(signal.SIGUSR1)
        self.assertEqual(self.program.wait(PATIENCE), -signal.SIGSEGV)
        self.check_whole_report(self.printed())
        when = re.search(r"\[Report Time\] (.*)\n", self.printed()).group(1)
        age = time.time() - time.mktime(time.strptime(when, "%Y-%m-%d %H:%M:%S"))
        self.assertGreater(age, 3590)
        self.assertLess(age, 3600 + 2 * PATIENCE)
        self.assertNotIn("wait for the wall clock", self.printed())


if __name__ == "__main__":
    unittest.main(verbosity=2)
