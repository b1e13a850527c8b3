"""docs/architecture.md and docs/behaviour.md name files, functions and tests: all of them exist."""
import os
import re
import unittest

SOURCE = os.environ["TONEWELL_SOURCE"]
ROOMS = ("app", "capture", "platform", "remote", "report", "spectrum", "tests", "tools")
CODE = (".cpp", ".h", ".py", ".rep", ".ui", ".S")

TEST = re.compile(r"^(tst_\w+|test_\w+\.py)(?:::(\w+))?$")
PATH = re.compile(r"^[\w.-]+/[\w./*-]*$")
NAME = re.compile(r"^~?\w+(::~?\w+)*(\(\))?$")


def read(path):
    with open(path, encoding="utf-8", errors="replace") as file:
        return file.read()


def without_comments(text):
    return re.sub(r"//[^\n]*|/\*.*?\*/", "", text, flags=re.S)


class Tree:
    """The code of all rooms and of the tests, without its comments."""

    def __init__(self):
        self.files = {}
        for room in ROOMS:
            for folder, _, names in os.walk(os.path.join(SOURCE, room)):
                for name in names:
                    path = os.path.join(folder, name)
                    if name.endswith(CODE) and name != os.path.basename(__file__):
                        self.files[os.path.relpath(path, SOURCE)] = without_comments(read(path))
        self.words = set(re.findall(r"\w+", " ".join(self.files.values())))
        self.called = set(re.findall(r"(\w+)\(", " ".join(self.files.values())))

    def program(self, name):
        """The source of a test, by its name in CTest or its file's name."""
        wanted = name if name.endswith(".py") else name + ".cpp"
        found = [path for path in self.files if os.path.basename(path) == wanted]
        return "".join(self.files[path] for path in found)

    def problem(self, token, paths=()):
        """What is wrong with a name in a document; None when it exists."""
        test = TEST.match(token)
        if test:
            text = self.program(test.group(1))
            if not text:
                return f"{token}: there is no such test"
            if test.group(2) and not re.search(rf"\b{test.group(2)}\(", text):
                return f"{token}: the test has no such function"
        elif PATH.match(token):
            if not os.path.exists(os.path.join(SOURCE, token)):
                return f"{token}: there is no such file"
        elif NAME.match(token):
            words = re.findall(r"\w+", token)
            missing = [word for word in words if word not in self.words]
            if missing or (token.endswith("()") and words[-1] not in self.called):
                return f"{token}: not in the code"
            named = "".join(self.files.get(path, "") for path in paths)
            if named and not re.search(rf"\b{words[-1]}\b", named):
                return f"{token}: not in {' '.join(paths)}"
        else:
            return f"{token}: not a name; texts are written in double quotes"
        return None


def tokens(text):
    return re.findall(r"`([^`]+)`", text)


def cells(line):
    return [cell.strip() for cell in line.strip().strip("|").split("|")]


TREE = Tree()


class Names(unittest.TestCase):
    def check(self, found, paths=()):
        problems = [TREE.problem(token, paths) for token in found]
        self.assertEqual([problem for problem in problems if problem], [])

    def test_what_does_not_exist_is_seen(self):
        for token in ("tst_nothing", "tst_session::nothing", "app/nothing.cpp", "nothingOfThatName",
                      "Widget::nothingOfThatName()", "two words"):
            self.assertIsNotNone(TREE.problem(token), token)
        self.assertIsNotNone(TREE.problem("Widget", ["capture/audiocapture.h"]))
        self.assertIsNone(TREE.problem("timeOver()", ["app/widget.h"]))

    def test_names_in_the_text(self):
        for name in ("architecture.md", "behaviour.md"):
            text = re.sub(r"```.*?```", "", read(os.path.join(SOURCE, "docs", name)), flags=re.S)
            for line in text.splitlines():
                for cell in cells(line) if line.startswith("|") else [line]:
                    found = tokens(cell)
                    with self.subTest(document=name, text=cell):
                        self.check(found, [token for token in found if PATH.match(token)]
                                   if line.startswith("|") else ())

    def test_names_in_the_pictures(self):
        pictures = re.findall(r"```text\n(.*?)```", read(os.path.join(SOURCE, "docs/architecture.md")), re.S)
        self.assertGreaterEqual(len(pictures), 3)
        for picture in pictures:
            found = re.findall(r"[\w/]+/\w+\.\w+|\w+(?:::\w+)*\(\)|\w+(?:::\w+)+", picture)
            self.assertTrue(found, picture)
            with self.subTest(picture=picture):
                self.check(found)

    def test_every_behaviour_is_held_by_a_test(self):
        rows = [cells(line) for line in read(os.path.join(SOURCE, "docs/behaviour.md")).splitlines()
                if line.startswith("| ") and not line.startswith("| what")]
        self.assertGreater(len(rows), 50)
        for row in rows:
            with self.subTest(behaviour=row[0]):
                self.assertEqual(len(row), 3)
                self.assertTrue(any(TEST.match(token) and "::" in token for token in tokens(row[2])), row[2])


if __name__ == "__main__":
    unittest.main()
