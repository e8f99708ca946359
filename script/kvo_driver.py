"""Drives the real program under a display of its own, with key presses and mouse clicks as a person
would: for the headless run and for the end-to-end tests."""

import os
import re
import shutil
import subprocess
import time

WIDTH, HEIGHT = 1280, 900
# How far down the panes are, as a share of the screen.
CONSOLE, BATCH = 0.35, 0.87
NOT_COPIED = "nothing has been copied yet"


# What is waited for comes in a moment, or on a busy machine in many; only a fault takes this long.
PATIENCE_S = 120


class Timeout(Exception):
    pass


def wait_for(condition, what, seconds=PATIENCE_S):
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        result = condition()
        if result:
            return result
        time.sleep(0.05)
    raise Timeout(f"waited {seconds} s in vain for {what}")


def insist(action, condition, what, again_after=10):
    """Does something until it has worked: a window manager may lose a change of focus, and then a key
    goes nowhere."""
    asked = [-again_after]

    def has_worked():
        result = condition()
        if not result and time.monotonic() > asked[0] + again_after:
            action()
            asked[0] = time.monotonic()
        return result
    return wait_for(has_worked, what)


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

    def active_window(self):
        """0 when there is none; a window that has been closed may still be called active."""
        answer = self.run("xprop", "-root", "_NET_ACTIVE_WINDOW", "_NET_CLIENT_LIST")
        active, *windows = re.findall("0x[0-9a-f]+", answer) or ["0x0"]
        return int(active, 16) if active in windows else 0

    def picture_that_stays(self, window="root"):
        """The PNG of what is shown once it no longer changes."""
        shown = []

        def is_drawn():
            shown.append(subprocess.run(
                ["import", "-window", str(window), "-define", "png:exclude-chunks=date,time", "png:-"],
                env=self.environment, check=False, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout)
            return shown[-1] and shown[-2:-1] == shown[-1:] and shown[-1]
        return wait_for(is_drawn, "a picture that stays")

    def screenshot(self, path, window="root"):
        with open(path, "wb") as file:
            file.write(self.picture_that_stays(window))

    def close(self):
        for process in self.processes:
            process.kill()
            process.wait()


class Program:
    """The program of a staged installation on a display with a window manager."""

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

    def wait_for_window(self, title):
        return wait_for(lambda: self.windows(title), f"a window titled {title!r}")[0]

    def xdotool(self, *words):
        self.display.run("xdotool", *words)

    def activate(self, window):
        insist(lambda: self.xdotool("windowactivate", window),
               lambda: self.display.active_window() == int(window), f"window {window} to be active", 2)

    def close_about(self):
        about = self.wait_for_window("^About Quorvane")

        def press_escape():
            self.activate(about)
            self.xdotool("key", "Escape")
        insist(press_escape, lambda: not self.windows("^About Quorvane"), "the About box to close")

    def click(self, x, y):
        """Clicks at a place given in shares of the screen, which the window fills."""
        self.xdotool("mousemove", str(int(x * WIDTH)), str(int(y * HEIGHT)), "click", "1")

    def is_busy(self):
        return bool(self.windows("^KVO Working"))

    def start_command(self, command):
        """Types a command into the entry at the bottom of the window."""
        self.activate(self.window)
        self.click(0.6, 1 - 16 / HEIGHT)
        self.xdotool("type", "--delay", "5", command)
        self.xdotool("key", "Return")

    def command(self, command):
        """Types a command and waits for its end; returns what the console says of it."""
        before = self.console()
        self.start_command(command)
        return self.wait_for_end_of([command], before)

    def open_menu(self, key):
        self.activate(self.window)
        insist(lambda: self.xdotool("key", key), lambda: self.windows("^kvo_gui$"), f"the menu of {key}")

    def run_batch(self):
        """Runs the batch pane from its menu item and waits for the end of its last command; returns
        what the console says of it."""
        lines = [line.strip() for line in self.batch().splitlines() if line.strip()]
        before = self.console()
        self.open_menu("alt+t")
        self.xdotool("key", "r")
        return self.wait_for_end_of(lines, before)

    def wait_for_end_of(self, lines, before, seconds=600):
        """Waits until the console tells more than `before`: the lines, and what came of the last."""
        def said():
            # Between two commands of a batch the pop-up is away for a moment.
            text = None if self.is_busy() else self.text_of_pane(CONSOLE)
            return text and text.startswith(before) and end_of(lines, text[len(before) - 1:]) and text[len(before):]
        return wait_for(said, "the last command's end", seconds)

    def scroll_console_up(self, steps):
        self.xdotool("mousemove", str(int(0.7 * WIDTH)), str(int(CONSOLE * HEIGHT)),
                     "click", "--repeat", str(steps), "4")

    def text_of_pane(self, y):
        """Copies the text of the pane that is at this height; None when a command runs."""
        subprocess.run(["xclip", "-selection", "clipboard"], env=self.display.environment, check=True,
                       input=NOT_COPIED, text=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

        def copied():
            if self.is_busy():
                return [None]
            text = self.display.run("timeout", "20", "xclip", "-o", "-selection", "clipboard")
            return [text] if text not in ("", NOT_COPIED) else None

        def copy():
            self.activate(self.window)
            self.click(0.7, y)
            self.xdotool("key", "ctrl+a", "ctrl+c")
        text = insist(copy, copied, "the text of a pane", 20)[0]
        self.click(0.7, y)  # so that nothing is left selected
        return text

    def console(self):
        return self.text_of_pane(CONSOLE)

    def batch(self):
        return self.text_of_pane(BATCH)

    def close(self):
        """Closes the main window and returns the exit status."""
        def press_keys():
            self.activate(self.window)
            self.xdotool("key", "alt+F4")
        try:
            insist(press_keys, lambda: self.process.poll() is not None, "the program to end", 20)
        finally:
            self.process.kill()
        return self.process.wait()


def end_of(lines, text):
    """Whether the text, which begins with the end of a line, has each of the lines, and below the last
    one, if it is a command, how that ended."""
    place = 0
    for line in lines:
        place = text.find(f"\n{line}\n", place)
        if place < 0:
            return False
        place += len(line) + 1
    return lines[-1].startswith("#") or re.search(r"\n(\S+ - (DONE|CANCELLED)|WARNING: .*)\n", text[place:]) is not None


def fresh_copy(source, target):
    shutil.rmtree(target, ignore_errors=True)
    shutil.copytree(source, target)
