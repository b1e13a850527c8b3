"""One copy a user, a clean end, and a new start after any end."""
import os
import signal
import stat
import time
import unittest

import harness


class Process(unittest.TestCase):
    def setUp(self):
        self.world = harness.make_world()
        self.addCleanup(self.world.close)
        self.world.add_sink("speaker")
        self.world.set_default("speaker")
        self.program = self.world.start_program()
        self.client = self.world.connect()

    def check_second_copy_leaves(self):
        second = self.world.start("second", harness.PROGRAM)
        begin = time.monotonic()
        self.assertEqual(second.wait(10), 0)
        self.assertLess(time.monotonic() - begin, 1)
        self.client.next()
        self.assertIsNone(self.program.poll())

    def test_second_copy_leaves_at_once(self):
        self.check_second_copy_leaves()
        self.check_second_copy_leaves()

    def test_new_start_after_a_kill(self):
        self.program.kill()
        self.program.wait()
        self.program = self.world.start("program", harness.PROGRAM)
        self.world.others.append(self.program)
        self.client.next(10)
        self.assertIsNone(self.program.poll())
        self.check_second_copy_leaves()

    def test_new_start_after_a_normal_end(self):
        self.assertEqual(harness.end_process(self.program), 0)
        self.program = self.world.start_program()
        self.client.next(10)
        self.assertIsNone(self.program.poll())

    def test_termination_request(self):
        for request in (signal.SIGTERM, signal.SIGINT):
            begin = time.monotonic()
            self.program.send_signal(request)
            self.assertEqual(self.program.wait(10), 0)
            self.assertLess(time.monotonic() - begin, 2)
            self.assertFalse(os.path.exists(self.world.socket))
            self.program = self.world.start_program()

    def test_only_the_user_can_connect(self):
        mode = stat.S_IMODE(os.stat(self.world.socket).st_mode)
        self.assertEqual(mode & 0o077, 0, oct(mode))

    def test_nothing_is_written_to_the_console(self):
        self.assertEqual(harness.end_process(self.program), 0)
        with open(os.path.join(self.world.folder, "program.log"), "rb") as log:
            self.assertEqual(log.read(), b"")


if __name__ == "__main__":
    unittest.main(verbosity=2)
