"""Capture follows the default output and comes back from every loss by itself."""
import unittest

import harness

LEFT = (1000, 0.5)
RIGHT = (2000, 0.5)


def only_left(message):
    return max(message.left) >= 60 and not any(message.right)


def only_right(message):
    return max(message.right) >= 60 and not any(message.left)


class Devices(unittest.TestCase):
    """Sink "first" plays on the left only, sink "second" on the right only."""

    def setUp(self):
        self.world = harness.make_world()
        self.addCleanup(self.world.close)
        self.first = self.world.add_sink("first")
        self.second = self.world.add_sink("second", 44100)
        self.world.play_pinned("first", 1000, 0.5, 0)
        self.world.play_pinned("second", 2000, 0, 0.5)
        self.world.set_default("first")
        self.program = self.world.start_program()
        self.client = self.world.connect()
        self.client.wait_for(only_left, 10, "the first sink's tone")

    def tearDown(self):
        self.assertIsNone(self.program.poll(), "the program ended")

    def test_default_sink_switched_while_playing(self):
        for _ in range(3):
            self.world.set_default("second")
            self.client.wait_for(only_right, 5, "the second sink's tone")
            self.world.set_default("first")
            self.client.wait_for(only_left, 5, "the first sink's tone")

    def test_default_sink_removed(self):
        self.world.pactl("unload-module", self.first)
        self.world.set_default("second")
        self.client.wait_for(only_right, 8, "the second sink's tone")

    def test_other_sink_removed_and_added(self):
        self.world.pactl("unload-module", self.second)
        self.client.wait_for(lambda m: max(m.left) >= 60, 5, "the first sink's tone")
        self.world.add_sink("third")
        start = len(self.client.messages)
        harness.wait_until(lambda: len(self.client.messages) >= start + 100, 5, "messages")
        self.client.wait_for(lambda m: max(m.left) >= 60, 5, "the first sink's tone")


class ServerLoss(unittest.TestCase):
    def test_server_killed_and_started_again(self):
        world = harness.make_world()
        self.addCleanup(world.close)
        world.add_sink("speaker")
        world.set_default("speaker")
        world.play("speaker", 48000, LEFT, None)
        program = world.start_program()
        client = world.connect()
        client.wait_for(only_left, 10, "the tone")

        world.kill_server()
        start = len(client.messages)
        harness.wait_until(lambda: len(client.messages) >= start + 100, 4, "messages without a server")
        self.assertIsNone(program.poll())
        world.start_server()
        world.add_sink("speaker")
        world.set_default("speaker")
        world.play("speaker", 48000, None, RIGHT)
        client.wait_for(only_right, 10, "the tone of the server that came back")
        self.assertIsNone(program.poll())


class NoServerAtFirst(unittest.TestCase):
    def test_capture_starts_when_a_server_appears(self):
        """The levels tell: after a failed first start the analyser stays busy by design."""
        world = harness.make_world()
        self.addCleanup(world.close)
        world.stop_server()
        program = world.start_program()
        client = world.connect()
        start = len(client.messages)
        harness.wait_until(lambda: len(client.messages) >= start + 100, 4, "messages without a server")
        for message in client.messages:
            self.assertEqual((message.levels, message.bars), ([0, 0, 0], [0] * 100))
        world.start_server()
        world.add_sink("speaker")
        world.set_default("speaker")
        world.play("speaker", 48000, LEFT, None)
        client.wait_for(lambda m: m.levels[0] >= 60, 10, "the tone of the server that appeared")
        self.assertIsNone(program.poll())


if __name__ == "__main__":
    unittest.main(verbosity=2)
