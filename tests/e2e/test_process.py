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
        self.assertLess(time.monotonic() - begin, 5)
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

    def test_termination_request_while_starting(self):
        # The socket comes before capture is started: at once, and at moments after it.
        self.assertEqual(harness.end_process(self.program), 0)
        for delay in (0, 0, 0.002, 0.005, 0.01, 0.02, 0.05):
            program = self.world.start("program", harness.PROGRAM)
            self.world.others.append(program)
            end = time.monotonic() + 10
            while not os.path.exists(self.world.socket) and time.monotonic() < end:
                time.sleep(0.0005)
            time.sleep(delay)
            begin = time.monotonic()
            program.send_signal(signal.SIGTERM)
            self.assertEqual(program.wait(10), 0, delay)
            self.assertLess(time.monotonic() - begin, 2, delay)
            self.assertFalse(os.path.exists(self.world.socket), delay)

    def test_only_the_user_can_connect(self):
        mode = stat.S_IMODE(os.stat(self.world.socket).st_mode)
        self.assertEqual(mode & 0o077, 0, oct(mode))

    def test_nothing_is_written_to_the_console(self):
        self.assertEqual(harness.end_process(self.program), 0)
        with open(os.path.join(self.world.folder, "program.log"), "rb") as log:
            self.assertEqual(log.read(), b"")


if __name__ == "__main__":
    unittest.main(verbosity=2)
