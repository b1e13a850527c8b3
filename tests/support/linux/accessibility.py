"""What a screen reader sees of a program: an accessibility bus of a test's own, and what is on it."""
import os
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "e2e"))
import harness  # noqa: E402

PATIENCE = 30
# What newer versions of the bus call by another name.
RENAMED = {"button": "push button"}


class Bus:
    """A session bus with the accessibility bus on it, for this process and those that get its
    environment. One for a process: the library that asks it finds it once."""

    def __init__(self, folder):
        self.processes = []
        bus = subprocess.Popen(["dbus-daemon", "--session", "--nofork", "--print-address"],
                               stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.processes.append(bus)
        with bus.stdout:
            os.environ["DBUS_SESSION_BUS_ADDRESS"] = bus.stdout.readline().strip()
        self.environment = {"DBUS_SESSION_BUS_ADDRESS": os.environ["DBUS_SESSION_BUS_ADDRESS"],
                            "QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1"}
        with open(os.path.join(folder, "accessibility.log"), "w", encoding="utf-8") as log:
            self.processes.append(subprocess.Popen(
                ["/usr/libexec/at-spi-bus-launcher", "--launch-immediately"], stdout=log, stderr=log))
        harness.wait_until(self.is_there, PATIENCE, "the accessibility bus")
        import pyatspi  # which finds its bus when it is imported
        self.registry = pyatspi.Registry

    @staticmethod
    def is_there():
        """A program that asks for it too early would wait for it to be started once more."""
        answer = subprocess.run(
            ["dbus-send", "--session", "--print-reply", "--dest=org.freedesktop.DBus", "/",
             "org.freedesktop.DBus.NameHasOwner", "string:org.a11y.Bus"],
            check=False, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True).stdout
        return "boolean true" in answer

    def close(self):
        for process in reversed(self.processes):
            harness.end_process(process)

    def tree(self, pid):
        """Everything of a process: (role, name, description, object)."""
        result = []

        def walk(thing):
            try:
                role = thing.getRoleName()
                result.append((RENAMED.get(role, role), thing.name, thing.description, thing))
                for child in thing:
                    if child is not None:
                        walk(child)
            except Exception:  # pylint: disable=broad-except  # it has gone meanwhile
                pass

        for application in self.registry.getDesktop(0):
            if application is not None and application.get_process_id() == pid:
                walk(application)
        return result

    def find(self, pid, role, name="", description=""):
        """Waits for something of that role whose name and description contain these texts."""
        seen = []

        def look():
            seen[:] = self.tree(pid)
            for found in seen:
                if found[0] == role and name in found[1] and description in found[2]:
                    return found[3]
            return None

        try:
            return harness.wait_until(look, PATIENCE, f"{role} {name} {description}")
        except AssertionError as failure:
            text = "\n".join(str(found[:3]) for found in seen)
            raise AssertionError(f"{failure}; there were\n{text}") from None

    def press(self, pid, button):
        self.find(pid, "push button", button).queryAction().doAction(0)
