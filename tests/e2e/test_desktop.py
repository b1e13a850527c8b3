"""The program under a real window manager: nobody notices that it starts, and its report can be used."""
import random
import string
import unittest

import desktop
import harness

STARTS = 5
CHUNKS = 10
CHUNK = 12  # characters


class Unnoticed(unittest.TestCase):
    def setUp(self):
        self.world = harness.make_world()
        self.addCleanup(self.world.close)
        self.world.add_sink("speaker")
        self.world.set_default("speaker")
        self.desktop = desktop.Desktop(self.world)
        self.terminal = desktop.Terminal(self.desktop, "terminal")
        self.desktop.activate(self.terminal.window)
        self.text = ""

    def type_on(self):
        chunk = "".join(random.choices(string.ascii_lowercase, k=CHUNK))
        self.desktop.type(chunk)
        self.text += chunk

    def check_nothing_is_lost(self, when):
        try:
            harness.wait_until(lambda: len(self.terminal.typed()) >= len(self.text), 5, "all characters")
        except AssertionError:
            pass  # what is missing is seen in the comparison
        self.assertEqual(self.terminal.typed(), self.text, when)

    def start_program(self):
        program = self.world.start("program", harness.PROGRAM)
        self.world.others.append(program)
        return program

    def window(self, program):
        """The program's windows that are shown."""
        self.assertIsNone(program.poll())
        return self.desktop.visible(desktop.TITLE)

    def end(self, program, kill):
        if kill:
            program.kill()
        harness.end_process(program)
        harness.wait_until(lambda: not self.desktop.visible(desktop.TITLE), desktop.PATIENCE,
                           "the end of the window")

    def test_no_character_is_lost_while_it_starts(self):
        for _ in range(CHUNKS):
            self.type_on()
        self.check_nothing_is_lost("without the program: the machine itself loses characters")
        for start in range(STARTS):
            self.type_on()
            program = self.start_program()
            while not self.window(program):
                self.type_on()
            for _ in range(CHUNKS):
                self.type_on()
            self.check_nothing_is_lost(f"start {start + 1}")
            self.assertEqual(self.desktop.listed(), {self.terminal.window})
            # As a crash ends it, and as the session does.
            self.end(program, kill=start % 2 == 0)
        self.check_nothing_is_lost("after its end")
        self.assertEqual(self.desktop.ever_active(), {self.terminal.window})

    def test_it_is_in_no_switcher_and_stays_where_it_was_put(self):
        # With another window there is one to switch to.
        second = desktop.Terminal(self.desktop, "second")
        self.desktop.activate(self.terminal.window)
        self.desktop.switch_to(second.window)
        harness.end_process(second.process)
        harness.wait_until(lambda: self.desktop.listed() == {self.terminal.window}, desktop.PATIENCE,
                           "the end of the other window")
        self.desktop.activate(self.terminal.window)

        program = self.start_program()
        window = harness.wait_until(lambda: self.window(program), desktop.PATIENCE, "the window")
        self.desktop.switch(self.terminal.window)
        self.assertEqual(self.desktop.active(), [self.terminal.window])
        self.assertEqual(self.desktop.listed(), {self.terminal.window})
        self.assertEqual(self.desktop.ever_active(), {self.terminal.window, second.window})
        self.assertEqual(len(window), 1)
        geometry = self.world.ask("xdotool", "getwindowgeometry", "--shell", str(window[0])).splitlines()
        for line in ("X=-100", "Y=-100", "WIDTH=1", "HEIGHT=1"):
            self.assertIn(line, geometry)


class Report(unittest.TestCase):
    """Nothing to capture from: the dialog is a window like any other."""

    def setUp(self):
        self.world = harness.make_world()
        self.addCleanup(self.world.close)
        self.world.stop_server()
        self.desktop = desktop.Desktop(self.world)

    def test_the_dialog_is_listed_and_takes_the_keyboard(self):
        self.world.start_program()
        dialog = harness.wait_until(lambda: self.desktop.visible(desktop.DIALOG), desktop.PATIENCE,
                                    "the dialog")
        self.assertEqual(len(dialog), 1)
        harness.wait_until(lambda: dialog[0] in self.desktop.listed(), desktop.PATIENCE, "its entry")
        self.desktop.wait_until_active(dialog[0])
        self.world.ask("xdotool", "key", "Escape")
        harness.wait_until(lambda: not self.desktop.visible(desktop.DIALOG), desktop.PATIENCE,
                           "the end of the dialog")


if __name__ == "__main__":
    unittest.main()
