"""What the session does reaches capture: who comes back to the desktop finds it restarted.

logind is python3-dbusmock's, on a system bus of the test's own.
"""
import contextlib
import os
import sys
import time
import unittest

import dbus
import dbus.bus
import harness

LOGIND = "org.freedesktop.login1"
MANAGER = "/org/freedesktop/login1"
MOCK = "org.freedesktop.DBus.Mock"


class Logind:
    """The bus, the mocked logind on it, and the one session of this user that is there at first."""

    def __init__(self, world):
        self.world = world
        self.path = os.path.join(world.folder, "system-bus")
        world.environment["DBUS_SYSTEM_BUS_ADDRESS"] = "unix:path=" + self.path
        self.start()

    def start(self):
        self.daemon = self.world.start("system-bus", "dbus-daemon", "--session", "--nofork", "--nopidfile",
                                       "--address=unix:path=" + self.path)
        self.world.others.append(self.daemon)
        harness.wait_until(lambda: harness.is_listening(self.path), 10, "the system bus")
        self.world.others.append(self.world.start("logind", sys.executable, "-m", "dbusmock",
                                                  "--template", "logind"))
        self.bus = dbus.bus.BusConnection("unix:path=" + self.path)
        harness.wait_until(self.lists_sessions, 20, "logind")
        self.add_session("1")

    def kill_bus(self):
        self.bus.close()
        self.daemon.kill()
        self.daemon.wait()

    def close(self):
        self.bus.close()

    def interface(self, path, name):
        return dbus.Interface(self.bus.get_object(LOGIND, path, introspect=False), name)

    def lists_sessions(self):
        with contextlib.suppress(dbus.DBusException):
            self.interface(MANAGER, LOGIND + ".Manager").ListSessions()
            return True
        return False

    def add_session(self, name):
        mock = self.interface(MANAGER, MOCK)
        path = mock.AddSession(name, "seat0", dbus.UInt32(os.getuid()), "user", True, signature="ssusb")
        mock.EmitSignal(LOGIND + ".Manager", "SessionNew", "so",
                        dbus.Array([name, dbus.ObjectPath(path)], signature="v"))

    def call(self, method):
        self.interface(MANAGER + "/session/1", LOGIND + ".Session").get_dbus_method(method)()

    def set_active(self, active):
        self.interface(MANAGER + "/session/1", MOCK).UpdateProperties(
            LOGIND + ".Session", dbus.Dictionary({"Active": dbus.Boolean(active)}, signature="sv"))


class Session(unittest.TestCase):
    def setUp(self):
        self.world = harness.make_world()
        self.addCleanup(self.world.close)
        self.logind = Logind(self.world)
        self.addCleanup(self.logind.close)
        self.world.add_sink("speaker")
        self.world.set_default("speaker")
        self.side = 0
        self.player = None
        self.program = self.world.start_program()
        self.client = self.world.connect()
        self.bars_follow()

    def tearDown(self):
        self.assertIsNone(self.program.poll(), "the program ended")

    def bars_follow(self):
        """Plays the tone on the other side: bars of a capture that has ended stand still."""
        if self.player:
            harness.end_process(self.player)
        self.side = 1 - self.side
        self.player = self.world.play_pinned("speaker", 1000, 0.5 * self.side, 0.5 * (1 - self.side))
        self.client.wait_for(lambda m: (max(m.left) >= 60) == (self.side == 1)
                             and (max(m.right) >= 60) == (self.side == 0), 10, "the tone")

    def streams(self):
        return [line.split("\t")[0] for line in
                self.world.pactl("list", "short", "source-outputs").splitlines()]

    def check_restart(self, event):
        """Capture is replaced a second later: the server numbers every stream anew."""
        before = self.streams()
        self.assertEqual(len(before), 1)
        begin = time.monotonic()
        event()
        harness.wait_until(lambda: len(self.streams()) == 1 and self.streams() != before, 10, "a new stream")
        took = time.monotonic() - begin
        self.assertGreaterEqual(took, 0.9)
        self.assertLess(took, 4)
        self.bars_follow()

    def check_no_restart(self, event):
        before = self.streams()
        self.assertEqual(len(before), 1)
        event()
        end = time.monotonic() + 3
        while time.monotonic() < end:
            self.assertEqual(self.streams(), before)
            time.sleep(0.1)
        self.bars_follow()

    def test_lock_only_logs_and_unlock_restarts(self):
        self.check_no_restart(lambda: self.logind.call("Lock"))
        self.check_restart(lambda: self.logind.call("Unlock"))

    def test_console_disconnect_only_logs_and_connect_restarts(self):
        self.check_no_restart(lambda: self.logind.set_active(False))
        self.check_restart(lambda: self.logind.set_active(True))

    def test_log_on_restarts(self):
        self.check_restart(lambda: self.logind.add_session("2"))

    def test_a_bus_that_returns_is_followed_again(self):
        self.check_no_restart(self.logind.kill_bus)
        before = self.streams()
        self.logind.start()
        end = time.monotonic() + 30
        while self.streams() == before:
            self.assertLess(time.monotonic(), end, "no event is heard")
            self.logind.call("Unlock")
            time.sleep(1)
        harness.wait_until(lambda: len(self.streams()) == 1, 10, "a new stream")
        time.sleep(3)  # the last of these calls has had its effect
        self.bars_follow()
        self.check_no_restart(lambda: self.logind.call("Lock"))
        self.check_restart(lambda: self.logind.call("Unlock"))


if __name__ == "__main__":
    unittest.main(verbosity=2)
