"""No sound server at all: the report, once, where somebody can read it, and the program runs on."""
import os
import unittest

import harness

TITLE = "错误报告 - Quillory音频服务程序"
MESSAGES = 500
BOX_TITLE = "提示"
BANNER = "     TonewellDetection Error Report\n"
SECTIONS = (
    "  App Name: TonewellDetection\n",
    "  Exception Type: Audio Service Error\n",
    "  Exception Message: WASAPI Error: ",
    "\n[Audio Service Diagnostics]\n[Windows Audio Service Status]\n"
    "  Service Control Manager: Access denied\n\n",
    "\n[COM Initialization Status]\n  COM Status: Successfully initialized "
    "(COINIT_APARTMENTTHREADED)\n\n",
    "\n[Audio Devices Information]\n  Device Enumerator: Created successfully\n"
    "  Default Render Device (Console): Not found\n"
    "  Default Capture Device (Console): Not found\n",
    "\n[WASAPI Error Code Reference]\n",
    "\n[Device Format Debug Info]\n  Current Device: 默认输出设备\n")


def silent(message):
    return all(bar == 0 for bar in message.bars) and all(level == 0 for level in message.levels)


class StartFailure(unittest.TestCase):
    def setUp(self):
        self.world = harness.make_world()
        self.addCleanup(self.world.close)
        self.world.stop_server()

    def windows(self, title):
        return self.world.ask("xwininfo", "-root", "-tree").count(f'"{title}"')

    def dialogs(self):
        return self.windows(TITLE)

    def window(self, title):
        return self.world.ask("xdotool", "search", "--onlyvisible", "--name", f"^{title}$").strip()

    def copied_report(self):
        """Presses the dialog's first button and confirms the box; what is on the clipboard then."""
        dialog = self.window(TITLE)
        geometry = dict(line.split("=") for line in self.world.ask(
            "xdotool", "getwindowgeometry", "--shell", dialog).splitlines())
        self.world.ask("xdotool", "mousemove", "--sync", "--window", dialog, "60",
                       str(int(geometry["HEIGHT"]) - 25), "click", "1")
        harness.wait_until(lambda: self.windows(BOX_TITLE) == 1, 5, "the box after the copy")
        text = self.world.ask("xclip", "-o", "-selection", "clipboard", "-t", "UTF8_STRING")
        # No window manager gives the box the keyboard.
        self.world.ask("xdotool", "windowfocus", "--sync", self.window(BOX_TITLE), "key", "Return")
        harness.wait_until(lambda: self.windows(BOX_TITLE) == 0, 5, "the end of the box")
        return text

    def check_report(self, text):
        self.assertEqual(text.count(BANNER), 1)
        for line in SECTIONS:
            self.assertIn(line, text)

    def printed(self):
        with open(os.path.join(self.world.folder, "program.log"), encoding="utf-8") as log:
            return log.read()

    def check_runs_on(self, client):
        """Looks for ten seconds with 50 messages each; what else runs on the machine may spoil a
        few. Returns all messages that were looked at. How evenly they come is another test's."""
        first = len(client.messages)
        rates = []
        while len(rates) < 4:
            start = len(client.messages)
            harness.wait_until(lambda: len(client.messages) >= start + MESSAGES, 20, "the messages")
            last = client.messages[start + MESSAGES - 1]
            rates.append((MESSAGES - 1) / (last.when - client.messages[start].when))
            if 49 < rates[-1] < 51:
                return client.messages[first:]
        self.fail(f"messages a second: {rates}")

    def check_runs_on_in_silence(self, client):
        self.assertTrue(all(silent(message) for message in self.check_runs_on(client)))

    def check_capture_starts(self, client):
        self.world.start_server()
        self.world.add_sink("speaker")
        self.world.set_default("speaker")
        self.world.play("speaker", 48000, (1000, 0.5), (1000, 0.5))
        # The levels tell: after a failed first start the analyser stays busy by design.
        client.wait_for(lambda message: message.levels[0] >= 60, 15, "the tone")

    def test_dialog_opens_once(self):
        self.world.start_display()
        self.world.start_program()
        client = self.world.connect()
        harness.wait_until(lambda: self.dialogs() == 1, 10, "the dialog")
        report = self.copied_report()
        self.check_report(report)
        self.assertTrue(report.endswith("\n  pwfx = null (device not initialized)\n"), report)
        self.check_runs_on_in_silence(client)
        self.check_capture_starts(client)
        self.assertEqual(self.dialogs(), 1)

        self.world.kill_server()  # and every start fails again
        self.check_runs_on(client)
        self.assertEqual(self.dialogs(), 1)
        self.assertEqual(self.printed(), "")

    def test_without_a_display_it_is_printed_once(self):
        program = self.world.start_program()
        client = self.world.connect()
        harness.wait_until(lambda: BANNER in self.printed(), 10, "the report")
        self.check_runs_on_in_silence(client)
        self.check_capture_starts(client)
        self.world.kill_server()
        self.check_runs_on(client)

        text = self.printed()
        self.check_report(text)
        # The dialog that nobody sees does not keep the program from ending.
        self.assertEqual(harness.end_process(program, 2), 0)


if __name__ == "__main__":
    unittest.main()
