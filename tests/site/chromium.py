"""Drives Chromium by its DevTools protocol over pipes."""

import base64
import fcntl
import json
import os
import select
import shutil
import subprocess
import tempfile


PATIENCE_S = 240


def high_pipe():
    """A pipe whose descriptors leave the low numbers to the child."""
    ends = os.pipe()
    high = [fcntl.fcntl(end, fcntl.F_DUPFD_CLOEXEC, 10) for end in ends]
    for end in ends:
        os.close(end)
    return high


class Chromium:
    """A browser without a window, showing one page."""

    def __init__(self, pictures=True):
        self.profile = tempfile.mkdtemp(prefix="kvo_chromium_")
        commands, self.to_browser = high_pipe()
        self.from_browser, answers = high_pipe()
        # The browser reads from descriptor 3 and writes to 4.
        self.process = subprocess.Popen(
            ["bash", "-c", f'exec chromium "$@" 3<&{commands} 4>&{answers}', "chromium",
             "--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
             "--no-first-run", f"--blink-settings=imagesEnabled={str(pictures).lower()}",
             "--remote-debugging-pipe", f"--user-data-dir={self.profile}",
             "about:blank"],
            pass_fds=[commands, answers], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(commands)
        os.close(answers)
        self.received = b""
        self.last_id = 0
        self.events = []
        self.session = None
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Network", "Log"):
            self.call(domain + ".enable")
        self.call("Page.setLifecycleEventsEnabled", enabled=True)

    def read_message(self):
        while b"\0" not in self.received:
            if not select.select([self.from_browser], [], [], PATIENCE_S)[0]:
                raise RuntimeError("Chromium does not answer")
            block = os.read(self.from_browser, 1 << 16)
            if not block:
                raise RuntimeError("Chromium has ended")
            self.received += block
        message, _, self.received = self.received.partition(b"\0")
        return json.loads(message)

    def call(self, method, **parameters):
        self.last_id += 1
        message = {"id": self.last_id, "method": method, "params": parameters}
        if self.session:
            message["sessionId"] = self.session
        os.write(self.to_browser, json.dumps(message).encode() + b"\0")
        while True:
            answer = self.read_message()
            if answer.get("id") == self.last_id:
                if "error" in answer:
                    raise RuntimeError(f"{method}: {answer['error']['message']}")
                return answer["result"]
            self.events.append(answer)

    def open(self, address):
        """Loads a page and returns what went wrong with it: failed requests, errors of scripts."""
        self.events.clear()
        loader = self.call("Page.navigate", url=address)["loaderId"]

        def is_end(event):
            return (event.get("method") == "Page.lifecycleEvent" and event["params"]["name"] == "load"
                    and event["params"]["loaderId"] == loader)
        while not any(map(is_end, self.events)):
            self.events.append(self.read_message())
        return [problem for event in self.events if (problem := problem_of(event))]

    def evaluate(self, expression):
        answer = self.call("Runtime.evaluate", expression=expression, awaitPromise=True,
                           returnByValue=True)
        if "exceptionDetails" in answer:
            raise RuntimeError(f"{expression}: {answer['exceptionDetails']}")
        return answer["result"].get("value")

    def resize(self, width, height):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height,
                  deviceScaleFactor=1, mobile=width < 500)

    def prefer(self, scheme):
        self.call("Emulation.setEmulatedMedia",
                  features=[{"name": "prefers-color-scheme", "value": scheme}])

    def allow_scripts(self, allowed):
        self.call("Emulation.setScriptExecutionDisabled", value=not allowed)

    def screenshot(self, path):
        picture = self.call("Page.captureScreenshot", format="png")["data"]
        with open(path, "wb") as file:
            file.write(base64.b64decode(picture))

    def close(self):
        self.process.kill()
        self.process.wait()
        os.close(self.to_browser)
        os.close(self.from_browser)
        shutil.rmtree(self.profile, ignore_errors=True)


def problem_of(event):
    parameters = event.get("params", {})
    if event.get("method") == "Network.responseReceived" and parameters["response"]["status"] >= 400:
        return f"{parameters['response']['status']} {parameters['response']['url']}"
    if event.get("method") == "Network.loadingFailed" and not parameters.get("canceled"):
        return parameters["errorText"]
    if event.get("method") == "Runtime.exceptionThrown":
        return parameters["exceptionDetails"].get("exception", {}).get("description", "exception")
    return None
