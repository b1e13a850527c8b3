"""Fifty messages a second, evenly, for half a minute."""
import unittest

import harness

SECONDS = 30


class Rate(unittest.TestCase):
    def test_thirty_seconds_of_messages(self):
        world = harness.make_world()
        self.addCleanup(world.close)
        world.add_sink("speaker")
        world.set_default("speaker")
        world.play("speaker", 48000, (1000, 0.5), (3000, 0.5))
        world.start_program()
        client = world.connect()
        first = client.wait_for(lambda m: max(m.bars) >= 60, 10, "the tone")
        client.wait_for(lambda m: m.when >= first.when + SECONDS, SECONDS + 10, "the last message")

        messages = [m for m in client.messages if first.when <= m.when <= first.when + SECONDS]
        gaps = sorted(b.when - a.when for a, b in zip(messages, messages[1:]))
        rate = len(gaps) / (messages[-1].when - messages[0].when)
        at_most_40ms = sum(gap <= 0.040 for gap in gaps) / len(gaps)
        print(f"{len(messages)} messages, {rate:.2f}/s, gaps: median {1000 * gaps[len(gaps) // 2]:.1f} ms, "
              f"p99 {1000 * gaps[int(len(gaps) * 0.99)]:.1f} ms, longest {1000 * gaps[-1]:.1f} ms, "
              f"{100 * at_most_40ms:.2f} % at most 40 ms", flush=True)
        self.assertAlmostEqual(rate, 50, delta=0.5)
        self.assertGreaterEqual(at_most_40ms, 0.99)
        self.assertLessEqual(gaps[-1], 0.250)
        for message in messages:
            self.assertEqual(len(message.fields), 104)
            self.assertEqual(message.fields[0], "SoundSpectrum")


if __name__ == "__main__":
    unittest.main(verbosity=2)
