"""A real browser without a window, for the tests of pages."""

from selenium import webdriver


def start_browser(images=True):
    """Chromium, which keeps what goes wrong with a page."""
    options = webdriver.ChromeOptions()
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                     f"--blink-settings=imagesEnabled={str(images).lower()}"):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    return webdriver.Chrome(service=webdriver.chrome.service.Service("/usr/bin/chromedriver"), options=options)


def set_screen(browser, width, height, scheme="light"):
    tell = browser.execute_cdp_cmd
    tell("Emulation.setDeviceMetricsOverride",
         {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": width < 500})
    tell("Emulation.setEmulatedMedia", {"features": [{"name": "prefers-color-scheme", "value": scheme}]})
