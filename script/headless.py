#!/usr/bin/python3
"""headless.py INSTALLATION SCREENSHOT: opens the program on a display of its own, types the commands
of the working folder's batch, prints what the console shows and leaves a screenshot."""

import os
import sys

from kvo_driver import Display, Program


def working_folder(installation):
    with open(os.path.join(installation, "etc/linux64.ini"), encoding="utf-8") as settings:
        for line in settings:
            key, _, value = line.partition("=")
            if key.strip() == "working directory":
                return value.strip()
    sys.exit("The settings name no working folder")


def commands(batch):
    with open(batch, encoding="utf-8") as lines:
        return [line.strip() for line in lines if line.strip() and not line.startswith("#")]


def main(installation, screenshot):
    display = Display()
    try:
        program = Program(installation, display)
        program.close_about()
        for command in commands(os.path.join(working_folder(installation), "kvo_batch.txt")):
            program.command(command)
        program.display.screenshot(screenshot)
        print(program.console())
        status = program.close()
    finally:
        display.close()
    print(f"Screenshot: {screenshot}")
    return status


sys.exit(main(*sys.argv[1:]))
