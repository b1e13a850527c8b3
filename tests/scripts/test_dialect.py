"""scripts/check-dialect: what goes up, or is written otherwise, is found; what is right is not."""
import os
import subprocess
import tempfile
import unittest

SCRIPT = os.path.join(os.environ["TONEWELL_SOURCE"], "scripts", "check-dialect")


class Dialect(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = folder.name
        for header in ("app/widget.h", "capture/deviceentry.h", "platform/display.h",
                       "platform/lastreport.h", "platform/linux/audio/com.h",
                       "platform/linux/include/objbase.h", "platform/linux/process/lasterror.h",
                       "platform/windows/display.h", "remote/message.h", "report/report.h",
                       "platform/soundoutput.h", "spectrum/levels.h", "tests/support/fakeaudio.h",
                       "tools/peakhold.h"):
            self.write(header, "#pragma once\n")

    def write(self, path, text):
        path = os.path.join(self.root, path)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)

    def check(self):
        run = subprocess.run([SCRIPT, self.root], capture_output=True, text=True, check=False)
        self.assertEqual(run.stderr, "")
        self.assertEqual(run.returncode, 1 if run.stdout else 0)
        return run.stdout

    def finds(self, path, text, what):
        """That a file with this text alone is wrong, in its last line."""
        self.write(path, text)
        line = text.count("\n")
        self.assertRegex(self.check(), rf"\A{path}:{line}: [^\n]*{what}[^\n]*\n\Z")
        os.remove(os.path.join(self.root, path))

    def passes(self, path, text):
        self.write(path, text)
        self.assertEqual(self.check(), "")

    def test_include_that_goes_up(self):
        for path, included in (("platform/x.cpp", "report/report.h"),
                               ("report/x.cpp", "capture/deviceentry.h"),
                               ("capture/x.h", "spectrum/levels.h"),
                               ("capture/x.h", "remote/message.h"),
                               ("spectrum/x.cpp", "remote/message.h"),
                               ("remote/x.cpp", "spectrum/levels.h"),
                               ("remote/x.cpp", "app/widget.h"),
                               ("tools/monitor/x.cpp", "remote/message.h"),
                               ("examples/cpp/x.cpp", "tools/peakhold.h"),
                               ("app/x.cpp", "tools/peakhold.h")):
            self.finds(path, f'\n#include "{included}"\n', "does not call")
            self.finds(path, f"\n#include <{included}>\n", "does not call")
        self.finds("app/x.cpp", '#include "tests/support/fakeaudio.h"\n', "include tests/")
        self.finds("app/x.cpp", "#include <tests/support/fakeaudio.h>\n", "include tests/")

    def test_include_between_the_wings(self):
        self.finds("platform/linux/process/x.cpp", '#include "platform/linux/audio/com.h"\n',
                   "does not call")
        self.finds("platform/linux/desktop/x.cpp", '#include "platform/linux/audio/com.h"\n',
                   "does not call")
        self.finds("platform/linux/process/x.cpp", "#include <platform/linux/audio/com.h>\n",
                   "does not call")
        self.finds("platform/linux/include/unknwn.h",
                   '#include "platform/linux/process/lasterror.h"\n', "does not call")
        self.finds("platform/linux/include/unknwn.h", '#include "platform/display.h"\n', "alone")

    def test_include_of_what_another_wing_implements(self):
        for wing, included in (("process", '"platform/display.h"'),
                               ("process", '"platform/soundoutput.h"'),
                               ("audio", '"platform/display.h"'),
                               ("desktop", '"platform/soundoutput.h"'),
                               ("process", "<objbase.h>"),
                               ("process", '"platform/linux/include/objbase.h"'),
                               ("process", "<wtsapi32.h>"),
                               ("audio", "<wtsapi32.h>"),
                               ("desktop", "<mmdeviceapi.h>")):
            self.finds(f"platform/linux/{wing}/x.cpp", f"\n#include {included}\n",
                       f"{wing} does not call platform/linux/(audio|desktop)")
        for wing in ("process", "audio", "desktop"):
            self.passes(f"platform/linux/{wing}/x.cpp", '#include "platform/lastreport.h"\n'
                        "#include <dbghelp.h>\n#include <unistd.h>\n#include <windows.h>\n")

    def test_header_of_no_known_wing(self):
        for path in ("platform/x.h", "platform/linux/include/x.h"):
            self.write(path, "")
            self.assertRegex(self.check(), rf"\A{path}:1: [^\n]*which wing[^\n]*\n\Z")
            os.remove(os.path.join(self.root, path))

    def test_include_of_a_host(self):
        self.finds("capture/x.cpp", '#include "platform/linux/audio/com.h"\n', "the host")
        self.finds("platform/x.cpp", '#include "platform/linux/audio/com.h"\n', "neither")
        self.finds("platform/linux/audio/x.cpp", '#include "platform/windows/display.h"\n', "other")

    def test_include_that_is_no_path_from_the_root(self):
        self.finds("report/x.cpp", '#include "report.h"\n', "no path")
        self.finds("report/x.cpp", '#include "report/gone.h"\n', "no path")
        self.finds("report/x.cpp", '#include "report/../app/widget.h"\n', "no path")
        self.finds("report/x.cpp", "#include <report/report.h>\n", "own headers")

    def test_condition_for_the_host(self):
        for condition in ("#ifdef _WIN32", "#if defined(__linux__)", "# ifndef Q_OS_WIN"):
            self.finds("capture/x.cpp", condition + "\n", "condition for the host")

    def test_condition_for_the_generation_of_qt(self):
        for condition in ("#if QT_VERSION_MAJOR >= 6", "# elif QT_VERSION < QT_VERSION_CHECK(6, 0, 0)"):
            self.finds("platform/x.cpp", condition + "\n", "condition for the generation")
        for line in ("target_link_libraries(x Qt5::Core)", "  qt6_add_repc_replicas(x y.rep)",
                     "find_package(Qt6 REQUIRED)"):
            self.finds("report/CMakeLists.txt", line + "\n", "generation of Qt named")

    def test_cast(self):
        for cast in ("x = int(y);", "return qint16(y);", "f(1, std::size_t(n));", "x = (int)y;",
                     "y < DWORD(x);", "x = -double(y);", "QCOMPARE(n, ULONG(2));"):
            self.finds("report/x.cpp", f'// "\nvoid f() {{ {cast}\n', "static_cast")

    def test_declaration_in_a_source(self):
        self.finds("report/x.cpp", "int shown(int what);\n", "a header should")
        self.finds("report/x.cpp", 'extern "C" int shown(int what);\n', "a header should")
        self.finds("report/x.cpp", "extern int s_shown;\n", "a header should")

    def test_long_file(self):
        self.write("report/x.cpp", "\n" * 501)
        self.assertRegex(self.check(), r"\Areport/x.cpp:501: longer")

    def test_what_is_right(self):
        self.passes("app/x.cpp", '#include "app/widget.h"\n\n#include "remote/message.h"\n'
                    '#include "spectrum/levels.h"\n#include "ui_widget.h"\n\n#include "x.moc"\n')
        self.passes("remote/x.cpp", '#include "capture/deviceentry.h"\n')
        self.passes("tools/monitor/x.cpp", '#include "platform/display.h"\n')
        self.passes("platform/linux/audio/x.cpp", '#include "platform/linux/process/lasterror.h"\n')
        self.passes("platform/linux/audio/x.h", '#include "platform/soundoutput.h"\n\n'
                    "#include <objbase.h>\n#include <pulse/pulseaudio.h>\n")
        self.passes("platform/linux/include/unknwn.h", "#include <objbase.h>\n")
        self.passes("platform/linux/x.cpp", "#ifdef __linux__\n#endif\n")
        self.passes("tests/x.cpp", '#include "platform/linux/audio/com.h"\n#include "app/widget.h"\n')
        self.passes("report/x.cpp", "namespace {\n\nint shown(int what);\n\n} // namespace\n\n"
                    "int value() // int(x)\n{\n"
                    '    std::function<int(int)> f; const char *text = "int(x) (int)x";\n'
                    "    return static_cast<int>(text[0]) + int();\n}\n")

    def test_this_checkout(self):
        run = subprocess.run([SCRIPT], capture_output=True, text=True, check=False)
        self.assertEqual((run.returncode, run.stdout, run.stderr), (0, "", ""))

    def test_folder_that_is_no_checkout(self):
        run = subprocess.run([SCRIPT, "/nonexistent"], capture_output=True, text=True, check=False)
        self.assertEqual((run.returncode, run.stdout), (2, ""))
        self.assertIn("/nonexistent", run.stderr)


if __name__ == "__main__":
    unittest.main()
