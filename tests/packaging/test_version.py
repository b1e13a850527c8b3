"""The version stands in CMakeLists.txt alone, and a new one there reaches all that says it."""
import email.utils
import gzip
import json
import os
import re
import shutil
import tempfile
import unittest
import xml.etree.ElementTree

from installed import CMAKE, SOURCE, run

# Where the version may stand by itself: the one place, and what tells its history.
PLACES = {"CMakeLists.txt", "CHANGELOG.md"}
NEW = "9.8.7"


def read(*names):
    with open(os.path.join(SOURCE, *names), encoding="utf-8") as file:
        return file.read()


def declared():
    return re.search(r"^project\(TonewellDetection VERSION (\d+\.\d+\.\d+) ", read("CMakeLists.txt"), re.M).group(1)


def left_out(folder, names):
    """Builds and what tools keep: not the source's own."""
    return {name for name in names if name in ("build", ".git", "__pycache__", ".cache")}


def sources():
    for folder, folders, names in os.walk(SOURCE):
        folders[:] = set(folders) - left_out(folder, folders)
        for name in names:
            yield os.path.relpath(os.path.join(folder, name), SOURCE)


class OnePlace(unittest.TestCase):
    def test_nothing_else_names_it(self):
        version = re.compile(r"(?<![\w.,])" + r"[.,]".join(declared().split(".")) + r"(?!\w)")
        found, looked_at = set(), 0
        for name in sources():
            try:
                text = read(name)
            except UnicodeDecodeError:
                continue  # a picture
            looked_at += 1
            if version.search(text):
                found.add(name)
        self.assertGreater(looked_at, 300)
        self.assertEqual(found, PLACES)

    def test_changelogs_know_the_release(self):
        version, date = re.search(r"^## \[(\d[^]]*)\] - (\S+)$", read("CHANGELOG.md"), re.M).groups()
        self.assertEqual(version, declared())
        line = re.search(r"^ -- .*>  (.*)$", read("packaging/debian/changelog.in"), re.M).group(1)
        day = email.utils.parsedate_to_datetime(line)
        self.assertEqual(day.strftime("%Y-%m-%d"), date)
        self.assertTrue(line.startswith(day.strftime("%a, ")), line)


class NewVersion(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="tonewell-version.")
        cls.addClassCleanup(shutil.rmtree, cls.folder, ignore_errors=True)
        copy = os.path.join(cls.folder, "source")
        shutil.copytree(SOURCE, copy, ignore=left_out, symlinks=True)
        with open(os.path.join(copy, "CMakeLists.txt"), "r+", encoding="utf-8") as file:
            text = file.read().replace(f"VERSION {declared()} ", f"VERSION {NEW} ", 1)
            file.seek(0)
            file.write(text)
        cls.build = os.path.join(cls.folder, "build")
        run(CMAKE, "-S", copy, "-B", cls.build, "-G", "Ninja", "-DBUILD_TESTING=OFF",
            "-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON")

    def built(self, *names):
        with open(os.path.join(self.build, *names), encoding="utf-8") as file:
            return file.read()

    def test_programs_are_compiled_with_it(self):
        commands = {os.path.relpath(entry["file"], os.path.join(self.folder, "source")): entry["command"]
                    for entry in json.loads(self.built("compile_commands.json"))}
        for name in ("app/main.cpp", "tools/monitor/main.cpp"):
            self.assertIn(f'-DTONEWELL_VERSION=\\"{NEW}\\"', commands[name])

    def test_packages_and_consumers_are_told(self):
        self.assertIn(f'set(CPACK_PACKAGE_VERSION "{NEW}")', self.built("CPackConfig.cmake"))
        self.assertIn(f'set(PACKAGE_VERSION "{NEW}")', self.built("TonewellConfigVersion.cmake"))
        release = xml.etree.ElementTree.parse(
            os.path.join(self.build, "packaging/example.tonewell.monitor.metainfo.xml")).find("releases/release")
        self.assertEqual(release.get("version"), NEW)
        run(CMAKE, "--build", self.build, "--target", "compressed-changelog.Debian")
        with gzip.open(os.path.join(self.build, "packaging/changelog.Debian.gz"), "rt") as file:
            self.assertTrue(file.readline().startswith(f"tonewell-detection ({NEW}-1) "))

    def test_windows_resources_are_written_with_it(self):
        major, minor, patch = NEW.split(".")
        folder = os.path.join(self.folder, "resources")
        run(CMAKE, f"-DPROJECT_VERSION={NEW}", f"-DPROJECT_VERSION_MAJOR={major}",
            f"-DPROJECT_VERSION_MINOR={minor}", f"-DPROJECT_VERSION_PATCH={patch}",
            f"-DTONEWELL_RESOURCES={folder}",
            "-P", os.path.join(SOURCE, "platform/windows/resources.cmake"))
        with open(os.path.join(folder, "tonewell.rc"), encoding="utf-8") as file:
            resource = file.read()
        for line in (f"FILEVERSION {major},{minor},{patch},0", f"PRODUCTVERSION {major},{minor},{patch},0",
                     f'VALUE "FileVersion", "{NEW}.0"', f'VALUE "ProductVersion", "{NEW}"'):
            self.assertIn(line + "\n", resource)
        for kind, name in re.findall(r'^1 (\w+) "(.*)"$', resource, re.M):
            self.assertTrue(os.path.isfile(name), f"{kind}: {name}")
        manifest = xml.etree.ElementTree.parse(os.path.join(folder, "tonewell.manifest")).getroot()
        identity = manifest.find("{urn:schemas-microsoft-com:asm.v1}assemblyIdentity")
        self.assertEqual(identity.get("version"), NEW + ".0")


if __name__ == "__main__":
    unittest.main(verbosity=2)
