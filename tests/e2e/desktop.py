"""A desktop for the end-to-end tests: a window manager, terminals, and hands on the keyboard."""
import os
import re
import subprocess

import harness

TITLE = "TonewellDetection"
DIALOG = "错误报告 - Quillory音频服务程序"
MANAGERS = ("openbox", "xfwm4", "metacity")
PATIENCE = 30  # s


class Terminal:
    """A terminal that keeps each character that reaches it."""

    def __init__(self, screen, name):
        self.path = os.path.join(screen.world.folder, name + ".typed")
        command = 'stty raw -echo && exec cat >"$1"'
        self.process = screen.world.start(
            name, "xterm", "-fa", "monospace", "-T", name, "-e", "sh", "-c", command, "sh", self.path)
        screen.world.others.append(self.process)
        harness.wait_until(lambda: os.path.exists(self.path), PATIENCE, f"the terminal {name}")
        self.window = harness.wait_until(lambda: screen.visible(name), PATIENCE, "its window")[0]

    def typed(self):
        with open(self.path, encoding="ascii") as file:
            return file.read()


class Screen:
    """The display of a world."""

    def __init__(self, world):
        self.world = world

    def ids(self, name):
        """The windows that a property of the root names."""
        text = self.world.ask("xprop", "-root", name)
        return [int(number, 16) for number in re.findall(r"0x[0-9a-f]+", text) if int(number, 16)]

    def visible(self, title):
        """The mapped windows of exactly that title."""
        found = subprocess.run(["xdotool", "search", "--onlyvisible", "--name", f"^{title}$"],
                               env=self.world.environment, timeout=20, stdout=subprocess.PIPE,
                               stderr=subprocess.DEVNULL, check=False)
        return [int(number) for number in found.stdout.split()]

    def type(self, text):
        self.world.ask("xdotool", "type", "--delay", "10", text)


class Desktop(Screen):
    """An X server of the world's own with a window manager on it, which TONEWELL_WINDOW_MANAGER names."""

    def __init__(self, world):
        super().__init__(world)
        world.start_display()
        # Settings in memory, and no accessibility bus: those are the user's.
        world.environment.update(GSETTINGS_BACKEND="memory", NO_AT_BRIDGE="1")
        manager = os.environ["TONEWELL_WINDOW_MANAGER"]
        if manager not in MANAGERS:
            raise AssertionError(f"no window manager is called {manager}")
        if manager == "xfwm4":  # its settings come over the bus
            world.start_bus()
        world.others.append(world.start(manager, manager))
        harness.wait_until(lambda: self.ids("_NET_SUPPORTING_WM_CHECK"), PATIENCE, manager)
        with world.log("active") as log:
            self.spy = subprocess.Popen(["xprop", "-root", "-spy", "_NET_ACTIVE_WINDOW"], stdout=log,
                                        env=world.environment, stdin=subprocess.DEVNULL)
        world.others.append(self.spy)

    def listed(self):
        """What task bars, pagers and lists of windows show."""
        return set(self.ids("_NET_CLIENT_LIST"))

    def active(self):
        return self.ids("_NET_ACTIVE_WINDOW")[:1]

    def ever_active(self):
        """Every window that has been the active one so far."""
        with open(os.path.join(self.world.folder, "active.log"), encoding="utf-8") as file:
            return {int(number, 16) for number in re.findall(r"0x[0-9a-f]+", file.read())
                    if int(number, 16)}

    def activate(self, window):
        self.world.ask("xdotool", "windowactivate", str(window))
        self.wait_until_active(window)

    def wait_until_active(self, window):
        harness.wait_until(lambda: self.active() == [window], PATIENCE, f"window {window} active")

    def is_above(self, window):
        return "_NET_WM_STATE_ABOVE" in self.world.ask("xprop", "-id", str(window), "_NET_WM_STATE")

    def settle(self, window):
        """Returns when the window manager has handled all that came before: it answers a request about
        one of its windows, and takes one thing after the other."""
        before = self.is_above(window)
        self.world.ask("wmctrl", "-i", "-r", str(window), "-b", "toggle,above")
        harness.wait_until(lambda: self.is_above(window) != before, PATIENCE, "the manager's answer")

    def switch(self, window):
        """Alt+Tab, once; `window` is any one that is managed."""
        self.world.ask("xdotool", "keydown", "alt", "key", "Tab")
        # Alt that is let go before the manager looks ends the switching before it begins.
        self.settle(window)
        self.world.ask("xdotool", "keyup", "alt")
        self.settle(window)

    def switch_to(self, window):
        """Alt+Tab until the window is active: on a busy machine a manager may miss one."""
        def switched():
            if self.active() != [window]:
                self.switch(window)
            return self.active() == [window]

        harness.wait_until(switched, PATIENCE, f"window {window} active")
