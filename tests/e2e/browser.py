"""Chromium without a window, driven by its own driver: the WebDriver protocol, as much as is needed."""
import base64
import json
import os
import socket
import subprocess
import urllib.error
import urllib.request

import harness

ARGUMENTS = ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
             "--disable-background-networking", "--disable-component-update", "--disable-sync")
PATIENCE = 120  # seconds for anything; a busy machine takes its time for a browser


class Browser:
    """One page. Its files are below the folder; it knows nothing of the user's browser."""

    def __init__(self, folder, width=900, height=480):
        profile = os.path.join(folder, "chromium")
        os.makedirs(profile)
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            port = probe.getsockname()[1]
        self.root = f"http://127.0.0.1:{port}"
        with open(os.path.join(folder, "chromedriver.log"), "ab") as log:
            self.driver = subprocess.Popen(
                ["chromedriver", f"--port={port}"], stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                env={**os.environ, "HOME": profile, "TMPDIR": profile})
        try:
            harness.wait_until(self.is_ready, PATIENCE, "the browser's driver")
            options = {"binary": "/usr/bin/chromium",
                       "args": [*ARGUMENTS, f"--user-data-dir={profile}/profile", f"--window-size={width},{height}"]}
            session = self.ask("POST", "/session", {"capabilities": {"alwaysMatch": {
                "browserName": "chrome", "goog:chromeOptions": options}}})
            self.root += "/session/" + session["sessionId"]
            self.devtools("Emulation.setDeviceMetricsOverride", width=width, height=height,
                          deviceScaleFactor=1, mobile=False)
        except BaseException:
            self.driver.kill()
            self.driver.wait()
            raise

    def close(self):
        try:
            self.ask("DELETE", "")
        finally:
            harness.end_process(self.driver)

    def ask(self, method, path, content=None):
        data = None if content is None else json.dumps(content).encode()
        request = urllib.request.Request(self.root + path, data=data, method=method,
                                         headers={"Content-Type": "application/json"})
        try:
            with urllib.request.urlopen(request, timeout=PATIENCE) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as failure:
            raise AssertionError(f"{method} {path}: {failure.read().decode()}") from None

    def is_ready(self):
        try:
            return self.ask("GET", "/status")["ready"]
        except OSError:
            return False

    def devtools(self, command, **parameters):
        return self.ask("POST", "/goog/cdp/execute", {"cmd": command, "params": parameters})

    def open(self, url):
        self.ask("POST", "/url", {"url": url})

    def run(self, script):
        """What the script returns, in the page."""
        return self.ask("POST", "/execute/sync", {"script": script, "args": []})

    def picture(self):
        """The page as a PNG file's bytes; where nothing is drawn it is transparent."""
        self.devtools("Emulation.setDefaultBackgroundColorOverride", color={"r": 0, "g": 0, "b": 0, "a": 0})
        return base64.b64decode(self.devtools("Page.captureScreenshot", format="png")["data"])
