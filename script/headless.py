#!/usr/bin/python3
"""headless.py INSTALLATION SCREENSHOT: opens the program on a display of its own, runs the batch of
its working folder, prints what the console shows and leaves a screenshot."""

import sys

from kvo_driver import Display, Program


def main(installation, screenshot):
    display = Display()
    try:
        program = Program(installation, display, start="bin/quorvane")
        program.close_about()
        program.run_batch()
        display.screenshot(screenshot)
        print(program.console())
        status = program.close()
    finally:
        display.close()
    print(f"Screenshot: {screenshot}")
    return status


sys.exit(main(*sys.argv[1:]))
