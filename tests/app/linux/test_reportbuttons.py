"""The report that is shown when capture cannot start, to a user whose language is Chinese: Qt's own
buttons are in that language, everything else is as it always is.

Runs inside tests/support/linux/with_xvfb. TONEWELL_PROGRAM names the program.
"""
import os
import subprocess
import sys
import unittest

TESTS = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
sys.path[:0] = [os.path.join(TESTS, "e2e"), os.path.join(TESTS, "support", "linux")]
import accessibility  # noqa: E402
import harness  # noqa: E402

DISPLAY = os.environ["DISPLAY"]


class ReportButtons(unittest.TestCase):
    def setUp(self):
        self.world = harness.World()  # whose sound server does not run
        self.addCleanup(self.world.close)
        self.bus = accessibility.Bus(self.world.folder)
        self.addCleanup(self.bus.close)

    def test_qt_speaks_the_users_language(self):
        environment = {**self.world.environment, **self.bus.environment, "DISPLAY": DISPLAY,
                       "QT_QPA_PLATFORM": "xcb", "LC_ALL": "zh_CN.UTF-8"}
        program = subprocess.Popen([harness.PROGRAM], env=environment, stdin=subprocess.DEVNULL,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(harness.end_process, program)
        self.bus.press(program.pid, "复制到剪贴板")
        self.bus.find(program.pid, "label", "错误报告已复制到剪贴板")
        self.bus.press(program.pid, "确定")
        self.bus.press(program.pid, "保存到文件")
        self.bus.find(program.pid, "push button", "保存")
        self.bus.press(program.pid, "取消")


if __name__ == "__main__":
    unittest.main(verbosity=2)
