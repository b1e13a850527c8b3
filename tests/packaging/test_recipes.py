"""What scripts/recipes writes for distributions: the versions, the packages that building needs and
the installed files are those of the project, and the tools that can be had here read it."""
import fnmatch
import os
import re
import shutil
import subprocess
import sys
import tarfile
import tempfile
import unittest

from installed import BUILD, CMAKE, SOURCE, run
from test_installed import FILES

RECIPES = os.path.join(SOURCE, "packaging/recipes")
SHA256 = "0123456789abcdef" * 4
LEFT_OUT = 77  # what CTest shows as skipped


def read(*names):
    with open(os.path.join(*names), encoding="utf-8") as file:
        return file.read()


def version():
    return re.search(r"^project\(TonewellDetection VERSION (\S+) ", read(SOURCE, "CMakeLists.txt"), re.M).group(1)


def build_packages():
    """What scripts/setup installs for a build."""
    return run(os.path.join(SOURCE, "scripts/setup"), "build",
               env={**os.environ, "TONEWELL_PACKAGES": "list"}).split()


def table():
    """Debian's name of a package: the names of Fedora and Arch."""
    rows = [line.split() for line in read(RECIPES, "packages.txt").splitlines() if not line.startswith("#")]
    return {row[0]: row[1:] for row in rows}


class Written(unittest.TestCase):
    """The recipes in a folder of their own."""
    needs = None  # a program that must be there

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="tonewell-recipes.")
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        run(CMAKE, f"-DTONEWELL_RECIPES={self.folder}", f"-DTONEWELL_ARCHIVE_SHA256={SHA256}",
            "-DTONEWELL_BUILD_PACKAGES=" + ";".join(build_packages()), "-P", os.path.join(RECIPES, "recipes.cmake"))

    def written(self, *names):
        return read(self.folder, *names)


class Debian(Written):
    def field(self, name):
        """The packages that a field of debian/control names, without alternatives' order."""
        text = re.search(rf"^{name}:(.*\n(?: .*\n)*)", self.written("debian/control"), re.M).group(1)
        return {part.strip() for line in text.split(",") for part in line.split("|") if part.strip()}

    def test_the_version_and_day_are_the_projects(self):
        changelog = self.written("debian/changelog")
        self.assertTrue(changelog.startswith(f"tonewell-detection ({version()}-1) unstable;"), changelog)
        if shutil.which("dpkg-parsechangelog"):
            parsed = run("dpkg-parsechangelog", "-l", os.path.join(self.folder, "debian/changelog"))
            self.assertIn(f"\nVersion: {version()}-1\n", parsed)

    def test_building_needs_what_the_scripts_install(self):
        packages = build_packages()
        self.assertIn("cmake", packages)
        # A compiler is there when a Debian package is built, and must not be named.
        self.assertEqual(self.field("Build-Depends"), {"debhelper-compat (= 13)", *packages} - {"g++"})

    def test_packages_that_are_not_in_the_table_are_told(self):
        with self.assertRaisesRegex(AssertionError, "does not know no-such-package"):
            run(CMAKE, f"-DTONEWELL_RECIPES={self.folder}", "-DTONEWELL_BUILD_PACKAGES=cmake;no-such-package",
                "-P", os.path.join(RECIPES, "recipes.cmake"))

    def test_it_recommends_and_suggests_what_the_other_package_does(self):
        config = read(BUILD, "CPackConfig.cmake")
        for name, least in (("Recommends", 2), ("Suggests", 1)):
            wanted = re.search(rf'^set\(CPACK_DEBIAN_PACKAGE_{name.upper()} "(.*)"\)$', config, re.M).group(1)
            wanted = {part.strip() for part in re.split(r"[,|;]", wanted)}
            self.assertGreaterEqual(len(wanted), least)
            self.assertEqual(wanted - self.field(name), set())

    def test_the_maintainer_scripts_are_the_other_packages(self):
        for name in ("postinst", "prerm", "postrm"):
            self.assertEqual(self.written("debian", name),
                             read(SOURCE, "packaging/debian", name) + "\n#DEBHELPER#\n")
        self.assertEqual(self.written("debian/copyright"), read(SOURCE, "packaging/debian/copyright"))

    def test_the_rules_are_run(self):
        self.assertTrue(os.access(os.path.join(self.folder, "debian/rules"), os.X_OK))
        self.assertEqual(self.written("debian/source/format"), "3.0 (quilt)\n")

    def test_nothing_is_left_to_be_filled_in(self):
        looked_at = 0
        for folder, _, names in os.walk(self.folder):
            for name in names:
                looked_at += 1
                self.assertNotRegex(read(folder, name), r"@\w+@", name)
        self.assertGreaterEqual(looked_at, 10)


class Rpm(Written):
    needs = "rpmspec"

    def test_it_is_read(self):
        """What rpmspec makes of it: version, packages, and the list of files."""
        text = run("rpmspec", "-P", os.path.join(self.folder, "tonewell-detection.spec"))
        self.assertRegex(text, rf"(?m)^Version: +{re.escape(version())}$")
        needed = set(re.findall(r"(?m)^BuildRequires: +(\S+)$", text))
        self.assertEqual(needed, {"systemd-rpm-macros"} | {table()[name][0] for name in build_packages()})

    def test_every_installed_file_is_listed(self):
        """rpmbuild stops at a file that is not."""
        macros = {"_bindir": "bin", "_sysconfdir": "etc", "_prefix": "", "_datadir": "share", "_mandir": "share/man",
                  "_docdir": "share/doc"}
        listed = self.written("tonewell-detection.spec").split("\n%files\n")[1].split("\n\n%changelog")[0]
        patterns = []
        for line in listed.splitlines():
            if not line.startswith("%license"):
                path = re.sub(r"%\{(\w+)\}/?", lambda found: macros[found.group(1)].rstrip("/") + "/", line.split()[-1])
                patterns.append(path.lstrip("/") + ("*" if path.endswith("/") else ""))
        for name in FILES:
            self.assertTrue(any(fnmatch.fnmatch(name, pattern) for pattern in patterns), name)
        for pattern in patterns:
            self.assertTrue(any(fnmatch.fnmatch(name, pattern) for name in FILES), pattern)


class Arch(Written):
    needs = "makepkg"

    def test_it_is_read(self):
        """What makepkg makes of it. It refuses root, and wants a folder that it may write to."""
        command = ["makepkg", "--printsrcinfo"]
        if os.getuid() == 0:
            os.chmod(self.folder, 0o755)
            os.chown(self.folder, 65534, 65534)
            command = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", *command]
        text = run(*command, cwd=self.folder, env={**os.environ, "BUILDDIR": self.folder, "HOME": self.folder})
        self.assertIn(f"\n\tpkgver = {version()}\n", text)
        self.assertIn(f"\n\tsha256sums = {SHA256}\n", text)
        needed = set(re.findall(r"(?m)^\t(?:make)?depends = (\S+)$", text))
        self.assertEqual(needed, {"gcc-libs", "glibc", "hicolor-icon-theme"} |
                         {table()[name][1] for name in build_packages()})


class Archive(unittest.TestCase):
    needs = "git"

    def test_the_script_writes_it_all(self):
        with tempfile.TemporaryDirectory(prefix="tonewell-recipes.") as folder:
            printed = run(os.path.join(SOURCE, "scripts/recipes"), folder)
            self.assertEqual(printed.splitlines()[-1], os.path.realpath(folder))
            name = f"tonewell-detection-{version()}"
            sha256 = run("sha256sum", os.path.join(folder, name + ".tar.gz")).split()[0]
            self.assertIn(f"sha256sums=({sha256})", read(folder, "PKGBUILD"))
            with tarfile.open(os.path.join(folder, name + ".tar.gz")) as archive:
                names = archive.getnames()
            self.assertIn(name + "/CMakeLists.txt", names)
            self.assertEqual([path for path in names if path.startswith(name + "/debian")], [])
            for path in (name + "/debian/control", name + "/CMakeLists.txt", "tonewell-detection.spec",
                         f"tonewell-detection_{version()}.orig.tar.gz"):
                self.assertTrue(os.path.isfile(os.path.join(folder, path)), path)


def in_checkout():
    return subprocess.run(["git", "-C", SOURCE, "rev-parse", "--verify", "-q", "HEAD"], stdout=subprocess.DEVNULL,
                          stderr=subprocess.DEVNULL, check=False).returncode == 0


if __name__ == "__main__":
    chosen = globals()[sys.argv[1]]
    if chosen.needs and not shutil.which(chosen.needs):
        print(f"skipped: there is no {chosen.needs} on this machine")
        sys.exit(LEFT_OUT)
    if chosen is Archive and not in_checkout():
        print("skipped: the sources are no git checkout")
        sys.exit(LEFT_OUT)
    unittest.main(verbosity=2)
