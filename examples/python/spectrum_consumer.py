#!/usr/bin/env python3
"""Prints the levels and the loudest frequency of each channel, twice a second, from what
TonewellDetection publishes. Ctrl-C ends it. Needs PyQt with Qt Remote Objects, of the generation of Qt
that the service is of (on Debian 12: python3-pyqt5.qtremoteobjects, on Debian 13:
python3-pyqt6.qtremoteobjects).
"""
import signal
import sys
import time

try:
    from PyQt5.QtCore import QCoreApplication, QTimer, QUrl
    from PyQt5.QtRemoteObjects import QRemoteObjectNode
except ImportError:
    from PyQt6.QtCore import QCoreApplication, QTimer, QUrl
    from PyQt6.QtRemoteObjects import QRemoteObjectNode

SEPARATOR = "/&+&/"
BARS = 100
SIDE = BARS // 2  # left: bars 0 to 49, right: bars 50 to 99
BAR_WIDTH = 70.0  # Hz
PRINT_INTERVAL = 500  # ms
PATIENCE = 1.0  # seconds without a message until the service counts as missing


def parse(text):
    """The three levels and the bars, usually 0 to 400; ValueError if it is no spectrum message."""
    kind, *fields = text.split(SEPARATOR)
    if kind != "SoundSpectrum" or len(fields) != 3 + BARS:
        raise ValueError("not a spectrum message")
    return [float(field) for field in fields[:3]], [int(field) for field in fields[3:]]


def frequency(bar):
    """The middle of a bar in Hz."""
    return (SIDE - bar - 0.5 if bar < SIDE else bar - SIDE + 0.5) * BAR_WIDTH


def loudest(bars, first):
    """The frequency of the loudest of one side's bars, or "-" when all are 0."""
    bar = max(range(first, first + SIDE), key=bars.__getitem__)
    return f"{frequency(bar):.0f}" if bars[bar] > 0 else "-"


class Consumer:
    """Takes every message and shows the newest. Lives as long as the program: the node finds the
    service again by itself."""

    def __init__(self):
        self.newest = None
        self.arrival = 0.0
        self.ignored = 0
        self.connected = False
        self.node = QRemoteObjectNode()
        self.node.connectToNode(QUrl("local:tonewell"))
        self.replica = self.node.acquireDynamic("Tonewell")
        self.replica.initialized.connect(self.on_initialized)
        self.timer = QTimer()
        self.timer.timeout.connect(self.show)
        self.timer.start(PRINT_INTERVAL)

    def on_initialized(self):
        if not self.connected:  # it comes again after every reconnection
            try:
                self.replica.sigMessage.connect(self.on_message)
            except AttributeError:
                print("something else is published under that name", flush=True)
                return
            self.connected = True

    def on_message(self, text):
        try:
            self.newest = parse(text)
            self.arrival = time.monotonic()
        except ValueError:
            self.ignored += 1

    def show(self):
        if self.ignored:
            print(f"ignored {self.ignored} messages of another kind", flush=True)
            self.ignored = 0
        if self.newest is None or time.monotonic() - self.arrival > PATIENCE:
            print("waiting for the service", flush=True)
            return
        (rms, peak, dynamics), bars = self.newest
        print(f"rms {rms:.1f}  peak {peak:.1f}  dynamics {dynamics:.1f}  "
              f"left {loudest(bars, 0)} Hz  right {loudest(bars, SIDE)} Hz", flush=True)


def main():
    app = QCoreApplication(sys.argv)
    signal.signal(signal.SIGINT, signal.SIG_DFL)
    consumer = Consumer()  # noqa: F841, kept alive
    return app.exec()


if __name__ == "__main__":
    sys.exit(main())
