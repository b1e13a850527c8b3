"""The program under a Wayland compositor, which neither places its windows nor leaves any out."""
import os
import re
import unittest

import desktop
import harness


class Wayland(unittest.TestCase):
    def setUp(self):
        self.world = harness.make_world()
        self.addCleanup(self.world.close)
        self.world.environment.update(WAYLAND_DEBUG="client", NO_AT_BRIDGE="1")

    def read(self, name):
        with open(os.path.join(self.world.folder, name + ".log"), encoding="utf-8") as file:
            return file.read()

    def start_compositor(self, *options):
        self.world.others.append(self.world.start(
            "weston", "weston", "--backend=headless-backend.so", "--socket=wayland-test", "--no-config",
            "--idle-time=0", *options))
        harness.wait_until(lambda: harness.is_listening(os.path.join(self.world.runtime, "wayland-test")),
                           desktop.PATIENCE, "the compositor")
        self.world.environment["WAYLAND_DISPLAY"] = "wayland-test"

    def add_speaker(self):
        self.world.add_sink("speaker")
        self.world.set_default("speaker")

    def windows(self):
        """The titles of the windows that the program has asked the compositor for."""
        return re.findall(r'xdg_toplevel[@#]\d+\.set_title\("(.*)"\)', self.read("program"))

    def state(self, window):
        return "window state" in self.world.ask("xprop", "-id", str(window), "WM_STATE")

    def test_the_service_asks_for_no_window(self):
        self.add_speaker()
        self.start_compositor()
        self.world.start_program()
        client = self.world.connect()
        client.wait_for(lambda message: len(client.messages) >= 100, desktop.PATIENCE, "a hundred messages")
        self.assertRegex(self.read("program"), r"wl_display[@#]1\.get_registry")
        self.assertEqual(self.windows(), [])
        self.assertNotIn(".attach(", self.read("program"))  # nothing is drawn either

    def test_the_report_is_a_window(self):
        self.world.stop_server()
        self.start_compositor()
        self.world.start_program()
        # Drawn: that it can be seen, and not only that it was asked for.
        harness.wait_until(lambda: ".attach(" in self.read("program"), desktop.PATIENCE, "the dialog")
        self.assertEqual(self.windows(), [desktop.DIALOG])

    def test_beside_x_programs_it_is_one_and_stays_unmanaged(self):
        self.add_speaker()
        self.start_compositor("--xwayland")
        listening = r"xserver listening on display (:\d+)"
        self.world.environment["DISPLAY"] = harness.wait_until(
            lambda: re.search(listening, self.read("weston")), desktop.PATIENCE, "Xwayland").group(1)
        screen = desktop.Screen(self.world)
        terminal = desktop.Terminal(screen, "terminal")
        self.world.start_program()
        window = harness.wait_until(lambda: screen.visible(desktop.TITLE), desktop.PATIENCE, "the window")
        # What the compositor manages, as it does the terminal, has a state.
        harness.wait_until(lambda: self.state(terminal.window), desktop.PATIENCE, "the terminal's state")
        self.assertFalse(self.state(window[0]))
        self.assertNotIn(window[0], screen.ids("_NET_ACTIVE_WINDOW"))
        self.assertIn("Override Redirect State: yes", self.world.ask("xwininfo", "-id", str(window[0])))
        self.assertNotIn("wl_display", self.read("program"))


if __name__ == "__main__":
    unittest.main()
