"""CMakePresets.json: what a preset decides, and what it leaves to who builds."""
import json
import os
import re
import subprocess
import unittest

SOURCE = os.environ["TONEWELL_SOURCE"]
DEVELOPERS = {"debug", "asan", "tsan", "clang", "windows"}
FOR_ALL = {"release", "on-windows"}

with open(os.path.join(SOURCE, "CMakePresets.json"), encoding="utf-8") as presets_file:
    PRESETS = json.load(presets_file)
CONFIGURE = {preset["name"]: preset for preset in PRESETS["configurePresets"]}


def resolved(name):
    """The preset with all that it inherits."""
    preset = CONFIGURE[name]
    parents = preset.get("inherits", [])
    result = {"cacheVariables": {}}
    for parent in [parents] if isinstance(parents, str) else reversed(parents):
        inherited = resolved(parent)
        result = {**result, **inherited,
                  "cacheVariables": {**result["cacheVariables"], **inherited["cacheVariables"]}}
    return {**result, **preset,
            "cacheVariables": {**result["cacheVariables"], **preset.get("cacheVariables", {})}}


class Presets(unittest.TestCase):
    def test_all_are_known_here(self):
        visible = {name for name, preset in CONFIGURE.items() if not preset.get("hidden")}
        self.assertEqual(visible, DEVELOPERS | FOR_ALL)
        for kind in ("buildPresets", "testPresets"):
            self.assertEqual({preset["name"] for preset in PRESETS[kind] if not preset.get("hidden")}, visible)

    def test_a_warning_stops_developers_alone(self):
        for name in DEVELOPERS:
            self.assertEqual(resolved(name)["cacheVariables"].get("TONEWELL_WARNINGS_AS_ERRORS"), "ON", name)
        for name in FOR_ALL:
            self.assertNotIn("TONEWELL_WARNINGS_AS_ERRORS", resolved(name)["cacheVariables"], name)
        with open(os.path.join(SOURCE, "cmake/TonewellOptions.cmake"), encoding="utf-8") as file:
            options = file.read()
        self.assertRegex(options, r"(?m)^option\(TONEWELL_WARNINGS_AS_ERRORS .* OFF\)$")
        self.assertEqual(len(re.findall(r"[-/]W(?:error|X)\b", options)), 2)  # for both kinds of compilers

    def test_windows_itself_leaves_the_tools_to_the_user(self):
        preset = resolved("on-windows")
        for key in ("generator", "architecture", "toolset", "toolchainFile"):
            self.assertNotIn(key, preset)
        self.assertNotIn("CMAKE_CXX_COMPILER", preset["cacheVariables"])

    def test_the_scripts_know_what_can_be_built_here(self):
        for name in CONFIGURE:
            known = subprocess.run(["bash", "-c", '. scripts/usage.sh; is_preset "$1"', "-", name], cwd=SOURCE,
                                   check=False).returncode == 0
            self.assertEqual(known, name in DEVELOPERS | {"release"}, name)


if __name__ == "__main__":
    unittest.main()
