"""The names in tests/: one test one name, and hosts in names of folders alone."""
import os
import re
import unittest

SOURCE = os.environ["TONEWELL_SOURCE"]
TESTS = os.path.join(SOURCE, "tests")
HOSTS = ("linux", "windows")


def files():
    """Every source of the tests, as a path below tests/."""
    for folder, _, names in os.walk(TESTS):
        for name in names:
            if name.endswith((".cpp", ".h", ".S", ".py")):
                yield os.path.relpath(os.path.join(folder, name), TESTS)


class Names(unittest.TestCase):
    def test_no_two_tests_share_a_name(self):
        places = {}
        for path in files():
            if re.match(r"(tst|test)_", os.path.basename(path)):
                places.setdefault(os.path.basename(path), []).append(path)
        self.assertGreater(len(places), 80)
        self.assertEqual([paths for paths in places.values() if len(paths) > 1], [])

    def test_a_host_is_the_name_of_a_folder(self):
        marked = re.compile(r"(^|[_-])(posix|unix|win32|" + "|".join(HOSTS) + r")([_.-]|$)")
        for path in files():
            self.assertNotRegex(os.path.basename(path), marked, path)


if __name__ == "__main__":
    unittest.main()
