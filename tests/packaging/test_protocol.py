"""docs/protocol.md says what the program does: its grammar, numbers and examples against the
sources, the program's own messages and the example consumer."""
import contextlib
import importlib.util
import json
import os
import re
import signal
import stat
import subprocess
import sys
import threading
import unittest

import harness
import jsonschema
from abnf import Grammar

PATIENCE = 40  # seconds until what is shown must have been printed
SOURCE = os.environ["TONEWELL_SOURCE"]
BUILD = os.environ["TONEWELL_BUILD"]


def read(*names):
    with open(os.path.join(*names), encoding="utf-8") as file:
        return file.read()


def blocks(kind, document=None):
    return [block.strip("\n") for block in re.findall(rf"```{kind}\n(.*?)```", document or DOCUMENT, re.S)]


def consumer():
    path = os.path.join(SOURCE, "examples/python/spectrum_consumer.py")
    spec = importlib.util.spec_from_file_location("spectrum_consumer", path)
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


DOCUMENT = read(SOURCE, "docs/protocol.md")
MANUAL = read(SOURCE, "packaging/man/tonewell-message.7")
CONSUMER = consumer()
JSON = re.search(r"^## From any language\n(.*?)^## ", DOCUMENT, re.M | re.S).group(1)
SCHEMA = json.loads(blocks("schema")[0])


class GrammarTest(unittest.TestCase):
    def setUp(self):
        self.grammar = Grammar(blocks("abnf")[0])

    def test_whole_examples_fit(self):
        self.assertGreaterEqual(len(blocks("message")), 2)
        for message in blocks("message"):
            self.assertTrue(self.grammar.matches("message", message), message)

    def test_levels(self):
        for text in ("0", "200", "49.3824", "4e-05", "4e+202", "-1.23457e+308", "nan", "inf", "-inf"):
            self.assertTrue(self.grammar.matches("level", text), text)
        for text in ("", "1,5", "0x1", "NaN", ".5", "5.", "1e5", "+1", "1 000"):
            self.assertFalse(self.grammar.matches("level", text), text)

    def test_bars(self):
        for text in ("0", "12", "1234", "-123", "-214"):
            self.assertTrue(self.grammar.matches("bar", text), text)
        for text in ("", "12345", "-1234", "1.5", "nan", "+1", " 1"):
            self.assertFalse(self.grammar.matches("bar", text), text)

    def test_what_does_not_fit(self):
        silence = blocks("message")[0]
        for text in (silence + "/&+&/0", silence.rsplit("/&+&/", 1)[0], silence + "/&+&/",
                     silence.replace("SoundSpectrum", "soundspectrum"), silence.replace("&+&", "&-&"), ""):
            self.assertFalse(self.grammar.matches("message", text), text)


class Numbers(unittest.TestCase):
    def test_signature_is_the_one_that_is_compiled_in(self):
        generated = read(BUILD, "remote/rep_commoninterface_source.h")
        signature = re.search(r'REMOTEOBJECT_SIGNATURE, "([0-9a-f]{40})"', generated).group(1)
        kind = re.search(r'REMOTEOBJECT_TYPE, "(\w+)"', generated).group(1)
        for text in (DOCUMENT, MANUAL):
            self.assertIn(signature, text)
            self.assertIn(kind, text)

    def test_interface_file_is_the_one_that_is_described(self):
        interface = read(SOURCE, "remote/commoninterface.rep")
        for member in ("sigMessage(QString msg)", "onMessage(QString msg)"):
            self.assertIn(member, interface)
            self.assertIn(f"`{member}`", DOCUMENT)

    def test_manual_has_the_same_grammar(self):
        self.assertIn(blocks("abnf")[0], MANUAL)

    def test_golden_example_is_the_tested_one(self):
        golden = blocks("text")[0]
        self.assertIn(f'QStringLiteral("{golden}")', read(SOURCE, "tests/remote/tst_spectrummessage.cpp"))
        self.assertIn(golden, MANUAL)

    def test_table_of_frequencies(self):
        """The document's formulas, the example's, and the program's labels of twice the frequency."""
        rows = re.findall(r"^\| (\d+) to (\d+), (?:left|right) \| (.*?) Hz \| (.*?) Hz \| (.*?) Hz \|", DOCUMENT, re.M)
        self.assertEqual([row[:2] for row in rows], [("0", "49"), ("50", "99")])
        for first, last, *formulas in rows:
            low, high, centre = (formula.replace("×", "*").replace("−", "-").replace("*k*", "k") for formula in formulas)
            for k in range(int(first), int(last) + 1):
                self.assertEqual(eval(centre, {"k": k}), CONSUMER.frequency(k))
                label = -7000 + 140 * (k + 0.5)
                self.assertEqual(abs(label) / 2, CONSUMER.frequency(k))
                self.assertEqual((eval(low, {"k": k}) + eval(high, {"k": k})) / 2, CONSUMER.frequency(k))
                self.assertEqual(eval(high, {"k": k}) - eval(low, {"k": k}), 70)


class ExampleParser(unittest.TestCase):
    def test_takes_the_documents_examples(self):
        for message in blocks("message"):
            levels, bars = CONSUMER.parse(message)
            self.assertEqual((len(levels), len(bars)), (3, 100))
        levels, bars = CONSUMER.parse(blocks("message")[0])
        self.assertEqual((levels, bars), ([0.0] * 3, [0] * 100))

    def test_finds_the_tones_of_the_documents_example(self):
        _, bars = CONSUMER.parse(blocks("message")[1])
        for tone, first in ((1015, 0), (455, 50)):
            highest = [k for k in range(first, first + 50) if bars[k] == max(bars[first:first + 50])]
            self.assertEqual(CONSUMER.frequency(highest[len(highest) // 2]), tone)
            self.assertIn(f" = {tone} Hz", DOCUMENT)

    def test_refuses_what_is_none(self):
        silence = blocks("message")[0]
        for text in ("", "SoundSpectrum", silence + "/&+&/0", silence.replace("Sound", "Light"),
                     silence[:-1] + "x", silence.replace("/&+&/0", "/&+&/0.5", 5)):
            with self.assertRaises(ValueError):
                CONSUMER.parse(text)


class Schema(unittest.TestCase):
    def setUp(self):
        self.good = {**json.loads(blocks("json")[0]), "bars": [0] * 100}

    def test_is_one_and_takes_the_documents_example(self):
        jsonschema.Draft202012Validator.check_schema(SCHEMA)
        jsonschema.validate(self.good, SCHEMA)
        self.assertIn(blocks("json")[0], read(SOURCE, "packaging/man/tonewell-monitor.1"))

    def test_refuses_what_is_none(self):
        wrong = [{name: value for name, value in self.good.items() if name != left_out} for left_out in self.good]
        wrong += [{**self.good, name: None} for name in self.good]
        wrong += [{**self.good, "bars": bars} for bars in ([0] * 99, [0] * 101, [0.5] * 100, [10000] * 100)]
        for value in wrong:
            with self.assertRaises(jsonschema.ValidationError, msg=value):
                jsonschema.validate(value, SCHEMA)


class Program(unittest.TestCase):
    """What the running program sends, and who may connect to it."""

    def setUp(self):
        self.grammar = Grammar(blocks("abnf")[0])
        self.world = harness.make_world()
        self.addCleanup(self.world.close)
        self.world.add_sink("speaker")
        self.world.set_default("speaker")
        self.world.start_program()
        self.client = self.world.connect()

    def test_messages_fit_the_grammar(self):
        self.world.play("speaker", 48000, (1015, 0.5), (455, 0.5))
        self.client.wait_for(lambda m: max(m.left) > 60 and max(m.right) > 60, 10, "both tones")
        start = len(self.client.messages)
        harness.wait_until(lambda: len(self.client.messages) > start + 50, 5, "50 messages")
        for message in self.client.messages:
            self.assertTrue(self.grammar.matches("message", message.text), message.text)
        last = self.client.messages[-1]
        for tone, first in ((1015, 0), (455, 50)):
            loudest = max(range(first, first + 50), key=last.bars.__getitem__)
            self.assertLessEqual(abs(CONSUMER.frequency(loudest) - tone), 70 * 1.5, last.text)

    def start(self, *command):
        """A program that finds the monitor where it looks for programs, with all that it starts."""
        environment = {**self.world.environment,
                       "PATH": os.path.dirname(harness.PROGRAM) + ":" + os.environ["PATH"]}
        process = subprocess.Popen(command, env=environment, stdin=subprocess.DEVNULL, text=True,
                                   stdout=subprocess.PIPE, start_new_session=True)

        def end():
            with contextlib.suppress(ProcessLookupError):
                os.killpg(process.pid, signal.SIGKILL)
            process.wait()
            process.stdout.close()

        limit = threading.Timer(PATIENCE, os.killpg, (process.pid, signal.SIGKILL))
        limit.start()
        self.addCleanup(end)
        self.addCleanup(limit.cancel)
        return process

    def test_lines_of_the_monitor_fit_the_schema(self):
        self.world.play("speaker", 48000, (1015, 0.5), (455, 0.5))
        lines = self.start("tonewell-monitor", "--json").stdout
        for line in lines:
            message = json.loads(line)
            jsonschema.validate(message, SCHEMA)
            self.assertEqual(set(message), set(SCHEMA["properties"]))
            if min(max(message["bars"][:50]), max(message["bars"][50:])) > 60:
                return
        self.fail("the monitor has ended")

    def test_examples_of_all_languages_run(self):
        self.world.play("speaker", 48000, (1015, 0.5), (455, 0.5))
        for kind, *interpreter in (("python", sys.executable, "-c"), ("js", "node", "-e"), ("sh", "sh", "-c")):
            with self.subTest(language=kind):
                program, = blocks(kind, JSON)
                self.assertEqual(len(program.splitlines()), 5)
                for line in self.start(*interpreter, program).stdout:
                    rms, tallest = map(float, line.split())
                    if rms > 50 and tallest > 60:
                        break
                else:
                    self.fail("it has ended")

    def test_only_its_user_can_connect(self):
        mode = os.stat(self.world.socket).st_mode
        self.assertTrue(stat.S_ISSOCK(mode))
        self.assertEqual(oct(stat.S_IMODE(mode)), "0o700")
        self.assertIn("mode 0700", DOCUMENT)


if __name__ == "__main__":
    unittest.main(verbosity=2)
