"""The live view on virtual sensors: its server over HTTP (access, refusals, snapshots),
then the page in headless Chromium (it draws, its controls reach the sensor, errors
show; screenshots kept in ORU_WEB_ARTIFACTS). Each behaviour is checked in one tier."""

import csv
import io
import json
import os
import re
import shutil
import socket
import subprocess
import sys
import time
import unittest
import urllib.request

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
COLUMNS = ["time", "sensor_id", "first_sequence", "last_sequence", "shutter_speed", "averages", "saturated"]


class LiveServer:
    """The live view on virtual sensors, on a free port, for a test."""

    def __init__(self, *args, env=None):
        self.proc = subprocess.Popen([sys.executable, "-m", "oru_sensor.web", "--port", "0", "--quiet"] + list(args),
                                     stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                     env=dict(os.environ, **(env or {})))
        line = self.proc.stdout.readline()
        m = re.search(r"http://([^/]+)/", line)
        if not m:
            self.proc.kill()
            raise RuntimeError("server did not start (exit %s): %r %s"
                               % (self.proc.wait(), line, self.proc.stderr.read()))
        self.base = "http://%s/" % m.group(1)

    def stop(self):
        """Ctrl-C; returns what it printed on leaving."""
        self.proc.send_signal(2)
        out, err = self.proc.communicate(timeout=15)
        return self.proc.returncode, out, err

    def request(self, path, body=None, headers=None):
        """(status, headers, body bytes); HTTP errors are answers too."""
        data = None if body is None else body.encode()
        h = {"Content-Type": "application/json"} if body is not None else {}
        h.update(headers or {})
        req = urllib.request.Request(self.base + path, data=data, headers=h)
        try:
            with urllib.request.urlopen(req, timeout=20) as r:
                return r.status, r.headers, r.read()
        except urllib.error.HTTPError as e:
            return e.code, e.headers, e.read()


class Access(unittest.TestCase):
    def test_token_needed_off_this_host_once_in_the_query_then_the_cookie(self):
        with self.assertRaisesRegex(RuntimeError, r"\(exit 2\).*without --token"):
            LiveServer("--virtual", "1", "--host", "0.0.0.0")
        srv = LiveServer("--virtual", "1", "--token", "s3 cret;x")
        try:
            five = '{"shutter_speed": 5}'
            for path, body in (("api/status", None), ("api/status?token=wrong", None), ("api/shutter", five)):
                self.assertEqual(srv.request(path, body)[0], 403, path)
            status, headers, _ = srv.request("?token=s3%20cret%3Bx")
            self.assertEqual(status, 200)
            cookie = {"Cookie": headers["Set-Cookie"].split(";")[0]}
            self.assertEqual(srv.request("api/status", headers=cookie)[0], 200)
            self.assertEqual(srv.request("api/shutter", five, cookie)[0], 200)
        finally:
            code, out, _ = srv.stop()
        self.assertEqual(code, 0)
        self.assertIn("sensors disconnected", out)


class Controls(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.srv = LiveServer("--virtual", "2")

    @classmethod
    def tearDownClass(cls):
        code, _, err = cls.srv.stop()
        assert code == 0, err

    def post(self, path, body):
        status, _, data = self.srv.request(path, json.dumps(body))
        return status, json.loads(data)

    def test_bad_values_get_400_with_a_message(self):
        for path, body in [("api/shutter", {"shutter_speed": 0}), ("api/shutter", {"shutter_speed": 3001}),
                           ("api/shutter", {"shutter_speed": "fast"}), ("api/shutter", {}),
                           ("api/averages", {"averages": 0}), ("api/averages", {"averages": 2.5}),
                           ("api/sensor", {"sensor": 2}), ("api/pause", {"paused": "yes"})]:
            with self.subTest(path=path, body=body):
                status, data = self.post(path, body)
                self.assertEqual(status, 400)
                self.assertTrue(data["error"])
        self.assertEqual(self.srv.request("api/shutter", "not json")[0], 400)
        self.assertEqual(self.srv.request("api/shutter", "{}", {"Content-Type": "text/plain"})[0], 415)
        self.assertEqual(self.srv.request("api/snapshot?format=xml")[0], 400)

    def test_controls_reach_the_sensor_while_it_streams(self):
        self.assertEqual(self.post("api/averages", {"averages": 2})[0], 200)
        self.assertEqual(self.post("api/sensor", {"sensor": 1})[1]["sensor_id"], "A4486-3-13-40-2")
        self.assertEqual(self.post("api/shutter", {"shutter_speed": 7})[1]["shutter_speed"], 7)
        for _ in range(200):  # a snapshot taken later comes from the new sensor, shutter speed and averages
            status, _, body = self.srv.request("api/snapshot?format=json")
            snap = json.loads(body) if status == 200 else {}
            if snap.get("shutter_speed") == 7:
                break
            time.sleep(0.05)
        self.assertEqual((snap["sensor_id"], snap["shutter_speed"], snap["averages"]), ("A4486-3-13-40-2", 7, 2))
        self.assertEqual((set(snap), len(snap["values"])), (set(COLUMNS) | {"values"}, 1024))
        # The CSV snapshot has the same columns, values spread over f0..f1023.
        rows = list(csv.DictReader(io.StringIO(self.srv.request("api/snapshot?format=csv")[2].decode())))
        self.assertEqual(len(rows), 1)
        self.assertEqual(list(rows[0]), COLUMNS + ["f%d" % i for i in range(1024)])
        self.assertRegex(rows[0]["time"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}[+-]\d\d:\d\d$")
        self.assertEqual(int(rows[0]["last_sequence"]) - int(rows[0]["first_sequence"]), 1)
        # Paused, the stream is off and the sensor takes changes at once.
        self.assertTrue(self.post("api/pause", {"paused": True})[1]["paused"])
        self.assertEqual(self.post("api/shutter", {"shutter_speed": 9})[1]["shutter_speed"], 9)
        self.assertFalse(self.post("api/pause", {"paused": False})[1]["paused"])
        self.post("api/sensor", {"sensor": 0})

    def test_a_page_that_vanishes_is_forgotten(self):
        host, port = self.srv.base[7:-1].rsplit(":", 1)

        def page(event, count):
            """An events connection once it has seen `count` of `event`."""
            s = socket.create_connection((host, int(port)), timeout=5)
            s.sendall(b"GET /api/events HTTP/1.1\r\nHost: x\r\n\r\n")
            got = b""
            while got.count(event) < count:
                got += s.recv(65536)
            return s

        for _ in range(5):
            page(b"event: status", 1).close()
        # Each one is dropped at its next write; two new pages both get readings.
        time.sleep(1.0)
        pages = [page(b"event: reading", 2) for _ in range(2)]  # noqa: F841 - open until the count is taken
        self.assertEqual(json.loads(self.srv.request("api/status")[2])["pages"], 2)


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
        cls.driver.get(cls.srv.base)
        cls.wait = WebDriverWait(cls.driver, 20)
        cls.wait.until(lambda d: d.find_element("id", "s-id").text.startswith("A4486"))
        os.makedirs(ARTIFACTS, exist_ok=True)

    @classmethod
    def tearDownClass(cls):
        cls.driver.quit()
        cls.srv.stop()

    def text(self, id_):
        return self.driver.find_element("id", id_).text

    def enter(self, field, value):
        """Types `value` into a control and presses its button."""
        element = self.driver.find_element("id", field)
        element.clear()
        element.send_keys(value)
        self.driver.find_element("id", "set-" + field).click()

    def test_1_page_loads_without_console_errors_and_the_plot_moves(self):
        pixels = ("const c = document.getElementById('plot');"
                  "return Array.from(c.getContext('2d').getImageData(0, 0, c.width, c.height).data"
                  ".filter((_, i) => i % 4 === 3)).join('')")
        first = self.driver.execute_script(pixels)
        self.wait.until(lambda d: d.execute_script(pixels) != first)
        self.assertEqual([e for e in self.driver.get_log("browser") if e["level"] == "SEVERE"], [])
        self.assertGreaterEqual(float(self.text("s-rate")), 10.0)
        for fmt in ("csv", "json"):  # the snapshot links lead where Controls looks
            self.assertEqual(self.driver.find_element("id", fmt).get_attribute("href"),
                             self.srv.base + "api/snapshot?format=" + fmt)
        self.driver.save_screenshot(os.path.join(ARTIFACTS, "live-view.png"))

    def test_2_shutter_reaches_the_sensor(self):
        self.enter("shutter", "42")
        self.wait.until(lambda d: self.text("s-shutter") == "42")
        status = json.loads(self.srv.request("api/status")[2])
        self.assertEqual(status["shutter_speed"], 42)
        self.assertEqual(self.text("s-exposure"), "%.3f ms" % status["exposure_ms"])

    def test_3_auto_exposure_ends_with_a_value(self):
        self.driver.find_element("id", "auto").click()
        self.wait.until(lambda d: self.text("auto") == "Auto exposure" and not self.text("message"))
        status = json.loads(self.srv.request("api/status")[2])
        self.assertEqual(self.text("s-shutter"), str(status["shutter_speed"]))
        self.assertGreater(status["shutter_speed"], 100)  # the white scene settles near 150

    def test_4_bad_value_shows_an_error_and_dark_warning(self):
        self.enter("averages", "0")
        self.wait.until(lambda d: "averages must be" in self.text("message"))
        self.driver.find_element("id", "dark").click()
        self.driver.find_element("id", "subtract").click()
        self.enter("shutter", "3")
        self.wait.until(lambda d: "take a new one" in self.text("dark-warning"))
        self.driver.save_screenshot(os.path.join(ARTIFACTS, "live-view-warnings.png"))
        self.driver.set_window_size(390, 844)
        self.driver.save_screenshot(os.path.join(ARTIFACTS, "live-view-phone.png"))
        width = self.driver.execute_script("return document.documentElement.scrollWidth")  # no sideways scrolling
        self.assertLessEqual(width, self.driver.execute_script("return window.innerWidth"))
        self.driver.set_window_size(1200, 900)


if __name__ == "__main__":
    unittest.main()
