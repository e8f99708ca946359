"""Drives the real program under a display of its own, with key presses and mouse clicks as a person
would: for the headless run and for the end-to-end tests."""

import os
import shutil
import subprocess
import time

WIDTH, HEIGHT = 1280, 900


class Timeout(Exception):
    pass


def wait_for(condition, what, seconds=60):
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        result = condition()
        if result:
            return result
        time.sleep(0.05)
    raise Timeout(f"waited {seconds} s in vain for {what}")


class Display:
    """An X server, with a window manager unless there is no need of one: windows are found and
    looked at without, but keys go nowhere in particular."""

    def __init__(self, window_manager=True):
        reader, writer = os.pipe()
        self.server = subprocess.Popen(
            ["Xvfb", "-displayfd", str(writer), "-screen", "0", f"{WIDTH}x{HEIGHT}x24",
             "-nolisten", "tcp", "-noreset"],
            pass_fds=[writer], stderr=subprocess.DEVNULL)
        os.close(writer)
        with os.fdopen(reader) as numbers:
            self.name = ":" + numbers.readline().strip()
        self.environment = dict(os.environ, DISPLAY=self.name)
        self.processes = [self.server]
        if window_manager:
            self.start_window_manager()

    def start_window_manager(self):
        self.processes.insert(0, subprocess.Popen(["openbox", "--sm-disable"], env=self.environment,
                                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL))
        wait_for(lambda: "window id" in self.run("xprop", "-root", "_NET_SUPPORTING_WM_CHECK"),
                 "the window manager")

    def run(self, *command):
        return subprocess.run(command, env=self.environment, text=True, check=False,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout

    def screenshot(self, path):
        self.run("import", "-window", "root", str(path))

    def close(self):
        for process in self.processes:
            process.kill()
            process.wait()


class Program:
    """The program of a staged installation on a display."""

    def __init__(self, installation, display, start="bin/linux64/kvo_gui", **options):
        self.display = display
        # Started with the path as given, as a user would type it.
        self.process = subprocess.Popen([os.path.join(installation, start)],
                                        env=display.environment, stdin=subprocess.DEVNULL,
                                        text=True, **options)
        self.window = self.wait_for_window("^KVO v")

    def windows(self, title):
        """Ids of the visible windows whose title matches the regular expression."""
        return self.display.run("xdotool", "search", "--onlyvisible", "--name", title).split()

    def wait_for_window(self, title, seconds=60):
        return wait_for(lambda: self.windows(title), f"a window titled {title!r}", seconds)[0]

    def xdotool(self, *words):
        self.display.run("xdotool", *words)

    def close_about(self):
        about = self.wait_for_window("^About Quorvane")
        self.xdotool("windowfocus", "--sync", about)
        self.xdotool("key", "Escape")
        wait_for(lambda: not self.windows("^About Quorvane"), "the About box to close")

    def click(self, x, y):
        """Clicks at a place given in shares of the screen, which the window fills."""
        self.xdotool("mousemove", str(int(x * WIDTH)), str(int(y * HEIGHT)), "click", "1")

    def start_command(self, command):
        """Types a command into the entry at the bottom of the window."""
        self.click(0.6, 1 - 16 / HEIGHT)
        self.xdotool("type", "--delay", "5", command)
        self.xdotool("key", "Return")

    def wait_until_idle(self, seconds=600):
        wait_for(lambda: not self.windows("^KVO Working"), "the command's end", seconds)

    def command(self, command, seconds=600):
        self.start_command(command)
        self.wait_for_window("^KVO Working")
        self.wait_until_idle(seconds)

    def run_batch(self, seconds=600):
        """Runs the batch pane from its menu item; the pop-up goes and comes between two commands."""
        self.xdotool("windowactivate", "--sync", self.window, "key", "alt+t")
        time.sleep(0.3)
        self.xdotool("key", "r")
        self.wait_for_window("^KVO Working")
        unseen_since = [time.monotonic()]

        def done():
            if self.windows("^KVO Working"):
                unseen_since[0] = time.monotonic()
            return time.monotonic() - unseen_since[0] > 2
        wait_for(done, "the batch's end", seconds)

    def scroll_console_up(self, steps):
        self.xdotool("mousemove", str(int(0.7 * WIDTH)), str(int(0.35 * HEIGHT)), "click", "--repeat", str(steps), "4")

    def pane_text(self, y):
        self.click(0.7, y)
        self.xdotool("key", "ctrl+a")
        self.xdotool("key", "ctrl+c")
        time.sleep(0.3)
        return self.display.run("timeout", "5", "xclip", "-o", "-selection", "clipboard")

    def console(self):
        return self.pane_text(0.35)

    def batch(self):
        return self.pane_text(0.87)

    def close(self):
        """Closes the main window and returns the exit status."""
        self.xdotool("windowactivate", "--sync", self.window, "key", "alt+F4")
        try:
            return self.process.wait(20)
        finally:
            self.process.kill()


def fresh_copy(source, target):
    shutil.rmtree(target, ignore_errors=True)
    shutil.copytree(source, target)
