"""An installed copy of the build, below a folder of its own."""
import os
import shutil
import subprocess
import tempfile

SOURCE = os.environ["TONEWELL_SOURCE"]
BUILD = os.environ["TONEWELL_BUILD"]
CMAKE = os.environ["TONEWELL_CMAKE"]


def run(*command, **options):
    """Runs a command; its output is in the failure that a bad exit status raises."""
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **options)
    if result.returncode:
        raise AssertionError(f"{command} ended with {result.returncode}:\n{result.stdout}")
    return result.stdout


class Installation:
    def __init__(self):
        self.folder = tempfile.mkdtemp(prefix="tonewell-installed.")
        self.prefix = os.path.join(self.folder, "prefix")
        run(CMAKE, "--install", BUILD, "--prefix", self.prefix,
            env={**os.environ, "DESTDIR": ""})

    def path(self, *names):
        return os.path.join(self.prefix, *names)

    def files(self):
        return {os.path.relpath(os.path.join(folder, name), self.prefix)
                for folder, _, names in os.walk(self.prefix) for name in names}

    def close(self):
        shutil.rmtree(self.folder, ignore_errors=True)
