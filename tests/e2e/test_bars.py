"""What is played is what the bars show: a tone's place and side, and silence."""
import unittest

import harness

HALF_SCALE = 10 ** (-6 / 20)  # -6 dBFS
FREQUENCY = 1000


def expected_bar(side, rate):
    """The bar that a tone falls into: its FFT bin is labelled with twice its frequency, negative
    on the left, and a bar spans 140 Hz from -7000 Hz on."""
    label = 2 * round(FREQUENCY * 2048 / rate) * rate / 2048
    return int(((-label if side == "left" else label) + 7000) / 140)


class ToneCase:
    rate = 48000

    def setUp(self):
        self.world = harness.make_world()
        self.addCleanup(self.world.close)
        self.world.add_sink("speaker", self.rate)
        self.world.set_default("speaker")
        self.world.start_program()
        self.client = self.world.connect()

    def play(self, side):
        tone = (FREQUENCY, HALF_SCALE)
        return self.world.play("speaker", self.rate, tone if side == "left" else None,
                               tone if side == "right" else None)

    def check_side(self, side):
        player = self.play(side)
        self.client.wait_for(lambda m: m.bars[m.loudest()] >= 60, 10, f"a tone on the {side}")
        # Two seconds without a flaw: a busy machine may cut the sound itself for a moment, and such
        # a click is in every bar.
        index = expected_bar(side, self.rate)
        clean = []

        def two_clean_seconds(message):
            self.assertEqual(len(message.fields), 104)
            fine = (abs(message.loudest() - index) <= 2 and message.bars[message.loudest()] >= 60
                    and not any(message.right if side == "left" else message.left)
                    and message.levels[0] > 0)
            clean[:] = clean + [message] if fine else []
            return len(clean) == 100

        self.client.wait_for(two_clean_seconds, 15, f"2 s of a tone near bar {index} and silence elsewhere")
        harness.end_process(player)

    def test_tone_on_the_left(self):
        self.check_side("left")

    def test_tone_on_the_right(self):
        self.check_side("right")

    def test_silence_after_the_tone(self):
        player = self.play("left")
        self.client.wait_for(lambda m: max(m.bars) >= 60, 10, "the tone")
        harness.end_process(player)
        self.client.wait_for(lambda m: not any(m.bars), 2, "zero bars after the tone's end")
        self.client.next()
        start = len(self.client.messages)
        harness.wait_until(lambda: len(self.client.messages) >= start + 50, 3, "messages in silence")


class ToneAt48kHz(ToneCase, unittest.TestCase):
    rate = 48000


class ToneAt44kHz(ToneCase, unittest.TestCase):
    rate = 44100


class ToneAt96kHz(ToneCase, unittest.TestCase):
    rate = 96000


if __name__ == "__main__":
    unittest.main(verbosity=2)
