"""What `cmake --install` puts where, and that desktops and readers can use it."""
import configparser
import gzip
import os
import re
import struct
import subprocess
import unittest
import xml.etree.ElementTree

from installed import SOURCE, Installation, run

FILES = {
    "bin/TonewellDetection",
    "bin/tonewell-monitor",
    "etc/xdg/autostart/tonewell-detection.desktop",
    "lib/systemd/user/tonewell-detection.service",
    "share/applications/tonewell-monitor.desktop",
    "share/doc/tonewell-detection/changelog.Debian.gz",
    "share/doc/tonewell-detection/changelog.gz",
    "share/doc/tonewell-detection/copyright",
    "share/doc/tonewell-detection/examples/README.md",
    "share/doc/tonewell-detection/examples/cpp/CMakeLists.txt",
    "share/doc/tonewell-detection/examples/cpp/main.cpp",
    "share/doc/tonewell-detection/examples/python/spectrum_consumer.py",
    "share/doc/tonewell-detection/examples/web/bridge.py",
    "share/doc/tonewell-detection/examples/web/index.html",
    "share/doc/tonewell-detection/protocol.md",
    "share/icons/hicolor/256x256/apps/tonewell.png",
    "share/icons/hicolor/48x48/apps/tonewell.png",
    "share/icons/hicolor/scalable/apps/tonewell.svg",
    "share/man/man1/TonewellDetection.1.gz",
    "share/man/man1/tonewell-monitor.1.gz",
    "share/man/man7/tonewell-message.7.gz",
    "share/metainfo/example.tonewell.monitor.metainfo.xml",
    "share/tonewell/cmake/TonewellConfig.cmake",
    "share/tonewell/cmake/TonewellConfigVersion.cmake",
    "share/tonewell/commoninterface.rep",
}


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.copy = Installation()
        cls.addClassCleanup(cls.copy.close)

    def ini(self, *names):
        # systemd repeats keys that hold lists; of those the last is seen here.
        parser = configparser.ConfigParser(interpolation=None, strict=False)
        parser.optionxform = str
        with open(self.copy.path(*names), encoding="utf-8") as file:
            parser.read_file(file)
        return parser

    def manual(self, name):
        with gzip.open(self.copy.path("share/man", "man" + name[-1], name + ".gz"), "rt") as file:
            return file.read()

    def test_files_are_where_they_belong(self):
        self.assertEqual(self.copy.files() ^ FILES, set())

    def test_programs_know_no_build_folder(self):
        for name in ("TonewellDetection", "tonewell-monitor"):
            self.assertTrue(os.access(self.copy.path("bin", name), os.X_OK))
            dynamic = run("readelf", "-d", self.copy.path("bin", name))
            self.assertIn("NEEDED", dynamic)
            self.assertNotRegex(dynamic, "R(UN)?PATH")

    def test_user_service_follows_the_graphical_session(self):
        unit = self.ini("lib/systemd/user/tonewell-detection.service")
        self.assertEqual(unit["Service"]["ExecStart"], self.copy.path("bin/TonewellDetection"))
        self.assertEqual(unit["Service"]["Restart"], "on-failure")
        self.assertEqual(unit["Unit"]["PartOf"], "graphical-session.target")
        self.assertIn("graphical-session.target", unit["Unit"]["After"].split())
        self.assertEqual(unit["Install"]["WantedBy"], "graphical-session.target")
        # Consumers find the socket in the temporary folder, and reports are saved at home.
        for name in ("PrivateTmp", "ProtectHome"):
            self.assertNotIn(name, unit["Service"])

    def test_user_service_is_confined(self):
        shown = run("systemd-analyze", "--user", "--offline=true", "--threshold=25", "--no-pager", "security",
                    self.copy.path("lib/systemd/user/tonewell-detection.service"),
                    env={**os.environ, "XDG_RUNTIME_DIR": self.copy.folder, "HOME": self.copy.folder})
        self.assertIn("Overall exposure level", shown)

    def test_systemd_accepts_the_user_service(self):
        runtime = os.path.join(self.copy.folder, "run")
        os.mkdir(runtime, 0o700)
        # What it does not know, it names and ignores.
        self.assertEqual(run("systemd-analyze", "--user", "--man=no", "verify",
                             self.copy.path("lib/systemd/user/tonewell-detection.service"),
                             env={**os.environ, "XDG_RUNTIME_DIR": runtime, "HOME": self.copy.folder}), "")

    def test_autostart_leaves_systemd_sessions_to_the_service(self):
        entry = self.ini("etc/xdg/autostart/tonewell-detection.desktop")["Desktop Entry"]
        self.assertEqual(entry["Exec"], self.copy.path("bin/TonewellDetection"))
        self.assertEqual(entry["X-systemd-skip"], "true")
        self.assertEqual(entry["X-GNOME-HiddenUnderSystemd"], "true")

    def test_desktop_entries_are_valid(self):
        self.assertEqual(run("desktop-file-validate",
                             self.copy.path("etc/xdg/autostart/tonewell-detection.desktop"),
                             self.copy.path("share/applications/tonewell-monitor.desktop")), "")

    def test_software_centres_can_describe_the_monitor(self):
        metainfo = self.copy.path("share/metainfo/example.tonewell.monitor.metainfo.xml")
        shown = subprocess.run(["appstreamcli", "validate", "--no-net", metainfo], text=True, check=False,
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT).stdout
        self.assertIn("Validation ", shown)
        # The project has no page in the web that could be named, which newer versions warn of.
        self.assertEqual([line for line in shown.splitlines()
                          if re.match("[EW]:", line) and "url-homepage-missing" not in line], [])
        root = xml.etree.ElementTree.parse(metainfo).getroot()
        self.assertTrue(os.path.isfile(self.copy.path("share/applications", root.findtext("launchable"))))
        self.assertTrue(os.path.isfile(self.copy.path("bin", root.findtext("provides/binary"))))
        self.assertTrue(os.path.isfile(self.copy.path("share/icons/hicolor/48x48/apps", root.findtext("icon") + ".png")))
        entry = self.ini("share/applications", root.findtext("launchable"))["Desktop Entry"]
        self.assertEqual(root.findtext("name"), entry["Name"])
        self.assertEqual([category.text for category in root.iter("category")],
                         entry["Categories"].strip(";").split(";"))

    def test_icons_have_their_sizes(self):
        for size in (48, 256):
            with open(self.copy.path(f"share/icons/hicolor/{size}x{size}/apps/tonewell.png"), "rb") as file:
                head = file.read(24)
            self.assertEqual(head[:8], b"\x89PNG\r\n\x1a\n")
            self.assertEqual(struct.unpack(">II", head[16:]), (size, size))
        picture = xml.etree.ElementTree.parse(self.copy.path("share/icons/hicolor/scalable/apps/tonewell.svg"))
        self.assertEqual(picture.getroot().get("viewBox"), "0 0 256 256")

    def test_manual_pages_are_sound(self):
        for name in ("TonewellDetection.1", "tonewell-monitor.1", "tonewell-message.7"):
            result = subprocess.run(["mandoc", "-T", "lint", "-W", "warning"], text=True,
                                    input=self.manual(name), stdout=subprocess.PIPE,
                                    stderr=subprocess.DEVNULL, check=False)
            self.assertEqual((result.stdout, result.returncode), ("", 0), name)

    def test_monitor_manual_names_every_option(self):
        environment = {**os.environ, "QT_QPA_PLATFORM": "offscreen"}
        shown = set(re.findall(r"--([a-z-]+)", run(self.copy.path("bin/tonewell-monitor"), "--help",
                                                   env=environment)))
        shown -= {"help-all"}  # Qt's own
        self.assertIn("seconds", shown)
        described = set(re.findall(r"^\.It Fl (?:\w , )?-([a-z-]+)", self.manual("tonewell-monitor.1"), re.M))
        self.assertEqual(shown - described, set())

    def test_monitor_manual_names_every_exit_code(self):
        help_text = run(self.copy.path("bin/tonewell-monitor"), "--help")
        shown = re.findall(r"\b(\d) ", help_text[help_text.index("Exit codes"):])
        status = re.search(r"^\.Sh EXIT STATUS\n(.*?)^\.Sh", self.manual("tonewell-monitor.1"), re.M | re.S)
        self.assertEqual(re.findall(r"^\.It (\d)$", status.group(1), re.M), shown)
        self.assertEqual(shown, ["0", "2", "3"])

    def test_versions_agree(self):
        version = run(self.copy.path("bin/tonewell-monitor"), "--version",
                      env={**os.environ, "QT_QPA_PLATFORM": "offscreen"}).split()[-1]
        with open(self.copy.path("share/tonewell/cmake/TonewellConfigVersion.cmake"), encoding="utf-8") as file:
            self.assertIn(f'set(PACKAGE_VERSION "{version}")', file.read())
        with gzip.open(self.copy.path("share/doc/tonewell-detection/changelog.Debian.gz"), "rt") as file:
            self.assertTrue(file.readline().startswith(f"tonewell-detection ({version}-1) "))
        release = xml.etree.ElementTree.parse(
            self.copy.path("share/metainfo/example.tonewell.monitor.metainfo.xml")).find("releases/release")
        self.assertEqual(release.get("version"), version)
        with open(os.path.join(SOURCE, "CHANGELOG.md"), encoding="utf-8") as file:
            self.assertIn(f"\n## [{version}] - {release.get('date')}\n", file.read())


if __name__ == "__main__":
    unittest.main(verbosity=2)
