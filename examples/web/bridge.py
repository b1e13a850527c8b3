#!/usr/bin/env python3
"""Brings the live spectrum to web pages of this computer: runs `tonewell-monitor --json` and hands
each of its lines on as a server-sent event. Open the address that it prints. Ctrl-C ends it.
"""
import argparse
import errno
import os
import shutil
import signal
import socket
import subprocess
import sys
import threading
import time
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

ADDRESS = "127.0.0.1"  # and no other: what the computer plays is nobody else's business
READERS = 16
CONNECTIONS = 64  # readers and those that have not said yet what they want
PATIENCE = 5  # seconds that a request or the taking of one event may last
SEND_BUFFER = 1 << 16  # bytes; small, so that it shows early who does not read
PAUSE = 1  # seconds before the monitor is started again, and between signs of life
MONITOR = "tonewell-monitor"
FOLDER = os.path.dirname(os.path.abspath(__file__))
BUILT = os.path.join(FOLDER, "../../build/release/bin", MONITOR)  # what scripts/run has built

HEADERS = {
    "Cache-Control": "no-store",
    "Content-Security-Policy": "default-src 'none'; script-src 'unsafe-inline'; style-src 'unsafe-inline'; "
                               "connect-src 'self'; frame-ancestors 'none'",
    "X-Content-Type-Options": "nosniff",
}


class Newest:
    """The newest line and its number. Whoever is late gets that one and misses the ones before."""

    def __init__(self):
        self.changed = threading.Condition()
        self.number = 0
        self.line = b""
        self.ended = False

    def put(self, line):
        with self.changed:
            self.number += 1
            self.line = line
            self.changed.notify_all()

    def after(self, number):
        """A newer line than that and its number; after a pause without one the same number."""
        with self.changed:
            self.changed.wait_for(lambda: self.ended or self.number > number, PAUSE)
            return self.number, self.line

    def end(self):
        with self.changed:
            self.ended = True
            self.changed.notify_all()


class Monitor:
    """The process that finds the service, again and again, and what it writes."""

    def __init__(self, program, newest):
        self.command = [program, "--json"]
        self.newest = newest
        self.lock = threading.Lock()
        self.process = None
        self.start()
        threading.Thread(target=self.run, daemon=True).start()

    def start(self):
        with self.lock:
            if not self.newest.ended:  # in a session of its own: Ctrl-C is for this program alone
                self.process = subprocess.Popen(self.command, stdin=subprocess.DEVNULL,
                                                stdout=subprocess.PIPE, start_new_session=True)

    def run(self):
        while True:
            for line in self.process.stdout:
                self.newest.put(line.strip())
            code = self.process.wait()
            if self.newest.ended:
                return
            print(f"{self.command[0]} has ended with {code} and is started again", file=sys.stderr, flush=True)
            time.sleep(PAUSE)
            try:
                self.start()
            except OSError as failure:
                print(failure, file=sys.stderr, flush=True)

    def end(self):
        self.newest.end()
        with self.lock:
            self.process.terminate()
            self.process.wait()


def is_for_us(host, origin, port):
    """Another site's page can be given a name that leads here, and can ask from where it is."""
    hosts = [f"{name}:{port}" for name in (ADDRESS, "localhost")]
    if port == 80:  # which browsers do not write
        hosts += [ADDRESS, "localhost"]
    return host in hosts and (origin is None or origin in [f"http://{own}" for own in hosts])


class Handler(BaseHTTPRequestHandler):
    timeout = PATIENCE

    def do_GET(self):
        if not is_for_us(self.headers.get("Host"), self.headers.get("Origin"), self.server.server_port):
            self.send_error(403, "Only for pages of this address")
        elif self.path.split("?")[0] == "/":
            self.send_page()
        elif self.path == "/events":
            self.send_events()
        else:
            self.send_error(404)

    def start_answer(self, kind):
        self.send_response(200)
        self.send_header("Content-Type", kind)
        for name, value in HEADERS.items():
            self.send_header(name, value)
        self.end_headers()

    def send_page(self):
        with open(os.path.join(FOLDER, "index.html"), "rb") as file:
            page = file.read()
        self.start_answer("text/html; charset=utf-8")
        self.wfile.write(page)

    def send_events(self):
        if not self.server.readers.acquire(blocking=False):
            self.send_error(503, "Too many readers")
            return
        try:
            self.connection.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, SEND_BUFFER)
            self.start_answer("text/event-stream")
            number = self.server.newest.number  # what came before may be old
            while not self.server.newest.ended:
                newer, line = self.server.newest.after(number)
                self.wfile.write(b"data: " + line + b"\n\n" if newer > number else b": no message\n\n")
                number = newer
        finally:
            self.server.readers.release()

    def log_message(self, *_):
        pass


class Bridge(ThreadingHTTPServer):
    daemon_threads = True
    request_queue_size = CONNECTIONS

    def __init__(self, port, newest):
        self.newest = newest
        self.readers = threading.BoundedSemaphore(READERS)
        self.connections = threading.BoundedSemaphore(CONNECTIONS)
        super().__init__((ADDRESS, port), Handler)

    def process_request(self, request, client_address):
        if self.connections.acquire(blocking=False):
            super().process_request(request, client_address)
        else:
            self.shutdown_request(request)

    def process_request_thread(self, request, client_address):
        try:
            super().process_request_thread(request, client_address)
        finally:
            self.connections.release()

    def handle_error(self, request, client_address):
        """A reader that has gone, or does not read, is no error of ours."""
        if not isinstance(sys.exc_info()[1], OSError):
            super().handle_error(request, client_address)


def find_monitor():
    """The installed one, else the one that was built beside these files."""
    return MONITOR if shutil.which(MONITOR) or not os.path.exists(BUILT) else os.path.normpath(BUILT)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--port", type=int, default=8350, help="default: 8350; 0: any that is free")
    parser.add_argument("--monitor", default=find_monitor(), metavar="PROGRAM", help="default: %(default)s")
    options = parser.parse_args()

    if not 0 <= options.port <= 65535:
        parser.error(f"--port {options.port}: a port is a number from 0 to 65535")
    newest = Newest()
    try:
        bridge = Bridge(options.port, newest)
        monitor = Monitor(options.monitor, newest)
    except FileNotFoundError:
        print(f"{parser.prog}: '{options.monitor}' was not found: install the package tonewell-detection, "
              "or name the program with --monitor", file=sys.stderr)
        return 1
    except OSError as failure:
        if failure.errno == errno.EADDRINUSE:
            print(f"{parser.prog}: port {options.port} is taken, perhaps by another {parser.prog}: end that one, "
                  "or choose another port with --port", file=sys.stderr)
            return 1
        print(f"{parser.prog}: --port {options.port}, --monitor {options.monitor}: {failure}", file=sys.stderr)
        return 1
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    try:
        print(f"http://{ADDRESS}:{bridge.server_port}/", flush=True)
        bridge.serve_forever()
    except KeyboardInterrupt:
        pass
    finally:
        for number in (signal.SIGINT, signal.SIGTERM):  # a second one changes nothing
            signal.signal(number, signal.SIG_IGN)
        monitor.end()
        bridge.server_close()
    return 0


if __name__ == "__main__":
    sys.exit(main())
