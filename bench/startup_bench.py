#!/usr/bin/python3
"""startup_bench.py INSTALLATION: from the start of the program to its window on the screen."""

import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

ROUNDS = 11


def measure(program, windows):
    """Seconds until the window manager lists a window, which it does once it is on the screen."""
    start = time.monotonic()
    process = subprocess.Popen([program], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    while "0x" not in windows.readline():
        pass
    seconds = time.monotonic() - start
    process.kill()
    process.wait()
    while "0x" in windows.readline():
        pass
    return seconds


def main(installation):
    with tempfile.TemporaryDirectory() as scratch:
        copy = os.path.join(scratch, "quorvane")
        shutil.copytree(installation, copy)
        with open(os.path.join(copy, "etc/linux64.ini"), "w", encoding="utf-8") as settings:
            settings.write(f"working directory = {copy}/example\nbrain viewer = none\n")
        watcher = subprocess.Popen(["xprop", "-spy", "-root", "_NET_CLIENT_LIST"], text=True,
                                   stdout=subprocess.PIPE)
        watcher.stdout.readline()
        times = [measure(os.path.join(copy, "bin/linux64/kvo_gui"), watcher.stdout)
                 for _ in range(ROUNDS)]
        watcher.kill()
    print(f"window on screen from exec, median {statistics.median(times) * 1000:.0f} ms")
    print(f"window on screen from exec, slowest {max(times) * 1000:.0f} ms")


main(sys.argv[1])
