"""The files for a hosted service: their form, and that what they name is there. They cannot be run
here."""
import copy
import json
import os
import re
import shlex
import unittest

import jsonschema
import yaml

SOURCE = os.environ["TONEWELL_SOURCE"]
FOLDER = os.path.join(SOURCE, ".github/workflows")
EXPRESSION = re.compile(r"\$\{\{\s*(.*?)\s*\}\}")


class Loader(yaml.SafeLoader):
    """Only true and false are truth values, as the service reads them: "on" is a word."""


Loader.yaml_implicit_resolvers = {
    first: [(tag, pattern) for tag, pattern in resolvers if tag != "tag:yaml.org,2002:bool"]
    for first, resolvers in yaml.SafeLoader.yaml_implicit_resolvers.items()}
Loader.add_implicit_resolver("tag:yaml.org,2002:bool", re.compile("^(?:true|false)$"), list("tf"))


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def strings(value):
    """Every text in it."""
    if isinstance(value, str):
        yield value
    elif isinstance(value, dict):
        for part in value.values():
            yield from strings(part)
    elif isinstance(value, list):
        for part in value:
            yield from strings(part)


class Workflows(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.schema = json.loads(read(os.path.join(os.path.dirname(__file__), "workflow.schema.json")))
        jsonschema.Draft7Validator.check_schema(cls.schema)
        cls.files = {name: yaml.load(read(os.path.join(FOLDER, name)), Loader) for name in os.listdir(FOLDER)}

    def valid(self, workflow):
        jsonschema.validate(workflow, self.schema, jsonschema.Draft7Validator)

    def jobs(self):
        for workflow in self.files.values():
            yield from workflow["jobs"].items()

    def test_their_form_is_right(self):
        self.assertGreaterEqual(len(self.files), 1)
        for name, workflow in self.files.items():
            with self.subTest(file=name):
                self.valid(workflow)

    def test_a_slip_is_seen(self):
        workflow = self.files["checks.yml"]
        step = {"name": "a", "run": "scripts/test"}
        for slip in ({**step, "runs": "b"}, {"name": "a"}, {**step, "uses": "a/b@v1"}, {"uses": "a/b@main"},
                     {**step, "with": {"a": "b"}}):
            wrong = copy.deepcopy(workflow)
            wrong["jobs"]["debian"]["steps"].append(slip)
            with self.subTest(slip=slip), self.assertRaises(jsonschema.ValidationError):
                self.valid(wrong)
        for key in ("runs-on", "steps", "timeout-minutes"):
            wrong = copy.deepcopy(workflow)
            del wrong["jobs"]["windows"][key]
            with self.subTest(missing=key), self.assertRaises(jsonschema.ValidationError):
                self.valid(wrong)

    def test_they_build_on_every_system(self):
        workflow = self.files["checks.yml"]
        self.assertEqual([row["release"] for row in workflow["jobs"]["debian"]["strategy"]["matrix"]["include"]],
                         ["12", "13"])
        self.assertEqual([row["generator"] for row in workflow["jobs"]["windows"]["strategy"]["matrix"]["include"]],
                         ["Visual Studio 17 2022", "Ninja"])

    def test_every_row_has_what_the_steps_take_from_it(self):
        for name, job in self.jobs():
            rows = job.get("strategy", {}).get("matrix", {}).get("include", [{}])
            taken = {key for text in strings(job) for expression in EXPRESSION.findall(text)
                     for key in re.findall(r"matrix\.(\w+)", expression)}
            taken |= {key for step in job["steps"] for key in re.findall(r"matrix\.(\w+)", step.get("if", ""))}
            for row in rows:
                with self.subTest(job=name, row=row):
                    self.assertEqual(taken - set(row), set())

    def test_what_they_call_is_there(self):
        called = set()
        for _, job in self.jobs():
            for step in job["steps"]:
                for line in EXPRESSION.sub("x", step.get("run", "")).splitlines():
                    program, *arguments = shlex.split(line)
                    if program.startswith("scripts/"):
                        called.add(program)
                        self.assertTrue(os.access(os.path.join(SOURCE, program), os.X_OK), line)
                        if program == "scripts/test":
                            presets = json.loads(read(os.path.join(SOURCE, "CMakePresets.json")))["testPresets"]
                            self.assertIn(arguments[0], [preset["name"] for preset in presets])
                    else:
                        self.assertIn(program, ("apt-get", "choco", "git", "python"), line)
        self.assertEqual(called, {"scripts/lint", "scripts/on-windows", "scripts/package", "scripts/test"})

    def test_every_run_keeps_what_it_makes(self):
        for name, job in self.jobs():
            kept = [step["with"] for step in job["steps"]
                    if step.get("uses", "").startswith("actions/upload-artifact@") and "if" not in step]
            self.assertEqual(len(kept), 1, name)
            self.assertEqual(kept[0]["if-no-files-found"], "error")
            for path in kept[0]["path"].split():
                self.assertRegex(path, r"^build/(package|on-windows)/packages/\*\.(deb|zip|exe)$")


if __name__ == "__main__":
    unittest.main()
