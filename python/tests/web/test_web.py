"""The live view on virtual sensors: its command line, its server over HTTP through
real clients (access, refusals, smuggling, time-outs, controls during long readings,
an unplugged sensor, signals), then the page in headless Chromium (it draws, its
controls reach the sensor, errors show; screenshots kept in ORU_WEB_ARTIFACTS)."""

import csv
import http.client
import io
import json
import os
import re
import shutil
import signal
import socket
import ssl
import subprocess
import sys
import tempfile
import time
import unittest

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.action_chains import ActionChains
    from selenium.webdriver.support.ui import Select, WebDriverWait
except ImportError:  # pragma: no cover - depends on the machine
    webdriver = None

DRIVER = shutil.which("chromedriver") or "/usr/bin/chromedriver"
BROWSER = shutil.which("chromium") or "/usr/bin/chromium"
REASON = ("python3-selenium is not installed" if webdriver is None else
          "chromium or chromedriver is not installed" if not (os.path.exists(DRIVER) and os.path.exists(BROWSER))
          else None)
OPENSSL = shutil.which("openssl")
ARTIFACTS = os.environ.get("ORU_WEB_ARTIFACTS", "web-artifacts")
COLUMNS = ["time", "sensor_id", "first_sequence", "last_sequence", "shutter_speed", "averages", "saturated"]
IDS = ["A4486-3-12-40-2", "A4486-3-13-40-2"]
JSON = {"Content-Type": "application/json"}
CALIBRATION_EXE = os.environ.get("ORU_VSENSOR_CALIBRATION_EXE")
NO_REFERENCE = "this mode needs a reference reading"  # the library's refusal lines the page passes on
DARK_ELSEWHERE = "the dark was taken at another shutter speed, master clock or ADC setting: take a new dark"
STOP_BOUND_S = 5.0  # a stop that waited for a reading or a lost sensor took 15 s to forever


def eventually(probe, what, seconds=15.0):
    """probe()'s first true value, asked again until `seconds` have passed."""
    deadline = time.monotonic() + seconds
    while True:
        value = probe()
        if value:
            return value
        if time.monotonic() > deadline:
            raise AssertionError("never happened: %s (last %r)" % (what, value))
        time.sleep(0.05)


class LiveServer:
    """The live view on virtual sensors, on a free port, for a test."""

    def __init__(self, *args, env=None, scheme="http"):
        self.proc = subprocess.Popen([sys.executable, "-m", "oru_sensor.web", "--port", "0"] + list(args),
                                     stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                     env=dict(os.environ, **(env or {})))
        line = self.proc.stdout.readline()
        m = re.search(r"%s://([^/]+):(\d+)/" % scheme, line)
        if not m:
            self.proc.kill()
            raise RuntimeError("server did not start (exit %s): %r %s" % (self.proc.wait(), line, self.proc.stderr.read()))
        self.host, self.port = m.group(1), int(m.group(2))
        self.base = "%s://%s:%d/" % (scheme, self.host, self.port)
        self.tls = ssl._create_unverified_context() if scheme == "https" else None

    def stop(self, sig=signal.SIGINT):
        """Sends `sig`; (exit status, seconds it took, stdout, stderr)."""
        start = time.monotonic()
        self.proc.send_signal(sig)
        out, err = self.proc.communicate(timeout=30)
        return self.proc.returncode, time.monotonic() - start, out, err

    def request(self, path, body=None, headers=None, method=None):
        """(status, headers, body bytes) through http.client, one connection each."""
        conn = (http.client.HTTPSConnection(self.host, self.port, timeout=10, context=self.tls) if self.tls
                else http.client.HTTPConnection(self.host, self.port, timeout=10))
        h = dict(JSON) if body is not None else {}
        h.update(headers or {})
        try:
            conn.request(method or ("GET" if body is None else "POST"), "/" + path,
                         body=None if body is None else body.encode(), headers=h)
            r = conn.getresponse()
            return r.status, r.headers, r.read()
        finally:
            conn.close()

    def status(self):
        return json.loads(self.request("api/status")[2])

    def post(self, path, obj):
        status, _, data = self.request("api/" + path, json.dumps(obj))
        return status, json.loads(data)

    def snapshot(self):
        status, _, body = self.request("api/snapshot?format=json")
        return json.loads(body) if status == 200 else {}

    def reading(self, **want):
        """The first reading on the page's event stream whose fields have the values in `want`."""
        with socket.create_connection((self.host, self.port), timeout=10) as s:
            s.sendall(b"GET /api/events HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")
            got = b""
            while True:
                got += s.recv(1 << 20)
                for m in re.finditer(rb"event: reading\ndata: (.*)\n\n", got):
                    r = json.loads(m.group(1))
                    if all(r.get(k) == v for k, v in want.items()):
                        return r
                got = got[got.rfind(b"\n\n") + 2:]

    def raw(self, data, wait=5.0):
        """Everything the server sends on one connection given `data`, until it closes it."""
        with socket.create_connection((self.host, self.port), timeout=wait) as s:
            s.sendall(data)
            got = b""
            try:
                while True:
                    chunk = s.recv(65536)
                    if not chunk:
                        return got
                    got += chunk
            except socket.timeout:
                return got + b"<still open>"
            except ConnectionResetError:
                return got


def http_request(method, path, body=b"", ctype="application/json", extra=b""):
    return (b"%s %s HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: %s\r\nContent-Length: %d\r\n%s\r\n"
            % (method, path, ctype.encode(), len(body), extra)) + body


class CommandLine(unittest.TestCase):
    def test_bad_values_end_with_one_line_before_any_sensor_is_touched(self):
        for args, said in [(["--port", "70000"], "--port must be 0..65535"), (["--port", "-1"], "--port"),
                           (["--port", "1_0"], "digits"), (["--virtual", "17"], "--virtual must be 1..10"),
                           (["--virtual", "0"], "--virtual"), (["--virtual", "\u0663"], "digits"),
                           (["--averages", "1001"], "--averages"), (["--timeout", "nan"], "--timeout"),
                           (["--max-rate", "inf"], "--max-rate"), (["--max-rate", "1_0"], "digits"), (["--host", "0.0.0.0"], "without a token"),
                           (["--tls-cert", "x.pem"], "go together"),
                           (["--token-file", "/nonexistent/token"], "cannot read the token file"),
                           (["--host", "0.0.0.0", "--token", " "], "not empty"),
                           (["--host", "0.0.0.0", "--token-file", os.devnull], "not empty"),
                           (["--calibration", "/nonexistent/cal.h5"], "--calibration: /nonexistent/cal.h5")]:
            with self.subTest(args=args):
                r = subprocess.run([sys.executable, "-m", "oru_sensor.web", "--virtual", "1"] + args,
                                   capture_output=True, text=True, timeout=30)
                self.assertEqual(r.returncode, 2, r.stderr)
                self.assertIn(said, r.stderr)
                self.assertNotIn("Traceback", r.stderr)
                self.assertNotIn("Live view", r.stdout)


class Access(unittest.TestCase):
    """A token from the environment (never on the command line), over TLS when openssl is here."""

    TOKEN = "s3 cret;x"

    @classmethod
    def setUpClass(cls):
        args, scheme = ["--virtual", "1", "--timeout", "2"], "http"
        cls.dir = tempfile.TemporaryDirectory()
        if OPENSSL:
            key, cert = os.path.join(cls.dir.name, "key.pem"), os.path.join(cls.dir.name, "cert.pem")
            subprocess.run([OPENSSL, "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "1", "-subj",
                            "/CN=localhost", "-keyout", key, "-out", cert], check=True, capture_output=True)
            args, scheme = args + ["--tls-cert", cert, "--tls-key", key], "https"
        cls.srv = LiveServer(*args, env={"ORU_WEB_TOKEN": cls.TOKEN}, scheme=scheme)

    @classmethod
    def tearDownClass(cls):
        code, _, cls.out, cls.err = cls.srv.stop()
        cls.dir.cleanup()
        assert code == 0, cls.err

    def test_token_once_in_the_query_then_the_cookie_never_in_ps(self):
        srv = self.srv
        with open("/proc/%d/cmdline" % srv.proc.pid, "rb") as f:
            self.assertNotIn(self.TOKEN.encode(), f.read())
        five = '{"shutter_speed": 5}'
        for path, body, headers in [("api/status", None, {}), ("api/status?token=wrong", None, {}),
                                    ("api/shutter", five, {}), ("api/shutter?token=s3%20cret%3Bx", five, {}),
                                    ("api/status", None, {"Authorization": "Bearer wrong"}),
                                    ("api/status", None, {"Cookie": "oru_session=" + self.TOKEN})]:
            with self.subTest(path=path, headers=headers):
                self.assertEqual(srv.request(path, body, headers)[0], 403)
        status, headers, _ = srv.request("api/snapshot?format=csv&token=s3%20cret%3Bx")
        self.assertEqual((status, headers["Location"]), (303, "/api/snapshot?format=csv"))
        cookie = headers["Set-Cookie"]
        for attribute in ("HttpOnly", "SameSite=Strict", "Path=/") + (("Secure",) if srv.tls else ()):
            self.assertIn(attribute, cookie)
        self.assertNotIn("cret", cookie)
        session = {"Cookie": cookie.split(";")[0]}
        self.assertEqual(srv.request("api/status", headers=session)[0], 200)
        self.assertEqual(srv.request("api/shutter", five, session)[0], 202)
        self.assertEqual(srv.request("api/status", headers={"Authorization": "Bearer " + self.TOKEN})[0], 200)

    def test_zz_the_request_log_never_shows_the_token(self):
        srv = self.srv
        srv.request("?token=s3%20cret%3Bx")
        code, _, out, err = srv.stop()
        self.assertIn("GET / 303", err)
        self.assertNotIn("cret", err + out)
        self.assertIn("sensors disconnected", out)


class Server(unittest.TestCase):
    """Refusals and controls on one server, two virtual sensors, short time-outs."""

    @classmethod
    def setUpClass(cls):
        cls.srv = LiveServer("--virtual", "2", "--timeout", "1", "--allow-host", "pi.local")

    @classmethod
    def tearDownClass(cls):
        code, _, _, err = cls.srv.stop(signal.SIGTERM)
        assert code == 0 and "Traceback" not in err, err

    def test_host_must_be_a_name_of_this_server(self):
        p = self.srv.port
        for host, expected in [("evil.example.com:%d" % p, 421), ("127.0.0.1.nip.io:%d" % p, 421),
                               ("a:b:c", 421), ("", 421), ("localhost:%d" % p, 200), ("127.0.0.1", 200),
                               ("[::1]:%d" % p, 200), ("PI.local:%d" % p, 200), ("192.168.1.5", 421)]:
            with self.subTest(host=host):
                self.assertEqual(self.srv.request("api/status", headers={"Host": host})[0], expected)
                if expected == 421:  # nor can it change anything
                    self.assertEqual(self.srv.request("api/averages", '{"averages": 3}', {"Host": host})[0], 421)
        self.assertEqual(self.srv.status()["averages"], 1)

    def test_changes_only_from_the_page_itself_with_a_json_body(self):
        own = "http://127.0.0.1:%d" % self.srv.port
        for headers, expected in [({"Origin": "http://evil.example.com"}, 403), ({"Origin": "null"}, 403),
                                  ({"Origin": own.replace("127.0.0.1", "localhost")}, 403),
                                  ({"Sec-Fetch-Site": "cross-site"}, 403), ({"Sec-Fetch-Site": "same-site"}, 403),
                                  ({"Content-Type": "text/plain"}, 415),
                                  ({"Content-Type": "application/x-www-form-urlencoded"}, 415),
                                  ({"Origin": own}, 202), ({"Sec-Fetch-Site": "same-origin"}, 202), ({}, 202)]:
            with self.subTest(headers=headers):
                self.assertEqual(self.srv.request("api/averages", '{"averages": 1}', headers)[0], expected)

    def test_bad_values_get_a_4xx_and_one_line(self):
        for path, body, expected in [
                ("api/shutter", {"shutter_speed": 0}, 400), ("api/shutter", {"shutter_speed": 3001}, 400),
                ("api/shutter", {"shutter_speed": "1_0"}, 400), ("api/shutter", {"shutter_speed": "\u0663"}, 400),
                ("api/shutter", {"shutter_speed": "+5"}, 400), ("api/shutter", {"shutter_speed": " 5"}, 400),
                ("api/shutter", {"shutter_speed": 2.5}, 400), ("api/shutter", {"shutter_speed": True}, 400),
                ("api/shutter", {}, 400), ("api/averages", {"averages": 1001}, 400),
                ("api/sensor", {"sensor": 2}, 400), ("api/pause", {"paused": "yes"}, 400),
                ("api/nothing", {}, 404), ("api/shutter", "[" * 2000 + "]" * 2000, 400),
                ("api/shutter", "not json", 400), ("api/shutter", "[1]", 400),
                ("api/shutter", '{"shutter_speed": "%s"}' % ("9" * 5000), 413),
                ("api/mode", {"mode": "ratio"}, 400), ("api/mode", {"mode": 3}, 400),
                ("api/dark", {"clear": "yes"}, 400), ("api/algorithm", {"algorithm": "TNNLS-GCV"}, 400)]:
            with self.subTest(path=path, body=str(body)[:40]):
                status, headers, data = self.srv.request(path, body if isinstance(body, str) else json.dumps(body))
                self.assertEqual(status, expected)
                self.assertEqual(headers["Connection"], "close")
                self.assertEqual(data.count(b"\n"), 1)
                self.assertTrue(json.loads(data)["error"])
        self.assertEqual(self.srv.request("api/snapshot?format=xml")[0], 400)
        self.assertEqual(self.srv.request("api/reference")[0], 404)  # none taken yet

    def test_a_refused_body_is_never_taken_for_a_request(self):
        inner = http_request(b"POST", b"/api/shutter", b'{"shutter_speed": 77}')
        for first in [http_request(b"POST", b"/api/shutter", inner, "text/plain"),
                      http_request(b"POST", b"/api/shutter", inner, "application/json"),
                      http_request(b"POST", b"/api/nothing", inner),
                      http_request(b"POST", b"/api/shutter", inner, extra=b"Origin: http://evil.example.com\r\n"),
                      http_request(b"GET", b"/api/status", inner)]:
            with self.subTest(first=first[:60]):
                answer = self.srv.raw(first)
                self.assertEqual(answer.count(b"HTTP/1.1 "), 1, answer[:300])
                self.assertNotIn(b"<still open>", answer)
        self.assertNotEqual(self.srv.status()["shutter_speed"], 77)

    def test_idle_slow_and_foreign_connections_are_closed(self):
        cases = [(b"", b""), (b"GET /api/status HTTP/1.1\r\nHost: 127.0.0.1\r\n", b""),
                 (http_request(b"POST", b"/api/averages", b'{"averages": 2}')[:-4], b"HTTP/1.1 408"),
                 (b"\x16\x03\x01\x00\xa5\x01\x00\x00\xa1\x03\x03" + bytes(32), b"HTTP/1.0 400")]
        socks = []
        for data, _ in cases:
            s = socket.create_connection((self.srv.host, self.srv.port), timeout=4)
            s.sendall(data)
            socks.append(s)
        for s, (data, answer) in zip(socks, cases):
            with self.subTest(sent=data[:40]), s:
                got = b""
                try:
                    while True:  # the server's time-out is 1 s; a hang ends in socket.timeout
                        chunk = s.recv(4096)
                        if not chunk:
                            break
                        got += chunk
                except ConnectionResetError:
                    pass
                self.assertTrue(got.startswith(answer), got[:100])
        self.assertEqual(self.srv.status()["averages"], 1)

    def events(self):
        """An open reading stream, once it has had its first reading."""
        s = socket.create_connection((self.srv.host, self.srv.port), timeout=5)
        s.sendall(b"GET /api/events HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")
        got = b""
        while b"event: reading" not in got:
            got += s.recv(65536)
        self.assertIn(b"event: status", got)
        return s

    def test_connections_per_client_are_capped_and_pages_counted(self):
        held = [self.events() for _ in range(16)]  # streams: busy, so never timed out
        try:
            self.assertEqual(self.srv.raw(http_request(b"GET", b"/api/status"), wait=3), b"")
            self.assertEqual(self.srv.raw(http_request(b"GET", b"/api/status"), wait=3), b"")
        finally:
            for s in held:
                s.close()
        eventually(lambda: self.srv.request("api/status")[0] == 200, "a request once the others closed")
        with self.events():
            self.assertEqual(self.srv.status()["pages"], 1)

    def test_controls_answer_at_once_and_reach_the_sensor(self):
        srv = self.srv
        self.assertEqual(srv.post("shutter", {"shutter_speed": 7})[0], 202)
        status = eventually(lambda: (lambda s: not s["pending"] and s)(srv.status()), "the shutter applied")
        self.assertEqual((status["shutter_speed"], status["exposure_ms"] > 0), (7, True))
        # Sensor 1 shows its own settings, not sensor 0's.
        code, status = srv.post("sensor", {"sensor": "1"})
        self.assertEqual((code, status["sensor_id"], status["shutter_speed"]), (202, IDS[1], 1))
        srv.post("averages", {"averages": 2})
        srv.post("shutter", {"shutter_speed": 9})
        snap = eventually(lambda: (lambda s: s.get("shutter_speed") == 9 and s.get("averages") == 2 and s)(
            srv.snapshot()), "a reading of the new settings")
        self.assertEqual((snap["sensor_id"], set(snap), len(snap["values"])), (IDS[1], set(COLUMNS) | {"values"}, 1024))
        self.assertEqual(snap["last_sequence"] - snap["first_sequence"], 1)
        rows = list(csv.DictReader(io.StringIO(srv.request("api/snapshot?format=csv")[2].decode())))
        self.assertEqual(list(rows[0]), COLUMNS + ["f%d" % i for i in range(1024)])
        self.assertRegex(rows[0]["time"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}[+-]\d\d:\d\d$")
        self.assertEqual(srv.post("sensor", {"sensor": 0})[1]["shutter_speed"], 7)
        self.assertTrue(srv.post("pause", {"paused": True})[1]["paused"])
        eventually(lambda: not srv.status()["pending"], "paused")
        seen = srv.snapshot()["last_sequence"]
        time.sleep(0.3)
        self.assertEqual(srv.snapshot()["last_sequence"], seen)
        srv.post("pause", {"paused": False})
        eventually(lambda: srv.snapshot()["last_sequence"] != seen, "readings again")
        srv.post("averages", {"averages": 1})


class LongReadings(unittest.TestCase):
    def test_slices_make_one_reading_and_a_change_or_a_signal_ends_a_long_one(self):
        # Shutter 500: 0.46 s a frame, each read in a slice of its own; every
        # output of a frame is its number, so 3 averages give the middle one.
        srv = LiveServer("--virtual", "1", "--quiet", env={"ORU_VSENSOR_PATTERN": "counter"})
        try:
            srv.post("shutter", {"shutter_speed": 500})
            srv.post("averages", {"averages": 3})
            snap = eventually(lambda: (lambda s: (s.get("averages"), s.get("shutter_speed")) == (3, 500) and s)(
                srv.snapshot()), "a reading of 3 frames at shutter 500")
            self.assertEqual(snap["last_sequence"] - snap["first_sequence"], 2)
            self.assertEqual(set(snap["values"]), {snap["first_sequence"] + 1.0})
            # 50 averages make a reading of 23 s; a change drops it.
            srv.post("averages", {"averages": 50})
            eventually(lambda: not srv.status()["pending"], "50 averages applied")
            time.sleep(1.0)
            start = time.monotonic()
            self.assertEqual(srv.post("averages", {"averages": 1})[0], 202)
            eventually(lambda: srv.snapshot().get("averages") == 1, "a reading of 1 average")
            self.assertLess(time.monotonic() - start, 10.0)  # the old reading would have run to 23 s
            srv.post("averages", {"averages": 50})
            time.sleep(1.0)
        finally:
            code, took, out, _ = srv.stop(signal.SIGTERM)
        self.assertEqual(code, 0)
        self.assertLess(took, STOP_BOUND_S)
        self.assertIn("sensors disconnected", out)


class Unplugged(unittest.TestCase):
    def test_a_lost_sensor_shows_as_removed_others_stay_usable_and_it_comes_back(self):
        srv = LiveServer("--virtual", "2", "--quiet", env={"ORU_VSENSOR_FAULTS": "0:unplug@2.5s,0:replug@5s"})
        try:
            status = eventually(lambda: (lambda s: s["states"][0] == "removed" and s)(srv.status()), "removed")
            self.assertEqual((status["state"], status["states"][1]), ("removed", "usable"))
            self.assertEqual(srv.post("sensor", {"sensor": 1})[0], 202)
            eventually(lambda: srv.snapshot().get("sensor_id") == IDS[1], "readings of sensor 1")
            srv.post("sensor", {"sensor": 0})
            eventually(lambda: srv.status()["states"][0] == "usable", "sensor 0 back")
            eventually(lambda: srv.snapshot().get("sensor_id") == IDS[0], "readings of sensor 0 again")
        finally:
            code, took, out, _ = srv.stop(signal.SIGTERM)
        self.assertEqual(code, 0)
        self.assertLess(took, STOP_BOUND_S)
        self.assertIn("sensors disconnected", out)

    def test_a_sensor_that_never_comes_back_holds_nothing_up(self):
        srv = LiveServer("--virtual", "2", "--quiet", env={"ORU_VSENSOR_FAULTS": "0:unplug@2.5s"})
        try:
            eventually(lambda: srv.status()["state"] == "removed", "removed")
            srv.post("sensor", {"sensor": 1})
            eventually(lambda: srv.snapshot().get("sensor_id") == IDS[1], "readings of sensor 1")
            srv.post("sensor", {"sensor": 0})
            time.sleep(0.5)
            self.assertEqual(srv.status()["state"], "removed")
        finally:
            code, took, out, _ = srv.stop(signal.SIGTERM)
        self.assertEqual(code, 0)
        self.assertLess(took, STOP_BOUND_S)
        self.assertIn("sensors disconnected", out)


@unittest.skipIf(REASON, REASON or "")
class LiveView(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        # Sensor 0: white scene at full speed, shutter 1 gives far more than 10 readings
        # a second. Sensor 1: a green LED, with its true calibration for the
        # pointer readout and the spectrum.
        cls.tmp = tempfile.mkdtemp()
        cal = []
        if CALIBRATION_EXE:
            cal = ["--calibration", os.path.join(cls.tmp, "cal.h5")]
            subprocess.run([CALIBRATION_EXE, "--index", "1", "-o", cal[1]], check=True, capture_output=True)
        cls.srv = LiveServer("--virtual", "2", "--quiet", *cal,
                             env={"ORU_VSENSOR_NOISE": "20", "ORU_VSENSOR_SCENE": "1=led:529"})
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
        shutil.rmtree(cls.tmp, ignore_errors=True)

    def text(self, id_):
        return self.driver.find_element("id", id_).text

    def choose(self, select, value):
        Select(self.driver.find_element("id", select)).select_by_value(value)

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
        for fmt in ("csv", "json"):  # the snapshot links lead where Server looks
            self.assertEqual(self.driver.find_element("id", fmt).get_attribute("href"),
                             self.srv.base + "api/snapshot?format=" + fmt)
        self.driver.save_screenshot(os.path.join(ARTIFACTS, "live-view.png"))

    def test_2_shutter_reaches_the_sensor(self):
        self.enter("shutter", "42")
        self.wait.until(lambda d: self.text("s-shutter") == "42" and self.text("s-state") == "usable")
        status = self.srv.status()
        self.assertEqual(status["shutter_speed"], 42)
        self.wait.until(lambda d: self.text("s-exposure") == "%.3f ms" % status["exposure_ms"])

    def test_3_auto_exposure_ends_with_a_value(self):
        self.driver.find_element("id", "auto").click()
        self.assertEqual(self.text("auto"), "Searching…")
        self.wait.until(lambda d: self.text("auto") == "Auto exposure" and not self.text("message"))
        status = self.srv.status()
        self.assertEqual(self.text("s-shutter"), str(status["shutter_speed"]))
        self.assertEqual(status["auto_exposure"], status["shutter_speed"])
        self.assertGreater(status["shutter_speed"], 100)  # the white scene settles near 150

    def test_4_bad_value_shows_an_error_and_a_dark_of_other_settings_is_refused(self):
        self.enter("averages", "0")
        self.wait.until(lambda d: "averages must be" in self.text("message"))
        self.wait.until(lambda d: self.take("dark"))
        self.choose("mode", "dark")
        self.enter("shutter", "3")
        self.wait.until(lambda d: self.text("refusal") == "The dark mode cannot be shown: " + DARK_ELSEWHERE)
        self.driver.find_element("id", "dark-forget").click()
        self.wait.until(lambda d: self.text("s-dark") == "none" and not self.text("refusal"))
        self.driver.save_screenshot(os.path.join(ARTIFACTS, "live-view-warnings.png"))
        self.driver.set_window_size(390, 844)
        self.driver.save_screenshot(os.path.join(ARTIFACTS, "live-view-phone.png"))
        width = self.driver.execute_script("return document.documentElement.scrollWidth")  # no sideways scrolling
        self.assertLessEqual(width, self.driver.execute_script("return window.innerWidth"))
        self.driver.set_window_size(1200, 900)
        self.choose("mode", "raw")

    def take(self, kind):
        """Takes the dark or reference; False while the server has no reading at the new settings yet."""
        self.driver.find_element("id", kind).click()
        return self.text("s-" + kind) != "none"

    @unittest.skipUnless(CALIBRATION_EXE, "oru-vsensor-calibration is not built")
    def test_5_pointer_reads_out_the_filter_and_where_it_sees_light(self):
        status, _, body = self.srv.request("api/bands")
        self.assertEqual(status, 200)
        bands = json.loads(body)
        self.assertEqual((bands["sensor_id"], len(bands["bands"])), (IDS[1], 1024))
        plot = self.driver.find_element("id", "plot")
        # Across the plot's width: the filter under the pointer is the one read out.
        for fraction in (0.25, 0.75):
            x = 56 + fraction * (plot.size["width"] - 72)
            ActionChains(self.driver).move_to_element_with_offset(plot, int(x - plot.size["width"] / 2), 0).perform()
            m = re.match(r"filter (\d+): [\d.]+ DN, sees (\d+) nm to (\d+) nm \(centre (\d+) nm\)$",
                         self.text("s-pointer"))
            self.assertIsNotNone(m, self.text("s-pointer"))
            centre, low, high = bands["bands"][int(m.group(1))]
            self.assertEqual([int(g) for g in m.group(2, 3, 4)], [round(low), round(high), round(centre)])
            self.assertAlmostEqual(int(m.group(1)), fraction * 1023, delta=4)

    def test_6_modes_come_from_the_server_with_its_dark_and_reference(self):
        # Sensor 1's green LED at shutter 200 is its own reference: 100 % and 0 AU
        # where it lights the filters well (its background filters see no light).
        self.show_green_led()
        self.choose("mode", "transmittance")
        self.wait.until(lambda d: self.text("refusal") == "The transmittance mode cannot be shown: " + NO_REFERENCE)
        self.wait.until(lambda d: self.take("reference"))
        self.assertRegex(self.text("s-reference"), r"^shutter 200, 1 averaged, \d\d:\d\d:\d\d$")
        status, headers, body = self.srv.request("api/reference")
        self.assertIn("%s-reference-" % IDS[1], headers["Content-Disposition"])
        lines = body.decode().splitlines()
        self.assertIn("# kind: reference", lines)
        rows = list(csv.DictReader(line for line in lines if not line.startswith("#")))
        self.assertEqual((len(rows), rows[0]["sensor_id"], rows[0]["shutter_speed"]), (1, IDS[1], "200"))
        for mode, unit, median in [("transmittance", "%", 100.0), ("reflectance", "%", 100.0),
                                   ("absorbance", "AU", 0.0), ("rate", "DN/ms", None), ("raw", "DN", None)]:
            with self.subTest(mode=mode):
                self.choose("mode", mode)
                label = "%s (%s) against Filter" % ("Filter output" if mode == "raw" else mode.capitalize(), unit)
                self.wait.until(lambda d: d.find_element("id", "plot").get_attribute("aria-label") == label
                                and not self.text("refusal"))
                r = self.srv.reading(mode=mode, sensor_id=IDS[1], shutter_speed=200)
                self.assertEqual((r["unit"], r["refusal"], len(r["values"])), (unit, None, 1024))
                if median is not None:
                    # Each reading's dark is its 3 background filters: their noise (20 DN)
                    # moves all of its filters together, a few % at these levels.
                    lit = sorted(v for v, dn in zip(r["values"], r["raw"]) if dn > 1000)
                    self.assertGreater(len(lit), 10)
                    self.assertAlmostEqual(lit[len(lit) // 2], median, delta=max(median * 0.08, 0.035))
        self.assertEqual(self.text("s-exposure"), "182.56 ms")  # (200 x 912 + 160) us, exactly

    def show_green_led(self):
        self.choose("sensor", "1")
        self.enter("shutter", "200")
        self.wait.until(lambda d: self.text("s-id") == IDS[1] and self.text("s-shutter") == "200"
                        and self.text("s-state") == "usable")

    @unittest.skipUnless(CALIBRATION_EXE, "oru-vsensor-calibration is not built")
    def test_7_spectrum_of_the_green_led_peaks_at_529_nm(self):
        self.show_green_led()
        spectrum = self.driver.find_element("id", "spectrum")
        self.wait.until(lambda d: spectrum.is_displayed() and spectrum.get_attribute("aria-label")
                        == "Radiance (calibration units) against Wavelength (nm)")
        for algorithm in ("TNNLS-LCurve", "NNLS-L1"):  # the library's default first
            with self.subTest(algorithm=algorithm):
                if algorithm != "TNNLS-LCurve":
                    self.choose("algorithm", algorithm)
                self.wait.until(lambda d: self.text("spectrum-info").startswith(algorithm + ": weight"))
                sp = self.srv.reading(sensor_id=IDS[1], shutter_speed=200)["spectrum"]
                while sp["algorithm"] != algorithm:
                    sp = self.srv.reading(sensor_id=IDS[1])["spectrum"]
                peak = max(range(len(sp["values"])), key=lambda i: sp["values"][i] or 0)
                self.assertAlmostEqual(sp["wavelengths"][peak], 529.0, delta=3.0)
        self.driver.save_screenshot(os.path.join(ARTIFACTS, "live-view-spectrum.png"))
        # Sensor 0 is not the calibration's: the library's line instead of a spectrum.
        self.choose("sensor", "0")
        self.wait.until(lambda d: self.text("spectrum-info").startswith("No spectrum (NNLS-L1): "))


if __name__ == "__main__":
    unittest.main()
