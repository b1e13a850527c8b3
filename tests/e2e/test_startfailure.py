"""No sound server at all: the report, once, where somebody can read it, and the program runs on."""
import os
import subprocess
import unittest

import harness

TITLE = "错误报告 - Quillory音频服务程序"
BANNER = "     TonewellDetection Error Report\n"


def silent(message):
    return all(bar == 0 for bar in message.bars) and all(level == 0 for level in message.levels)


class StartFailure(unittest.TestCase):
    def setUp(self):
        self.world = harness.make_world()
        self.addCleanup(self.world.close)
        self.world.stop_server()

    def start_display(self):
        """An X server of its own; the program's windows are on it from now on."""
        read_end, write_end = os.pipe()
        with self.world.log("display") as log:
            server = subprocess.Popen(
                ["Xvfb", "-displayfd", str(write_end), "-screen", "0", "1280x1024x24",
                 "-nolisten", "tcp", "-noreset"],
                pass_fds=[write_end], stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        self.world.others.append(server)
        os.close(write_end)
        with os.fdopen(read_end) as display:
            self.world.environment["DISPLAY"] = ":" + display.readline().strip()

    def dialogs(self):
        tree = subprocess.run(["xwininfo", "-root", "-tree"], env=self.world.environment, check=True,
                              timeout=10, stdout=subprocess.PIPE).stdout
        return tree.decode().count(f'"{TITLE}"')

    def printed(self):
        with open(os.path.join(self.world.folder, "program.log"), encoding="utf-8") as log:
            return log.read()

    def check_runs_on(self, client):
        """Returns the messages of some seconds, after a look at their rate."""
        start = len(client.messages)
        harness.wait_until(lambda: len(client.messages) >= start + 150, 5, "150 messages")
        received = client.messages[start:start + 150]
        # 50 a second; how evenly is the business of another test.
        rate = 149 / (received[-1].when - received[0].when)
        self.assertTrue(40 < rate < 60, rate)
        return received

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
        self.start_display()
        self.world.start_program()
        client = self.world.connect()
        harness.wait_until(lambda: self.dialogs() == 1, 10, "the dialog")
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
        self.assertEqual(text.count(BANNER), 1)
        for line in ("  App Name: TonewellDetection\n",
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
                     "\n[Device Format Debug Info]\n  Current Device: 默认输出设备\n"):
            self.assertIn(line, text)
        # The dialog that nobody sees does not keep the program from ending.
        self.assertEqual(harness.end_process(program, 2), 0)


if __name__ == "__main__":
    unittest.main()
