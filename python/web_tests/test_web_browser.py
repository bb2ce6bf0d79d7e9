"""The live view in headless Chromium: it draws, its controls reach the
sensor, snapshots parse, errors show. Keeps screenshots in ORU_WEB_ARTIFACTS."""

import csv
import io
import json
import os
import shutil
import unittest
import urllib.request

from live_server import LiveServer

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.support.ui import WebDriverWait
except ImportError:  # pragma: no cover - depends on the machine
    webdriver = None

DRIVER = shutil.which("chromedriver") or "/usr/bin/chromedriver"
BROWSER = shutil.which("chromium") or "/usr/bin/chromium"
REASON = ("python3-selenium is not installed" if webdriver is None else
          "chromium or chromedriver is not installed" if not (os.path.exists(DRIVER) and os.path.exists(BROWSER))
          else None)
ARTIFACTS = os.environ.get("ORU_WEB_ARTIFACTS", "web-artifacts")


@unittest.skipIf(REASON, REASON or "")
class LiveView(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        # White scene at full speed: shutter 1 gives far more than 10 readings a second.
        cls.srv = LiveServer("--virtual", "2", env={"ORU_VSENSOR_NOISE": "20"})
        opts = webdriver.ChromeOptions()
        opts.binary_location = BROWSER
        for a in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                  "--window-size=1200,900"):
            opts.add_argument(a)
        opts.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        cls.driver = webdriver.Chrome(service=Service(DRIVER), options=opts)
        cls.driver.set_script_timeout(30)
        cls.driver.get(cls.srv.base)
        cls.wait = WebDriverWait(cls.driver, 20)
        cls.wait.until(lambda d: d.find_element("id", "s-id").text.startswith("A4486"))
        os.makedirs(ARTIFACTS, exist_ok=True)

    @classmethod
    def tearDownClass(cls):
        cls.driver.quit()
        cls.srv.stop()

    def js(self, script, *args):
        return self.driver.execute_script(script, *args)

    def pixels(self):
        return self.js("const c = document.getElementById('plot');"
                       "return Array.from(c.getContext('2d').getImageData(0, 0, c.width, c.height).data"
                       ".filter((_, i) => i % 4 === 3)).join('')")

    def text(self, id_):
        return self.driver.find_element("id", id_).text

    def test_1_page_loads_without_console_errors_and_the_plot_moves(self):
        first = self.pixels()
        self.wait.until(lambda d: self.pixels() != first)
        errors = [e for e in self.driver.get_log("browser") if e["level"] == "SEVERE"]
        self.assertEqual(errors, [])
        self.assertGreaterEqual(float(self.text("s-rate")), 10.0)
        self.driver.save_screenshot(os.path.join(ARTIFACTS, "live-view.png"))

    def test_2_shutter_reaches_the_sensor(self):
        field = self.driver.find_element("id", "shutter")
        field.clear()
        field.send_keys("42")
        self.driver.find_element("id", "set-shutter").click()
        self.wait.until(lambda d: self.text("s-shutter") == "42")
        status = json.loads(urllib.request.urlopen(self.srv.base + "api/status", timeout=10).read())
        self.assertEqual(status["shutter_speed"], 42)
        self.assertEqual(self.text("s-exposure"), "%.3f ms" % status["exposure_ms"])

    def test_3_auto_exposure_ends_with_a_value(self):
        self.driver.find_element("id", "auto").click()
        self.wait.until(lambda d: self.text("auto") == "Auto exposure" and not self.text("message"))
        status = json.loads(urllib.request.urlopen(self.srv.base + "api/status", timeout=10).read())
        self.assertEqual(self.text("s-shutter"), str(status["shutter_speed"]))
        self.assertGreater(status["shutter_speed"], 100)  # the white scene settles near 150

    def test_4_snapshots_parse(self):
        fetch = ("const done = arguments[arguments.length - 1];"
                 "fetch(document.getElementById(arguments[0]).href).then(r => r.text()).then(done)")
        rows = list(csv.DictReader(io.StringIO(self.driver.execute_async_script(fetch, "csv"))))
        snap = json.loads(self.driver.execute_async_script(fetch, "json"))
        self.assertEqual(len(rows), 1)
        self.assertEqual(len(snap["values"]), 1024)
        self.assertEqual(len([k for k in rows[0] if k[0] == "f" and k[1:].isdigit()]), 1024)
        self.assertEqual(set(rows[0]) - {"f%d" % i for i in range(1024)}, set(snap) - {"values"})

    def test_5_bad_value_shows_an_error_and_dark_warning(self):
        field = self.driver.find_element("id", "averages")
        field.clear()
        field.send_keys("0")
        self.driver.find_element("id", "set-averages").click()
        self.wait.until(lambda d: "averages must be" in self.text("message"))
        self.driver.find_element("id", "dark").click()
        self.driver.find_element("id", "subtract").click()
        field = self.driver.find_element("id", "shutter")
        field.clear()
        field.send_keys("3")
        self.driver.find_element("id", "set-shutter").click()
        self.wait.until(lambda d: "take a new one" in self.text("dark-warning"))
        self.driver.save_screenshot(os.path.join(ARTIFACTS, "live-view-warnings.png"))
        self.driver.set_window_size(390, 844)
        self.driver.save_screenshot(os.path.join(ARTIFACTS, "live-view-phone.png"))
        width = self.js("return document.documentElement.scrollWidth")
        self.assertLessEqual(width, self.js("return window.innerWidth"))  # no sideways scrolling on a phone
        self.driver.set_window_size(1200, 900)


if __name__ == "__main__":
    unittest.main()
