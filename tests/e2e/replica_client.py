"""An independent consumer: acquires the replica by name and prints what it receives.

One JSON array a line on standard output: [monotonic seconds, message], preceded by one
["ready"] when the replica is initialised. Ends with its standard input.
"""
import json
import sys
import time

from pyqt import QtCore, QtRemoteObjects


def main():
    app = QtCore.QCoreApplication(sys.argv)
    node = QtRemoteObjects.QRemoteObjectNode()
    node.connectToNode(QtCore.QUrl("local:tonewell"))
    replica = node.acquireDynamic("Tonewell")
    connected = []

    def show(value):
        sys.stdout.write(json.dumps(value) + "\n")
        sys.stdout.flush()

    def initialised():
        if not connected:  # emitted again after every reconnection
            connected.append(True)
            replica.sigMessage.connect(lambda text: show([time.monotonic(), text]))
        show(["ready"])

    replica.initialized.connect(initialised)
    end = QtCore.QSocketNotifier(sys.stdin.fileno(), QtCore.QSocketNotifier.Type.Read)
    end.activated.connect(app.quit)
    return app.exec()


if __name__ == "__main__":
    sys.exit(main())
